// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// JSON value model: a recursive-descent parser over a byte range and a
// pretty-printer, for the soft-iron parameter file.
//
// Numbers follow their own rule. A number without fraction or exponent is an
// int32. Any other number is a single-precision float computed as
//     (float)integer_part + (float)fraction_digits * powf(10, exponent - n_frac)
// where fraction_digits are the digits after the point read as one integer and
// n_frac is how many there are. The exponent scales only the fraction digits,
// not the integer part: 1e3 reads as 1.0 and 2.5e2 as 52.0. Parameter files
// written for this reader depend on it, so it stays.
//
// Failed internal checks abort through the platform assert with the source
// position and condition text that log readers search for.
#include "params/JSONObject.h"

#include <math.h>

#include <cstdio>
#include <cstring>

#include "api/log.h"

#define JSON_CHECK(condition, text, line)                                              \
    do {                                                                               \
        if (!(condition)) {                                                            \
            magcal::log_assert("!(" text ")", "JSONObject",                            \
                               "JSONObject.cpp:" #line " CHECK(" text ") failed.");    \
        }                                                                              \
    } while (false)

namespace android {

namespace {

// White space is the blank and the control bytes 9 to 13, independent of locale.
bool is_space(char c) { return c == ' ' || (c >= 9 && c <= 13); }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

size_t skip_space(const char* data, size_t size, size_t offset) {
    while (offset < size && is_space(data[offset])) ++offset;
    return offset;
}

size_t skip_digits(const char* data, size_t size, size_t offset) {
    while (offset < size && is_digit(data[offset])) ++offset;
    return offset;
}

// Two's-complement negation without signed overflow (-INT32_MIN stays INT32_MIN).
int32_t negate_wrapping(int32_t value) {
    return static_cast<int32_t>(0u - static_cast<uint32_t>(value));
}

// Indentation is cut from a fixed run of 40 spaces: two per level, at most 20
// levels. Deeper levels keep the 40 spaces instead of reading before the run.
const char* indent(size_t depth) {
    static const char kIndent[] = "                                        ";
    constexpr size_t kMaxDepth = (sizeof(kIndent) - 1) / 2;
    if (depth > kMaxDepth) depth = kMaxDepth;
    return kIndent + (sizeof(kIndent) - 1) - 2 * depth;
}

// A string starting at data[offset] == '"'. Returns the offset after the
// closing quote, or ERROR_MALFORMED.
ssize_t parse_string(const char* data, size_t size, size_t offset, JSONValue* out) {
    ++offset;
    std::string value;
    for (;;) {
        if (offset == size) return ERROR_MALFORMED;  // unterminated
        const char c = data[offset++];
        if (c == '"') break;
        if (c != '\\') {
            value.push_back(c);
            continue;
        }
        if (offset == size) return ERROR_MALFORMED;
        switch (data[offset++]) {
            case 'b': value.push_back('\b'); break;
            case 'f': value.push_back('\f'); break;
            case 'n': value.push_back('\n'); break;
            case 'r': value.push_back('\r'); break;
            case 't': value.push_back('\t'); break;
            case '"': value.push_back('"'); break;
            case '\\': value.push_back('\\'); break;
            case '/': value.push_back('/'); break;
            default: return ERROR_MALFORMED;  // includes \u: no Unicode escapes
        }
    }
    out->setString(value);
    return static_cast<ssize_t>(offset);
}

ssize_t parse_object(const char* data, size_t size, size_t offset, JSONValue* out) {
    std::shared_ptr<JSONObject> obj = std::make_shared<JSONObject>();
    ++offset;
    for (;;) {
        offset = skip_space(data, size, offset);
        if (offset == size) return ERROR_MALFORMED;
        if (data[offset] == '}') {
            ++offset;
            break;
        }

        JSONValue key;
        ssize_t n = JSONValue::Parse(&data[offset], size - offset, &key);
        if (n < 0) return n;
        if (key.type() != JSONValue::TYPE_STRING) return ERROR_MALFORMED;
        offset += static_cast<size_t>(n);

        offset = skip_space(data, size, offset);
        if (offset == size || data[offset] != ':') return ERROR_MALFORMED;
        ++offset;

        JSONValue value;
        n = JSONValue::Parse(&data[offset], size - offset, &value);
        if (n < 0) return n;

        std::string keyVal;
        JSON_CHECK(key.getString(&keyVal), "key.getString(&keyVal)", 163);
        obj->setValue(keyVal.c_str(), value);
        offset += static_cast<size_t>(n);

        offset = skip_space(data, size, offset);
        if (offset == size) return ERROR_MALFORMED;
        if (data[offset] == ',') {
            ++offset;
        } else if (data[offset] != '}') {
            return ERROR_MALFORMED;
        }
    }
    out->setObject(obj);
    return static_cast<ssize_t>(offset);
}

ssize_t parse_array(const char* data, size_t size, size_t offset, JSONValue* out) {
    std::shared_ptr<JSONArray> array = std::make_shared<JSONArray>();
    ++offset;
    for (;;) {
        offset = skip_space(data, size, offset);
        if (offset == size) return ERROR_MALFORMED;
        if (data[offset] == ']') {
            ++offset;
            break;
        }

        JSONValue value;
        const ssize_t n = JSONValue::Parse(&data[offset], size - offset, &value);
        if (n < 0) return n;
        array->addValue(value);
        offset += static_cast<size_t>(n);

        offset = skip_space(data, size, offset);
        if (offset == size) return ERROR_MALFORMED;
        if (data[offset] == ',') {
            ++offset;
        } else if (data[offset] != ']') {
            return ERROR_MALFORMED;
        }
    }
    out->setArray(array);
    return static_cast<ssize_t>(offset);
}

ssize_t parse_number(const char* data, size_t size, size_t offset, JSONValue* out) {
    bool negate = false;
    if (data[offset] == '-') {
        negate = true;
        ++offset;
        if (offset == size) return ERROR_MALFORMED;
    }

    const size_t firstDigitOffset = offset;
    offset = skip_digits(data, size, offset);
    const size_t numDigits = offset - firstDigitOffset;
    if (numDigits == 0) return ERROR_MALFORMED;
    if (numDigits > 1 && data[firstDigitOffset] == '0') return ERROR_MALFORMED;  // 007

    size_t firstFracDigitOffset = offset;
    size_t numFracDigits = 0;
    if (offset < size && data[offset] == '.') {
        ++offset;
        firstFracDigitOffset = offset;
        offset = skip_digits(data, size, offset);
        numFracDigits = offset - firstFracDigitOffset;
        if (numFracDigits == 0) return ERROR_MALFORMED;
    }

    bool hasExponent = false;
    bool negateExponent = false;
    size_t firstExpDigitOffset = offset;
    size_t numExpDigits = 0;
    if (offset < size && (data[offset] == 'e' || data[offset] == 'E')) {
        hasExponent = true;
        ++offset;
        if (offset < size && (data[offset] == '+' || data[offset] == '-')) {
            negateExponent = data[offset] == '-';
            ++offset;
        }
        firstExpDigitOffset = offset;
        offset = skip_digits(data, size, offset);
        numExpDigits = offset - firstExpDigitOffset;
        if (numExpDigits == 0) return ERROR_MALFORMED;
    }

    if (numFracDigits == 0 && !hasExponent) {
        int32_t x;
        if (parseInt32(&data[firstDigitOffset], numDigits, &x) != OK) return ERROR_MALFORMED;
        out->setInt32(negate ? negate_wrapping(x) : x);
        return static_cast<ssize_t>(offset);
    }

    int32_t mantissa;
    if (parseInt32(&data[firstDigitOffset], numDigits, &mantissa) != OK) return ERROR_MALFORMED;
    int32_t fraction;
    if (parseInt32(&data[firstFracDigitOffset], numFracDigits, &fraction) != OK) {
        return ERROR_MALFORMED;
    }
    int32_t exponent;
    if (parseInt32(&data[firstExpDigitOffset], numExpDigits, &exponent) != OK) {
        return ERROR_MALFORMED;
    }
    if (negateExponent) exponent = negate_wrapping(exponent);

    // 32-bit wrapping difference; as a float it is exact for any exponent
    // that does not already drive powf to 0 or infinity.
    const int32_t scale = static_cast<int32_t>(static_cast<uint32_t>(exponent) -
                                               static_cast<uint32_t>(numFracDigits));
    // Every step in single precision: each operand is rounded to float, the
    // product is rounded before the sum.
    float x = static_cast<float>(mantissa);
    const float scaledFraction = static_cast<float>(fraction) * powf(10.0f, static_cast<float>(scale));
    x = x + scaledFraction;
    out->setFloat(negate ? -x : x);
    return static_cast<ssize_t>(offset);
}

}  // namespace

status_t parseInt32(const char* data, size_t numDigits, int32_t* out) {
    uint32_t x = 0;
    for (size_t i = 0; i < numDigits; ++i) {
        JSON_CHECK(is_digit(data[i]), "isdigit(data[i])", 44);
        const uint32_t before = x;
        x = x * 10u + static_cast<uint32_t>(data[i] - '0');
        if (x < before) return ERROR_MALFORMED;  // wrapped past 2^32
    }
    *out = static_cast<int32_t>(x);
    return OK;
}

void EscapeString(const char* in, size_t inSize, std::string* out) {
    JSON_CHECK(in != out->c_str(), "in != out->c_str()", 528);
    out->clear();
    for (size_t i = 0; i < inSize; ++i) {
        const char c = in[i];
        switch (c) {
            case '\b': out->append("\\b"); break;
            case '\t': out->append("\\t"); break;
            case '\n': out->append("\\n"); break;
            case '\f': out->append("\\f"); break;
            case '\r': out->append("\\r"); break;
            case '"': out->append("\\\""); break;
            case '/': out->append("\\/"); break;
            case '\\': out->append("\\\\"); break;
            default: out->push_back(c); break;
        }
    }
}

// --- JSONValue -------------------------------------------------------------

ssize_t JSONValue::Parse(const char* data, size_t size, JSONValue* out) {
    const size_t offset = skip_space(data, size, 0);
    if (offset == size) return ERROR_MALFORMED;

    const char c = data[offset];
    if (c == '"') return parse_string(data, size, offset, out);
    if (c == '{') return parse_object(data, size, offset, out);
    if (c == '[') return parse_array(data, size, offset, out);

    const size_t remaining = size - offset;
    if (remaining >= 4 && std::memcmp(&data[offset], "null", 4) == 0) {
        out->unset();
        return static_cast<ssize_t>(offset + 4);
    }
    if (remaining >= 4 && std::memcmp(&data[offset], "true", 4) == 0) {
        out->setBoolean(true);
        return static_cast<ssize_t>(offset + 4);
    }
    if (remaining >= 5 && std::memcmp(&data[offset], "false", 5) == 0) {
        out->setBoolean(false);
        return static_cast<ssize_t>(offset + 5);
    }
    return parse_number(data, size, offset, out);
}

JSONValue::JSONValue() : mType(TYPE_NULL) { mValue.mInt32 = 0; }

JSONValue::JSONValue(const JSONValue& other) : mType(TYPE_NULL) {
    mValue.mInt32 = 0;
    *this = other;
}

JSONValue& JSONValue::operator=(const JSONValue& other) {
    if (&other == this) return *this;
    unset();
    mType = other.mType;
    mValue = other.mValue;
    if (mType == TYPE_STRING) mValue.mString = new std::string(*other.mValue.mString);
    mObjectOrArray = other.mObjectOrArray;
    return *this;
}

JSONValue::~JSONValue() { unset(); }

JSONValue::FieldType JSONValue::type() const { return mType; }

bool JSONValue::getInt32(int32_t* out) const {
    if (mType != TYPE_INT32) return false;
    *out = mValue.mInt32;
    return true;
}

bool JSONValue::getFloat(float* out) const {
    switch (mType) {
        case TYPE_INT32:
            *out = static_cast<float>(mValue.mInt32);
            return true;
        case TYPE_FLOAT:
            *out = mValue.mFloat;
            return true;
        default:
            return false;
    }
}

bool JSONValue::getString(std::string* out) const {
    if (mType != TYPE_STRING) return false;
    *out = *mValue.mString;
    return true;
}

bool JSONValue::getBoolean(bool* out) const {
    if (mType != TYPE_BOOLEAN) return false;
    *out = mValue.mBoolean;
    return true;
}

bool JSONValue::getObject(std::shared_ptr<JSONObject>* out) const {
    if (mType != TYPE_OBJECT) return false;
    *out = std::static_pointer_cast<JSONObject>(mObjectOrArray);
    return true;
}

bool JSONValue::getArray(std::shared_ptr<JSONArray>* out) const {
    if (mType != TYPE_ARRAY) return false;
    *out = std::static_pointer_cast<JSONArray>(mObjectOrArray);
    return true;
}

void JSONValue::setInt32(int32_t value) {
    unset();
    mValue.mInt32 = value;
    mType = TYPE_INT32;
}

void JSONValue::setFloat(float value) {
    unset();
    mValue.mFloat = value;
    mType = TYPE_FLOAT;
}

void JSONValue::setString(const std::string& value) {
    // Copy before releasing: `value` may be this value's own string.
    std::string* copy = new std::string(value);
    unset();
    mValue.mString = copy;
    mType = TYPE_STRING;
}

void JSONValue::setBoolean(bool value) {
    unset();
    mValue.mBoolean = value;
    mType = TYPE_BOOLEAN;
}

void JSONValue::setObject(const std::shared_ptr<JSONObject>& obj) {
    std::shared_ptr<JSONCompound> keep = obj;
    unset();
    mObjectOrArray = std::move(keep);
    mType = TYPE_OBJECT;
}

void JSONValue::setArray(const std::shared_ptr<JSONArray>& array) {
    std::shared_ptr<JSONCompound> keep = array;
    unset();
    mObjectOrArray = std::move(keep);
    mType = TYPE_ARRAY;
}

void JSONValue::unset() {
    if (mType == TYPE_STRING) delete mValue.mString;
    mObjectOrArray.reset();
    mValue.mInt32 = 0;
    mType = TYPE_NULL;
}

std::string JSONValue::toString(size_t depth, bool indentFirstLine) const {
    std::string out;
    if (indentFirstLine) out.append(indent(depth));

    char number[64];
    switch (mType) {
        case TYPE_STRING: {
            std::string escaped;
            EscapeString(mValue.mString->data(), mValue.mString->size(), &escaped);
            out.append("\"").append(escaped).append("\"");
            break;
        }
        case TYPE_INT32:
            snprintf(number, sizeof number, "%d", mValue.mInt32);
            out.append(number);
            break;
        case TYPE_FLOAT:
            // The widest float in "%f" (-FLT_MAX) takes 47 characters.
            snprintf(number, sizeof number, "%f", mValue.mFloat);
            out.append(number);
            break;
        case TYPE_BOOLEAN:
            out.append(mValue.mBoolean ? "true" : "false");
            break;
        case TYPE_NULL:
            out.append("null");
            break;
        case TYPE_OBJECT:
        case TYPE_ARRAY:
            out.append(mObjectOrArray->internalToString(depth));
            break;
        default:
            magcal::log_assert(nullptr, "JSONObject", "JSONObject.cpp:619 Should not be here. ");
    }
    return out;
}

// --- JSONCompound ------------------------------------------------------------

std::shared_ptr<JSONCompound> JSONCompound::Parse(const char* data, size_t size) {
    JSONValue value;
    if (JSONValue::Parse(data, size, &value) < 0) return nullptr;

    std::shared_ptr<JSONObject> obj;
    if (value.getObject(&obj)) return obj;
    std::shared_ptr<JSONArray> array;
    if (value.getArray(&array)) return array;
    return nullptr;
}

std::string JSONCompound::toString(size_t depth, bool indentFirstLine) const {
    std::string out;
    if (indentFirstLine) out.append(indent(depth));
    out.append(internalToString(depth));
    return out;
}

// --- JSONObject --------------------------------------------------------------

size_t JSONObject::lowerBound(const char* key) const {
    size_t low = 0;
    size_t high = mValues.size();
    while (low < high) {
        const size_t mid = low + (high - low) / 2;
        if (std::strcmp(mValues[mid].first.c_str(), key) < 0) {
            low = mid + 1;
        } else {
            high = mid;
        }
    }
    return low;
}

bool JSONObject::getValue(const char* key, JSONValue* out) const {
    const size_t i = lowerBound(key);
    if (i == mValues.size() || std::strcmp(mValues[i].first.c_str(), key) != 0) return false;
    *out = mValues[i].second;
    return true;
}

void JSONObject::setValue(const char* key, const JSONValue& value) {
    const size_t i = lowerBound(key);
    if (i < mValues.size() && std::strcmp(mValues[i].first.c_str(), key) == 0) {
        mValues[i].second = value;
        return;
    }
    mValues.insert(mValues.begin() + static_cast<std::ptrdiff_t>(i), std::make_pair(std::string(key), value));
}

std::string JSONObject::internalToString(size_t depth) const {
    std::string out = "{\n";
    for (size_t i = 0; i < mValues.size(); ++i) {
        const std::string& key = mValues[i].first;
        std::string escapedKey;
        EscapeString(key.data(), key.size(), &escapedKey);
        out.append(indent(depth + 1));
        out.append("\"").append(escapedKey).append("\": ");
        out.append(mValues[i].second.toString(depth + 1, false));
        if (i + 1 < mValues.size()) out.append(",\n");
    }
    out.append("\n").append(indent(depth)).append("}");
    return out;
}

// --- JSONArray ---------------------------------------------------------------

bool JSONArray::getValue(size_t index, JSONValue* out) const {
    if (index >= mValues.size()) return false;
    *out = mValues[index];
    return true;
}

void JSONArray::addValue(const JSONValue& value) { mValues.push_back(value); }

std::string JSONArray::internalToString(size_t depth) const {
    std::string out = "[\n";
    for (size_t i = 0; i < mValues.size(); ++i) {
        out.append(indent(depth + 1));
        out.append(mValues[i].toString(depth + 1, false));
        if (i + 1 < mValues.size()) out.append(",\n");
    }
    out.append("\n").append(indent(depth)).append("]");
    return out;
}

}  // namespace android
