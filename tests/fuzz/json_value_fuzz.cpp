// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The JSON model's parse on an arbitrary buffer. Beyond memory safety and
// never reaching the model's internal checks (they abort):
//  - the parse consumes at least one byte and no more than it was given, and
//    the two entry points agree on which texts hold an object or an array;
//  - only the consumed bytes count: parsing them alone gives the same value;
//  - a value that can be printed and read back (nesting of 20 levels or
//    less, every float finite with an integer part that fits in int32) is
//    printed, read back in full, printed again, and both readings are the
//    same value: the same types, keys, strings, integers and booleans, and
//    floats as fuzz_properties.h's reads_back_as_written defines "the same"
//    for "%f" text. Object keys come out sorted and unique.
// The shape of each printed text (keys of objects, lengths of arrays) is
// read by a small reader of the printer's dialect below, since the model
// lists no keys; it also checks the printed brackets, strings and commas.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_properties.h"
#include "params/JSONObject.h"

namespace {

using android::JSONArray;
using android::JSONCompound;
using android::JSONObject;
using android::JSONValue;

constexpr size_t kMaxPrintableNesting = 20;  // the printer indents from a run of 40 spaces

// Keys of each object and the elements of each array, in printed order.
struct Shape {
    char kind = 's';  // 'o' object, 'a' array, 's' anything else
    std::vector<std::string> keys;
    std::vector<Shape> items;
};

class ShapeReader {
  public:
    explicit ShapeReader(std::string_view text) : text_(text) {}

    // False unless the whole text is one value of the printer's dialect.
    bool read(Shape* shape) {
        if (!value(shape)) return false;
        skip_space();
        return pos_ == text_.size();
    }

  private:
    void skip_space() {
        while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\n')) ++pos_;
    }
    bool take(char c) {
        skip_space();
        if (pos_ == text_.size() || text_[pos_] != c) return false;
        ++pos_;
        return true;
    }
    bool string(std::string* out) {
        if (!take('"')) return false;
        static const char kEscapes[] = "b\bt\tn\nf\fr\r\"\"//\\\\";
        while (pos_ < text_.size()) {
            const char c = text_[pos_++];
            if (c == '"') return true;
            if (c != '\\') {
                out->push_back(c);
                continue;
            }
            if (pos_ == text_.size()) return false;
            const char* e = std::strchr(kEscapes, text_[pos_++]);
            if (e == nullptr || (e - kEscapes) % 2 != 0) return false;
            out->push_back(e[1]);
        }
        return false;
    }
    bool value(Shape* shape) {
        skip_space();
        if (pos_ == text_.size()) return false;
        const char c = text_[pos_];
        if (c == '"') {
            std::string ignored;
            return string(&ignored);
        }
        if (c == '{' || c == '[') {
            ++pos_;
            shape->kind = c == '{' ? 'o' : 'a';
            const char close = c == '{' ? '}' : ']';
            if (take(close)) return true;
            do {
                if (shape->kind == 'o') {
                    shape->keys.emplace_back();
                    if (!string(&shape->keys.back()) || !take(':')) return false;
                }
                shape->items.emplace_back();
                if (!value(&shape->items.back())) return false;
            } while (take(','));
            return take(close);
        }
        const size_t start = pos_;
        while (pos_ < text_.size() && std::strchr(",]} \n", text_[pos_]) == nullptr) ++pos_;
        return pos_ > start;
    }

    std::string_view text_;
    size_t pos_ = 0;
};

size_t nesting(const Shape& shape) {
    size_t deepest = 0;
    for (const Shape& item : shape.items) deepest = std::max(deepest, nesting(item));
    return shape.kind == 's' ? 0 : deepest + 1;
}

// The member or element `i` of a container value, following `shape`.
JSONValue child(const JSONValue& v, const Shape& shape, size_t i) {
    JSONValue out;
    bool found = false;
    if (shape.kind == 'o') {
        std::shared_ptr<JSONObject> obj;
        found = v.getObject(&obj) && obj->getValue(shape.keys[i].c_str(), &out);
    } else {
        std::shared_ptr<JSONArray> array;
        found = v.getArray(&array) && array->getValue(i, &out);
    }
    FUZZ_REQUIRE(found, "the printed text lists a member the value lacks");
    return out;
}

// Whether every float in `v` can be printed and read back.
bool printable(const JSONValue& v, const Shape& shape) {
    float f;
    if (v.type() == JSONValue::TYPE_FLOAT && v.getFloat(&f)) {
        return magcal::fuzz::float_survives_printing(f);
    }
    for (size_t i = 0; i < shape.items.size(); ++i) {
        if (!printable(child(v, shape, i), shape.items[i])) return false;
    }
    return true;
}

void require_same(const JSONValue& a, const Shape& sa, const JSONValue& b, const Shape& sb) {
    FUZZ_REQUIRE(a.type() == b.type(), "type %d read back as %d", a.type(), b.type());
    switch (a.type()) {
        case JSONValue::TYPE_STRING: {
            std::string x, y;
            a.getString(&x), b.getString(&y);
            FUZZ_REQUIRE(x == y, "string \"%s\" read back as \"%s\"", x.c_str(), y.c_str());
            return;
        }
        case JSONValue::TYPE_INT32: {
            int32_t x = 0, y = 0;
            a.getInt32(&x), b.getInt32(&y);
            FUZZ_REQUIRE(x == y, "integer %d read back as %d", x, y);
            return;
        }
        case JSONValue::TYPE_FLOAT: {
            float x = 0, y = 0;
            a.getFloat(&x), b.getFloat(&y);
            FUZZ_REQUIRE(magcal::fuzz::reads_back_as_written(x, y), "float %.9g read back as %.9g",
                         static_cast<double>(x), static_cast<double>(y));
            return;
        }
        case JSONValue::TYPE_BOOLEAN: {
            bool x = false, y = false;
            a.getBoolean(&x), b.getBoolean(&y);
            FUZZ_REQUIRE(x == y, "boolean read back flipped");
            return;
        }
        case JSONValue::TYPE_OBJECT:
        case JSONValue::TYPE_ARRAY:
            FUZZ_REQUIRE(sa.keys == sb.keys && sa.items.size() == sb.items.size(),
                         "a container read back with other keys or another length");
            for (size_t i = 0; i + 1 < sa.keys.size(); ++i) {
                FUZZ_REQUIRE(std::strcmp(sa.keys[i].c_str(), sa.keys[i + 1].c_str()) < 0,
                             "keys printed out of order or twice: \"%s\", \"%s\"",
                             sa.keys[i].c_str(), sa.keys[i + 1].c_str());
            }
            for (size_t i = 0; i < sa.items.size(); ++i) {
                require_same(child(a, sa, i), sa.items[i], child(b, sb, i), sb.items[i]);
            }
            return;
        default:
            return;
    }
}

// Parses `text` from a heap block of exactly its size.
ssize_t parse_exactly(std::string_view text, JSONValue* out) {
    const std::unique_ptr<char[]> bytes(new char[text.size()]);
    std::memcpy(bytes.get(), text.data(), text.size());
    return JSONValue::Parse(bytes.get(), text.size(), out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    JSONValue value;
    const ssize_t n = JSONValue::Parse(text, size, &value);
    FUZZ_REQUIRE(n == android::ERROR_MALFORMED || (n > 0 && static_cast<size_t>(n) <= size),
                 "Parse returned %zd for %zu bytes", n, size);
    const bool container =
        value.type() == JSONValue::TYPE_OBJECT || value.type() == JSONValue::TYPE_ARRAY;
    const std::shared_ptr<JSONCompound> compound = JSONCompound::Parse(text, size);
    FUZZ_REQUIRE((compound != nullptr) == (n > 0 && container),
                 "the compound parse disagrees with the value parse");
    if (n < 0) return 0;

    const std::string printed = value.toString();
    if (compound != nullptr) {
        FUZZ_REQUIRE(compound->toString() == printed, "the compound prints otherwise");
    }
    JSONValue prefix;
    FUZZ_REQUIRE(parse_exactly(std::string_view(text, static_cast<size_t>(n)), &prefix) == n &&
                     prefix.toString() == printed,
                 "the consumed bytes alone read otherwise");

    Shape shape;
    FUZZ_REQUIRE(ShapeReader(printed).read(&shape), "the printed text is no JSON:\n%s",
                 printed.c_str());
    if (nesting(shape) > kMaxPrintableNesting || !printable(value, shape)) return 0;

    JSONValue again;
    FUZZ_REQUIRE(parse_exactly(printed, &again) == static_cast<ssize_t>(printed.size()),
                 "the printed text does not read back in full:\n%s", printed.c_str());
    const std::string reprinted = again.toString();
    Shape reshape;
    FUZZ_REQUIRE(ShapeReader(reprinted).read(&reshape), "the reprinted text is no JSON:\n%s",
                 reprinted.c_str());
    require_same(value, shape, again, reshape);
    return 0;
}
