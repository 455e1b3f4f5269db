// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The log converter on arbitrary recordings and options. The first four
// bytes choose what a command line would (see Options below); the rest is
// the content of up to four files, split at form feeds. Beyond memory safety
// and undefined behaviour:
//  - it converts, or throws an InputError whose one-line message names one
//    of its files and a line of it ("no data" names the file only), and
//    nothing else;
//  - the samples come in time order, acc and gyro before mag at one
//    instant, and otherwise in the order of their files and lines; each
//    names a file it was given and a line of that file;
//  - written as the convert command writes them, they read back through the
//    strict log reader to the same samples, bit for bit, and the input
//    checks the command runs hold as for any log.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "line_reader.h"
#include "log_convert.h"
#include "memory_file.h"
#include "reader_properties.h"

namespace {

using magcal::fuzz::MemoryFile;
using magcal::sim::Sensor;
using magcal::tool::ConvertOptions;
using magcal::tool::SensorSource;

constexpr size_t kOptionBytes = 4;
constexpr size_t kMaxFiles = 4;
constexpr Sensor kSensors[3] = {Sensor::Acc, Sensor::Gyro, Sensor::Mag};

// Which files play which part, from the option bytes:
//   byte 0 % 4: 0 one wide file for all sensors; 1 a file per sensor;
//               2 a file per sensor and a file in the log format; 3 two logs
//   byte 1 % 3: header detected, forced or refused; / 3 % 4: separator
//               detected, ',', ';' or tab
//   byte 2 % 4: time unit ns, us, ms or s; / 4 % 3: time column "1", "2" or "t"
//   byte 3 % 3: sensor columns after the time column, by number or by name;
//               / 3 % 2: SI units, or g, deg/s and nT
ConvertOptions options_from(const uint8_t* bytes, const std::vector<const MemoryFile*>& files,
                            size_t* used) {
    ConvertOptions o;
    const int layout = bytes[0] % 4;
    const std::optional<bool> headers[3] = {std::nullopt, true, false};
    o.header = headers[bytes[1] % 3];
    const char separators[4] = {'\0', ',', ';', '\t'};
    o.separator = separators[bytes[1] / 3 % 4];
    o.time_exponent = -9 + 3 * (bytes[2] % 4);
    const char* const time_columns[3] = {"1", "2", "t"};
    o.time_column = time_columns[bytes[2] / 4 % 3];
    const int columns = bytes[3] % 3;
    const bool other_units = bytes[3] / 3 % 2 == 1;

    static const char* const kUnits[3] = {"g", "deg/s", "nT"};
    static const char* const kNumbers[3][3] = {{"2", "3", "4"}, {"5", "6", "7"}, {"8", "9", "10"}};
    static const char* const kWideNames[3][3] = {
        {"ax", "ay", "az"}, {"gx", "gy", "gz"}, {"mx", "my", "mz"}};
    static const char* const kNames[3] = {"x", "y", "z"};
    size_t next = 0;
    if (layout <= 2) {
        for (int s = 0; s < 3; ++s) {
            SensorSource source{kSensors[s], files[layout == 0 ? 0 : next]->path(), {}, 1.0};
            if (layout != 0) ++next;
            const char* const* names = layout == 0 ? kWideNames[s] : kNames;
            const char* const* numbers = layout == 0 ? kNumbers[s] : kNumbers[0];
            for (int k = 0; k < 3 && columns != 0; ++k) {
                source.columns.push_back(columns == 2 ? names[k] : numbers[k]);
            }
            if (other_units) source.scale = *magcal::tool::unit_scale(kSensors[s], kUnits[s]);
            o.sources.push_back(source);
        }
        if (layout == 0) next = 1;
    }
    while (layout >= 2 && next < (layout == 2 ? 4u : 2u)) o.logs.push_back(files[next++]->path());
    *used = next;
    return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile storage[kMaxFiles];
    if (size < kOptionBytes) return 0;
    std::vector<const MemoryFile*> files;
    for (const MemoryFile& f : storage) files.push_back(&f);
    size_t used = 0;
    const ConvertOptions options = options_from(data, files, &used);

    // The contents, split at form feeds; files without one are empty.
    std::vector<std::string_view> contents;
    std::string_view rest(reinterpret_cast<const char*>(data) + kOptionBytes, size - kOptionBytes);
    for (size_t i = 0; i < kMaxFiles; ++i) {
        const size_t cut = i + 1 < kMaxFiles ? rest.find('\f') : std::string_view::npos;
        contents.push_back(rest.substr(0, cut));
        rest = cut == std::string_view::npos ? std::string_view() : rest.substr(cut + 1);
    }
    for (size_t i = 0; i < kMaxFiles; ++i) {
        storage[i].assign(contents[i].data(), contents[i].size());
    }
    auto lines_of = [&](size_t i) {
        return magcal::tool::looks_gzip_compressed(contents[i])
                   ? 0
                   : magcal::fuzz::count_lines(contents[i]);
    };

    magcal::tool::Conversion c;
    const std::string error =
        magcal::fuzz::input_error_of([&] { c = magcal::tool::convert_recordings(options); });
    if (!error.empty()) {
        for (size_t i = 0; i < used; ++i) {
            if (error.compare(0, files[i]->path().size() + 1, files[i]->path() + ":") == 0) {
                magcal::fuzz::require_names_file_and_line(error, files[i]->path(), lines_of(i),
                                                          {"no data"});
                return 0;
            }
        }
        FUZZ_REQUIRE(false, "the error names none of the files: %s", error.c_str());
    }

    FUZZ_REQUIRE(c.records.size() == c.file_of.size(), "%zu records, %zu file indexes",
                 c.records.size(), c.file_of.size());
    for (size_t i = 0; i < c.records.size(); ++i) {
        const magcal::tool::LogRecord& r = c.records[i];
        FUZZ_REQUIRE(c.file_of[i] < c.files.size(), "record %zu names file %u of %zu", i,
                     static_cast<unsigned>(c.file_of[i]), c.files.size());
        size_t f = 0;
        while (f < used && files[f]->path() != c.files[c.file_of[i]]) ++f;
        FUZZ_REQUIRE(f < used, "record %zu names a file it was not given", i);
        const int lines = lines_of(f);
        FUZZ_REQUIRE(r.line >= 1 && (lines == 0 || r.line <= lines),
                     "record %zu names line %d of %d", i, r.line, lines);
        if (i == 0) continue;
        const magcal::tool::LogRecord& p = c.records[i - 1];
        const bool in_order =
            p.t_ns < r.t_ns ||
            (p.t_ns == r.t_ns &&
             (p.sensor < r.sensor ||
              (p.sensor == r.sensor && (c.file_of[i - 1] < c.file_of[i] ||
                                        (c.file_of[i - 1] == c.file_of[i] && p.line < r.line)))));
        FUZZ_REQUIRE(in_order, "records %zu and %zu out of order", i - 1, i);
    }
    magcal::fuzz::require_checks_consistent(c.records);
    magcal::fuzz::require_log_round_trip(c.records);
    return 0;
}
