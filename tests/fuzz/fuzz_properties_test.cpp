// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The predicates the fuzz targets judge inputs by. A predicate that accepts
// too much lets a fuzzer run green over a real fault, so each is held to
// cases it must reject as well as to what the code it judges really does:
// the tool's line reader and error messages, and the JSON model's printing
// and reading of floats.
#include "fuzz_properties.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>

#include "line_reader.h"
#include "memory_file.h"
#include "params/JSONObject.h"
#include "sensor_log.h"
#include "tool_errors.h"

namespace {

using magcal::fuzz::names_file_and_line;
using magcal::fuzz::reads_back_as_written;

TEST(FuzzProperties, SameValueTellsZerosAndNaNSigns) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(magcal::fuzz::same_float(1.5f, 1.5f));
    EXPECT_TRUE(magcal::fuzz::same_float(nan, nan));
    EXPECT_FALSE(magcal::fuzz::same_float(nan, -nan));
    EXPECT_FALSE(magcal::fuzz::same_float(0.0f, -0.0f));
    EXPECT_FALSE(magcal::fuzz::same_float(nan, 1.0f));
    EXPECT_FALSE(magcal::fuzz::same_float(1.0f, std::nextafter(1.0f, 2.0f)));
    const double dnan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(magcal::fuzz::same_double(-dnan, -dnan));
    EXPECT_FALSE(magcal::fuzz::same_double(dnan, -dnan));
    EXPECT_FALSE(magcal::fuzz::same_double(0.0, -0.0));
    EXPECT_FALSE(magcal::fuzz::same_double(1.0, std::nextafter(1.0, 2.0)));
}

TEST(FuzzProperties, LinesAreCountedAsTheLineReaderReturnsThem) {
    for (const char* text :
         {"", "a", "a\n", "a\nb", "\n\n", "\r\n", "a\r\nb\r\n", "\n", "x\n\ny"}) {
        magcal::tool::LineReader in(text, "t");
        std::string_view line;
        int returned = 0;
        while (in.next(&line)) ++returned;
        EXPECT_EQ(magcal::fuzz::count_lines(text), returned) << '"' << text << '"';
    }
}

TEST(FuzzProperties, AnErrorMustNameTheFileAndALineOfIt) {
    std::string why;
    EXPECT_TRUE(
        names_file_and_line("f.csv:3: field 'x': not a number: \"a\"", "f.csv", 3, {}, &why))
        << why;
    EXPECT_TRUE(names_file_and_line("f.csv:12: x", "f.csv", 0, {}, &why)) << why;  // any line
    EXPECT_TRUE(names_file_and_line("f.csv: no data", "f.csv", 3, {"no data"}, &why)) << why;

    const char* const rejected[] = {
        "f.csv:4: beyond the last line",
        "f.csv:0: before the first line",
        "f.csv: no data",  // no line, and no fault of the whole file allowed
        "g.csv:1: another file",
        "f.csv1:1: a longer name",
        "f.csv:1: one line\nand another",
        "f.csv:1:",   // no detail
        "f.csv:1:x",  // no blank before the detail
        "f.csv:1: ",  // a blank, then no detail
        "f.csv:x: no line number",
        "f.csv:99999999999: x",
    };
    for (const char* message : rejected) {
        EXPECT_FALSE(names_file_and_line(message, "f.csv", 3, {"missing '"}, &why)) << message;
        EXPECT_FALSE(why.empty()) << message;
    }

    // What the log reader really says about a bad line passes.
    magcal::tool::LineReader in(std::string("1,mag,1,2,3\n2,mag,1,x,3\n"), "log.csv");
    try {
        magcal::tool::read_sensor_log(in);
        ADD_FAILURE() << "a bad line was read";
    } catch (const magcal::tool::InputError& e) {
        EXPECT_TRUE(names_file_and_line(e.what(), "log.csv", 2, {}, &why)) << e.what() << why;
        EXPECT_FALSE(names_file_and_line(e.what(), "log.csv", 1, {}, &why)) << e.what();
    }
}

// The float printed by the JSON model and read back by it.
float printed_and_read(float value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    android::JSONValue v;
    EXPECT_EQ(android::JSONValue::Parse(text, std::strlen(text), &v),
              static_cast<ssize_t>(std::strlen(text)))
        << text;
    float read = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(v.type(), android::JSONValue::TYPE_FLOAT) << text;
    v.getFloat(&read);
    return read;
}

TEST(FuzzProperties, FloatsReadBackFromPrintingAsTheRuleSays) {
    // Densest where the rule switches from a bound to exactness (16), where
    // six decimals first get coarser than the float spacing (8), near 1 and
    // 0, and at the int32 limit; then floats of every magnitude.
    std::vector<float> values;
    for (float centre : {16.0f, 8.0f, 1.0f, 0.0f, 2147483520.0f, 1e-6f, 5e-7f}) {
        for (float sign : {1.0f, -1.0f}) {
            float f = sign * centre;
            float g = f;
            for (int i = 0; i < 3000; ++i) {
                values.push_back(f = std::nextafter(f, INFINITY));
                values.push_back(g = std::nextafter(g, -INFINITY));
            }
        }
    }
    std::mt19937 rng(20260101u);
    std::uniform_real_distribution<float> magnitude(-8.0f, 10.0f);  // 1e-8 .. 1e10
    std::uniform_int_distribution<int> sign(0, 1);
    for (int i = 0; i < 60000; ++i) {
        const float f = std::pow(10.0f, magnitude(rng)) * (sign(rng) ? -1.0f : 1.0f);
        values.push_back(f);
        values.push_back(std::round(f * 1e6f) / 1e6f);
    }
    int checked = 0;
    for (float f : values) {
        if (!magcal::fuzz::float_survives_printing(f)) continue;
        ++checked;
        const float read = printed_and_read(f);
        ASSERT_TRUE(reads_back_as_written(f, read)) << std::hexfloat << f << " read as " << read;
    }
    EXPECT_GT(checked, 100000);

    // The limit is real: -2^31 prints digits that the model reads as +2^31.
    EXPECT_FALSE(magcal::fuzz::float_survives_printing(-2147483648.0f));
    EXPECT_FALSE(magcal::fuzz::same_float(printed_and_read(-2147483648.0f), -2147483648.0f));
    EXPECT_TRUE(magcal::fuzz::float_survives_printing(-2147483520.0f));
    EXPECT_FALSE(magcal::fuzz::float_survives_printing(INFINITY));
    EXPECT_FALSE(magcal::fuzz::float_survives_printing(std::nanf("")));
}

TEST(FuzzProperties, FloatRuleRejectsWhatPrintingCannotExplain) {
    EXPECT_FALSE(reads_back_as_written(16.0f, std::nextafter(16.0f, 17.0f)));  // exact from 16 up
    EXPECT_FALSE(reads_back_as_written(3.0f, std::nextafter(3.0f, 4.0f)));     // integral: exact
    EXPECT_FALSE(reads_back_as_written(0.0f, -0.0f));
    EXPECT_FALSE(reads_back_as_written(0.5f, 0.5f + 2e-6f));
    EXPECT_FALSE(reads_back_as_written(-1e-7f, 0.0f));  // "-0.000000" keeps its sign
    EXPECT_FALSE(reads_back_as_written(0.25f, -0.25f));
    EXPECT_TRUE(reads_back_as_written(1e-7f, 0.0f));  // "0.000000"
    EXPECT_TRUE(reads_back_as_written(-1e-7f, -0.0f));
}

TEST(FuzzProperties, MemoryFileHoldsExactlyTheLastContent) {
    magcal::fuzz::MemoryFile file;
    auto content = [&file] {
        std::ifstream in(file.path(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    EXPECT_EQ(content(), "");
    const std::string long_text(100000, 'a');
    file.assign(long_text.data(), long_text.size());
    EXPECT_EQ(content(), long_text);
    file.assign("b\0c", 3);
    EXPECT_EQ(content(), std::string("b\0c", 3));
    file.assign("", 0);
    EXPECT_EQ(content(), "");
}

}  // namespace
