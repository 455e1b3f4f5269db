#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "magcal/magcal_host.h"

namespace {

const std::string kStart = "E/JSONObject: kxs4410 getJsonCalibration\n";
const std::string kArrayErr = "E/JSONObject: kxs4410 get json array err\n";
const std::string kFloatErr = "E/JSONObject: kxs4410 get json float err\n";
const std::string kDone = "E/JSONObject: For debug only: tmp_output has total 72 Bytes\n";

std::string read_size_line(long size) {
    return "E/JSONObject: Msensor readSettings size is " + std::to_string(size) + "\n";
}

const std::string kIdentity = "[1, 0, 0, 0, 1, 0, 0, 0, 1]";

class SoftIronFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "magcal_softiron_XXXXXX";
        ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
        dir_ = pattern;
        path_ = dir_ + "/mag_soft_parameter.json";
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }

    void write(const std::string& text) {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
    }

    // Loads into `out` and returns the result; the log lines go to `log`.
    int32_t load(const std::string& path, double out[9], std::string* log) {
        ::testing::internal::CaptureStderr();
        const int32_t result = getJsonCalibration(path.c_str(), "qvg", out, 9);
        *log = ::testing::internal::GetCapturedStderr();
        return result;
    }

    std::string dir_;
    std::string path_;
};

TEST_F(SoftIronFileTest, LoadsFirstNineNumbersThroughSinglePrecision) {
    const std::string text =
        R"({"name": "x", "qvg": [1, 0.1, 16777217, -2, 2.5e2, 0, 7, 8, 9, 10], "z": {}})";
    write(text);
    double out[9] = {};
    std::string log;
    ASSERT_EQ(load(path_, out, &log), 0);
    const double expected[9] = {1.0, 0.10000000149011612,  // 0.1f widened
                                16777216.0,                // 2^24 + 1 has no float
                                -2.0, 52.0,                // the exponent scales the fraction only
                                0.0, 7.0, 8.0, 9.0};
    for (int k = 0; k < 9; ++k) EXPECT_EQ(out[k], expected[k]) << k;
    EXPECT_EQ(log, kStart + read_size_line(static_cast<long>(text.size())) + kDone);
}

TEST_F(SoftIronFileTest, BadContentLogsAndLeavesMatrixUnchanged) {
    struct Case {
        std::string text;
        std::string error;
    };
    const Case cases[] = {
        {R"({"qvg": [1, 2, 3, 4, 5, 6, 7, 8]})", kFloatErr},
        {R"({"qvg": "1, 0, 0, 0, 1, 0, 0, 0, 1"})", kArrayErr},
        {R"({"qvg": {"0": 1}})", kArrayErr},
        {R"({"QVG": )" + kIdentity + "}", kArrayErr},
        {R"([{"qvg": )" + kIdentity + "}]", kArrayErr},
        {R"({"qvg": [1, 0, 0, 0, 1, 0, 0, 0, 1})", kArrayErr},
        {R"({"qvg": [1, 0, 0, 0, "1", 0, 0, 0, 1]})", kFloatErr},
        {R"({"qvg": [1, 0, 0, 0, null, 0, 0, 0, 1]})", kFloatErr},
        {R"({"qvg": [1, 0, 0, 0, true, 0, 0, 0, 1]})", kFloatErr},
        {R"({"qvg": [1, 0, 0, 0, [1], 0, 0, 0, 1]})", kFloatErr},
        {"", kArrayErr},
    };
    for (const Case& c : cases) {
        write(c.text);
        double out[9] = {10, 11, 12, 13, 14, 15, 16, 17, 18};
        std::string log;
        EXPECT_EQ(load(path_, out, &log), 1) << c.text;
        for (int k = 0; k < 9; ++k) EXPECT_EQ(out[k], 10.0 + k) << c.text;
        EXPECT_EQ(log, kStart + read_size_line(static_cast<long>(c.text.size())) + c.error) << c.text;
    }
}

TEST_F(SoftIronFileTest, UnreadableFileLogsAndKeepsCallerValues) {
    const std::string missing = dir_ + "/absent.json";
    double out[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::string log;
    EXPECT_EQ(load(missing, out, &log), 1);
    EXPECT_EQ(log, kStart + "E/JSONObject: xs4410 settings file(" + missing +
                       ") open failed: -2 (" + std::strerror(ENOENT) + ")\n" + kArrayErr);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(out[k], k % 4 == 0 ? 1.0 : 0.0);

    // A directory opens but cannot be read: the failed read counts as no bytes.
    EXPECT_EQ(load(dir_, out, &log), 1);
    EXPECT_EQ(log, kStart + read_size_line(-1) + kArrayErr);
}

TEST_F(SoftIronFileTest, OnlyTheFirst1024BytesAreParsed) {
    const std::string head = R"({"qvg": [2, 0, 0, 0, 2, 0, 0, 0, 2], "pad": ")";
    const std::string tail = "\"}";
    const std::string exact = head + std::string(1024 - head.size() - tail.size(), 'x') + tail;
    ASSERT_EQ(exact.size(), 1024u);
    double out[9] = {};
    std::string log;
    write(exact);
    EXPECT_EQ(load(path_, out, &log), 0);
    EXPECT_EQ(out[8], 2.0);
    EXPECT_EQ(log, kStart + read_size_line(1024) + kDone);

    // One more byte of padding pushes the closing brace past the read.
    const std::string over = head + std::string(1025 - head.size() - tail.size(), 'x') + tail;
    const std::string long_pad = head + std::string(3000, 'x') + tail;
    for (const std::string& text : {over, long_pad}) {
        write(text);
        double kept[9] = {5, 5, 5, 5, 5, 5, 5, 5, 5};
        EXPECT_EQ(load(path_, kept, &log), 1);
        EXPECT_EQ(kept[0], 5.0);
        EXPECT_EQ(log, kStart + read_size_line(1024) + kArrayErr);
    }

    // Bytes past a complete object do not matter, however many.
    write(R"({"qvg": [3, 0, 0, 0, 3, 0, 0, 0, 3]})" + std::string(3000, ' '));
    EXPECT_EQ(load(path_, out, &log), 0);
    EXPECT_EQ(out[0], 3.0);
}

}  // namespace
