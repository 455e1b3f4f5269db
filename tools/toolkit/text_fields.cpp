// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Field parsing with messages a person can act on: file, line, field name
// and the offending text.
#include "text_fields.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "tool_errors.h"

namespace magcal::tool {
namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
    return s;
}

[[noreturn]] void bad_field(const std::string& where, const char* name, const char* what,
                            std::string_view text) {
    throw InputError(where + ": field '" + name + "': " + what + ": " + quoted(text));
}

// strtod and friends need a terminated string; fields are short, so the
// copy stays on the stack (a log has millions of them).
class Terminated {
  public:
    explicit Terminated(std::string_view text) : size_(text.size()) {
        if (size_ < sizeof small_) {
            // copy, not memcpy: an empty view may have no data pointer at all.
            text.copy(small_, size_);
            small_[size_] = '\0';
        } else {
            large_.assign(text);
        }
    }
    const char* c_str() const { return size_ < sizeof small_ ? small_ : large_.c_str(); }
    const char* end() const { return c_str() + size_; }

  private:
    size_t size_;
    char small_[48];
    std::string large_;
};

}  // namespace

bool is_comment_or_blank(std::string_view text) {
    for (char c : text) {
        if (is_blank(c)) continue;
        return c == '#';
    }
    return true;
}

void split_fields(std::string_view text, char separator, std::vector<std::string_view>* fields) {
    fields->clear();
    while (true) {
        const size_t cut = text.find(separator);
        fields->push_back(trim(text.substr(0, cut)));
        if (cut == std::string_view::npos) break;
        text.remove_prefix(cut + 1);
    }
}

std::string location(const std::string& path, int line) {
    return path + ":" + std::to_string(line);
}

float parse_float_field(std::string_view text, const char* name, const std::string& where) {
    const Terminated t(text);
    char* end = nullptr;
    const float v = std::strtof(t.c_str(), &end);
    if (text.empty() || end != t.end()) bad_field(where, name, "not a number", text);
    return v;  // beyond the float range reads as +-inf, as a sensor driver's float would
}

double parse_double_field(std::string_view text, const char* name, const std::string& where) {
    const Terminated t(text);
    char* end = nullptr;
    const double v = std::strtod(t.c_str(), &end);
    if (text.empty() || end != t.end()) bad_field(where, name, "not a number", text);
    return v;
}

bool is_integer(std::string_view text) {
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
    if (text.empty()) return false;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

bool is_number(std::string_view text) {
    const Terminated t(text);
    char* end = nullptr;
    std::strtod(t.c_str(), &end);
    return !text.empty() && end == t.end();
}

int64_t parse_int64_field(std::string_view text, const char* name, const std::string& where) {
    if (!is_integer(text)) bad_field(where, name, "not an integer", text);
    const Terminated t(text);
    errno = 0;
    const long long v = std::strtoll(t.c_str(), nullptr, 10);
    if (errno == ERANGE) bad_field(where, name, "out of the 64-bit range", text);
    return v;
}

int32_t parse_int32_field(std::string_view text, const char* name, const std::string& where) {
    const int64_t v = parse_int64_field(text, name, where);
    if (v < INT32_MIN || v > INT32_MAX) bad_field(where, name, "out of the 32-bit range", text);
    return static_cast<int32_t>(v);
}

std::string_view field_at(const std::vector<std::string_view>& fields, size_t index,
                          const char* name, const std::string& where, const char* layout) {
    if (index >= fields.size()) {
        throw InputError(where + ": field '" + name + "': missing (a line is " + layout + ")");
    }
    return fields[index];
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7f) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string joined(const std::vector<std::string_view>& fields, char separator) {
    std::string out;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) out += separator;
        out += fields[i];
    }
    return out;
}

std::string printed(const char* fmt, ...) {
    char buf[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buf, sizeof buf, fmt, args);
    va_end(args);
    return buf;
}

}  // namespace magcal::tool
