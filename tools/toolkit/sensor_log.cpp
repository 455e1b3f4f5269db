// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Sensor log reading and writing. Floats are written with %.9g, which reads
// back to the same single-precision value, so a simulated session replays
// bit for bit.
#include "sensor_log.h"

#include <cinttypes>

#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {

const char* const kLogLayout = "timestamp_ns,sensor,x,y,z[,status]";

namespace {

constexpr const char* kConvertHint = "magcal convert reads other layouts";

bool is_log_header(const std::vector<std::string_view>& f) {
    return (f.size() == 5 || f.size() == 6) && f[0] == "timestamp_ns" && f[1] == "sensor" &&
           f[2] == "x" && f[3] == "y" && f[4] == "z" && (f.size() == 5 || f[5] == "status");
}

}  // namespace

void reject_byte_order_mark(std::string_view first_line, const std::string& where,
                            const std::string& hint) {
    if (first_line.substr(0, 3) == "\xef\xbb\xbf") {
        throw InputError(where + ": starts with a UTF-8 byte-order mark, which this format " +
                         "does not allow (" + hint + ")");
    }
}

void bad_header(const std::string& where, const char* expected,
                const std::vector<std::string_view>& found, const std::string& hint) {
    throw InputError(where + ": header: expected " + expected + ", found " +
                     quoted(joined(found, ',')) + (hint.empty() ? "" : " (" + hint + ")"));
}

const char* sensor_name(sim::Sensor sensor) {
    switch (sensor) {
        case sim::Sensor::Acc:
            return "acc";
        case sim::Sensor::Gyro:
            return "gyro";
        case sim::Sensor::Mag:
            return "mag";
    }
    return "?";
}

std::vector<LogRecord> read_sensor_log(LineReader& in) {
    std::vector<LogRecord> records;
    std::vector<std::string_view> f;
    std::string_view text;
    bool first = true;
    while (in.next(&text)) {
        if (in.number() == 1) {
            reject_byte_order_mark(text, location(in.name(), 1),
                                   "magcal convert --log FILE -o NEW.csv writes it without one");
        }
        if (is_comment_or_blank(text)) continue;
        const std::string where = location(in.name(), in.number());
        split_fields(text, ',', &f);
        // A line that does not start with a number is a header: only the
        // first line may be one, and only this one.
        if (!is_number(f[0]) && (first || is_log_header(f))) {
            if (!first) {
                throw InputError(where +
                                 ": header line after data (were logs concatenated? magcal "
                                 "convert --log A.csv --log B.csv -o AB.csv merges them by time)");
            }
            if (!is_log_header(f)) bad_header(where, kLogLayout, f, kConvertHint);
            first = false;
            continue;
        }
        first = false;
        if (f.size() > 6) {
            throw InputError(where + ": too many fields: " + std::to_string(f.size()) +
                             " (a line is " + kLogLayout + ")");
        }
        LogRecord r{};
        r.line = in.number();
        r.t_ns = parse_int64_field(field_at(f, 0, "timestamp_ns", where, kLogLayout),
                                   "timestamp_ns", where);
        const std::string_view sensor = field_at(f, 1, "sensor", where, kLogLayout);
        if (sensor == "acc") {
            r.sensor = sim::Sensor::Acc;
        } else if (sensor == "gyro") {
            r.sensor = sim::Sensor::Gyro;
        } else if (sensor == "mag") {
            r.sensor = sim::Sensor::Mag;
        } else {
            throw InputError(where + ": field 'sensor': unknown sensor: " + quoted(sensor) +
                             " (expected acc, gyro or mag)");
        }
        static const char* const kAxis[3] = {"x", "y", "z"};
        for (int i = 0; i < 3; ++i) {
            r.v[i] =
                parse_float_field(field_at(f, 2 + i, kAxis[i], where, kLogLayout), kAxis[i], where);
        }
        r.status = f.size() == 6 ? parse_int32_field(f[5], "status", where) : 0;
        records.push_back(r);
    }
    return records;
}

std::vector<LogRecord> read_sensor_log(const std::string& path) {
    LineReader in(path);
    return read_sensor_log(in);
}

void write_log_header(std::FILE* out) {
    std::fputs("timestamp_ns,sensor,x,y,z\n", out);
}

void write_log_record(std::FILE* out, int64_t t_ns, sim::Sensor sensor,
                      const std::array<float, 3>& v) {
    std::fprintf(out, "%" PRId64 ",%s,%.9g,%.9g,%.9g\n", t_ns, sensor_name(sensor),
                 static_cast<double>(v[0]), static_cast<double>(v[1]), static_cast<double>(v[2]));
}

}  // namespace magcal::tool
