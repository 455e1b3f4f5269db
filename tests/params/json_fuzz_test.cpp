// Random and mutated byte strings through both parse entry points. The point
// is the sanitizer build: every input lives in a heap block of exactly its
// size, so any read past the end is reported.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "params/JSONObject.h"

namespace {

using android::JSONCompound;
using android::JSONValue;

const char kAlphabet[] = "{}[]\":,-+.eE0123456789 \t\n\\/abfnrtulsx";

const char* const kSeeds[] = {
    R"({"name": "mag", "qvg": [1.02, -0.01, 0.003, 0, 0.98, 1e3, 2.5e2, -7, 16777217]})",
    R"([[], {}, [[{"a": [null, true, false]}]], "\b\f\n\r\t\"\\\/", -0.25, 0, 2147483647])",
    R"({"a": {"b": {"c": {"d": [1, 2, 3, {"e": "f"}]}}}, "a": 4294967295})",
    "  -12.5e-3  ",
};

struct Tally {
    int accepted = 0;
    int malformed = 0;
};

void check(const std::string& bytes, Tally* tally) {
    const size_t size = bytes.size();
    std::unique_ptr<char[]> buf(new char[size]);
    std::copy(bytes.begin(), bytes.end(), buf.get());

    JSONValue value;
    const ssize_t n = JSONValue::Parse(buf.get(), size, &value);
    ASSERT_TRUE(n == android::ERROR_MALFORMED || (n > 0 && static_cast<size_t>(n) <= size))
        << "result " << n << " for '" << bytes << "'";

    const std::shared_ptr<JSONCompound> compound = JSONCompound::Parse(buf.get(), size);
    if (n < 0) {
        ++tally->malformed;
        EXPECT_EQ(compound, nullptr);
        return;
    }
    ++tally->accepted;
    const bool is_container =
        value.type() == JSONValue::TYPE_OBJECT || value.type() == JSONValue::TYPE_ARRAY;
    EXPECT_EQ(compound != nullptr, is_container);
    EXPECT_FALSE(value.toString().empty());
}

TEST(JsonFuzz, RandomAndMutatedBytesNeverMisbehave) {
    std::mt19937 rng(0x6d616763u);
    auto below = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
    auto any_byte = [&]() -> char {
        return below(5) == 0 ? static_cast<char>(below(256))
                             : kAlphabet[below(sizeof kAlphabet - 1)];
    };

    Tally tally;
    for (int round = 0; round < 3000; ++round) {
        std::string bytes(below(48), '\0');
        for (char& c : bytes) c = any_byte();
        check(bytes, &tally);
        if (HasFatalFailure()) return;
    }

    for (int round = 0; round < 4000; ++round) {
        std::string bytes = kSeeds[below(sizeof kSeeds / sizeof kSeeds[0])];
        const size_t edits = 1 + below(4);
        for (size_t e = 0; e < edits && !bytes.empty(); ++e) {
            const size_t at = below(bytes.size());
            switch (below(5)) {
                case 0: bytes[at] = any_byte(); break;
                case 1: bytes.erase(at, 1); break;
                case 2: bytes.insert(at, 1, any_byte()); break;
                case 3: bytes.resize(at); break;
                default: bytes.insert(at, bytes.substr(at, below(8))); break;
            }
        }
        check(bytes, &tally);
        if (HasFatalFailure()) return;
    }

    // Both outcomes must be well represented, or the inputs test nothing.
    EXPECT_GT(tally.accepted, 500);
    EXPECT_GT(tally.malformed, 2000);
}

}  // namespace
