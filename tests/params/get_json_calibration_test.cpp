// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Loading the soft-iron matrix from its parameter file: what loads, what
// fails, and the exact log lines of each path; and the descriptor owner that
// reads the file.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "magcal/magcal_host.h"
#include "params/File.h"

namespace {

const std::string kStart = "E/JSONObject: kxs4410 getJsonCalibration\n";
const std::string kArrayErr = "E/JSONObject: kxs4410 get json array err\n";
const std::string kFloatErr = "E/JSONObject: kxs4410 get json float err\n";
const std::string kDone = "E/JSONObject: For debug only: tmp_output has total 72 Bytes\n";

std::string size_line(long size) {
    return "E/JSONObject: Msensor readSettings size is " + std::to_string(size) + "\n";
}

class SoftIronFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = ::testing::TempDir() + "magcal_softiron_XXXXXX";
        ASSERT_NE(mkdtemp(&dir_[0]), nullptr);
        path_ = dir_ + "/mag_soft_parameter.json";
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }
    // Writes `text` to the parameter file, loads it into `out`; the log goes to log_.
    int32_t load(const std::string& text, double out[9]) {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
        return load_from(path_, out);
    }
    int32_t load_from(const std::string& path, double out[9]) {
        ::testing::internal::CaptureStderr();
        const int32_t result = getJsonCalibration(path.c_str(), "qvg", out, 9);
        log_ = ::testing::internal::GetCapturedStderr();
        return result;
    }
    std::string dir_, path_, log_;
};

TEST_F(SoftIronFileTest, LoadsFirstNineNumbersThroughSinglePrecision) {
    const std::string text =
        R"({"name": "x", "qvg": [1, 0.1, 16777217, -2, 2.5e2, 0, 7, 8, 9, 10], "z": {}})";
    double out[9] = {};
    ASSERT_EQ(load(text, out), 0);
    const double expected[9] = {1.0, 0.10000000149011612,  // 0.1f widened
                                16777216.0,                // 2^24 + 1 has no float
                                -2.0, 52.0,                // the exponent scales the fraction only
                                0.0, 7.0, 8.0, 9.0};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(out[k], expected[k]) << k;
    EXPECT_EQ(log_, kStart + size_line(static_cast<long>(text.size())) + kDone);

    // Exactly 1024 bytes still load; one byte more pushes the closing brace out.
    const std::string head = R"({"qvg": [2, 0, 0, 0, 2, 0, 0, 0, 2], "pad": ")";
    EXPECT_EQ(load(head + std::string(1024 - head.size() - 2, 'x') + "\"}", out), 0);
    EXPECT_EQ(out[8], 2.0);
    out[8] = 5.0;
    EXPECT_EQ(load(head + std::string(1025 - head.size() - 2, 'x') + "\"}", out), 1);
    EXPECT_EQ(out[8], 5.0);
    EXPECT_EQ(log_, kStart + size_line(1024) + kArrayErr);
}

TEST_F(SoftIronFileTest, FailuresLogAndLeaveTheCallersMatrix) {
    const std::string cases[][2] = {
        {R"({"qvg": [1, 2, 3, 4, 5, 6, 7, 8]})", kFloatErr},
        {R"({"qvg": [1, 0, 0, 0, "1", 0, 0, 0, 1]})", kFloatErr},
        {R"({"qvg": "1, 0, 0, 0, 1, 0, 0, 0, 1"})", kArrayErr},
        {R"({"qvg": {"0": 1}})", kArrayErr},
        {R"([{"qvg": [1, 0, 0, 0, 1, 0, 0, 0, 1]}])", kArrayErr},
        {"", kArrayErr},
    };
    double out[9] = {10, 11, 12, 13, 14, 15, 16, 17, 18};
    for (const auto& c : cases) {
        EXPECT_EQ(load(c[0], out), 1) << c[0];
        EXPECT_EQ(log_, kStart + size_line(static_cast<long>(c[0].size())) + c[1]) << c[0];
    }
    const std::string missing = dir_ + "/absent.json";
    EXPECT_EQ(load_from(missing, out), 1);
    EXPECT_EQ(log_, kStart + "E/JSONObject: xs4410 settings file(" + missing +
                        ") open failed: -2 (" + std::strerror(ENOENT) + ")\n" + kArrayErr);
    // A directory opens but cannot be read: the failed read counts as no bytes.
    EXPECT_EQ(load_from(dir_, out), 1);
    EXPECT_EQ(log_, kStart + size_line(-1) + kArrayErr);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(out[k], 10.0 + k) << k;
}

TEST_F(SoftIronFileTest, FileModesPermissionsAndStatus) {
    const mode_t old_mask = umask(0);
    EXPECT_EQ(android::File(path_.c_str(), "w").write("hello", 5), 5);
    umask(old_mask);
    struct stat st;
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0664u);

    char buf[8] = {};
    android::File f(path_.c_str(), "rw");  // read-write, not truncated
    EXPECT_EQ(f.seekTo(0, SEEK_END), 5);
    EXPECT_EQ(f.write("!", 1), 1);
    EXPECT_EQ(f.seekTo(-1, SEEK_SET), -EINVAL);
    EXPECT_EQ(f.setTo(path_.c_str(), "a"), 0);  // other modes only read
    EXPECT_EQ(f.write("x", 1), -1);
    EXPECT_EQ(f.read(buf, sizeof buf), 6);
    EXPECT_EQ(f.setTo(path_.c_str(), "w"), 0);  // write-only, truncated
    EXPECT_EQ(f.read(buf, 1), -1);
    EXPECT_EQ(f.seekTo(0, SEEK_END), 0);
    f.close();
    EXPECT_EQ(f.initCheck(), -19);
    EXPECT_EQ(f.seekTo(0, SEEK_SET), -EBADF);
    EXPECT_EQ(f.setTo(dir_.c_str(), "w"), -EISDIR);
}

}  // namespace
