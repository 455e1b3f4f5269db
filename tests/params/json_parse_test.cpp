#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "params/JSONObject.h"

namespace {

using android::JSONArray;
using android::JSONCompound;
using android::JSONObject;
using android::JSONValue;

struct Parsed {
    ssize_t n;
    JSONValue value;
};

Parsed parse(const std::string& text) {
    Parsed p;
    p.n = JSONValue::Parse(text.data(), text.size(), &p.value);
    return p;
}

int32_t parse_int(const std::string& text) {
    const Parsed p = parse(text);
    EXPECT_EQ(p.n, static_cast<ssize_t>(text.size())) << text;
    EXPECT_EQ(p.value.type(), JSONValue::TYPE_INT32) << text;
    int32_t v = 0;
    p.value.getInt32(&v);
    return v;
}

float parse_float(const std::string& text) {
    const Parsed p = parse(text);
    EXPECT_EQ(p.n, static_cast<ssize_t>(text.size())) << text;
    EXPECT_EQ(p.value.type(), JSONValue::TYPE_FLOAT) << text;
    float v = -12345.0f;
    p.value.getFloat(&v);
    return v;
}

void expect_malformed(const std::string& text) {
    EXPECT_EQ(parse(text).n, android::ERROR_MALFORMED) << "'" << text << "'";
}

TEST(JsonNumber, IntegersAndTheirWrapRule) {
    EXPECT_EQ(parse_int("12"), 12);
    EXPECT_EQ(parse_int("-12"), -12);
    EXPECT_EQ(parse_int("0"), 0);
    EXPECT_EQ(parse_int("-0"), 0);
    EXPECT_EQ(parse_int("2147483647"), INT32_MAX);
    EXPECT_EQ(parse_int("-2147483648"), INT32_MIN);
    // The digits accumulate unsigned: 2^31 and 2^32-1 fit and come out as
    // their int32 bit patterns.
    EXPECT_EQ(parse_int("2147483648"), INT32_MIN);
    EXPECT_EQ(parse_int("4294967295"), -1);
    // 2^32 wraps to 0, smaller than 429496729: malformed.
    expect_malformed("4294967296");
    // 9999999999 mod 2^32 = 1410065407, which is larger than 999999999, so
    // the wrap goes unseen; one more digit falls below and is caught.
    EXPECT_EQ(parse_int("9999999999"), 1410065407);
    expect_malformed("99999999999");
    for (const char* text : {"007", "00", "-01", "01.5"}) expect_malformed(text);
}

TEST(JsonNumber, FloatsInSinglePrecisionWithExponentOnFraction) {
    EXPECT_EQ(parse_float("0.5"), 0.5f);
    EXPECT_EQ(parse_float("-0.25"), -0.25f);
    EXPECT_EQ(parse_float("1.0"), 1.0f);
    EXPECT_EQ(parse_float("0.1"), 0.1f);
    // The exponent scales only the fraction digits.
    EXPECT_EQ(parse_float("1e3"), 1.0f);     // 1 + 0 x 10^3
    EXPECT_EQ(parse_float("2.5e2"), 52.0f);  // 2 + 5 x 10^1
    EXPECT_EQ(parse_float("1.5E+1"), 6.0f);  // 1 + 5 x 10^0
    EXPECT_EQ(parse_float("-1.25e1"), -3.5f);  // -(1 + 25 x 10^-1)
    EXPECT_EQ(parse_float("5e-1"), 5.0f);
    // (float)16777217 = 16777216; 16777216 + 0.9f rounds down in float (a
    // double sum, 16777217.9, would round up to 16777218).
    EXPECT_EQ(parse_float("16777217.9"), 16777216.0f);
    // The integer part keeps its int32 bit pattern: 3000000000 - 2^32.
    EXPECT_EQ(parse_float("3000000000.5"), -1294967296.0f);
    // 0 fraction digits x powf(10, 50) = 0 x inf.
    EXPECT_TRUE(std::isnan(parse_float("1e50")));
    // Each of the three digit runs has the 32-bit wrap rule.
    for (const char* text : {"4294967296.5", "0.4294967296", "1.5e4294967296"}) {
        expect_malformed(text);
    }
}

TEST(JsonNumber, MalformedFormsAndConsumedLength) {
    for (const char* text : {"", "   ", "-", "- 1", "1.", ".5", "1.e1", "1e", "1e+", "+1", "x",
                             "nul", "tru", "fals", "-x"}) {
        expect_malformed(text);
    }
    EXPECT_EQ(parse("  12 ,").n, 4);  // leading space counts, trailing does not
    EXPECT_EQ(parse("nullx").n, 4);
    EXPECT_EQ(parse("true]").n, 4);
    const Parsed f = parse(" false");
    EXPECT_EQ(f.n, 6);
    bool b = true;
    EXPECT_TRUE(f.value.getBoolean(&b));
    EXPECT_FALSE(b);
    EXPECT_EQ(parse("\t\n\v\f\rnull").value.type(), JSONValue::TYPE_NULL);
    // The size bounds the text even when more bytes follow in memory.
    JSONValue bounded;
    EXPECT_EQ(JSONValue::Parse("123", 2, &bounded), 2);
    int32_t i = 0;
    EXPECT_TRUE(bounded.getInt32(&i));
    EXPECT_EQ(i, 12);
}

TEST(JsonString, EscapesDecodeAndUnicodeEscapeIsMalformed) {
    const std::string text = R"("x\b\f\n\r\t\"\\\/y")";
    const Parsed p = parse(text);
    ASSERT_EQ(p.n, static_cast<ssize_t>(text.size()));
    std::string s;
    ASSERT_TRUE(p.value.getString(&s));
    EXPECT_EQ(s, std::string("x\b\f\n\r\t\"\\/y"));

    std::string raw;
    ASSERT_TRUE(parse(std::string("\"a\0b\"", 5)).value.getString(&raw));
    EXPECT_EQ(raw, std::string("a\0b", 3));  // bytes are copied as they are

    for (const char* bad : {R"("\u0041")", R"("\x")", R"("abc)", R"("abc\")", "\"\\"}) {
        expect_malformed(bad);
    }
}

TEST(JsonContainers, ObjectsArraysAndRepeatedKeys) {
    const Parsed p = parse(R"({"b":1, "a" : 2 ,"b":3})");
    std::shared_ptr<JSONObject> obj;
    ASSERT_TRUE(p.value.getObject(&obj));
    JSONValue v;
    int32_t i = 0;
    ASSERT_TRUE(obj->getValue("b", &v));
    EXPECT_TRUE(v.getInt32(&i));
    EXPECT_EQ(i, 3);  // the later member replaces the earlier one
    ASSERT_TRUE(obj->getValue("a", &v));
    EXPECT_TRUE(v.getInt32(&i));
    EXPECT_EQ(i, 2);
    EXPECT_FALSE(obj->getValue("c", &v));
    EXPECT_FALSE(obj->getValue("", &v));
    EXPECT_EQ(obj->toString(), "{\n  \"a\": 2,\n  \"b\": 3\n}");  // one entry per key, sorted

    std::shared_ptr<JSONArray> array;
    ASSERT_TRUE(parse(R"([1, 2.5, "s", true, false, null, [], {}])").value.getArray(&array));
    ASSERT_EQ(array->size(), 8u);
    const JSONValue::FieldType types[] = {JSONValue::TYPE_INT32,   JSONValue::TYPE_FLOAT,
                                          JSONValue::TYPE_STRING,  JSONValue::TYPE_BOOLEAN,
                                          JSONValue::TYPE_BOOLEAN, JSONValue::TYPE_NULL,
                                          JSONValue::TYPE_ARRAY,   JSONValue::TYPE_OBJECT};
    for (size_t k = 0; k < 8; ++k) {
        ASSERT_TRUE(array->getValue(k, &v));
        EXPECT_EQ(v.type(), types[k]) << k;
    }
    EXPECT_FALSE(array->getValue(8, &v));

    // The closing bracket is looked for before each element, so a trailing
    // comma is accepted.
    ASSERT_TRUE(parse("[1,]").value.getArray(&array));
    EXPECT_EQ(array->size(), 1u);
    EXPECT_EQ(parse("{\"a\":1,}").n, 8);

    for (const char* bad : {"{1:2}", "{null:2}", "{\"a\" 2}", "{\"a\":}", "{\"a\":1", "{\"a\":1 \"b\":2}",
                            "[1 2]", "[1,", "[", "{", "[}", "{]"}) {
        expect_malformed(bad);
    }

    // 512 levels fill the whole 1024-byte read of the parameter loader.
    const std::string deep = std::string(512, '[') + std::string(512, ']');
    EXPECT_EQ(parse(deep).n, 1024);
}

TEST(JsonContainers, CompoundParseKeepsOnlyObjectsAndArrays) {
    const std::string object = "{\"k\":[1]} trailing bytes";
    const auto o = JSONCompound::Parse(object.data(), object.size());
    ASSERT_NE(o, nullptr);
    EXPECT_TRUE(o->isObject());
    const auto a = JSONCompound::Parse("[]", 2);
    ASSERT_NE(a, nullptr);
    EXPECT_FALSE(a->isObject());
    for (const char* other : {"12", "\"s\"", "null", "true", "[1", "{\"a\"}"}) {
        EXPECT_EQ(JSONCompound::Parse(other, std::strlen(other)), nullptr) << other;
    }
}

TEST(JsonValue, SettersGettersAndCopies) {
    JSONValue v;
    EXPECT_EQ(v.type(), 4);  // a fresh value is null
    int32_t i = 0;
    float f = 0.0f;
    std::string s;
    bool b = false;
    std::shared_ptr<JSONObject> obj;
    std::shared_ptr<JSONArray> arr;
    EXPECT_FALSE(v.getInt32(&i) || v.getFloat(&f) || v.getString(&s) || v.getBoolean(&b) ||
                 v.getObject(&obj) || v.getArray(&arr));

    v.setInt32(16777217);
    EXPECT_EQ(v.type(), 1);
    ASSERT_TRUE(v.getFloat(&f));
    EXPECT_EQ(f, 16777216.0f);  // int32 -> float rounds to nearest even
    EXPECT_FALSE(v.getString(&s));

    v.setFloat(1.5f);
    EXPECT_EQ(v.type(), 2);
    EXPECT_FALSE(v.getInt32(&i));

    v.setString("abc");
    EXPECT_EQ(v.type(), 0);
    JSONValue copy = v;
    copy.setString("xyz");
    ASSERT_TRUE(v.getString(&s));
    EXPECT_EQ(s, "abc");  // strings are copied, not shared
    const JSONValue& alias = v;
    v = alias;  // assigning a value to itself keeps its string
    ASSERT_TRUE(v.getString(&s));
    EXPECT_EQ(s, "abc");

    v.setBoolean(true);
    EXPECT_EQ(v.type(), 3);

    auto shared = std::make_shared<JSONObject>();
    v.setObject(shared);
    EXPECT_EQ(v.type(), 5);
    copy = v;
    JSONValue one;
    one.setInt32(1);
    shared->setValue("late", one);
    ASSERT_TRUE(copy.getObject(&obj));
    EXPECT_TRUE(obj->getValue("late", &one));  // containers are shared by reference
    EXPECT_FALSE(copy.getArray(&arr));

    v.setArray(std::make_shared<JSONArray>());
    EXPECT_EQ(v.type(), 6);
    EXPECT_FALSE(v.getObject(&obj));
    v.unset();
    EXPECT_EQ(v.type(), 4);
}

using JsonDeathTest = ::testing::Test;

TEST_F(JsonDeathTest, FailedChecksNameTheirCondition) {
    int32_t out = 0;
    EXPECT_EQ(android::parseInt32("", 0, &out), android::OK);
    EXPECT_EQ(out, 0);
    EXPECT_DEATH(android::parseInt32("12a", 3, &out),
                 "E/JSONObject: JSONObject\\.cpp:44 CHECK\\(isdigit\\(data\\[i\\]\\)\\) failed\\.");
    std::string text = "a/b";
    EXPECT_DEATH(android::EscapeString(text.c_str(), text.size(), &text),
                 "E/JSONObject: JSONObject\\.cpp:528 CHECK\\(in != out->c_str\\(\\)\\) failed\\.");
}

}  // namespace
