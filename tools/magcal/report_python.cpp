// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "report_python.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "tool_errors.h"

namespace magcal::tool {
namespace {

constexpr const char* kSystemPython = "/usr/bin/python3";

// Finding a package is enough to choose an interpreter; importing matplotlib
// would double the start-up time of every report. report.py itself still
// names a package that is found but broken. The first line tells a Python
// that ran the probe from a program that merely exited 0.
constexpr const char* kProbeMark = "magcal-probe";
constexpr const char* kProbe =
    "import importlib.util as u\n"
    "print('magcal-probe')\n"
    "print(' '.join(n for n in ('numpy', 'matplotlib') if u.find_spec(n) is None))\n";

// A probe that prints more than this is not the probe we wrote.
constexpr size_t kMaxCapture = 1 << 16;

struct Probe {
    bool ran = false;                  // it ran as a Python 3 and answered
    std::vector<std::string> missing;  // of numpy, matplotlib
};

bool is_executable_file(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

// `name` as execvp would find it: itself when it holds a slash, else the
// first executable of that name along PATH; "" when there is none.
std::string find_program(const std::string& name) {
    if (name.find('/') != std::string::npos) return is_executable_file(name) ? name : "";
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) end = dirs.size();
        const std::string dir = end > start ? dirs.substr(start, end - start) : ".";
        const std::string candidate = dir + "/" + name;
        if (is_executable_file(candidate)) return candidate;
        start = end + 1;
    }
    return "";
}

std::string real_path(const std::string& path) {
    char buf[PATH_MAX];
    return realpath(path.c_str(), buf) != nullptr ? std::string(buf) : path;
}

Probe probe(const std::string& python) {
    Probe p;
    std::string out;
    if (run_program({python, "-c", kProbe}, &out) != 0) return p;
    const std::string mark = std::string(kProbeMark) + "\n";
    if (out.compare(0, mark.size(), mark) != 0 || out.back() != '\n') return p;
    std::string name;
    for (size_t k = mark.size(); k < out.size(); ++k) {
        if (out[k] != ' ' && out[k] != '\n') {
            name += out[k];
            continue;
        }
        if (name == "numpy" || name == "matplotlib") {
            p.missing.push_back(name);
        } else if (!name.empty()) {
            return p;  // not an answer to the probe
        }
        name.clear();
    }
    p.ran = true;
    return p;
}

std::string comma_list(const std::vector<std::string>& names) {
    std::string s;
    for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
    return s;
}

std::string lacks(const Probe& p) {
    return p.ran ? "lacks " + comma_list(p.missing) : "does not run as Python 3";
}

std::string debian_install(const std::vector<std::string>& missing, bool with_python) {
    std::string command = "apt-get install -y";
    if (with_python) command += " python3";
    for (const std::string& n : missing) command += " python3-" + n;
    return command;
}

}  // namespace

int run_program(const std::vector<std::string>& args, std::string* out) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    int pipe_fd[2] = {-1, -1};
    if (out != nullptr && pipe(pipe_fd) != 0) return -1;
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0) {
        if (out != nullptr) {
            close(pipe_fd[0]);
            close(pipe_fd[1]);
        }
        return -1;
    }
    if (pid == 0) {
        if (out != nullptr) {
            const int null_fd = open("/dev/null", O_WRONLY);
            if (null_fd < 0 || dup2(pipe_fd[1], STDOUT_FILENO) < 0 ||
                dup2(null_fd, STDERR_FILENO) < 0) {
                _exit(127);
            }
            close(pipe_fd[0]);
            close(pipe_fd[1]);
            close(null_fd);
        }
        execvp(argv[0], argv.data());
        _exit(127);
    }
    if (out != nullptr) {
        close(pipe_fd[1]);
        char buf[4096];
        for (;;) {
            const ssize_t n = read(pipe_fd[0], buf, sizeof buf);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            // Keep reading past the limit so that the child never blocks on a full pipe.
            if (out->size() < kMaxCapture) out->append(buf, static_cast<size_t>(n));
        }
        close(pipe_fd[0]);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ReportPython find_report_python(const std::string& requested, const std::string& requested_by) {
    if (!requested.empty()) {
        const std::string path = find_program(requested);
        std::string named = requested_by + (requested_by == "--python" ? " " : "=") + requested;
        if (path.empty()) throw RuntimeFailure(named + ": no such program");
        if (path != requested) named += " (" + path + ")";
        const Probe p = probe(path);
        if (!p.ran || !p.missing.empty()) {
            std::string hint = ".";
            if (p.ran) {
                hint = "; install " + std::string(p.missing.size() > 1 ? "them" : "it") +
                       " for that interpreter (on Debian, for " + kSystemPython + ": " +
                       debian_install(p.missing, false) + ")";
            }
            throw RuntimeFailure(named + " " + lacks(p) + hint);
        }
        return {path, named};
    }

    const std::string on_path = find_program("python3");
    Probe path_probe;
    if (!on_path.empty()) {
        path_probe = probe(on_path);
        if (path_probe.ran && path_probe.missing.empty()) {
            return {on_path, "python3 on the PATH (" + on_path + ")"};
        }
    }
    const bool system_is_other =
        is_executable_file(kSystemPython) &&
        (on_path.empty() || real_path(on_path) != real_path(kSystemPython));
    Probe system_probe;
    if (system_is_other) {
        system_probe = probe(kSystemPython);
        if (system_probe.ran && system_probe.missing.empty()) {
            const std::string why =
                on_path.empty() ? "there is no python3 on the PATH"
                                : "python3 on the PATH (" + on_path + ") " + lacks(path_probe);
            return {kSystemPython, std::string(kSystemPython) + ", because " + why};
        }
    }

    // Nothing usable: say what each candidate lacks and what Debian installs
    // for its own interpreter, which the fallback above would then pick up.
    std::string what;
    if (!on_path.empty()) what = "python3 on the PATH (" + on_path + ") " + lacks(path_probe);
    if (system_is_other) {
        what +=
            (what.empty() ? "" : ", and ") + std::string(kSystemPython) + " " + lacks(system_probe);
    }
    if (what.empty()) what = "no python3 on the PATH or at " + std::string(kSystemPython);
    const bool system_exists = is_executable_file(kSystemPython);
    const Probe& system = system_is_other ? system_probe : path_probe;
    const std::vector<std::string> packages = system_exists && system.ran
                                                  ? system.missing
                                                  : std::vector<std::string>{"numpy", "matplotlib"};
    throw RuntimeFailure(what + "; the report needs numpy and matplotlib: on Debian, " +
                         debian_install(packages, !system_exists) +
                         ", or set MAGCAL_PYTHON to a python3 that has them");
}

}  // namespace magcal::tool
