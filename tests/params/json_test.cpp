// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The JSON reader and writer: the number rule, strings, containers, printing,
// the messages of the failed internal checks, and random input.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "params/JSONObject.h"

namespace {

using android::JSONCompound;
using android::JSONValue;

constexpr ssize_t kBad = android::ERROR_MALFORMED;

std::string reserialise(const std::string& text) {
    const auto root = JSONCompound::Parse(text.data(), text.size());
    return root == nullptr ? "<null>" : root->toString();
}

TEST(Json, ScalarsConsumedLengthAndMalformedText) {
    const auto kInt = JSONValue::TYPE_INT32, kFloat = JSONValue::TYPE_FLOAT;
    const auto kBool = JSONValue::TYPE_BOOLEAN;
    const struct {
        const char* text;
        ssize_t n;  // bytes consumed
        JSONValue::FieldType type;
        double value;
    } cases[] = {
        {"12", 2, kInt, 12},
        {"-2147483648", 11, kInt, INT32_MIN},
        {"4294967295", 10, kInt, -1},          // digits accumulate unsigned
        {"9999999999", 10, kInt, 1410065407},  // wraps to above the previous step: unseen
        {"0.5", 3, kFloat, 0.5},
        {"-0.25", 5, kFloat, -0.25},
        // The exponent scales only the fraction digits.
        {"1e3", 3, kFloat, 1.0},        // 1 + 0 x 10^3
        {"2.5e2", 5, kFloat, 52.0},     // 2 + 5 x 10^1
        {"-1.25E+1", 8, kFloat, -3.5},  // -(1 + 25 x 10^-1)
        {"1.5e-1", 6, kFloat, 1.05},    // 1 + 5 x 10^-2
        // 16777216 + 0.9 in float stays 16777216; the exact 16777217.9 would round up.
        {"16777217.9", 10, kFloat, 16777216.0},
        {"3000000000.5", 12, kFloat, -1294967296.0},  // integer part keeps its int32 bit pattern
        {"  12 ,", 4, kInt, 12},                      // leading space counts, trailing does not
        {"\t\n\v\f\rtrue]", 9, kBool, 1},
        {" false", 6, kBool, 0},
        {"nullx", 4, JSONValue::TYPE_NULL, 0},
    };
    for (const auto& c : cases) {
        JSONValue v;
        EXPECT_EQ(JSONValue::Parse(c.text, std::strlen(c.text), &v), c.n) << c.text;
        EXPECT_EQ(v.type(), c.type) << c.text;
        int32_t i = 0;
        float f = 0.0f;
        bool b = false;
        v.getInt32(&i), v.getFloat(&f), v.getBoolean(&b);  // each leaves 0 unless the tag fits
        EXPECT_EQ(i, c.type == kInt ? static_cast<int32_t>(c.value) : 0) << c.text;
        const bool numeric = c.type == kInt || c.type == kFloat;
        EXPECT_EQ(f, numeric ? static_cast<float>(c.value) : 0.0f) << c.text;
        EXPECT_EQ(b, c.type == kBool && c.value != 0.0) << c.text;
    }
    const char* const malformed[] = {
        "007", "4294967296", "99999999999", "4294967296.5", "0.4294967296", "1.5e4294967296", "",
        "-", "1.", ".5", "1e+", "nul", R"("\u0041")", R"("abc)", "\"\\", "{1:2}", R"({"a" 2})",
        R"({"a":1)", R"({"a":1 "b":2})", "[1 2]", "[1,"};
    for (const char* text : malformed) {
        JSONValue v;
        EXPECT_EQ(JSONValue::Parse(text, std::strlen(text), &v), kBad) << "'" << text << "'";
    }
}

TEST(Json, ValueCopiesRepeatedKeysAndTrailingCommas) {
    JSONValue v;
    v.setString("abc");
    const JSONValue& alias = v;
    v = alias;  // self-assignment keeps the string
    JSONValue copy = v;
    copy.setString("other");  // a copy owns its own string
    std::string s;
    ASSERT_TRUE(v.getString(&s));
    EXPECT_EQ(s, "abc");

    // One entry per key, the later value wins; members are kept sorted.
    const auto obj = JSONCompound::Parse(R"({"b":1, "a" : 2 ,"b":3})", 23);
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(obj->toString(), "{\n  \"a\": 2,\n  \"b\": 3\n}");
    JSONValue member;
    EXPECT_FALSE(std::static_pointer_cast<android::JSONObject>(obj)->getValue("c", &member));

    // The closing bracket is looked for before each element: a trailing comma passes.
    EXPECT_EQ(reserialise("[1,]"), "[\n  1\n]");
    EXPECT_EQ(reserialise(R"({"a":1,})"), "{\n  \"a\": 1\n}");
}

TEST(Json, SerialisesNestedValuesSortedAndIndented) {
    const std::string expected =
        "{\n"
        "  \"a\\/\": {\n    \"n\": null,\n    \"t\": true\n  },\n"
        "  \"b\": [\n    1,\n    -2.500000,\n    false,\n"
        "    \"q\\\"\\/\\\\\\b\\f\\n\\r\\t\"\n  ],\n"
        "  \"e\": {\n\n  },\n"
        "  \"f\": [\n\n  ]\n"
        "}";
    EXPECT_EQ(reserialise(R"({"b":[1,-2.5,false,"q\"/\\\b\f\n\r\t"],"a/":{"t":true,"n":null},)"
                          R"("e":{},"f":[]})"),
              expected);
    EXPECT_EQ(reserialise(expected), expected);  // the output reads back as itself

    // Indentation is cut from 40 spaces: deeper levels keep 40.
    const std::string deep = reserialise(std::string(22, '[') + "1" + std::string(22, ']'));
    EXPECT_NE(deep.find("\n" + std::string(40, ' ') + "1\n"), std::string::npos);
    EXPECT_EQ(deep.find(std::string(41, ' ')), std::string::npos);
}

using JsonDeathTest = ::testing::Test;

TEST_F(JsonDeathTest, FailedChecksNameTheirCondition) {
    int32_t out = -1;
    EXPECT_EQ(android::parseInt32("", 0, &out), android::OK);
    EXPECT_EQ(out, 0);
    EXPECT_DEATH(android::parseInt32("12a", 3, &out),
                 "E/JSONObject: JSONObject\\.cpp:44 CHECK\\(isdigit\\(data\\[i\\]\\)\\) failed\\.");
    std::string text = "a/b";
    EXPECT_DEATH(android::EscapeString(text.c_str(), text.size(), &text),
                 "E/JSONObject: JSONObject\\.cpp:528 CHECK\\(in != out->c_str\\(\\)\\) failed\\.");
}

// Random and mutated bytes through both parse entry points, for the sanitizer
// build: each input sits in a heap block of exactly its size, so any read past
// the end is reported.
TEST(JsonFuzz, RandomAndMutatedBytesNeverMisbehave) {
    const char kAlphabet[] = "{}[]\":,-+.eE0123456789 \t\n\\/abfnrtulsx";
    const std::string seed =
        R"({"q": [1.02, -0.01, 1e3, 2.5e2, 4294967295], "a": {"b": [null, true, [], "\b\"\\\/"]}})";
    std::mt19937 rng(0x6d616763u);
    auto below = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
    int accepted = 0;
    for (int round = 0; round < 4000; ++round) {
        // Even rounds random bytes, odd rounds the seed with a few bytes changed and maybe cut.
        const bool random = round % 2 == 0;
        std::string bytes = random ? std::string(below(48), ' ') : seed;
        const size_t edits = random ? bytes.size() : 1 + below(4);
        for (size_t e = 0; e < edits; ++e) {
            bytes[random ? e : below(bytes.size())] =
                below(5) ? kAlphabet[below(sizeof kAlphabet - 1)] : static_cast<char>(below(256));
        }
        if (!random && below(3) == 0) bytes.resize(below(bytes.size()));

        const std::unique_ptr<char[]> buf(new char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), buf.get());
        JSONValue value;
        const ssize_t n = JSONValue::Parse(buf.get(), bytes.size(), &value);
        ASSERT_TRUE(n == android::ERROR_MALFORMED ||
                    (n > 0 && static_cast<size_t>(n) <= bytes.size()))
            << n << " for '" << bytes << "'";
        const bool container =
            value.type() == JSONValue::TYPE_OBJECT || value.type() == JSONValue::TYPE_ARRAY;
        EXPECT_EQ(JSONCompound::Parse(buf.get(), bytes.size()) != nullptr, n > 0 && container);
        EXPECT_TRUE(n < 0 || !value.toString().empty());
        accepted += n > 0;
    }
    // Both outcomes must be well represented, or the inputs test nothing.
    EXPECT_GT(accepted, 300);
    EXPECT_GT(4000 - accepted, 2000);
}

}  // namespace
