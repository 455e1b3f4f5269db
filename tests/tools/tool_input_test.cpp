// The tool's handling of bad input: a malformed log, truth, state or
// soft-iron file and a bad command line end with a message naming the file,
// line and field, exit status 2, and no output file (not even a temporary).
#include <gtest/gtest.h>

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
          "unknown-command", ""}) {
        const ToolRun run = run_tool(args, dir);
        EXPECT_EQ(run.status, 2) << args << "\n" << run.err;
        EXPECT_FALSE(run.err.empty()) << args;
        EXPECT_TRUE(dir.entries().empty()) << args;
    }
    for (const std::string command : {"simulate", "replay", "report"}) {
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

}  // namespace
