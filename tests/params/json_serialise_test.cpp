#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "params/JSONObject.h"

namespace {

using android::JSONArray;
using android::JSONCompound;
using android::JSONObject;
using android::JSONValue;

std::string reserialise(const std::string& text) {
    const auto root = JSONCompound::Parse(text.data(), text.size());
    return root == nullptr ? "<malformed>" : root->toString();
}

TEST(JsonSerialise, NestedValuesPrintSortedAndIndented) {
    const std::string expected =
        "{\n"
        "  \"a\": {\n"
        "    \"n\": null,\n"
        "    \"t\": true\n"
        "  },\n"
        "  \"b\": [\n"
        "    1,\n"
        "    -2.500000,\n"
        "    \"q\\\"\\/\"\n"
        "  ],\n"
        "  \"e\": {\n"
        "\n"
        "  },\n"
        "  \"f\": [\n"
        "\n"
        "  ]\n"
        "}";
    EXPECT_EQ(reserialise(R"({"b":[1,-2.5,"q\"/"],"a":{"t":true,"n":null},"e":{},"f":[]})"),
              expected);
    EXPECT_EQ(reserialise(expected), expected);  // the output reads back as itself
}

TEST(JsonSerialise, EscapesScalarsAndFirstLineIndent) {
    auto obj = std::make_shared<JSONObject>();
    JSONValue text;
    text.setString("\b\t\n\f\r\"/\\x");
    obj->setValue("k/\n", text);
    EXPECT_EQ(obj->toString(1, true),
              "  {\n    \"k\\/\\n\": \"\\b\\t\\n\\f\\r\\\"\\/\\\\x\"\n  }");

    JSONValue v;
    v.setInt32(-7);
    EXPECT_EQ(v.toString(2, true), "    -7");
    EXPECT_EQ(v.toString(2, false), "-7");
    v.setFloat(0.1f);
    EXPECT_EQ(v.toString(), "0.100000");
    v.setBoolean(false);
    EXPECT_EQ(v.toString(), "false");
    v.unset();
    EXPECT_EQ(v.toString(), "null");

    auto array = std::make_shared<JSONArray>();
    JSONValue one;
    one.setInt32(1);
    array->addValue(one);
    EXPECT_EQ(array->toString(1, false), "[\n    1\n  ]");

    std::string escaped = "stale";
    android::EscapeString("a\0b", 3, &escaped);
    EXPECT_EQ(escaped, std::string("a\0b", 3));  // other bytes, NUL included, pass through
}

TEST(JsonSerialise, IndentationStopsAtFortySpaces) {
    const int levels = 22;
    const std::string text = std::string(levels, '[') + "1" + std::string(levels, ']');
    std::istringstream lines(reserialise(text));
    size_t widest = 0;
    std::string line;
    std::string innermost;
    while (std::getline(lines, line)) {
        widest = std::max(widest, line.find_first_not_of(' '));
        if (line.find('1') != std::string::npos) innermost = line;
    }
    EXPECT_EQ(widest, 40u);
    EXPECT_EQ(innermost, std::string(40, ' ') + "1");
}

}  // namespace
