// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The soft-iron loader on arbitrary file contents. The file comes from the
// device's other software, so every byte is untrusted. Beyond memory safety:
//  - a failed load leaves the caller's matrix byte for byte as it was (the
//    matrix here persists across inputs, so "as it was" is often the matrix
//    an earlier input loaded), and nothing past its nine doubles is written;
//  - a load succeeds exactly when the JSON model, given the bytes the loader
//    reads (the first 1024), finds an object whose "qvg" member is an array
//    with nine numbers first, and then yields those nine numbers through
//    single precision, bit for bit;
//  - the log tells the story: the start line, the count read, then the
//    array error, the number error or the closing line, and nothing else.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz_properties.h"
#include "magcal/magcal_host.h"
#include "memory_file.h"
#include "params/JSONObject.h"

namespace {

using magcal::fuzz::MemoryFile;

constexpr size_t kReadLimit = 1024;  // what the loader reads of the file
constexpr size_t kGuard = 3;         // doubles after the matrix that must never change

enum class Outcome { Loaded, ArrayError, NumberError };

// What the loader must do with these bytes, from the JSON model alone.
Outcome expected_outcome(const uint8_t* data, size_t size, float numbers[9]) {
    const size_t n = std::min(size, kReadLimit);
    const std::unique_ptr<char[]> bytes(new char[n]);
    std::memcpy(bytes.get(), data, n);
    const std::shared_ptr<android::JSONCompound> root =
        android::JSONCompound::Parse(bytes.get(), n);
    if (root == nullptr || !root->isObject()) return Outcome::ArrayError;
    android::JSONValue member;
    std::shared_ptr<android::JSONArray> array;
    if (!std::static_pointer_cast<android::JSONObject>(root)->getValue("qvg", &member) ||
        !member.getArray(&array)) {
        return Outcome::ArrayError;
    }
    for (size_t i = 0; i < 9; ++i) {
        android::JSONValue element;
        if (!array->getValue(i, &element) || !element.getFloat(&numbers[i])) {
            return Outcome::NumberError;
        }
    }
    return Outcome::Loaded;
}

// The library logs to stderr off Android. The stream is swapped for a
// buffer around the call (glibc lets a program assign stderr); the
// sanitizers and the fuzzing engine write to the descriptor, not this stream.
class LogCapture {
  public:
    LogCapture() : stream_(fmemopen(buffer_, sizeof buffer_, "w")) {
        FUZZ_REQUIRE(stream_ != nullptr, "fmemopen failed");
    }
    void begin() {
        rewind(stream_);
        saved_ = stderr;
        stderr = stream_;
    }
    std::string end() {
        std::fflush(stream_);
        stderr = saved_;
        const long length = std::ftell(stream_);
        return std::string(buffer_, static_cast<size_t>(std::max(0L, length)));
    }

  private:
    char buffer_[8192];
    FILE* stream_;
    FILE* saved_ = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile file;
    static LogCapture log;
    // The matrix a host would hold: persists from input to input. The
    // pattern is no double a load could produce by chance, and stays in the
    // guard forever.
    static double matrix[9 + kGuard] = {};
    static bool first = true;
    if (first) {
        std::memset(matrix, 0xa5, sizeof matrix);
        first = false;
    }

    file.assign(data, size);
    float numbers[9] = {};
    const Outcome expected = expected_outcome(data, size, numbers);

    double before[9 + kGuard];
    std::memcpy(before, matrix, sizeof matrix);
    log.begin();
    const int32_t result = getJsonCalibration(file.path().c_str(), "qvg", matrix, 9);
    const std::string text = log.end();

    FUZZ_REQUIRE(std::memcmp(matrix + 9, before + 9, kGuard * sizeof(double)) == 0,
                 "the loader wrote past the nine doubles");
    const char* last_line = "";
    if (expected == Outcome::Loaded) {
        FUZZ_REQUIRE(result == 0, "returned %d where the JSON model reads nine numbers",
                     static_cast<int>(result));
        for (int i = 0; i < 9; ++i) {
            FUZZ_REQUIRE(magcal::fuzz::same_double(matrix[i], static_cast<double>(numbers[i])),
                         "element %d is %.17g, the JSON model reads %.9g", i, matrix[i],
                         static_cast<double>(numbers[i]));
        }
        last_line = "E/JSONObject: For debug only: tmp_output has total 72 Bytes\n";
    } else {
        FUZZ_REQUIRE(result == 1, "returned %d for a file that must fail",
                     static_cast<int>(result));
        FUZZ_REQUIRE(std::memcmp(matrix, before, sizeof before) == 0,
                     "a failed load changed the matrix");
        last_line = expected == Outcome::ArrayError ? "E/JSONObject: kxs4410 get json array err\n"
                                                    : "E/JSONObject: kxs4410 get json float err\n";
    }
    const std::string expected_log =
        "E/JSONObject: kxs4410 getJsonCalibration\n"
        "E/JSONObject: Msensor readSettings size is " +
        std::to_string(std::min(size, kReadLimit)) + "\n" + last_line;
    FUZZ_REQUIRE(text == expected_log, "the log reads\n%s\ninstead of\n%s", text.c_str(),
                 expected_log.c_str());
    return 0;
}
