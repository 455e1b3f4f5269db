// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "log_convert.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <numeric>

#include "line_reader.h"
#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {
namespace {

using sim::Sensor;

constexpr double kStandardGravity = 9.80665;  // [m/s^2] per g
constexpr double kRadPerDeg = 3.141592653589793 / 180.0;

// Picks the separator of a first line: the most frequent candidate.
char detect_separator(std::string_view line) {
    char best = ',';
    long most = 0;
    for (char c : {',', ';', '\t'}) {
        const long n = std::count(line.begin(), line.end(), c);
        if (n > most) {
            most = n;
            best = c;
        }
    }
    return best;
}

// A number with a decimal comma, as spreadsheets in many locales write it,
// when commas do not separate fields.
std::string_view with_decimal_point(std::string_view text, char separator, std::string* buf) {
    if (separator == ',' || text.find(',') == std::string_view::npos) return text;
    buf->assign(text);
    std::replace(buf->begin(), buf->end(), ',', '.');
    return *buf;
}

std::string_view unquoted(std::string_view f) {
    if (f.size() >= 2 && f.front() == '"' && f.back() == '"') return f.substr(1, f.size() - 2);
    return f;
}

// One source file read once for every sensor that takes columns from it.
class SourceTable {
  public:
    SourceTable(const std::string& path, const ConvertOptions& options, uint16_t file_index,
                std::vector<const SensorSource*> sources)
        : options_(options), file_index_(file_index), sources_(std::move(sources)), in_(path) {}

    void read(std::vector<LogRecord>* records, std::vector<uint16_t>* file_of) {
        std::string_view text;
        std::vector<std::string_view> f;
        std::string buf;
        bool first = true;
        while (in_.next(&text)) {
            if (in_.number() == 1 && text.substr(0, 3) == "\xef\xbb\xbf") text.remove_prefix(3);
            if (in_.number() == 1 && text.size() >= 2 &&
                (text.substr(0, 2) == "\xff\xfe" || text.substr(0, 2) == "\xfe\xff")) {
                throw InputError(where() + ": UTF-16 text; save the file as UTF-8 first");
            }
            if (is_comment_or_blank(text)) continue;
            if (first)
                separator_ = options_.separator ? options_.separator : detect_separator(text);
            split_fields(text, separator_, &f);
            for (auto& field : f) field = unquoted(field);
            if (first) {
                first = false;
                const bool header = options_.header ? *options_.header : looks_like_header(f, &buf);
                if (header) header_.assign(f.begin(), f.end());
                resolve_columns(f.size());
                if (header) continue;
            }
            convert_row(f, records, file_of);
        }
        if (first) throw InputError(in_.name() + ": no data");
    }

  private:
    std::string where() const { return location(in_.name(), in_.number()); }

    // A time column named, or one whose first entry is not a number, means
    // the first line names the columns (other columns may hold text).
    bool looks_like_header(const std::vector<std::string_view>& f, std::string* buf) const {
        const std::string& ref = options_.time_column;
        if (!is_integer(ref)) return true;
        const long n = std::strtol(ref.c_str(), nullptr, 10);
        if (n < 1 || static_cast<size_t>(n) > f.size()) return false;
        return !is_number(with_decimal_point(f[static_cast<size_t>(n) - 1], separator_, buf));
    }

    // A column by header name, else by 1-based number.
    size_t column(const std::string& ref, size_t count) const {
        const auto named = std::find(header_.begin(), header_.end(), ref);
        if (named != header_.end()) return static_cast<size_t>(named - header_.begin());
        if (is_integer(ref) && ref[0] != '-' && ref[0] != '+') {
            const long n = std::strtol(ref.c_str(), nullptr, 10);
            if (n >= 1 && static_cast<size_t>(n) <= count) return static_cast<size_t>(n) - 1;
            throw InputError(where() + ": no column " + ref + ": the line has " +
                             std::to_string(count) + " columns");
        }
        std::string names;
        for (const std::string& h : header_) names += (names.empty() ? "" : ", ") + quoted(h);
        throw InputError(where() + ": no column named " + quoted(ref) +
                         (header_.empty() ? " (the file has no header line)"
                                          : " (the header has " + names + ")"));
    }

    void resolve_columns(size_t count) {
        time_ = column(options_.time_column, count);
        for (const SensorSource* s : sources_) {
            std::array<size_t, 3> c;
            for (int k = 0; k < 3; ++k) {
                c[k] = s->columns.empty() ? time_ + 1 + static_cast<size_t>(k)
                                          : column(s->columns[static_cast<size_t>(k)], count);
                if (c[k] >= count) {
                    throw InputError(where() + ": " + sensor_name(s->sensor) + ": no column " +
                                     std::to_string(c[k] + 1) +
                                     " after the time column: name the columns (--" +
                                     sensor_name(s->sensor) + " FILE:X,Y,Z)");
                }
            }
            columns_.push_back(c);
        }
    }

    void convert_row(const std::vector<std::string_view>& f, std::vector<LogRecord>* records,
                     std::vector<uint16_t>* file_of) {
        const std::string at = where();
        std::string buf;
        if (time_ >= f.size() || f[time_].empty()) {
            throw InputError(at + ": no timestamp in column " + std::to_string(time_ + 1));
        }
        int64_t t;
        if (!parse_timestamp_ns(with_decimal_point(f[time_], separator_, &buf),
                                options_.time_exponent, &t)) {
            throw InputError(at + ": timestamp: not a number that fits in 64-bit nanoseconds: " +
                             quoted(f[time_]));
        }
        for (size_t i = 0; i < sources_.size(); ++i) {
            const SensorSource& s = *sources_[i];
            int empty = 0;
            for (size_t c : columns_[i]) empty += c >= f.size() || f[c].empty();
            if (empty == 3) continue;  // a wide row without this sensor
            LogRecord r{};
            r.t_ns = t;
            r.sensor = s.sensor;
            r.line = in_.number();
            static const char* const kAxis[3] = {"x", "y", "z"};
            for (int k = 0; k < 3; ++k) {
                const size_t c = columns_[i][static_cast<size_t>(k)];
                const std::string name = std::string(sensor_name(s.sensor)) + " " + kAxis[k];
                const std::string_view cell = c < f.size() ? f[c] : std::string_view();
                const double v = parse_double_field(with_decimal_point(cell, separator_, &buf),
                                                    name.c_str(), at);
                r.v[static_cast<size_t>(k)] = static_cast<float>(v * s.scale);
            }
            records->push_back(r);
            file_of->push_back(file_index_);
        }
    }

    const ConvertOptions& options_;
    uint16_t file_index_;
    std::vector<const SensorSource*> sources_;
    LineReader in_;
    char separator_ = ',';
    std::vector<std::string> header_;
    size_t time_ = 0;
    std::vector<std::array<size_t, 3>> columns_;
};

}  // namespace

std::optional<int> time_unit_exponent(std::string_view name) {
    if (name == "ns") return -9;
    if (name == "us") return -6;
    if (name == "ms") return -3;
    if (name == "s") return 0;
    return std::nullopt;
}

std::optional<double> unit_scale(Sensor sensor, std::string_view name) {
    switch (sensor) {
        case Sensor::Mag:
            if (name == "uT") return 1.0;
            if (name == "nT") return 1e-3;
            if (name == "mG") return 0.1;
            if (name == "G") return 100.0;
            if (name == "T") return 1e6;
            break;
        case Sensor::Acc:
            if (name == "m/s^2") return 1.0;
            if (name == "g") return kStandardGravity;
            break;
        case Sensor::Gyro:
            if (name == "rad/s") return 1.0;
            if (name == "deg/s") return kRadPerDeg;
            break;
    }
    return std::nullopt;
}

bool parse_timestamp_ns(std::string_view text, int exponent, int64_t* ns) {
    bool negative = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    std::string digits;
    long shift = exponent + 9;  // power of ten that turns `digits` into ns
    bool point = false, any = false;
    size_t i = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            any = true;
            if (!(digits.empty() && c == '0')) digits += c;
            if (point) --shift;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!any) return false;
    if (i < text.size()) {
        if (text[i] != 'e' && text[i] != 'E') return false;
        char* end = nullptr;
        const std::string e(text.substr(i + 1));
        const long power = std::strtol(e.c_str(), &end, 10);
        if (e.empty() || *end != '\0' || power > 40 || power < -40) return false;
        shift += power;
    }
    // Digits past the nanosecond are dropped, the first of them rounding.
    bool round_up = false;
    if (shift < 0) {
        const long keep = static_cast<long>(digits.size()) + shift;
        round_up = keep >= 0 && keep < static_cast<long>(digits.size()) &&
                   digits[static_cast<size_t>(keep)] >= '5';
        digits.resize(static_cast<size_t>(std::max(0L, keep)));
        shift = 0;
    }
    if (static_cast<long>(digits.size()) + shift > 19) return false;
    digits.append(static_cast<size_t>(shift), '0');
    // At most 19 digits, so below 10^19 even rounded up: within 64 bits.
    uint64_t v = 0;
    for (char c : digits) v = v * 10 + static_cast<unsigned>(c - '0');
    v += round_up ? 1 : 0;
    const uint64_t magnitude_max = static_cast<uint64_t>(INT64_MAX);
    if (v > magnitude_max + (negative ? 1 : 0)) return false;
    if (!negative)
        *ns = static_cast<int64_t>(v);
    else
        *ns = v > magnitude_max ? INT64_MIN : -static_cast<int64_t>(v);
    return true;
}

Conversion convert_recordings(const ConvertOptions& options) {
    Conversion out;
    // Each file is read once, for every sensor that names it.
    std::map<std::string, std::vector<const SensorSource*>> by_path;
    std::vector<std::string> order;
    for (const SensorSource& s : options.sources) {
        if (by_path.find(s.path) == by_path.end()) order.push_back(s.path);
        by_path[s.path].push_back(&s);
    }
    for (const std::string& path : order) {
        out.files.push_back(path == "-" ? "<stdin>" : path);
        SourceTable(path, options, static_cast<uint16_t>(out.files.size() - 1), by_path[path])
            .read(&out.records, &out.file_of);
    }
    for (const std::string& path : options.logs) {
        out.files.push_back(path == "-" ? "<stdin>" : path);
        for (const LogRecord& r : read_sensor_log(path)) {
            out.records.push_back(r);
            out.file_of.push_back(static_cast<uint16_t>(out.files.size() - 1));
        }
    }
    // Time order; at one instant acc and gyro go before mag, so that the mag
    // sample is processed with them, and otherwise the order they came in.
    std::vector<size_t> index(out.records.size());
    std::iota(index.begin(), index.end(), size_t{0});
    // The index as the last key keeps the sort stable without the temporary
    // buffer of std::stable_sort.
    std::sort(index.begin(), index.end(), [&](size_t a, size_t b) {
        const LogRecord &ra = out.records[a], &rb = out.records[b];
        if (ra.t_ns != rb.t_ns) return ra.t_ns < rb.t_ns;
        if (ra.sensor != rb.sensor)
            return static_cast<int>(ra.sensor) < static_cast<int>(rb.sensor);
        return a < b;
    });
    Conversion sorted;
    sorted.files = std::move(out.files);
    sorted.records.reserve(index.size());
    sorted.file_of.reserve(index.size());
    for (size_t i : index) {
        sorted.records.push_back(out.records[i]);
        sorted.file_of.push_back(out.file_of[i]);
    }
    return sorted;
}

}  // namespace magcal::tool
