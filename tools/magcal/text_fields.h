// Line-oriented CSV reading shared by the log, truth and state readers: the
// file is read whole, lines are split on commas, and every field error is
// reported as "FILE:LINE: field 'NAME': ..." through InputError.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace magcal::tool {

struct TextLine {
    int number;        // 1-based line number in the file
    std::string text;  // without the line break (and without a trailing CR)
};

// Every line of the file; InputError "FILE: cannot open: REASON" when it
// cannot be read.
std::vector<TextLine> read_lines(const std::string& path);

// True for lines to skip: blank, or starting with '#' (after blanks).
bool is_comment_or_blank(const std::string& text);

// Comma-separated fields with surrounding blanks removed.
std::vector<std::string> split_fields(const std::string& text);

// "FILE:LINE"
std::string location(const std::string& path, int line);

// The whole field must be a number; otherwise InputError
// "WHERE: field 'NAME': not a number: "TEXT"". Single precision is parsed
// directly so that a value printed with %.9g reads back bit for bit.
float parse_float_field(const std::string& text, const char* name, const std::string& where);
double parse_double_field(const std::string& text, const char* name, const std::string& where);
int64_t parse_int64_field(const std::string& text, const char* name, const std::string& where);
int32_t parse_int32_field(const std::string& text, const char* name, const std::string& where);

// The field at `index`, or InputError "WHERE: field 'NAME': missing (...)".
const std::string& field_at(const std::vector<std::string>& fields, size_t index, const char* name,
                            const std::string& where, const char* layout);

// Quoted for messages, with control characters escaped.
std::string quoted(const std::string& text);

}  // namespace magcal::tool
