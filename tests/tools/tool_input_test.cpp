// The tool's handling of bad input: every malformed log, truth or state file
// and every bad command line ends with a message that names the file, line
// and field, exit status 2, and no output file (not even a temporary).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_test_support.h"

namespace {

using magcal::tooltest::run_tool;
using magcal::tooltest::ScratchDir;
using magcal::tooltest::ToolRun;
using magcal::tooltest::write_text;

const char* const kGoodStart =
    "# a comment\n"
    "timestamp_ns,sensor,x,y,z,status\n"
    "\n"
    "1000000000,acc,0,0,9.8\n"
    "1000000000,gyro,0,0,0,3\n";

// Replays `log_body` (after kGoodStart) and expects status 2 with exactly
// `message` (after the file name) on stderr and nothing written.
void expect_rejected(const std::string& log_body, const std::string& message) {
    ScratchDir dir;
    const std::string log = dir.file("log.csv");
    write_text(log, std::string(kGoodStart) + log_body);
    const ToolRun run = run_tool(
        {"replay", log, "-o", dir.file("results.csv"), "--state", dir.file("state.txt")}, dir);
    EXPECT_EQ(run.status, 2) << run.err;
    EXPECT_EQ(run.err, log + message + "\n");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"log.csv"});
}

TEST(ToolInput, MalformedLogLinesNameFileLineAndField) {
    expect_rejected("1000000000,mag,1.2.3,2,3\n", ":6: field 'x': not a number: \"1.2.3\"");
    expect_rejected("1000000000,mag,1,,3\n", ":6: field 'y': not a number: \"\"");
    expect_rejected("1000000000,magg,1,2,3\n",
                    ":6: field 'sensor': unknown sensor: \"magg\" (expected acc, gyro or mag)");
    expect_rejected("1000000000,mag,1,2\n",
                    ":6: field 'z': missing (a line is timestamp_ns,sensor,x,y,z[,status])");
    expect_rejected("1000000000\n",
                    ":6: field 'sensor': missing (a line is timestamp_ns,sensor,x,y,z[,status])");
    expect_rejected("1.5e9,mag,1,2,3\n", ":6: field 'timestamp_ns': not an integer: \"1.5e9\"");
    expect_rejected("99999999999999999999,mag,1,2,3\n",
                    ":6: field 'timestamp_ns': out of the 64-bit range: \"99999999999999999999\"");
    expect_rejected("1000000000,mag,1,2,3,ok\n", ":6: field 'status': not an integer: \"ok\"");
    expect_rejected("1000000000,mag,1,2,3,0,7\n",
                    ":6: too many fields: 7 (a line is timestamp_ns,sensor,x,y,z[,status])");
    // A header is only recognised as the first line; later it is data.
    expect_rejected("timestamp_ns,sensor,x,y,z\n",
                    ":6: field 'timestamp_ns': not an integer: \"timestamp_ns\"");
}

TEST(ToolInput, BadTruthStateAndSoftIronFilesAreInputErrors) {
    ScratchDir dir;
    const std::string log = dir.file("log.csv");
    write_text(log, std::string(kGoodStart) + "1000000000,mag,10,20,30\n");

    const std::string truth = dir.file("truth.csv");
    write_text(truth,
               "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut\n"
               "1000000000,1,0,0,0,zero,0,0,0,45\n");
    ToolRun run = run_tool({"replay", log, "--truth", truth, "-o", dir.file("r.csv")}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, truth + ":2: field 'heading_deg': not a number: \"zero\"\n");

    const std::string state = dir.file("state.txt");
    write_text(state, "offset 1 2 3\naccuracy 4\nradius 45\n");
    run = run_tool({"replay", log, "--state", state, "-o", dir.file("r.csv")}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, state + ":2: field 'accuracy': not in 0..3: \"4\"\n");
    write_text(state, "offset 1 2\n");
    run = run_tool({"replay", log, "--state", state}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, state + ":1: 'offset' takes 3 values, found 2\n");
    write_text(state, "offset 1 2 3\naccuracy 1\n");
    run = run_tool({"replay", log, "--state", state}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, state + ": missing 'radius'\n");

    run = run_tool({"replay", log, "--softiron", dir.file("none.json")}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, dir.file("none.json") + ": cannot open: No such file or directory\n");

    run = run_tool({"replay", dir.file("absent.csv")}, dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, dir.file("absent.csv") + ": cannot open: No such file or directory\n");

    // A plug-in that cannot be loaded is a runtime failure, status 1.
    run =
        run_tool({"replay", log, "-o", dir.file("r.csv"), "--plugin", dir.file("nothing.so")}, dir);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.rfind("magcal replay: cannot load plug-in " + dir.file("nothing.so"), 0), 0u)
        << run.err;

    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"log.csv", "state.txt", "truth.csv"}));
}

TEST(ToolInput, BadCommandLinesExitTwoAndWriteNothing) {
    ScratchDir dir;
    const std::string out = dir.file("log.csv");
    const std::vector<std::vector<std::string>> bad{
        {"simulate", "--scenario", "figure9", "-o", out},
        {"simulate", "-o", out},
        {"simulate", "--scenario", "still"},
        {"simulate", "--scenario", "still", "-o", out, "--rate", "0"},
        {"simulate", "--scenario", "still", "-o", out, "--offset", "1,2"},
        {"simulate", "--scenario", "still", "-o", out, "--soft-iron", "1,2,3,2,4,6,0,0,1",
         "--softiron-out", dir.file("s.json")},
        {"simulate", "--scenario", "still", "-o", out, "--duration", "abc"},
        {"simulate", "--scenario", "still", "-o", out, "--frobnicate"},
        {"replay"},
        {"replay", out, "--bogus"},
        {"report", out},
        {"report", out, "-o", dir.file("r.bmp")},
        {"unknown-command"},
        {},
    };
    for (const auto& args : bad) {
        const ToolRun run = run_tool(args, dir);
        std::string joined;
        for (const auto& a : args) joined += a + " ";
        EXPECT_EQ(run.status, 2) << joined << "\n" << run.err;
        EXPECT_FALSE(run.err.empty()) << joined;
        EXPECT_TRUE(dir.entries().empty()) << joined;
    }

    // Help for each command goes to stdout with status 0.
    for (const char* command : {"simulate", "replay", "report"}) {
        const ToolRun run = run_tool({command, "--help"}, dir);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out.rfind(std::string("usage: magcal ") + command, 0), 0u) << run.out;
    }
}

TEST(ToolInput, SimulatedLogReadsBackExactly) {
    // The log and truth the tool writes carry the simulator's values bit for bit.
    ScratchDir dir;
    const std::string log = dir.file("log.csv"), truth = dir.file("truth.csv");
    const ToolRun run = run_tool({"simulate", "--scenario", "walk", "-o", log, "--truth", truth,
                                  "--duration", "2", "--rate", "25", "--seed", "7", "--offset",
                                  "1.5,-2,3", "--jitter", "0.002", "--gyro-bias", "0.01,0,0"},
                                 dir);
    ASSERT_EQ(run.status, 0) << run.err;
    magcal::sim::Config c;
    c.scenario = magcal::sim::Scenario::Walk;
    c.duration_s = 2.0;
    c.rate_hz = 25.0;
    c.seed = 7;
    c.hard_iron_ut = {1.5, -2.0, 3.0};
    c.jitter_s = 0.002;
    c.gyro_bias = {0.01, 0.0, 0.0};
    const magcal::sim::Session s = magcal::sim::simulate(c);

    const magcal::tooltest::CsvTable rows(log);
    ASSERT_EQ(rows.size(), s.samples.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows.i(i, "timestamp_ns"), s.samples[i].t_ns);
        EXPECT_EQ(rows.text(i, "sensor"), i % 3 == 0 ? "acc" : i % 3 == 1 ? "gyro" : "mag");
        EXPECT_EQ(rows.f(i, "x"), s.samples[i].v[0]);
        EXPECT_EQ(rows.f(i, "y"), s.samples[i].v[1]);
        EXPECT_EQ(rows.f(i, "z"), s.samples[i].v[2]);
    }
    const magcal::tooltest::CsvTable t(truth);
    ASSERT_EQ(t.size(), s.truth.size());
    for (size_t i = 0; i < t.size(); ++i) {
        EXPECT_EQ(t.i(i, "timestamp_ns"), s.truth[i].t_ns);
        EXPECT_EQ(t.d(i, "qx"), s.truth[i].q_world_from_body[1]);
        EXPECT_EQ(t.d(i, "heading_deg"), s.truth[i].heading_deg);
        EXPECT_EQ(t.d(i, "offset_y"), -2.0);
    }
}

TEST(ToolInput, SoftIronFileUndoesTheDistortionAndTruthMovesToTheCorrectedFrame) {
    ScratchDir dir;
    const ToolRun run =
        run_tool({"simulate", "--scenario", "still", "--duration", "0.1", "-o", dir.file("log.csv"),
                  "--truth", dir.file("truth.csv"), "--offset", "10,20,30", "--soft-iron",
                  "2,0,0, 0,1,0, 0,0.5,4", "--softiron-out", dir.file("soft.json")},
                 dir);
    ASSERT_EQ(run.status, 0) << run.err;
    // A = [[2,0,0],[0,1,0],[0,0.5,4]]: A^-1 = [[0.5,0,0],[0,1,0],[0,-0.125,0.25]],
    // S = (A^-1)^T, and the corrected offset A^-1 (10, 20, 30) = (5, 20, 5).
    EXPECT_EQ(magcal::tooltest::slurp(dir.file("soft.json")),
              "{\n  \"qvg\": [0.500000000, 0.000000000, 0.000000000,\n"
              "          0.000000000, 1.000000000, -0.125000000,\n"
              "          0.000000000, 0.000000000, 0.250000000]\n}\n");
    const magcal::tooltest::CsvTable t(dir.file("truth.csv"));
    ASSERT_EQ(t.size(), 5u);
    EXPECT_EQ(t.d(0, "offset_x"), 5.0);
    EXPECT_EQ(t.d(0, "offset_y"), 20.0);
    EXPECT_EQ(t.d(0, "offset_z"), 5.0);
}

}  // namespace
