// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
#include "fuzz_properties.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace magcal::fuzz {

void fail(const char* file, int line, const char* condition, const char* format, ...) {
    std::fprintf(stderr, "%s:%d: property broken: %s: ", file, line, condition);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    std::abort();
}

bool same_float(float a, float b) {
    if (std::isnan(a) || std::isnan(b)) {
        return std::isnan(a) && std::isnan(b) && std::signbit(a) == std::signbit(b);
    }
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same_double(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) {
        return std::isnan(a) && std::isnan(b) && std::signbit(a) == std::signbit(b);
    }
    return std::memcmp(&a, &b, sizeof a) == 0;
}

int count_lines(std::string_view text) {
    int lines = 0;
    for (char c : text) lines += c == '\n';
    return lines + (!text.empty() && text.back() != '\n');
}

bool names_file_and_line(const std::string& message, const std::string& name, int max_line,
                         const std::vector<std::string>& whole_file, std::string* why) {
    if (message.find('\n') != std::string::npos) {
        *why = "more than one line";
        return false;
    }
    if (message.compare(0, name.size() + 1, name + ":") != 0) {
        *why = "does not start with the file name";
        return false;
    }
    std::string_view rest(message);
    rest.remove_prefix(name.size() + 1);
    if (!rest.empty() && rest[0] == ' ') {
        rest.remove_prefix(1);
        for (const std::string& detail : whole_file) {
            if (rest.compare(0, detail.size(), detail) == 0) return true;
        }
        *why = "names no line, and is no fault of the whole file";
        return false;
    }
    size_t digits = 0;
    long line = 0;
    while (digits < rest.size() && digits < 10 && rest[digits] >= '0' && rest[digits] <= '9') {
        line = line * 10 + (rest[digits] - '0');
        ++digits;
    }
    if (digits == 0 || rest.compare(digits, 2, ": ") != 0 || rest.size() == digits + 2) {
        *why = "no \"LINE: DETAIL\" after the file name";
        return false;
    }
    if (line < 1 || (max_line >= 1 && line > max_line)) {
        *why = "line " + std::to_string(line) + " is not in 1.." + std::to_string(max_line);
        return false;
    }
    return true;
}

bool float_survives_printing(float value) {
    // Float literals: 2^31 is exact in single precision.
    return std::isfinite(value) && std::fabs(value) < 2147483648.0f;
}

bool reads_back_as_written(float written, float read) {
    if (std::fabs(written) >= 16.0f || std::trunc(written) == written) {
        return same_float(written, read);
    }
    constexpr double kTolerance = 1.4e-6;  // 2 x (5e-7 printing + 2e-7 fraction arithmetic)
    return std::signbit(written) == std::signbit(read) &&
           std::fabs(static_cast<double>(read) - static_cast<double>(written)) <= kTolerance;
}

}  // namespace magcal::fuzz
