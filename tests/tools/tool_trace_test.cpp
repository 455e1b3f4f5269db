// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal replay --trace and magcal why from the command line: the results
// are the plug-in's bytes, the trace has a row for every mag sample (the
// refused ones marked), `why` reads back what replay said, and failures
// leave no file behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tool_test_support.h"

namespace {

using magcal::tooltest::CsvTable;
using magcal::tooltest::run_tool;
using magcal::tooltest::ScratchDir;
using magcal::tooltest::slurp;
using magcal::tooltest::ToolRun;
using magcal::tooltest::write_text;

std::string why_block(const std::string& out) {
    const size_t at = out.find("why:\n");
    if (at == std::string::npos) return "<no why block>";
    const size_t end = out.find("results -> ", at);
    return out.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

TEST(ToolTrace, ResultsAreThePluginsBytesAndWhyReadsTheTraceBack) {
    ScratchDir dir;
    ToolRun run = run_tool(
        "simulate --script \"hold 1; turn z 360 90; hold 1; turn z -360 90; hold 2\" "
        "-o @sim.csv",
        dir);
    ASSERT_EQ(run.status, 0) << run.err;
    // Two mag samples before any acc or gyro: stored, not processed.
    const std::string log = slurp(dir.file("sim.csv"));
    const size_t header_end = log.find("timestamp_ns");
    const size_t body = log.find('\n', header_end) + 1;
    write_text(dir.file("log.csv"), log.substr(0, body) + "999000000,mag,10,20,30\n" +
                                        "999500000,mag,10,20,31\n" + log.substr(body));

    run = run_tool("replay @log.csv -o @plain.csv --plugin " MAGCAL_PLUGIN_PATH, dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("why:"), std::string::npos);  // only with a trace
    // Without --plugin, a trace loads the trace library built beside the tool.
    run = run_tool("replay @log.csv -o @traced.csv --trace @trace.csv", dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("through " MAGCAL_TRACE_PLUGIN_PATH "\n"), std::string::npos) << run.out;
    EXPECT_EQ(slurp(dir.file("traced.csv")), slurp(dir.file("plain.csv")));
    EXPECT_NE(run.out.find("trace -> " + dir.file("trace.csv")), std::string::npos);
    const std::string why = why_block(run.out);
    EXPECT_NE(why.find("turn the device about its x or y axis; the turn about z is done"),
              std::string::npos)
        << run.out;

    const CsvTable results(dir.file("plain.csv"));
    const CsvTable trace(dir.file("trace.csv"));
    ASSERT_EQ(trace.size(), results.size());  // one row per mag sample, 602
    EXPECT_EQ(trace.size(), 602u);
    for (size_t r = 0; r < trace.size(); ++r) {
        ASSERT_EQ(trace.text(r, "t_ns"), results.text(r, "t_ns")) << r;
        ASSERT_EQ(trace.text(r, "processed"), results.text(r, "processed")) << r;
        if (trace.text(r, "processed") == "1") {
            ASSERT_EQ(trace.text(r, "accuracy"), results.text(r, "accuracy")) << r;
        }
    }
    EXPECT_EQ(trace.text(0, "processed"), "0");
    EXPECT_EQ(trace.text(0, "t_s"), "0");
    EXPECT_EQ(trace.text(2, "t_s"), "0.001");  // seconds from the first mag sample

    run = run_tool("why @trace.csv", dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, why);
}

TEST(ToolTrace, ReportDrawsTheEvidenceOnlyFromTheTraceOfTheSameReplay) {
    ScratchDir dir;
    ASSERT_EQ(run_tool("simulate --script \"hold 1; turn z 180 90; hold 1\" -o @a.csv", dir).status,
              0);
    ASSERT_EQ(run_tool("replay @a.csv -o @a.res.csv --trace @a.trace.csv", dir).status, 0);
    ToolRun run = run_tool("report @a.res.csv --trace @a.trace.csv -o @a.png", dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(slurp(dir.file("a.png")).substr(1, 3), "PNG");
    // Another replay's trace: here the same one short of its last row.
    const std::string trace = slurp(dir.file("a.trace.csv"));
    write_text(dir.file("b.trace.csv"), trace.substr(0, trace.rfind('\n', trace.size() - 2) + 1));
    run = run_tool("report @a.res.csv --trace @b.trace.csv -o @mixed.png", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(dir.file("b.trace.csv") + ": not the trace of these results"),
              std::string::npos)
        << run.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("mixed.png")));
}

TEST(ToolTrace, BadTracesScriptsAndLibrariesAreRefusedByNameLeavingNothing) {
    ScratchDir dir;
    ASSERT_EQ(run_tool("simulate --scenario still --duration 2 -o @sim.csv", dir).status, 0);
    // The plug-in hosts load cannot trace.
    ToolRun run = run_tool(
        "replay @sim.csv -o @out.csv --trace @trace.csv --plugin " MAGCAL_PLUGIN_PATH, dir);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("libmagcal_trace.so"), std::string::npos) << run.err;

    write_text(dir.file("t.csv"), "# a comment\nt_ns,t_s,processed\n1,0,1\n");
    run = run_tool("why @t.csv", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(dir.file("t.csv") + ":2: not a decision trace"), std::string::npos)
        << run.err;
    EXPECT_EQ(run_tool("why", dir).status, 2);

    run = run_tool("simulate --script \"hold 1; spin z 3\" -o @s.csv", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("segment 2 \"spin z 3\""), std::string::npos) << run.err;
    run = run_tool("simulate --scenario figure8 --script \"hold 1\" -o @s.csv", dir);
    EXPECT_EQ(run.status, 2);
    run = run_tool("simulate --scenario scripted -o @s.csv", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("needs --script"), std::string::npos) << run.err;
    run = run_tool("replay @sim.csv -o - --trace -", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"sim.csv", "t.csv"}));
}

}  // namespace
