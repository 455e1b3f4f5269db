// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// What the fuzz targets check besides "no crash": small predicates shared by
// the targets and unit-tested on their own, so that a check that could never
// fail is caught before it guards anything. A target that finds a property
// broken reports it through FUZZ_REQUIRE, which aborts: the fuzzer then keeps
// the input as a crash and the corpus replay fails on it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace magcal::fuzz {

[[noreturn]] void fail(const char* file, int line, const char* condition, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#define FUZZ_REQUIRE(condition, ...) \
    ((condition) ? (void)0 : ::magcal::fuzz::fail(__FILE__, __LINE__, #condition, __VA_ARGS__))

// Equal bit for bit, or both NaN with the same sign: text formats keep a
// NaN's sign ("-nan") but not its payload.
bool same_float(float a, float b);
bool same_double(double a, double b);

// Lines as the tool's line reader counts them: a last line without a line
// break still counts, an empty text has none.
int count_lines(std::string_view text);

// Whether an input error's message names the file and a line, the way every
// reader of the tool reports a bad line: "NAME:LINE: DETAIL" with LINE in
// 1..max_line (max_line < 1: any line, for compressed input whose lines the
// caller cannot count), on one line. Faults of the file as a whole name no
// line: "NAME: DETAIL" is accepted only when DETAIL starts with one of
// `whole_file`. `why` says what is wrong when the answer is false.
bool names_file_and_line(const std::string& message, const std::string& name, int max_line,
                         const std::vector<std::string>& whole_file, std::string* why);

// The JSON model prints floats with "%f" and reads numbers back with its own
// single-precision rule, so a float survives a round trip only approximately,
// and only when the printed text is a number the model reads as the same
// sign and magnitude: finite, and with an integer part that fits in int32
// (the model reads integer digits into 32 bits).
bool float_survives_printing(float value);

// "The same value" for a float the JSON model printed with "%f" (`written`)
// and read back (`read`):
//  - |written| >= 16 or integral: identical bits. Six decimals are finer
//    than half the float spacing there (2^-20 at 16), and the model's
//    single-precision arithmetic on the fraction is off by less than 2e-7,
//    so the nearest float is the one that was written.
//  - otherwise: the same sign and |read - written| <= 1.4e-6. The text is
//    within 5e-7 of `written` and the arithmetic within 2e-7 of the text;
//    `read` is the float nearest that sum, no farther from it than
//    `written`, so at most twice 7e-7 away.
bool reads_back_as_written(float written, float read);

}  // namespace magcal::fuzz
