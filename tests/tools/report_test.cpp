// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal report end to end: the tool picks a Python, finds report.py and
// writes a picture only when the script succeeded. The heading figures it
// prints are checked against two independent computations: the replay's own
// summary (C++) and, for a session that never reaches accuracy 3, a
// computation from the results and truth files in this test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <regex>

#include "tool_test_support.h"

namespace {

using namespace magcal::tooltest;

// A stand-in interpreter: answers the tool's package probe with `missing`
// and runs anything else as a shell script.
void write_fake_python(const std::string& path, const std::string& missing) {
    write_text(path, "#!/bin/sh\nif [ \"$1\" = -c ]; then echo magcal-probe; echo '" + missing +
                         "'; exit 0; fi\nexec /bin/sh \"$@\"\n");
    chmod(path.c_str(), 0755);
}

struct HeadingFigures {
    double fused_rms = NAN, azimuth_rms = NAN;
    long samples = -1;
};

// "heading error of the fused attitude: RMS A deg, azimuth output RMS B deg (N samples ..."
HeadingFigures report_figures(const std::string& out) {
    std::smatch m;
    HeadingFigures f;
    if (std::regex_search(out, m,
                          std::regex("fused attitude: RMS ([0-9.]+) deg, azimuth output RMS "
                                     "([0-9.]+) deg \\(([0-9]+) samples?"))) {
        f = {std::stod(m[1]), std::stod(m[2]), std::stol(m[3])};
    }
    return f;
}

// The replay summary's two lines of the same figures.
HeadingFigures replay_figures(const std::string& out) {
    std::smatch fused, azimuth;
    HeadingFigures f;
    if (std::regex_search(
            out, fused,
            std::regex("fused attitude: RMS ([0-9.]+) deg \\([^)]*over ([0-9]+) sam")) &&
        std::regex_search(out, azimuth, std::regex("azimuth output error: +RMS ([0-9.]+) deg"))) {
        f = {std::stod(fused[1]), std::stod(azimuth[1]), std::stol(fused[2])};
    }
    return f;
}

bool starts_with_bytes(const std::string& path, const std::string& magic) {
    return slurp(path).compare(0, magic.size(), magic) == 0;
}

// simulate + replay with truth into @s.csv, @t.csv, @r.csv; the replay's stdout.
std::string replayed_session(const ScratchDir& dir, const std::string& simulate_options) {
    const ToolRun sim = run_tool("simulate " + simulate_options + " -o @s.csv --truth @t.csv", dir);
    EXPECT_EQ(sim.status, 0) << sim.err;
    const ToolRun replay = run_tool("replay @s.csv --truth @t.csv -o @r.csv", dir);
    EXPECT_EQ(replay.status, 0) << replay.err;
    return replay.out;
}

TEST(ToolReport, DrawsASessionAndAgreesWithTheReplaySummary) {
    ScratchDir dir;
    const HeadingFigures replay =
        replay_figures(replayed_session(dir, "--scenario figure8 --duration 20"));
    ASSERT_GT(replay.samples, 0);
    for (const char* format : {"png", "pdf"}) {
        const std::string out = std::string("report.") + format;
        const ToolRun run = run_tool("report @r.csv --truth @t.csv -o @" + out, dir);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");  // no Python warnings
        EXPECT_TRUE(starts_with_bytes(dir.file(out),
                                      format == std::string("png") ? "\x89PNG\r\n\x1a\n" : "%PDF"));
        const HeadingFigures report = report_figures(run.out);
        EXPECT_EQ(report.samples, replay.samples) << run.out;
        EXPECT_NEAR(report.fused_rms, replay.fused_rms, 0.006) << run.out;
        EXPECT_NEAR(report.azimuth_rms, replay.azimuth_rms, 0.006) << run.out;
        EXPECT_NE(run.out.find("from accuracy 3 on"), std::string::npos) << run.out;
    }
    const std::vector<std::string> expected{"r.csv", "report.pdf", "report.png", "s.csv", "t.csv"};
    EXPECT_EQ(dir.entries(), expected);  // no temporaries left
}

TEST(ToolReport, SessionThatNeverReachesAccuracy3IsSummarisedWhole) {
    ScratchDir dir;
    const std::string replay = replayed_session(dir, "--scenario flip --duration 20");
    ASSERT_NE(replay.find("3: never"), std::string::npos) << replay;
    const ToolRun run = run_tool("report @r.csv --truth @t.csv -o @report.png", dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("over the whole session, accuracy 3 never reached"), std::string::npos)
        << run.out;

    // The same figures straight from the files: processed samples whose true
    // +y axis is within 45 deg of horizontal, all of the session.
    const CsvTable results(dir.file("r.csv")), truth(dir.file("t.csv"));
    std::map<long long, size_t> truth_row;
    for (size_t k = 0; k < truth.size(); ++k)
        truth_row.emplace(static_cast<long long>(truth.d(k, "timestamp_ns")), k);
    double fused_sq = 0, azimuth_sq = 0;
    long n = 0;
    for (size_t k = 0; k < results.size(); ++k) {
        const auto hit = truth_row.find(static_cast<long long>(results.d(k, "t_ns")));
        if (results.d(k, "processed") != 1 || hit == truth_row.end()) continue;
        const size_t i = hit->second;
        const double y_up =
            2 * (truth.d(i, "qy") * truth.d(i, "qz") + truth.d(i, "qw") * truth.d(i, "qx"));
        if (std::fabs(y_up) >= std::sqrt(0.5)) continue;
        const double heading = truth.d(i, "heading_deg");
        fused_sq += std::pow(wrap180(results.d(k, "fused_heading") - heading), 2);
        azimuth_sq += std::pow(wrap180(results.f(k, "azimuth") - heading), 2);
        ++n;
    }
    ASSERT_GT(n, 100);
    const HeadingFigures report = report_figures(run.out);
    EXPECT_EQ(report.samples, n);
    EXPECT_NEAR(report.fused_rms, std::sqrt(fused_sq / n), 0.006);
    EXPECT_NEAR(report.azimuth_rms, std::sqrt(azimuth_sq / n), 0.006);
}

TEST(ToolReport, FewRowsDrawAndBadResultsNameFileLineAndFieldAndWriteNothing) {
    ScratchDir dir;
    replayed_session(dir, "--scenario figure8 --duration 2");
    const std::string text = slurp(dir.file("r.csv"));
    const size_t header_end = text.find('\n') + 1, row_end = text.find('\n', header_end) + 1;
    const std::string header = text.substr(0, header_end);
    const std::string row = text.substr(header_end, row_end - header_end);
    const size_t mag_x = row.find(',') + 1;  // the second field
    const std::string bad_row = row.substr(0, mag_x) + "1.2.3" + row.substr(row.find(',', mag_x));
    // Each message as the script words it (its own tests go through every kind).
    const std::pair<std::string, std::string> cases[] = {
        {header + row, ""},
        {text.substr(0, text.find('\n', row_end) + 1), ""},
        {header, ": no result rows to draw"},
        {header + row + "# a comment\n" + bad_row, ":4: field 'mag_x': not a number: \"1.2.3\""},
        {"timestamp_ns,sensor,x,y,z\n1,mag,1,2,3\n",
         ":1: header: no column 't_ns' (not a magcal replay results file)"},
        {"# nothing else\n\n", ": empty: not a magcal replay results file"},
    };
    for (const auto& [input, message] : cases) {
        write_text(dir.file("in.csv"), input);
        const ToolRun run = run_tool("report @in.csv -o @out.png", dir);
        EXPECT_EQ(run.status, message.empty() ? 0 : 2) << message;
        EXPECT_EQ(run.err, message.empty() ? "" : dir.file("in.csv") + message + "\n");
        EXPECT_EQ(starts_with_bytes(dir.file("out.png"), "\x89PNG"), message.empty()) << message;
        std::remove(dir.file("out.png").c_str());
    }
    // An output that is one of the inputs is refused before anything runs.
    write_text(dir.file("r.png"), text);
    const ToolRun run = run_tool("report @r.png -o @r.png", dir);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("would overwrite its input"), std::string::npos) << run.err;
    EXPECT_EQ(slurp(dir.file("r.png")), text);
}

TEST(ToolReport, MissingPackagesAreNamedWithTheirDebianPackages) {
    ScratchDir dir;
    write_text(dir.file("r.csv"), "t_ns\n1\n");
    write_fake_python(dir.file("python3"), "matplotlib");
    const std::string python = "MAGCAL_PYTHON=" + dir.file("python3");
    ToolRun run = run_tool("report @r.csv -o @r.png", dir, python);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "magcal report: MAGCAL_PYTHON=" + dir.file("python3") +
                           " lacks matplotlib; install it for that interpreter (on Debian, for "
                           "/usr/bin/python3: apt-get install -y python3-matplotlib)\n");
    write_fake_python(dir.file("python3"), "numpy matplotlib");
    run = run_tool("report @r.csv -o @r.png", dir, python);
    EXPECT_NE(run.err.find(" lacks numpy, matplotlib; install them for that interpreter (on "
                           "Debian, for /usr/bin/python3: apt-get install -y python3-numpy "
                           "python3-matplotlib)"),
              std::string::npos)
        << run.err;
    run = run_tool("report @r.csv -o @r.png --python @no-such-python", dir);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "magcal report: --python " + dir.file("no-such-python") + ": no such program\n");
    const std::vector<std::string> left{"python3", "r.csv"};
    EXPECT_EQ(dir.entries(), left);
}

TEST(ToolReport, Python3OnThePathWithoutThePackagesFallsBackToTheSystemOne) {
    ScratchDir dir;
    replayed_session(dir, "--scenario figure8 --duration 2");
    std::filesystem::create_directory(dir.file("bin"));
    write_fake_python(dir.file("bin/python3"), "numpy matplotlib");
    const ToolRun run = run_tool("report @r.csv -o @r.png --verbose", dir,
                                 "-u MAGCAL_PYTHON PATH=" + dir.file("bin") + ":/usr/bin:/bin");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err.rfind("magcal report: drawing with /usr/bin/python3, because python3 on "
                            "the PATH (" +
                                dir.file("bin/python3") + ") lacks numpy, matplotlib\n",
                            0),
              0u)
        << run.err;
    EXPECT_TRUE(starts_with_bytes(dir.file("r.png"), "\x89PNG"));
}

TEST(ToolReport, ScriptIsFoundBesideTheToolBeforeTheInstalledLayout) {
    // A copy of the tool in bin/, a stand-in report.py that only says where
    // it lives, and an interpreter that runs it as a shell script.
    ScratchDir dir;
    for (const char* sub : {"bin", "share", "share/magcal"})
        std::filesystem::create_directory(dir.file(sub));
    std::filesystem::copy_file(MAGCAL_TOOL_PATH, dir.file("bin/magcal"));
    write_fake_python(dir.file("python3"), "");
    write_text(dir.file("r.csv"), "t_ns\n1\n");
    const auto drawn_by = [&]() {
        const ToolRun run =
            run_tool("report @r.csv -o @r.png", dir, "MAGCAL_PYTHON=" + dir.file("python3"),
                     dir.file("bin/magcal"));
        EXPECT_EQ(run.status, 0) << run.err;
        return slurp(dir.file("r.png"));
    };
    write_text(dir.file("share/magcal/report.py"), "printf installed > \"$3\"\n");
    EXPECT_EQ(drawn_by(), "installed");
    write_text(dir.file("bin/report.py"), "printf beside > \"$3\"\n");
    EXPECT_EQ(drawn_by(), "beside");
}

}  // namespace
