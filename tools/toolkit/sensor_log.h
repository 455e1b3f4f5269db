// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The sensor log: CSV lines "timestamp_ns,sensor,x,y,z[,status]" with sensor
// acc, gyro or mag (m/s^2, rad/s, uT); '#' starts a comment line; an optional
// header line names the columns. docs/log-format.md is the reference. The
// format is strict on purpose: other layouts go through the converter.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "line_reader.h"
#include "sim/session_simulator.h"

namespace magcal::tool {

struct LogRecord {
    int64_t t_ns;  // [ns], as written (order is checked, not changed)
    sim::Sensor sensor;
    std::array<float, 3> v;  // [m/s^2], [rad/s] or [uT]
    int32_t status;          // 0 when the line has none
    int line;                // line number in the file, for messages
};

// The layout a log line has, for messages.
extern const char* const kLogLayout;

// Reads a whole log. InputError with "FILE:LINE: ..." on the first bad line.
std::vector<LogRecord> read_sensor_log(LineReader& in);
std::vector<LogRecord> read_sensor_log(const std::string& path);

const char* sensor_name(sim::Sensor sensor);  // "acc", "gyro", "mag"

// Writes the header line; records follow with write_log_record.
void write_log_header(std::FILE* out);
void write_log_record(std::FILE* out, int64_t t_ns, sim::Sensor sensor,
                      const std::array<float, 3>& v);

// InputError for a first line that starts with a UTF-8 byte-order mark,
// which strict formats do not allow; `hint` says what to do instead.
void reject_byte_order_mark(std::string_view first_line, const std::string& where,
                            const std::string& hint);

// InputError for a header line that is not `expected`; `hint` may follow.
[[noreturn]] void bad_header(const std::string& where, const char* expected,
                             const std::vector<std::string_view>& found, const std::string& hint);

}  // namespace magcal::tool
