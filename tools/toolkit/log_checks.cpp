// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Each check looks at the whole log and reports once, at the first record
// it concerns, with a count: a unit mistake affects every line, and one
// message is what a person can act on.
//
// Thresholds come from what phone sensors read, not from this library:
// the earth's field is 25-65 uT (a hard-iron offset adds up to a few hundred),
// a phone gyroscope's full scale is 2000 deg/s = 35 rad/s, gravity is
// 9.8 m/s^2, and magnetometers sample every 1 ms to 1 s.
#include "log_checks.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <optional>

namespace magcal::tool {
namespace {

using sim::Sensor;

constexpr double kFieldLow = 10.0;          // [uT] median |mag| below: not microtesla
constexpr double kFieldHigh = 400.0;        // [uT] above: beyond the earth's field plus any offset
constexpr double kRateMax = 35.0;           // [rad/s] a phone gyroscope's full scale
constexpr double kAccelLow = 4.0;           // [m/s^2] median |acc| below: not m/s^2
constexpr double kAccelHigh = 20.0;         // [m/s^2] above: not m/s^2 either
constexpr int64_t kPeriodMin = 1000000;     // [ns] a magnetometer at 1 kHz
constexpr int64_t kPeriodMax = 1000000000;  // [ns] a magnetometer at 1 Hz
constexpr int64_t kGapMin = 500000000;  // [ns] a stale sample older than this misleads the fusion
constexpr int64_t kGapPeriods = 10;     // a gap is also at least this many of the sensor's periods

int index_of(Sensor s) {
    return static_cast<int>(s);
}

double length(const std::array<float, 3>& v) {
    const double x = v[0], y = v[1], z = v[2];
    return std::sqrt(x * x + y * y + z * z);
}

// later - earlier [ns], clamped to the 64-bit range: a log may hold any two
// timestamps, and their difference need not fit.
int64_t time_between(int64_t later, int64_t earlier) {
    int64_t d;
    if (!__builtin_sub_overflow(later, earlier, &d)) return d;
    return later > earlier ? INT64_MAX : INT64_MIN;
}

bool finite(const std::array<float, 3>& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

template <typename... Args>
std::string format(const char* fmt, Args... args) {
    char buf[320];
    std::snprintf(buf, sizeof buf, fmt, args...);
    return buf;
}

double median(std::vector<double>* values) {
    auto mid = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
    std::nth_element(values->begin(), mid, values->end());
    return *mid;
}

// Median of the positive steps between one sensor's consecutive timestamps
// in file order [ns]; nullopt with fewer than two samples.
std::optional<int64_t> median_period(const std::vector<LogRecord>& records, Sensor sensor) {
    std::vector<double> steps;
    std::optional<int64_t> last;
    for (const LogRecord& r : records) {
        if (r.sensor != sensor) continue;
        if (last && r.t_ns > *last) {
            steps.push_back(static_cast<double>(time_between(r.t_ns, *last)));
        }
        last = r.t_ns;
    }
    if (steps.empty()) return std::nullopt;
    // INT64_MAX as a double rounds up to 2^63, which no int64 holds.
    const double m = median(&steps);
    return m >= 9223372036854775807.0 ? INT64_MAX : static_cast<int64_t>(m);
}

class Checker {
  public:
    explicit Checker(const std::vector<LogRecord>& records) : records_(records) {}

    CheckReport run() {
        for (const LogRecord& r : records_) ++report_.per_sensor[index_of(r.sensor)];
        check_magnitudes(Sensor::Mag);
        check_rates();
        check_magnitudes(Sensor::Acc);
        check_period();
        check_time();
        check_missing();
        check_finite();
        std::sort(report_.findings.begin(), report_.findings.end(),
                  [](const CheckFinding& a, const CheckFinding& b) { return a.kind < b.kind; });
        return std::move(report_);
    }

  private:
    void add(CheckKind kind, size_t first, size_t count, std::string detail) {
        report_.findings.push_back({kind, first, count, std::move(detail)});
    }

    // Field and acceleration: the median length over the log decides, so
    // that a few odd samples (a magnet, a knock) do not.
    void check_magnitudes(Sensor sensor) {
        const bool field = sensor == Sensor::Mag;
        const double low = field ? kFieldLow : kAccelLow, high = field ? kFieldHigh : kAccelHigh;
        std::vector<double> lengths;
        for (const LogRecord& r : records_) {
            if (r.sensor == sensor && finite(r.v)) lengths.push_back(length(r.v));
        }
        if (lengths.empty()) return;
        const size_t n = lengths.size();
        const double m = median(&lengths);
        if (m >= low && m <= high) return;
        const bool below = m < low;
        size_t first = records_.size(), count = 0;
        for (size_t i = 0; i < records_.size(); ++i) {
            const LogRecord& r = records_[i];
            if (r.sensor != sensor || !finite(r.v)) continue;
            const double l = length(r.v);
            if (below ? l < low : l > high) {
                if (count++ == 0) first = i;
            }
        }
        std::string cause;
        if (field) {
            cause = m == 0.0   ? "it reads zero: is the magnetometer on? (the library refuses "
                                 "all-zero samples)"
                    : m < 0.01 ? "in tesla (1 T = 1e6 uT)? magcal convert --mag-unit T converts it"
                    : below    ? "in gauss (1 G = 100 uT)? magcal convert --mag-unit G converts it"
                    : m > 5000.0
                        ? "in nanotesla (1000 nT = 1 uT)? magcal convert --mag-unit nT converts it"
                        : "in milligauss (10 mG = 1 uT)? magcal convert --mag-unit mG converts it";
            add(CheckKind::FieldUnits, first, count,
                format("field strength implausible for microtesla: median |mag| %.6g over %zu "
                       "sample%s, where the earth's field is 25 to 65 uT (plus the hard-iron "
                       "offset); ",
                       m, n, n == 1 ? "" : "s") +
                    cause);
        } else {
            cause = m == 0.0 ? "it reads zero, and the library processes no mag sample after an "
                               "all-zero acc sample"
                    : m >= 0.5 && m <= 2.0
                        ? "in g (1 g = 9.80665 m/s^2)? magcal convert --acc-unit g converts it"
                        : "is it in another unit, or not an accelerometer?";
            add(CheckKind::AccelUnits, first, count,
                format("acceleration implausible for m/s^2: median |acc| %.6g over %zu sample%s, "
                       "where gravity alone is 9.8 m/s^2; ",
                       m, n, n == 1 ? "" : "s") +
                    cause);
        }
    }

    void check_rates() {
        size_t first = 0, count = 0;
        double top = 0.0;
        for (size_t i = 0; i < records_.size(); ++i) {
            const LogRecord& r = records_[i];
            if (r.sensor != Sensor::Gyro || !finite(r.v)) continue;
            const double l = length(r.v);
            if (l <= kRateMax) continue;
            if (count++ == 0) first = i;
            top = std::max(top, l);
        }
        if (count == 0) return;
        add(CheckKind::RateUnits, first, count,
            format("angular rate up to %.6g rad/s, beyond a phone gyroscope's range (about 35 "
                   "rad/s = 2000 deg/s): in deg/s? magcal convert --gyro-unit deg/s converts it",
                   top));
    }

    void check_period() {
        if (!period_[2]) return;
        const int64_t p = *period_[2];
        if (p >= kPeriodMin && p <= kPeriodMax) return;
        size_t first = 0, count = 0;
        std::optional<int64_t> last;
        for (size_t i = 0; i < records_.size(); ++i) {
            const LogRecord& r = records_[i];
            if (r.sensor != Sensor::Mag) continue;
            if (last && r.t_ns > *last) {
                const int64_t step = time_between(r.t_ns, *last);
                if (step < kPeriodMin || step > kPeriodMax) {
                    if (count++ == 0) first = i;
                }
            }
            last = r.t_ns;
        }
        const char* cause = p > kPeriodMax ? "is the log that sparse, or are the timestamps wrong?"
                            : p >= 1000    ? "in microseconds? magcal convert --time-unit us"
                                           : "in milliseconds? magcal convert --time-unit ms";
        add(CheckKind::TimeUnits, first, count,
            format("mag samples %.6g ns apart (median): implausible for nanosecond timestamps, "
                   "where a magnetometer samples every 1 to 1000 ms; ",
                   static_cast<double>(p)) +
                cause + (p > kPeriodMax ? "" : " converts them"));
    }

    void check_time() {
        int64_t tolerance = 0;
        for (const auto& p : period_) {
            if (p) tolerance = std::max(tolerance, *p);
        }
        std::array<int64_t, 3> gap_limit{};
        for (int s = 0; s < 3; ++s) {
            int64_t periods = 0;
            if (period_[s] && __builtin_mul_overflow(kGapPeriods, *period_[s], &periods)) {
                periods = INT64_MAX;
            }
            gap_limit[s] = std::max(kGapMin, periods);
        }
        std::array<std::optional<size_t>, 3> last;  // index of each sensor's last record
        std::array<bool, 3> in_gap{};
        int64_t newest = 0;
        size_t newest_index = 0, back_first = 0, back_count = 0, gap_first = 0, gap_count = 0;
        int64_t back_by = 0;
        std::string gap_detail;
        for (size_t i = 0; i < records_.size(); ++i) {
            const LogRecord& r = records_[i];
            if (i > 0 && time_between(newest, r.t_ns) > tolerance) {
                if (back_count++ == 0) {
                    back_first = i;
                    back_by = time_between(newest, r.t_ns);
                    back_after_ = newest_index;
                }
            }
            if (i == 0 || r.t_ns > newest) {
                newest = r.t_ns;
                newest_index = i;
            }
            const int me = index_of(r.sensor);
            for (int s = 0; s < 3; ++s) {
                if (s == me || !last[s]) continue;
                const int64_t silent = time_between(r.t_ns, records_[*last[s]].t_ns);
                if (silent <= gap_limit[s] || in_gap[s]) continue;
                in_gap[s] = true;
                if (gap_count++ == 0) {
                    gap_first = i;
                    gap_detail = gap_message(static_cast<Sensor>(s), gap_limit[s], *last[s]);
                }
            }
            last[me] = i;
            in_gap[me] = false;
        }
        if (back_count > 0) {
            add(CheckKind::TimeOrder, back_first, back_count,
                format("timestamp goes back %.6g s, behind the sample of line %d: the log",
                       static_cast<double>(back_by) * 1e-9, records_[back_after_].line) +
                    " is not in time order (sensors written one after another, or an "
                    "unsorted file), and the library gets the samples in file order; sort it "
                    "with magcal convert --log LOG.csv -o SORTED.csv");
        }
        if (gap_count > 0) add(CheckKind::SensorGap, gap_first, gap_count, gap_detail);
    }

    std::string gap_message(Sensor sensor, int64_t limit, size_t last) const {
        const char* name = sensor_name(sensor);
        std::string effect = sensor == Sensor::Mag
                                 ? "the library's outputs are not updated meanwhile"
                                 : std::string("the library keeps using the last ") + name +
                                       " sample for every mag sample meanwhile";
        return format(
                   "no %s sample for more than %.3g s (the last at line %d) while other "
                   "sensors go on: ",
                   name, static_cast<double>(limit) * 1e-9, records_[last].line) +
               effect;
    }

    void check_missing() {
        if (report_.per_sensor[2] == 0) return;
        for (Sensor s : {Sensor::Acc, Sensor::Gyro}) {
            if (report_.per_sensor[index_of(s)] != 0) continue;
            size_t first = 0;
            while (records_[first].sensor != Sensor::Mag) ++first;
            add(CheckKind::MissingSensor, first, report_.per_sensor[2],
                std::string("no ") + sensor_name(s) +
                    " sample in the log: the library processes no mag sample before it has one "
                    "acc and one gyro sample, so it will refuse them all");
            return;
        }
    }

    void check_finite() {
        size_t motion_first = 0, motion_count = 0, field_first = 0, field_count = 0;
        for (size_t i = 0; i < records_.size(); ++i) {
            if (finite(records_[i].v)) continue;
            if (records_[i].sensor == Sensor::Mag) {
                if (field_count++ == 0) field_first = i;
            } else if (motion_count++ == 0) {
                motion_first = i;
            }
        }
        if (motion_count > 0) {
            add(CheckKind::NonFiniteMotion, motion_first, motion_count,
                std::string("non-finite ") + sensor_name(records_[motion_first].sensor) +
                    " value: from the next processed mag sample on, the library's gravity, "
                    "rotation vector, orientation and linear acceleration are NaN for the rest "
                    "of the session (initLib does not clear it) while the accuracy is still "
                    "reported; a host must drop such samples");
        }
        if (field_count > 0) {
            add(CheckKind::NonFiniteField, field_first, field_count,
                "non-finite mag value: the library refuses such a sample and repeats its "
                "previous results");
        }
    }

    const std::vector<LogRecord>& records_;
    CheckReport report_;
    std::array<std::optional<int64_t>, 3> period_{median_period(records_, Sensor::Acc),
                                                  median_period(records_, Sensor::Gyro),
                                                  median_period(records_, Sensor::Mag)};
    size_t back_after_ = 0;
};

}  // namespace

const char* check_kind_name(CheckKind kind) {
    switch (kind) {
        case CheckKind::FieldUnits:
            return "field strength";
        case CheckKind::RateUnits:
            return "angular rate";
        case CheckKind::AccelUnits:
            return "acceleration";
        case CheckKind::TimeUnits:
            return "sample period";
        case CheckKind::TimeOrder:
            return "time order";
        case CheckKind::SensorGap:
            return "sensor gap";
        case CheckKind::MissingSensor:
            return "missing sensor";
        case CheckKind::NonFiniteMotion:
            return "non-finite acc/gyro";
        case CheckKind::NonFiniteField:
            return "non-finite mag";
    }
    return "?";
}

CheckReport check_log(const std::vector<LogRecord>& records) {
    return Checker(records).run();
}

std::string describe_finding(const CheckFinding& finding, const std::string& where, bool as_error) {
    std::string line = where + (as_error ? ": error: " : ": warning: ") + finding.detail;
    if (finding.count > 1) {
        line += " (and " + std::to_string(finding.count - 1) + " more line" +
                (finding.count == 2 ? "" : "s") + " like it)";
    }
    return line;
}

}  // namespace magcal::tool
