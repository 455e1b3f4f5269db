// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "command_line.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "tool_errors.h"

namespace magcal::tool {

CommandLine::CommandLine(int argc, char** argv, int first) {
    for (int i = first; i < argc; ++i) args_.emplace_back(argv[i]);
}

bool CommandLine::next(std::string* arg, bool* is_option) {
    has_pending_ = false;
    if (pos_ >= args_.size()) return false;
    std::string a = args_[pos_++];
    *is_option = a.size() > 1 && a[0] == '-';
    if (*is_option && a.rfind("--", 0) == 0) {
        const size_t eq = a.find('=');
        if (eq != std::string::npos) {
            pending_ = a.substr(eq + 1);
            has_pending_ = true;
            a.erase(eq);
        }
    }
    *arg = a;
    return true;
}

std::string CommandLine::value(const std::string& option) {
    if (has_pending_) {
        has_pending_ = false;
        return pending_;
    }
    if (pos_ >= args_.size()) throw UsageError("option " + option + " needs a value");
    return args_[pos_++];
}

void CommandLine::no_value(const std::string& option) {
    if (has_pending_) throw UsageError("option " + option + " takes no value");
}

double number_arg(const std::string& option, const std::string& text) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(v)) {
        throw UsageError("option " + option + ": not a number: \"" + text + "\"");
    }
    return v;
}

uint64_t unsigned_arg(const std::string& option, const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || end != text.c_str() + text.size() || errno == ERANGE) {
        throw UsageError("option " + option + ": not a non-negative integer: \"" + text + "\"");
    }
    return v;
}

std::vector<double> numbers_arg(const std::string& option, const std::string& text, size_t count) {
    std::vector<double> out;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && (text[i] == ',' || text[i] == ' ' || text[i] == '\t')) ++i;
        if (i >= text.size()) break;
        size_t j = i;
        while (j < text.size() && text[j] != ',' && text[j] != ' ' && text[j] != '\t') ++j;
        out.push_back(number_arg(option, text.substr(i, j - i)));
        i = j;
    }
    if (out.size() != count) {
        throw UsageError("option " + option + ": expected " + std::to_string(count) +
                         " numbers separated by commas, got " + std::to_string(out.size()));
    }
    return out;
}

std::array<double, 3> triple_arg(const std::string& option, const std::string& text) {
    const std::vector<double> v = numbers_arg(option, text, 3);
    return {v[0], v[1], v[2]};
}

std::array<double, 9> matrix_arg(const std::string& option, const std::string& text) {
    const std::vector<double> v = numbers_arg(option, text, 9);
    std::array<double, 9> m;
    for (int i = 0; i < 9; ++i) m[i] = v[i];
    return m;
}

}  // namespace magcal::tool
