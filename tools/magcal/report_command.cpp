// magcal report: hands the drawing to tools/magcal/report.py (matplotlib),
// which writes into a temporary file that is renamed into place only when
// the picture is complete.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "output_file.h"
#include "tool_errors.h"

#ifndef MAGCAL_REPORT_SCRIPT_SOURCE
#define MAGCAL_REPORT_SCRIPT_SOURCE ""
#endif

namespace magcal::tool {

const char* const kReportHelp =
    "usage: magcal report RESULTS.csv [--truth TRUTH.csv] [--softiron FILE.json]\n"
    "                     -o REPORT.png\n"
    "\n"
    "Draws a replay's results (magcal replay -o RESULTS.csv): the raw field and\n"
    "each sample minus its published offset in three plane projections with the\n"
    "fitted circle, the offset per axis against truth, the accuracy timeline, the\n"
    "fused attitude's heading and the azimuth output against truth, and the field\n"
    "strength over time.\n"
    "\n"
    "  -o, --output REPORT.png  the picture to write (.png, .svg or .pdf)\n"
    "  --truth TRUTH.csv        ground truth, when RESULTS.csv has no truth columns\n"
    "  --softiron FILE.json     the soft-iron file the replay installed: samples\n"
    "                           are corrected with it before the offset is removed\n"
    "  -h, --help               this text\n"
    "\n"
    "Needs python3 with matplotlib (Debian: apt-get install -y python3-matplotlib).\n"
    "Exit status: 0 ok, 1 runtime failure (e.g. matplotlib missing), 2 bad input\n"
    "or usage.\n";

namespace {

constexpr const char* kInstallHint = "apt-get install -y python3-matplotlib";

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

// Runs argv[0] (searched in PATH) and returns its exit status, or -1 when it
// could not be started. With `quiet`, its stdout and stderr are discarded.
int run(const std::vector<std::string>& args, bool quiet) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        if (quiet) {
            if (std::freopen("/dev/null", "w", stdout) == nullptr ||
                std::freopen("/dev/null", "w", stderr) == nullptr) {
                _exit(127);
            }
        }
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (!WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace

int run_report(int argc, char** argv) {
    std::string results_path, truth_path, softiron_path, output_path;
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
    for (const std::string* input : {&results_path, &truth_path, &softiron_path}) {
        if (!input->empty() && access(input->c_str(), R_OK) != 0) {
            throw InputError(*input + ": cannot open: " + std::strerror(errno));
        }
    }

    const std::string python = exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
    const int probe = run({python, "-c", "import matplotlib"}, true);
    if (probe == 127 || probe < 0) {
        throw RuntimeFailure("cannot run " + python + "; install Python and matplotlib with: " +
                             "apt-get install -y python3 python3-matplotlib");
    }
    if (probe != 0) {
        throw RuntimeFailure(python + " has no matplotlib; install it with: " + kInstallHint);
    }

    std::string script = exe_dir() + "report.py";
    if (!exists(script)) script = MAGCAL_REPORT_SCRIPT_SOURCE;
    if (script.empty() || !exists(script)) {
        throw RuntimeFailure("cannot find report.py beside the magcal tool or in the sources");
    }

    OutputFile out(output_path);
    std::vector<std::string> args{python,          script,     results_path, "--output",
                                  out.temp_path(), "--format", format};
    if (!truth_path.empty()) {
        args.push_back("--truth");
        args.push_back(truth_path);
    }
    if (!softiron_path.empty()) {
        args.push_back("--softiron");
        args.push_back(softiron_path);
    }
    const int status = run(args, false);
    if (status != 0) {
        // report.py has said what went wrong; 2 is its bad-input status.
        return status == kExitBadInput ? kExitBadInput : kExitRuntime;
    }
    out.commit_external();
    std::printf("report -> %s\n", output_path.c_str());
    return kExitOk;
}

}  // namespace magcal::tool
