// Field parsing with messages a person can act on: file, line, field name
// and the offending text.
#include "text_fields.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tool_errors.h"

namespace magcal::tool {
namespace {

std::string trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
    return s.substr(b, e - b);
}

[[noreturn]] void bad_field(const std::string& where, const char* name, const char* what,
                            const std::string& text) {
    throw InputError(where + ": field '" + name + "': " + what + ": " + quoted(text));
}

}  // namespace

std::vector<TextLine> read_lines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw InputError(path + ": cannot open: " + std::strerror(errno));
    std::vector<TextLine> lines;
    std::string text;
    int number = 0;
    while (std::getline(in, text)) {
        ++number;
        if (!text.empty() && text.back() == '\r') text.pop_back();
        lines.push_back({number, std::move(text)});
        text.clear();
    }
    if (in.bad()) throw InputError(path + ": read error: " + std::strerror(errno));
    return lines;
}

bool is_comment_or_blank(const std::string& text) {
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\r') continue;
        return c == '#';
    }
    return true;
}

std::vector<std::string> split_fields(const std::string& text) {
    std::vector<std::string> fields;
    size_t start = 0;
    while (true) {
        const size_t comma = text.find(',', start);
        fields.push_back(trim(
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return fields;
}

std::string location(const std::string& path, int line) {
    return path + ":" + std::to_string(line);
}

float parse_float_field(const std::string& text, const char* name, const std::string& where) {
    if (text.empty()) bad_field(where, name, "not a number", text);
    char* end = nullptr;
    const float v = std::strtof(text.c_str(), &end);
    if (end != text.c_str() + text.size()) bad_field(where, name, "not a number", text);
    return v;  // beyond the float range reads as +-inf, which the library must cope with
}

double parse_double_field(const std::string& text, const char* name, const std::string& where) {
    if (text.empty()) bad_field(where, name, "not a number", text);
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size()) bad_field(where, name, "not a number", text);
    return v;
}

int64_t parse_int64_field(const std::string& text, const char* name, const std::string& where) {
    if (text.empty()) bad_field(where, name, "not an integer", text);
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (end != text.c_str() + text.size()) bad_field(where, name, "not an integer", text);
    if (errno == ERANGE) bad_field(where, name, "out of the 64-bit range", text);
    return v;
}

int32_t parse_int32_field(const std::string& text, const char* name, const std::string& where) {
    const int64_t v = parse_int64_field(text, name, where);
    if (v < INT32_MIN || v > INT32_MAX) bad_field(where, name, "out of the 32-bit range", text);
    return static_cast<int32_t>(v);
}

const std::string& field_at(const std::vector<std::string>& fields, size_t index, const char* name,
                            const std::string& where, const char* layout) {
    if (index >= fields.size()) {
        throw InputError(where + ": field '" + name + "': missing (a line is " + layout + ")");
    }
    return fields[index];
}

std::string quoted(const std::string& text) {
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

}  // namespace magcal::tool
