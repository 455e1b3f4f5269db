// Shared helpers for the tests that drive the magcal tool as a child process:
// a scratch directory, running the tool with captured output, writing logs,
// and reading its CSV output by column name.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sim/session_simulator.h"

namespace magcal::tooltest {

// A fresh directory under /tmp, removed with everything in it.
class ScratchDir {
  public:
    ScratchDir() {
        char pattern[] = "/tmp/magcal-tool-test.XXXXXX";
        const char* made = mkdtemp(pattern);
        path_ = made != nullptr ? made : "";
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

    // Names of the entries in the directory, sorted.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(path_)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    std::string path_;
};

struct ToolRun {
    int status = -1;  // exit status, -1 when it did not exit normally
    std::string out, err;
};

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Runs the built magcal tool with `args`, stdout and stderr captured.
inline ToolRun run_tool(const std::vector<std::string>& args, const ScratchDir& dir) {
    const std::string out_path = dir.file(".run.out"), err_path = dir.file(".run.err");
    std::vector<std::string> all{MAGCAL_TOOL_PATH};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) {
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0) _exit(126);
        dup2(out, 1);
        dup2(err, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    ToolRun run;
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        run.status = WEXITSTATUS(status);
    }
    run.out = slurp(out_path);
    run.err = slurp(err_path);
    std::remove(out_path.c_str());
    std::remove(err_path.c_str());
    return run;
}

inline void write_text(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// One log line; floats with %.9g so that they read back exactly.
struct LogLine {
    int64_t t_ns;
    sim::Sensor sensor;
    std::array<float, 3> v;
    int32_t status;
    bool with_status;
};

inline std::string log_text(const std::vector<LogLine>& lines) {
    std::string text = "# test log\ntimestamp_ns,sensor,x,y,z,status\n";
    char buf[200];
    for (const LogLine& l : lines) {
        const char* name = l.sensor == sim::Sensor::Acc    ? "acc"
                           : l.sensor == sim::Sensor::Gyro ? "gyro"
                                                           : "mag";
        std::snprintf(buf, sizeof buf, "%" PRId64 ",%s,%.9g,%.9g,%.9g", l.t_ns, name,
                      static_cast<double>(l.v[0]), static_cast<double>(l.v[1]),
                      static_cast<double>(l.v[2]));
        text += buf;
        if (l.with_status) text += "," + std::to_string(l.status);
        text += "\n";
    }
    return text;
}

inline std::vector<LogLine> log_lines(const sim::Session& s) {
    std::vector<LogLine> lines;
    for (const sim::Sample& x : s.samples) lines.push_back({x.t_ns, x.sensor, x.v, 0, false});
    return lines;
}

// A CSV file with a header line, addressed by column name.
class CsvTable {
  public:
    explicit CsvTable(const std::string& path) {
        std::istringstream in(slurp(path));
        std::string line;
        bool header = true;
        while (std::getline(in, line)) {
            if (line.empty() || line[0] == '#') continue;
            std::vector<std::string> fields;
            std::stringstream ls(line);
            std::string f;
            while (std::getline(ls, f, ',')) fields.push_back(f);
            if (!line.empty() && line.back() == ',') fields.emplace_back();
            if (header) {
                for (size_t i = 0; i < fields.size(); ++i) index_[fields[i]] = i;
                header = false;
            } else {
                rows_.push_back(fields);
            }
        }
    }
    size_t size() const { return rows_.size(); }
    bool has(const std::string& column) const { return index_.count(column) != 0; }
    const std::string& text(size_t row, const std::string& column) const {
        static const std::string missing = "<missing column>";
        const auto it = index_.find(column);
        if (it == index_.end() || it->second >= rows_[row].size()) return missing;
        return rows_[row][it->second];
    }
    float f(size_t row, const std::string& column) const {
        return std::strtof(text(row, column).c_str(), nullptr);
    }
    double d(size_t row, const std::string& column) const {
        return std::strtod(text(row, column).c_str(), nullptr);
    }
    int64_t i(size_t row, const std::string& column) const {
        return std::strtoll(text(row, column).c_str(), nullptr, 10);
    }

  private:
    std::map<std::string, size_t> index_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace magcal::tooltest
