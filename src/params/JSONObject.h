// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A small JSON reader and writer, used only at start-up to read the soft-iron
// parameter file. Values are tagged; objects and arrays are shared by
// reference so that copying a value never copies a container. The number
// grammar has its own single-precision arithmetic (see JSONObject.cpp), which
// the parameter file relies on and which must not be replaced by strtof.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace android {

typedef int32_t status_t;

enum : status_t {
    OK = 0,
    ERROR_MALFORMED = -1007,  // text that is not JSON this parser accepts
};

class JSONObject;
class JSONArray;
class JSONCompound;

// Accumulates `numDigits` decimal digits into `out`. The running value is an
// unsigned 32-bit number; a step that makes it smaller than before is taken as
// a wrap and gives ERROR_MALFORMED. Zero digits give 0. Every byte must be a
// digit: callers only hand over digit runs, anything else aborts.
status_t parseInt32(const char* data, size_t numDigits, int32_t* out);

// Backslash-escapes backspace, tab, newline, form feed, carriage return, the
// double quote, the slash and the backslash; copies every other byte. `out`
// is replaced and must not be the storage `in` points into.
void EscapeString(const char* in, size_t inSize, std::string* out);

class JSONValue {
public:
    enum FieldType : int32_t {
        TYPE_STRING = 0,
        TYPE_INT32 = 1,
        TYPE_FLOAT = 2,
        TYPE_BOOLEAN = 3,
        TYPE_NULL = 4,
        TYPE_OBJECT = 5,
        TYPE_ARRAY = 6,
    };

    // Parses one value after optional white space. Returns the number of
    // bytes consumed (leading white space included, trailing not), or
    // ERROR_MALFORMED. Never reads past data + size.
    static ssize_t Parse(const char* data, size_t size, JSONValue* out);

    JSONValue();  // null
    JSONValue(const JSONValue& other);
    JSONValue& operator=(const JSONValue& other);
    ~JSONValue();

    FieldType type() const;

    // Each getter returns false (and leaves `out` alone) unless the tag
    // matches; getFloat also accepts an int32 and converts it.
    bool getInt32(int32_t* out) const;
    bool getFloat(float* out) const;
    bool getString(std::string* out) const;
    bool getBoolean(bool* out) const;
    bool getObject(std::shared_ptr<JSONObject>* out) const;
    bool getArray(std::shared_ptr<JSONArray>* out) const;

    // Each setter releases the old payload first.
    void setInt32(int32_t value);
    void setFloat(float value);
    void setString(const std::string& value);
    void setBoolean(bool value);
    void setObject(const std::shared_ptr<JSONObject>& obj);
    void setArray(const std::shared_ptr<JSONArray>& array);
    void unset();  // back to null

    std::string toString(size_t depth = 0, bool indentFirstLine = true) const;

private:
    FieldType mType;
    union {
        int32_t mInt32;
        float mFloat;
        bool mBoolean;
        std::string* mString;  // owned; TYPE_STRING only
    } mValue;
    std::shared_ptr<JSONCompound> mObjectOrArray;  // TYPE_OBJECT and TYPE_ARRAY only
};

// Base of the two containers.
class JSONCompound {
public:
    // Parses one value; returns it if it is an object or an array, null when
    // the text is malformed or the value is of another kind. Bytes after the
    // value are ignored.
    static std::shared_ptr<JSONCompound> Parse(const char* data, size_t size);

    virtual ~JSONCompound() = default;

    virtual bool isObject() const = 0;

    std::string toString(size_t depth = 0, bool indentFirstLine = true) const;

protected:
    JSONCompound() = default;
    JSONCompound(const JSONCompound&) = delete;
    JSONCompound& operator=(const JSONCompound&) = delete;

    // The bracketed text with members indented one level below `depth` and
    // the closing bracket at `depth`; the first line is not indented.
    virtual std::string internalToString(size_t depth) const = 0;

    friend class JSONValue;
};

class JSONObject : public JSONCompound {
public:
    JSONObject() = default;

    bool isObject() const override { return true; }

    // Binary search on the key; copies the value. False when absent.
    bool getValue(const char* key, JSONValue* out) const;
    // Inserts, or replaces the value of an existing key.
    void setValue(const char* key, const JSONValue& value);

protected:
    std::string internalToString(size_t depth) const override;

private:
    // Kept sorted by key, bytewise as C strings; one entry per key.
    std::vector<std::pair<std::string, JSONValue>> mValues;

    // Index of the first entry whose key is not less than `key`.
    size_t lowerBound(const char* key) const;
};

class JSONArray : public JSONCompound {
public:
    JSONArray() = default;

    bool isObject() const override { return false; }

    size_t size() const { return mValues.size(); }
    // Copies element `index`; false when out of range.
    bool getValue(size_t index, JSONValue* out) const;
    void addValue(const JSONValue& value);

protected:
    std::string internalToString(size_t depth) const override;

private:
    std::vector<JSONValue> mValues;
};

}  // namespace android
