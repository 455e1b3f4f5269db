// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The sensor-log reader on arbitrary bytes, and the input checks that replay
// and convert run on what it returns. Beyond memory safety and undefined
// behaviour:
//  - the reader returns samples, or throws an InputError whose one-line
//    message names the file and a line of it, and nothing else;
//  - the same bytes read from memory, from a file, and from a file whose
//    first line pushes them across the line reader's 64 KiB refill give the
//    same samples or the same error (one line later in the last case);
//  - samples come with rising line numbers of the text, and written by the
//    log writer they read back to the same samples, bit for bit;
//  - the checks count every record and report each kind once, in order,
//    about records that exist.
// Compressed input (gzip magic first) goes through the file only: it must
// give samples or a named error.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "line_reader.h"
#include "memory_file.h"
#include "reader_properties.h"
#include "sensor_log.h"

namespace {

using magcal::fuzz::input_error_of;
using magcal::fuzz::MemoryFile;
using magcal::tool::LineReader;
using magcal::tool::LogRecord;

constexpr size_t kRefill = 1 << 16;  // the line reader's chunk [bytes]

struct Reading {
    std::vector<LogRecord> records;
    std::string name;   // of the file or memory text read
    std::string error;  // the InputError's message; empty when it read
};

Reading read_file(const MemoryFile& file) {
    Reading r;
    r.name = file.path();
    r.error = input_error_of([&] { r.records = magcal::tool::read_sensor_log(file.path()); });
    return r;
}

// Two readings of the same text agree; `shift` lines were put before it in `b`.
void require_same_reading(const Reading& a, const Reading& b, int shift) {
    FUZZ_REQUIRE(a.error.empty() == b.error.empty(), "one reading failed, the other not: %s%s",
                 a.error.c_str(), b.error.c_str());
    if (!a.error.empty()) {
        // "NAME:LINE: DETAIL" in both, the line moved by `shift`.
        const long line_a = std::strtol(a.error.c_str() + a.name.size() + 1, nullptr, 10);
        const long line_b = std::strtol(b.error.c_str() + b.name.size() + 1, nullptr, 10);
        const size_t detail_a = a.error.find(':', a.name.size() + 1);
        const size_t detail_b = b.error.find(':', b.name.size() + 1);
        FUZZ_REQUIRE(line_b == line_a + shift && detail_a != std::string::npos &&
                         detail_b != std::string::npos &&
                         a.error.compare(detail_a, std::string::npos, b.error, detail_b) == 0,
                     "two readings of one text fail differently:\n%s\n%s", a.error.c_str(),
                     b.error.c_str());
        return;
    }
    FUZZ_REQUIRE(a.records.size() == b.records.size(), "%zu samples against %zu", a.records.size(),
                 b.records.size());
    for (size_t i = 0; i < a.records.size(); ++i) {
        const LogRecord &x = a.records[i], &y = b.records[i];
        FUZZ_REQUIRE(
            magcal::fuzz::same_sample(x, y) && x.status == y.status && x.line + shift == y.line,
            "sample %zu differs between two readings of one text", i);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile file;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int lines = magcal::fuzz::count_lines(text);

    file.assign(text.data(), text.size());
    const Reading from_file = read_file(file);
    if (magcal::tool::looks_gzip_compressed(text)) {
        if (!from_file.error.empty()) {
            magcal::fuzz::require_names_file_and_line(from_file.error, from_file.name, 0);
        } else {
            magcal::fuzz::require_checks_consistent(from_file.records);
        }
        return 0;
    }

    Reading in_memory;
    in_memory.name = "memory.csv";
    in_memory.error = input_error_of([&] {
        LineReader in(text, in_memory.name);
        in_memory.records = magcal::tool::read_sensor_log(in);
    });
    if (!in_memory.error.empty()) {
        magcal::fuzz::require_names_file_and_line(in_memory.error, in_memory.name, lines);
    }
    require_same_reading(in_memory, from_file, 0);

    // A comment line long enough that the text starts just before the first
    // refill, at an offset the text itself picks. It costs a 64 KiB file, so
    // one input in four (by its length) takes it. A byte-order mark is only
    // refused on line 1, so such texts are left out.
    if (size % 4 == 0 && text.compare(0, 3, "\xef\xbb\xbf") != 0) {
        const size_t before_refill = 1 + (text.empty() ? 0 : data[0] % 64);
        std::string padded = "#" + std::string(kRefill - before_refill - 2, '-') + "\n" + text;
        file.assign(padded.data(), padded.size());
        require_same_reading(in_memory, read_file(file), 1);
    }

    if (!in_memory.error.empty()) return 0;
    const std::vector<LogRecord>& records = in_memory.records;
    for (size_t i = 0; i < records.size(); ++i) {
        FUZZ_REQUIRE(records[i].line >= 1 && records[i].line <= lines &&
                         (i == 0 || records[i - 1].line < records[i].line),
                     "sample %zu has line %d of %d", i, records[i].line, lines);
    }
    magcal::fuzz::require_checks_consistent(records);
    magcal::fuzz::require_log_round_trip(records);
    return 0;
}
