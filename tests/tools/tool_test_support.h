// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Helpers for the tests that drive the magcal tool as a child process: a
// scratch directory, running the tool, reading its CSV output by column.
#pragma once

#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

// Cross builds run the tool through the emulator: "qemu-aarch64 -L ... ".
#ifndef MAGCAL_TOOL_LAUNCHER
#define MAGCAL_TOOL_LAUNCHER ""
#endif

namespace magcal::tooltest {

// A fresh directory under /tmp, removed with everything in it.
class ScratchDir {
  public:
    ScratchDir() {
        char pattern[] = "/tmp/magcal-tool-test.XXXXXX";
        path_ = mkdtemp(pattern) != nullptr ? pattern : "";
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> entries() const {  // sorted names
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(path_))
            names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    std::string path_;
};

inline std::string slurp(const std::string& path) {
    std::stringstream ss;
    ss << std::ifstream(path, std::ios::binary).rdbuf();
    return ss.str();
}

inline void write_text(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline double wrap180(double deg) {  // angle difference to (-180, 180] [deg]
    const double r = std::fmod(deg, 360.0);
    return r > 180.0 ? r - 360.0 : r <= -180.0 ? r + 360.0 : r;
}

inline std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> fields{""};
    for (char c : line) c == separator ? fields.emplace_back() : fields.back() += c;
    return fields;
}

// `text` with `change(line number, fields)` applied to the comma-separated
// fields of each line; the lines are joined again with commas.
inline std::string map_csv_lines(
    const std::string& text, const std::function<void(int, std::vector<std::string>&)>& change) {
    std::istringstream in(text);
    std::string out;
    int n = 0;
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields = split(line, ',');
        change(++n, fields);
        for (size_t i = 0; i < fields.size(); ++i) out += (i ? "," : "") + fields[i];
        out += "\n";
    }
    return out;
}

struct ToolRun {
    int status = -1;  // exit status, -1 when it did not exit normally
    std::string out, err;
};

// Runs the built magcal tool (or `tool`) with the blank-separated `args`, in
// which '@' stands for the scratch directory ("@log.csv"), and the changes
// `env` makes to the environment (env(1) arguments). stderr passes through a
// hidden file there that is removed again.
inline ToolRun run_tool(std::string args, const ScratchDir& dir, const std::string& env = "",
                        const std::string& tool = MAGCAL_TOOL_PATH) {
    for (size_t at; (at = args.find('@')) != std::string::npos;) args.replace(at, 1, dir.file(""));
    const std::string err = dir.file(".err");
    std::FILE* pipe = popen(
        ("env " + env + " " MAGCAL_TOOL_LAUNCHER + tool + " " + args + " 2>" + err).c_str(), "r");
    ToolRun run;
    if (pipe == nullptr) return run;
    for (int c; (c = std::fgetc(pipe)) != EOF;) run.out += static_cast<char>(c);
    const int status = pclose(pipe);
    if (status != -1 && WIFEXITED(status)) run.status = WEXITSTATUS(status);
    run.err = slurp(err);
    std::remove(err.c_str());
    return run;
}

// A CSV file with a header line (comment lines skipped), addressed by column.
class CsvTable {
  public:
    explicit CsvTable(const std::string& path) {
        std::istringstream in(slurp(path));
        std::vector<std::string> header;
        for (std::string line; std::getline(in, line);) {
            if (line.empty() || line[0] == '#') continue;
            const std::vector<std::string> fields = split(line, ',');
            if (header.empty()) {
                header = fields;
                continue;
            }
            auto& row = rows_.emplace_back();
            for (size_t i = 0; i < fields.size() && i < header.size(); ++i)
                row[header[i]] = fields[i];
        }
    }
    size_t size() const { return rows_.size(); }
    std::string text(size_t row, const std::string& column) const {
        const auto it = rows_.at(row).find(column);
        return it == rows_[row].end() ? "<missing " + column + ">" : it->second;
    }
    float f(size_t row, const std::string& column) const {
        return std::strtof(text(row, column).c_str(), nullptr);
    }
    double d(size_t row, const std::string& column) const {  // exact for t_ns below 2^53
        return std::strtod(text(row, column).c_str(), nullptr);
    }

  private:
    std::vector<std::map<std::string, std::string>> rows_;
};

}  // namespace magcal::tooltest
