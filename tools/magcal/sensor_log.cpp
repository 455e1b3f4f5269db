// Sensor log reading and writing. Floats are written with %.9g, which reads
// back to the same single-precision value, so a simulated session replays
// bit for bit.
#include "sensor_log.h"

#include <cinttypes>

#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {
namespace {

constexpr const char* kLayout = "timestamp_ns,sensor,x,y,z[,status]";

bool is_header(const std::vector<std::string>& fields) {
    return !fields.empty() && fields[0] == "timestamp_ns";
}

void check_header(const std::vector<std::string>& fields, const std::string& where) {
    const bool ok = (fields.size() == 5 || fields.size() == 6) && fields[1] == "sensor" &&
                    fields[2] == "x" && fields[3] == "y" && fields[4] == "z" &&
                    (fields.size() == 5 || fields[5] == "status");
    if (!ok) throw InputError(where + ": header: expected " + kLayout);
}

}  // namespace

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

std::vector<LogRecord> read_sensor_log(const std::string& path) {
    std::vector<LogRecord> records;
    bool first = true;
    for (const TextLine& line : read_lines(path)) {
        if (is_comment_or_blank(line.text)) continue;
        const std::string where = location(path, line.number);
        const std::vector<std::string> f = split_fields(line.text);
        if (first && is_header(f)) {
            check_header(f, where);
            first = false;
            continue;
        }
        first = false;
        if (f.size() > 6) {
            throw InputError(where + ": too many fields: " + std::to_string(f.size()) +
                             " (a line is " + kLayout + ")");
        }
        LogRecord r{};
        r.line = line.number;
        r.t_ns = parse_int64_field(field_at(f, 0, "timestamp_ns", where, kLayout), "timestamp_ns",
                                   where);
        const std::string& sensor = field_at(f, 1, "sensor", where, kLayout);
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
                parse_float_field(field_at(f, 2 + i, kAxis[i], where, kLayout), kAxis[i], where);
        }
        r.status = f.size() == 6 ? parse_int32_field(f[5], "status", where) : 0;
        records.push_back(r);
    }
    return records;
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
