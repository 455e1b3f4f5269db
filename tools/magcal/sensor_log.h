// The sensor log: CSV lines "timestamp_ns,sensor,x,y,z[,status]" with sensor
// acc, gyro or mag (m/s^2, rad/s, uT); '#' starts a comment line; an optional
// header line names the columns. docs/log-format.md is the reference.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "sim/session_simulator.h"

namespace magcal::tool {

struct LogRecord {
    int64_t t_ns;  // [ns], as written (order and monotonicity are not checked)
    sim::Sensor sensor;
    std::array<float, 3> v;  // [m/s^2], [rad/s] or [uT]
    int32_t status;          // 0 when the line has none
    int line;                // line number in the file, for messages
};

// Reads a whole log. InputError with "FILE:LINE: ..." on the first bad line.
std::vector<LogRecord> read_sensor_log(const std::string& path);

const char* sensor_name(sim::Sensor sensor);  // "acc", "gyro", "mag"

// Writes the header line; records follow with write_log_record.
void write_log_header(std::FILE* out);
void write_log_record(std::FILE* out, int64_t t_ns, sim::Sensor sensor,
                      const std::array<float, 3>& v);

}  // namespace magcal::tool
