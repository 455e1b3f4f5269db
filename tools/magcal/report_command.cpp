// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal report: finds a Python that can draw and the drawing script,
// report.py, and lets the script draw into a temporary file that is renamed
// into place only when the picture is complete.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "output_file.h"
#include "report_python.h"
#include "tool_errors.h"

#ifndef MAGCAL_REPORT_SCRIPT_SOURCE
#define MAGCAL_REPORT_SCRIPT_SOURCE ""
#endif

namespace magcal::tool {

const char* const kReportHelp =
    "usage: magcal report RESULTS.csv [--truth TRUTH.csv] [--softiron FILE.json]\n"
    "                     [--trace TRACE.csv] [--python PYTHON] [-v] -o REPORT.png\n"
    "\n"
    "Draws a replay's results (magcal replay -o RESULTS.csv): the field samples\n"
    "corrected with their published offset in three planes, the offset against\n"
    "truth, the accuracy, the heading of the fused attitude and of the azimuth\n"
    "output against truth, the heading error with its RMS, and the field\n"
    "strength. Every panel says what is averaged and why it differs from the\n"
    "truth. Sessions of any length: long series are thinned for drawing, keeping\n"
    "each pixel's lowest and highest value.\n"
    "\n"
    "  -o, --output REPORT.png  the picture to write (.png, .svg or .pdf)\n"
    "  --truth TRUTH.csv        ground truth: the true field strength and attitude,\n"
    "                           and the offset and heading when RESULTS.csv has none\n"
    "  --softiron FILE.json     the soft-iron file the replay installed: samples\n"
    "                           are corrected with it before the offset is removed\n"
    "  --trace TRACE.csv        the decision trace of the same replay (magcal replay\n"
    "                           --trace): adds a timeline of the evidence the\n"
    "                           accuracy follows from under the accuracy panel\n"
    "  --python PYTHON          the Python to draw with (also MAGCAL_PYTHON)\n"
    "  -v, --verbose            say which Python and which script draw\n"
    "  -h, --help               this text\n"
    "\n"
    "Needs Python 3 with numpy and matplotlib (Debian: apt-get install -y\n"
    "python3-numpy python3-matplotlib). Without --python or MAGCAL_PYTHON it uses\n"
    "python3 from the PATH if that has both, else /usr/bin/python3.\n"
    "Exit status: 0 ok, 1 runtime failure (e.g. a Python package missing),\n"
    "2 bad input or usage.\n";

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string exe_dir() {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return "";
    exe[n] = '\0';
    std::string dir(exe);
    return dir.substr(0, dir.rfind('/') + 1);
}

// Beside the binary in a build tree, under share/ in an installed layout,
// else the source copy the binary was built from.
std::string find_report_script() {
    const std::string dir = exe_dir();
    for (const std::string& candidate : {dir + "report.py", dir + "../share/magcal/report.py",
                                         std::string(MAGCAL_REPORT_SCRIPT_SOURCE)}) {
        if (!candidate.empty() && exists(candidate)) return candidate;
    }
    throw RuntimeFailure("cannot find report.py beside the magcal tool, in " + dir +
                         "../share/magcal/ or in the sources");
}

}  // namespace

int run_report(int argc, char** argv) {
    std::string results_path, truth_path, softiron_path, trace_path, output_path, python;
    std::string python_by = "--python";
    bool verbose = false;
    CommandLine cl(argc, argv, 0);
    std::string a;
    bool is_option = false;
    while (cl.next(&a, &is_option)) {
        if (!is_option) {
            if (!results_path.empty()) throw UsageError("unexpected argument \"" + a + "\"");
            results_path = a;
        } else if (a == "-o" || a == "--output") {
            output_path = cl.value(a);
        } else if (a == "--truth") {
            truth_path = cl.value(a);
        } else if (a == "--softiron") {
            softiron_path = cl.value(a);
        } else if (a == "--trace") {
            trace_path = cl.value(a);
        } else if (a == "--python") {
            python = cl.value(a);
            if (python.empty()) throw UsageError("option --python needs a program");
        } else if (a == "-v" || a == "--verbose") {
            cl.no_value(a);
            verbose = true;
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (results_path.empty()) throw UsageError("missing RESULTS.csv");
    if (output_path.empty()) throw UsageError("missing -o REPORT.png");
    const size_t dot = output_path.rfind('.');
    const std::string format = dot == std::string::npos ? "" : output_path.substr(dot + 1);
    if (format != "png" && format != "svg" && format != "pdf") {
        throw UsageError("-o: the file name must end in .png, .svg or .pdf");
    }
    for (const std::string* input : {&results_path, &truth_path, &softiron_path, &trace_path}) {
        if (input->empty()) continue;
        if (access(input->c_str(), R_OK) != 0) {
            throw InputError(*input + ": cannot open: " + std::strerror(errno));
        }
    }
    check_output_names({{"RESULTS", results_path}, {"--truth", truth_path},
                        {"--softiron", softiron_path}, {"--trace", trace_path}},
                       {{"-o", output_path}});
    if (python.empty()) {
        const char* env = std::getenv("MAGCAL_PYTHON");
        if (env != nullptr) python = env;
        python_by = "MAGCAL_PYTHON";
    }

    const ReportPython interpreter = find_report_python(python, python_by);
    const std::string script = find_report_script();
    if (verbose) {
        std::fprintf(stderr, "magcal report: drawing with %s\nmagcal report: script %s\n",
                     interpreter.reason.c_str(), script.c_str());
    }

    OutputFile out(output_path);
    std::vector<std::string> args{interpreter.path, script,     results_path, "--output",
                                  out.temp_path(),  "--format", format};
    if (!truth_path.empty()) {
        args.push_back("--truth");
        args.push_back(truth_path);
    }
    if (!softiron_path.empty()) {
        args.push_back("--softiron");
        args.push_back(softiron_path);
    }
    if (!trace_path.empty()) {
        args.push_back("--trace");
        args.push_back(trace_path);
    }
    const int status = run_program(args, nullptr);
    if (status < 0 || status == 127) {
        throw RuntimeFailure(interpreter.path + " " + script + " did not run to the end");
    }
    if (status != 0) {
        // report.py has said what went wrong; 2 is its bad-input status.
        return status == kExitBadInput ? kExitBadInput : kExitRuntime;
    }
    out.commit_external();
    std::printf("report -> %s\n", output_path.c_str());
    return kExitOk;
}

}  // namespace magcal::tool
