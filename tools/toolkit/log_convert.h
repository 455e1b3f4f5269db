// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Turns the recordings phones and data loggers write into the sensor log:
// one file per sensor or one wide file with every sensor's columns, columns
// chosen by name or number, any separator of , ; or tab, an optional
// byte-order mark and header, timestamps in any unit and epoch, and the
// common units of each sensor. Files in the log format itself can join in.
// Every sample is merged into one stream in time order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sensor_log.h"

namespace magcal::tool {

// Where one sensor's samples come from.
struct SensorSource {
    sim::Sensor sensor;
    std::string path;
    // Three columns x, y, z: names from the header or 1-based numbers. Empty:
    // the three columns after the time column.
    std::vector<std::string> columns;
    double scale = 1.0;  // factor to the log's unit (uT, m/s^2, rad/s)
};

struct ConvertOptions {
    std::vector<SensorSource> sources;
    std::vector<std::string> logs;  // files already in the log format
    std::string time_column = "1";  // name or 1-based number, in every source file
    int time_exponent = -9;         // the timestamps' unit is 10^this s: -9 ns ... 0 s
    char separator = '\0';          // '\0': the most frequent of , ; and tab on the first line
    std::optional<bool> header;     // nullopt: a first line with a non-number is a header
};

struct Conversion {
    std::vector<LogRecord> records;  // in time order; `line` is the source line
    std::vector<uint16_t> file_of;   // per record, its index in `files`
    std::vector<std::string> files;
};

// InputError "FILE:LINE: ..." for anything that cannot be converted; the
// values themselves are not judged (check_log does that).
Conversion convert_recordings(const ConvertOptions& options);

// A decimal timestamp ("1699999999.1234567", "-5", "1.5e3") in units of
// 10^exponent s, as integer nanoseconds, rounded half away from zero,
// without passing through binary floating point. False when it is not a
// number or does not fit in 64 bits.
bool parse_timestamp_ns(std::string_view text, int exponent, int64_t* ns);

// Unit names: time "ns" "us" "ms" "s"; field "uT" "nT" "mG" "G" "T";
// acceleration "m/s^2" "g"; rate "rad/s" "deg/s". nullopt when unknown.
std::optional<int> time_unit_exponent(std::string_view name);
std::optional<double> unit_scale(sim::Sensor sensor, std::string_view name);

}  // namespace magcal::tool
