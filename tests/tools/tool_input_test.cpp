// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The tool's handling of bad input: a malformed log, truth, state or
// soft-iron file and a bad command line end with a message naming the file,
// line and field, exit status 2, and no output file (not even a temporary).
#include <gtest/gtest.h>

#include <cmath>

#include "tool_test_support.h"

namespace {

using namespace magcal::tooltest;

// Comments, the header and a blank line count as lines: a bad line added is 6.
const std::string kGoodLog =
    "# a comment\ntimestamp_ns,sensor,x,y,z,status\n\n"
    "1000000000,acc,0,0,9.8\n1000000000,gyro,0,0,0,3\n";
const std::string kLayout = " (a line is timestamp_ns,sensor,x,y,z[,status])";

TEST(ToolInput, MalformedInputFilesNameFileLineAndFieldAndWriteNothing) {
    struct Case {
        std::string option;   // replay option that names the bad file; "" for the log
        std::string text;     // its content (for the log: after kGoodLog); "-": no such file
        std::string message;  // stderr after the file name
    };
    const Case cases[] = {
        {"", "1000000000,mag,1.2.3,2,3", ":6: field 'x': not a number: \"1.2.3\""},
        {"", "1000000000,mag,1,,3", ":6: field 'y': not a number: \"\""},
        {"", "1000000000,magg,1,2,3",
         ":6: field 'sensor': unknown sensor: \"magg\" (expected acc, gyro or mag)"},
        {"", "1000000000,mag,1,2", ":6: field 'z': missing" + kLayout},
        {"", "1000000000", ":6: field 'sensor': missing" + kLayout},
        {"", "1.5e9,mag,1,2,3", ":6: field 'timestamp_ns': not an integer: \"1.5e9\""},
        {"", "99999999999999999999,mag,1,2,3",
         ":6: field 'timestamp_ns': out of the 64-bit range: \"99999999999999999999\""},
        {"", "1000000000,mag,1,2,3,ok", ":6: field 'status': not an integer: \"ok\""},
        {"", "1000000000,mag,1,2,3,0,7", ":6: too many fields: 7" + kLayout},
        // A header is only allowed as the first line: later it means two
        // logs were joined.
        {"", "timestamp_ns,sensor,x,y,z",
         ":6: header line after data (were logs concatenated? magcal convert --log A.csv --log "
         "B.csv -o AB.csv merges them by time)"},
        {"", "-", ": cannot open: No such file or directory"},
        {"--truth",
         "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut\n"
         "1000000000,1,0,0,0,zero,0,0,0,45",
         ":2: field 'heading_deg': not a number: \"zero\""},
        {"--state", "offset 1 2 3\naccuracy 4\nradius 45",
         ":2: field 'accuracy': not in 0..3: \"4\""},
        {"--state", "# saved\noffset 1 2", ":2: 'offset' takes 3 values, found 2"},
        {"--state", "offset 1 2 3\naccuracy 1", ": missing 'radius'"},
        {"--softiron", "-", ": cannot open: No such file or directory"},
    };
    for (const Case& c : cases) {
        ScratchDir dir;
        const std::string bad = c.option.empty() ? "log.csv" : c.option.substr(2) + ".txt";
        if (!c.option.empty()) write_text(dir.file("log.csv"), kGoodLog + "1000000000,mag,1,2,3\n");
        if (c.text != "-")
            write_text(dir.file(bad), (c.option.empty() ? kGoodLog : "") + c.text + "\n");
        const std::vector<std::string> left = dir.entries();
        const std::string given = c.option.empty() ? "" : c.option + " @" + bad;
        const ToolRun run = run_tool("replay @log.csv -o @r.csv " + given, dir);
        EXPECT_EQ(run.status, 2) << c.message;
        EXPECT_EQ(run.err, dir.file(bad) + c.message + "\n");
        EXPECT_EQ(dir.entries(), left) << c.message;
    }
}

TEST(ToolInput, BadCommandLinesExitTwoUnloadablePluginOneHelpZero) {
    ScratchDir dir;
    for (const char* args :
         {"simulate --scenario figure9 -o @log.csv", "simulate -o @log.csv",
          "simulate --scenario still", "simulate --scenario still -o @log.csv --rate 0",
          "simulate --scenario still -o @log.csv --offset 1,2",
          "simulate --scenario still -o @log.csv --duration abc",
          "simulate --scenario still -o @log.csv --frobnicate",
          "simulate --scenario still -o @log.csv --soft-iron 1,2,3,2,4,6,0,0,1 "
          "--softiron-out @s.json",
          // Fails while writing: the temporaries must go too.
          "simulate --scenario still -o @log.csv --soft-iron 1e-7,0,0,0,1,0,0,0,1 "
          "--softiron-out @s.json",
          "replay", "replay @log.csv --bogus", "report @log.csv", "report @log.csv -o @r.bmp",
          "convert --mag @m.csv", "convert -o @log.csv", "convert --mag @m.csv:x,y -o @l.csv",
          "convert --mag @m.csv --time-unit min -o @l.csv",
          "convert --mag @m.csv --mag-unit Oe -o @l.csv", "unknown-command", ""}) {
        const ToolRun run = run_tool(args, dir);
        EXPECT_EQ(run.status, 2) << args << "\n" << run.err;
        EXPECT_FALSE(run.err.empty()) << args;
        EXPECT_TRUE(dir.entries().empty()) << args;
    }
    for (const std::string command : {"simulate", "replay", "report", "convert"}) {
        const ToolRun run = run_tool(command + " --help", dir);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out.rfind("usage: magcal " + command, 0), 0u) << run.out;
    }
    // A plug-in that cannot be loaded is a runtime failure, status 1.
    write_text(dir.file("log.csv"), kGoodLog + "1000000000,mag,20,-30,25\n");
    const ToolRun run = run_tool("replay @log.csv -o @r.csv --plugin @no.so", dir);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.rfind("magcal replay: cannot load plug-in " + dir.file("no.so"), 0), 0u)
        << run.err;
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"log.csv"});
}

TEST(ToolInput, FirstLinesThatAreNotTheLogsHeaderSayHeader) {
    ScratchDir dir;
    const std::string expected = "timestamp_ns,sensor,x,y,z[,status]";
    const std::pair<std::string, std::string> cases[] = {
        {"timestamp,type,x,y,z\n",
         ":1: header: expected " + expected +
             ", found \"timestamp,type,x,y,z\" (magcal convert reads other layouts)"},
        {"# note\ntimestamp_ns;sensor;x;y;z\n",
         ":2: header: expected " + expected +
             ", found \"timestamp_ns;sensor;x;y;z\" (magcal convert reads other layouts)"},
        {"\xef\xbb\xbftimestamp_ns,sensor,x,y,z\n",
         ":1: starts with a UTF-8 byte-order mark, which this format does not allow (magcal "
         "convert --log FILE -o NEW.csv writes it without one)"},
    };
    for (const auto& [text, message] : cases) {
        write_text(dir.file("log.csv"), text + "1000000000,mag,20,-30,25\n");
        const ToolRun run = run_tool("replay @log.csv", dir);
        EXPECT_EQ(run.status, 2) << text;
        EXPECT_EQ(run.err, dir.file("log.csv") + message + "\n");
    }
    // Compressed files are recognised by their content (read through zlib or,
    // without it, the system's gzip); damage is named.
    write_text(dir.file("log.csv"), std::string("\x1f\x8b\x08\x00garbage", 11));
    ToolRun damaged = run_tool("replay @log.csv", dir);
    EXPECT_EQ(damaged.status, 2);
    EXPECT_EQ(damaged.err.rfind(dir.file("log.csv") + ":1: damaged compressed data", 0), 0u)
        << damaged.err;

    write_text(dir.file("log.csv"), kGoodLog);
    const ToolRun run = run_tool("replay @log.csv -o @r.csv", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, dir.file("log.csv") +
                           ": no mag sample (1 acc, 1 gyro): the library works only on "
                           "magnetometer samples\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("r.csv")));
}

TEST(ToolInput, ChecksWarnOncePerKindOnStderrAndStrictTurnsThemIntoErrors) {
    ScratchDir dir;
    ASSERT_EQ(run_tool("simulate --scenario figure8 --duration 4 -o @sim.csv", dir).status, 0);
    // The field in gauss, and one NaN gyro value (tick 100's gyro line).
    const std::string out =
        map_csv_lines(slurp(dir.file("sim.csv")), [](int n, std::vector<std::string>& f) {
            if (f.size() == 5 && f[1] == "mag")
                for (int k = 2; k < 5; ++k) f[k] = std::to_string(std::stod(f[k]) / 100);
            if (n == 306) f = {f[0], "gyro", "nan", "0", "0"};
        });
    write_text(dir.file("log.csv"), out);
    ToolRun run = run_tool("replay @log.csv -o @r.csv", dir);
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string where = dir.file("log.csv") + ":";
    EXPECT_EQ(run.err.find(where + "7: warning: field strength implausible for microtesla"), 0u)
        << run.err;
    EXPECT_NE(run.err.find("(and 199 more lines like it)\n" + where +
                           "306: warning: non-finite gyro value"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 2);
    EXPECT_NE(run.out.find("input checks       2 warnings: field strength (200 lines), "
                           "non-finite acc/gyro (1 line); see above"),
              std::string::npos)
        << run.out;
    // The tool reports; it does not repair: the library got the gauss.
    const CsvTable t(dir.file("r.csv"));
    EXPECT_EQ(t.f(0, "mag_x"), std::strtof(out.substr(out.find(",mag,") + 5).c_str(), nullptr));
    EXPECT_LT(std::fabs(t.d(0, "mag_x")), 1.0);

    run = run_tool("replay @log.csv -o @strict.csv --strict", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err.find(where + "7: error: field strength"), 0u) << run.err;
    EXPECT_NE(run.err.find("magcal replay: --strict: the log has 2 kind(s) of warning"),
              std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir.file("strict.csv")));
}

TEST(ToolInput, ConvertNamesTheSourceLinesAndItsLogReplays) {
    ScratchDir dir;
    ASSERT_EQ(run_tool("simulate --scenario figure8 --duration 4 -o @sim.csv", dir).status, 0);
    ASSERT_EQ(run_tool("replay @sim.csv -o @ref.csv", dir).status, 0);
    // Per-sensor files in milliseconds, the gyroscope in deg/s but not said.
    std::string files[3];
    map_csv_lines(slurp(dir.file("sim.csv")), [&](int, std::vector<std::string>& f) {
        if (f.size() != 5 || f[0][0] < '0' || f[0][0] > '9') return;
        f[0].insert(f[0].size() - 6, ".");
        const int sensor = f[1] == "acc" ? 0 : f[1] == "gyro" ? 1 : 2;
        files[sensor] += f[0] + "," + f[2] + "," + f[3] + "," + f[4] + "\n";
    });
    write_text(dir.file("acc.csv"), "t,x,y,z\n" + files[0]);
    write_text(dir.file("gyro.csv"), "t,x,y,z\n" + files[1]);
    write_text(dir.file("mag.csv"), "t,x,y,z\n" + files[2]);
    ToolRun run = run_tool(
        "convert --acc @acc.csv --gyro @gyro.csv --mag @mag.csv --time-unit ms -o @log.csv", dir);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    ASSERT_EQ(run_tool("replay @log.csv -o @conv.csv", dir).status, 0);
    EXPECT_EQ(slurp(dir.file("conv.csv")), slurp(dir.file("ref.csv")));

    // A gyroscope in deg/s that nobody mentioned: the warning names the gyro
    // file's line of the first impossible rate.
    int first_fast = 0;
    const std::string deg =
        "t,x,y,z\n" + map_csv_lines(files[1], [&](int n, std::vector<std::string>& f) {
            double sq = 0.0;
            for (int k = 1; k < 4; ++k) {
                const double d = std::stod(f[k]) * 57.29577951308232;
                sq += d * d;
                f[k] = std::to_string(d);
            }
            if (first_fast == 0 && std::sqrt(sq) > 35.0) first_fast = n + 1;  // after the header
        });
    write_text(dir.file("gyro.csv"), deg);
    run = run_tool(
        "convert --acc @acc.csv --gyro @gyro.csv --mag @mag.csv --time-unit ms -o @fast.csv", dir);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.find(dir.file("gyro.csv") + ":" + std::to_string(first_fast) +
                           ": warning: angular rate up to"),
              0u)
        << run.err;
    write_text(dir.file("gyro.csv"), "t,x,y,z\n" + files[1]);
    run = run_tool("convert --acc @acc.csv --gyro @gyro.csv:x,y,q --mag @mag.csv -o @x.csv", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err,
              dir.file("gyro.csv") +
                  ":1: no column named \"q\" (the header has \"t\", \"x\", \"y\", \"z\")\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.csv")));
}

}  // namespace
