// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Where the tool writes: regular files replaced whole, devices, FIFOs and
// standard output written directly, symbolic links written through, and
// outputs that would overwrite an input or each other refused before
// anything runs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "tool_test_support.h"

namespace {

using namespace magcal::tooltest;

class ToolOutput : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(
            run_tool("simulate --scenario figure8 --duration 3 -o @log.csv --truth @t.csv", dir_)
                .status,
            0);
        ASSERT_EQ(run_tool("replay @log.csv -o @ref.csv", dir_).status, 0);
        reference_ = slurp(dir_.file("ref.csv"));
        ASSERT_EQ(reference_.rfind("t_ns,", 0), 0u);
    }

    ScratchDir dir_;
    std::string reference_;
};

TEST_F(ToolOutput, StandardOutputDevicesAndFifosAreWrittenDirectly) {
    ToolRun run = run_tool("replay @log.csv -o -", dir_);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, reference_);  // the summary goes to stderr instead
    EXPECT_NE(run.err.find("mag processed      150"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(dir_.file("-")));

    // Root may replace /dev/null itself, so a regression here would break the
    // whole machine: where a node of our own can be made, the tool writes that.
    // (A filesystem mounted nodev lets the node be made but not opened.)
    const std::string own_null = dir_.file("null");
    const bool own = mknod(own_null.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0 &&
                     access(own_null.c_str(), W_OK) == 0 && std::ofstream(own_null).good();
    const std::string null_device = own ? own_null : "/dev/null";
    run = run_tool("replay @log.csv -o " + null_device, dir_);
    EXPECT_EQ(run.status, 0) << run.err;
    struct stat st;
    ASSERT_EQ(stat(null_device.c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));

    ASSERT_EQ(mkfifo(dir_.file("fifo").c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] { received = slurp(dir_.file("fifo")); });
    run = run_tool("replay @log.csv -o @fifo", dir_);
    reader.join();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(received, reference_);
    ASSERT_EQ(lstat(dir_.file("fifo").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

TEST_F(ToolOutput, SymbolicLinksAreWrittenThroughAndReplacedFilesKeepTheirMode) {
    write_text(dir_.file("target.csv"), "old\n");
    ASSERT_EQ(chmod(dir_.file("target.csv").c_str(), 0640), 0);
    ASSERT_EQ(symlink("target.csv", dir_.file("link.csv").c_str()), 0);
    ASSERT_EQ(symlink("new.csv", dir_.file("dangling.csv").c_str()), 0);
    EXPECT_EQ(run_tool("replay @log.csv -o @link.csv", dir_).status, 0);
    EXPECT_EQ(run_tool("replay @log.csv -o @dangling.csv", dir_).status, 0);
    struct stat st;
    for (const char* link : {"link.csv", "dangling.csv"}) {
        ASSERT_EQ(lstat(dir_.file(link).c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode)) << link;
    }
    EXPECT_EQ(slurp(dir_.file("target.csv")), reference_);
    EXPECT_EQ(slurp(dir_.file("new.csv")), reference_);
    ASSERT_EQ(stat(dir_.file("target.csv").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST_F(ToolOutput, OutputsNamingAnInputOrEachOtherAreRefusedBeforeAnythingRuns) {
    ASSERT_EQ(symlink("log.csv", dir_.file("alias.csv").c_str()), 0);
    ASSERT_EQ(mkdir(dir_.file("sub").c_str(), 0700), 0);
    const std::string log = slurp(dir_.file("log.csv")), truth = slurp(dir_.file("t.csv"));
    const std::vector<std::string> before = dir_.entries();
    for (const std::string args : {
             "replay @log.csv -o @./log.csv",
             "replay @log.csv -o @alias.csv",
             "replay @log.csv --truth @t.csv -o @t.csv",
             "replay @log.csv -o @r.csv --state @sub/../r.csv",
             "replay @log.csv -o @r.csv --state @log.csv",
             "simulate --scenario still -o @s.csv --truth @s.csv",
             "simulate --scenario still -o @s.csv --truth @x.csv --softiron-out @s.csv",
             "convert --mag @t.csv -o @t.csv",
             "replay @log.csv -o @sub",
         }) {
        const ToolRun run = run_tool(args, dir_);
        EXPECT_EQ(run.status, 2) << args;
        const bool dir_case = args == "replay @log.csv -o @sub";
        EXPECT_NE(run.err.find(dir_case ? "is a directory" : "names the same file as"),
                  std::string::npos)
            << args << "\n"
            << run.err;
        EXPECT_EQ(dir_.entries(), before) << args;
    }
    EXPECT_EQ(slurp(dir_.file("log.csv")), log);
    EXPECT_EQ(slurp(dir_.file("t.csv")), truth);
}

TEST_F(ToolOutput, AFailedRunLeavesTheOldFileAndNoTemporary) {
    write_text(dir_.file("results.csv"), "keep\n");
    write_text(dir_.file("soft.json"), "{\"qvg\": [1, 0]}\n");  // too short
    const std::vector<std::string> before = dir_.entries();
    const ToolRun run = run_tool("replay @log.csv -o @results.csv --softiron @soft.json", dir_);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("not a soft-iron parameter file"), std::string::npos) << run.err;
    EXPECT_EQ(slurp(dir_.file("results.csv")), "keep\n");
    EXPECT_EQ(dir_.entries(), before);
    // Written directly, the destination gets nothing at all.
    const ToolRun direct = run_tool("replay @log.csv -o - --softiron @soft.json", dir_);
    EXPECT_EQ(direct.status, 2);
    EXPECT_EQ(direct.out, "");
}

}  // namespace
