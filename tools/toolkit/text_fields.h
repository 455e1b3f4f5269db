// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Line-oriented CSV reading shared by the log, truth, state and converter
// readers: lines are split on one separator, and every field error is
// reported as "FILE:LINE: field 'NAME': ..." through InputError.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace magcal::tool {

// True for lines to skip: blank, or starting with '#' (after blanks).
bool is_comment_or_blank(std::string_view text);

// Fields separated by `separator`, surrounding blanks removed. The views
// point into `text`.
void split_fields(std::string_view text, char separator, std::vector<std::string_view>* fields);

// "FILE:LINE"
std::string location(const std::string& path, int line);

// The whole field must be a number; otherwise InputError
// "WHERE: field 'NAME': not a number: "TEXT"". Single precision is parsed
// directly (strtof) so that a value printed with %.9g reads back bit for bit.
float parse_float_field(std::string_view text, const char* name, const std::string& where);
double parse_double_field(std::string_view text, const char* name, const std::string& where);
int64_t parse_int64_field(std::string_view text, const char* name, const std::string& where);
int32_t parse_int32_field(std::string_view text, const char* name, const std::string& where);

// Whether the whole of `text` is a decimal integer (what a timestamp is),
// or any number strtod reads.
bool is_integer(std::string_view text);
bool is_number(std::string_view text);

// The field at `index`, or InputError "WHERE: field 'NAME': missing (...)".
std::string_view field_at(const std::vector<std::string_view>& fields, size_t index,
                          const char* name, const std::string& where, const char* layout);

// Quoted for messages, with control characters escaped.
std::string quoted(std::string_view text);

// printf into a string, for messages (at most 511 characters).
std::string printed(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// The fields joined by `separator`, for messages that show a line.
std::string joined(const std::vector<std::string_view>& fields, char separator);

}  // namespace magcal::tool
