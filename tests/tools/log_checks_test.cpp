// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The input checks against the mistakes people make when they record a log
// (units, order, a sensor that stops, values the library cannot survive),
// and against real and simulated sessions, which must pass without a word.
#include "log_checks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "sensor_log.h"
#include "sim/session_simulator.h"

namespace {

using magcal::sim::Sensor;
using namespace magcal::tool;

std::vector<LogRecord> session(magcal::sim::Scenario scenario, double seconds = 20.0) {
    magcal::sim::Config c;
    c.scenario = scenario;
    c.duration_s = seconds;
    std::vector<LogRecord> log;
    int line = 2;
    for (const auto& s : magcal::sim::simulate(c).samples)
        log.push_back({s.t_ns, s.sensor, s.v, 0, line++});
    return log;
}

// The log with the values of `sensor` in another unit.
std::vector<LogRecord> scaled(std::vector<LogRecord> log, Sensor sensor, double factor) {
    for (LogRecord& r : log)
        for (float& v : r.v) v = r.sensor == sensor ? static_cast<float>(v * factor) : v;
    return log;
}

std::vector<CheckKind> kinds(const CheckReport& report) {
    std::vector<CheckKind> out;
    for (const CheckFinding& f : report.findings) out.push_back(f.kind);
    return out;
}

TEST(LogChecks, SimulatedSessionsOfEveryScenarioAndRealRecordingsPassWithoutWarnings) {
    using magcal::sim::Scenario;
    for (Scenario s : {Scenario::Figure8, Scenario::FlatTurns, Scenario::Still, Scenario::Walk,
                       Scenario::Magnet, Scenario::Flip}) {
        const CheckReport r = check_log(session(s));
        EXPECT_TRUE(r.findings.empty())
            << magcal::sim::scenario_name(s) << ": " << r.findings[0].detail;
        EXPECT_EQ(r.per_sensor, (std::array<size_t, 3>{1000, 1000, 1000}));
    }
    for (const char* trial :
         {"05_undisturbed_slow_rotation_with_breaks_B", "34_disturbed_attached_magnet_3cm"}) {
        const CheckReport r = check_log(
            read_sensor_log(std::string(MAGCAL_DATA_DIR) + "/broad/" + trial + ".csv.gz"));
        EXPECT_TRUE(r.findings.empty()) << trial << ": " << r.findings[0].detail;
    }
}

TEST(LogChecks, UnitMistakesAreNamedWithTheLikelyUnitAndTheFirstLine) {
    const std::vector<LogRecord> good = session(magcal::sim::Scenario::Figure8);
    struct Case {
        Sensor sensor;
        double factor;
        CheckKind kind;
        const char* cause;  // in the detail
    };
    const Case cases[] = {
        {Sensor::Mag, 0.01, CheckKind::FieldUnits, "--mag-unit G"},
        {Sensor::Mag, 1e-6, CheckKind::FieldUnits, "--mag-unit T"},
        {Sensor::Mag, 1000.0, CheckKind::FieldUnits, "--mag-unit nT"},
        {Sensor::Mag, 10.0, CheckKind::FieldUnits, "--mag-unit mG"},
        {Sensor::Gyro, 180.0 / 3.141592653589793, CheckKind::RateUnits, "--gyro-unit deg/s"},
        {Sensor::Acc, 1.0 / 9.80665, CheckKind::AccelUnits, "--acc-unit g"},
    };
    for (const Case& c : cases) {
        const std::vector<LogRecord> log = scaled(good, c.sensor, c.factor);
        const CheckReport r = check_log(log);
        ASSERT_EQ(kinds(r), std::vector<CheckKind>{c.kind}) << c.cause;
        const CheckFinding& f = r.findings[0];
        EXPECT_NE(f.detail.find(c.cause), std::string::npos) << f.detail;
        EXPECT_EQ(log[f.first].sensor, c.sensor) << c.cause;
        // Units are wrong everywhere, but only what no sensor in the right
        // unit could read counts: not a still start's rates, nor a field
        // that the offset happens to cancel.
        if (c.kind == CheckKind::RateUnits || c.factor == 10.0) {
            EXPECT_GT(f.count, 500u);
            EXPECT_LT(f.count, 1000u);
        } else {
            EXPECT_EQ(f.count, 1000u) << c.cause;
            EXPECT_EQ(f.first, static_cast<size_t>(c.sensor == Sensor::Acc ? 0 : 2)) << c.cause;
        }
    }
    // A magnet near the phone for a while does not make the field "wrong".
    std::vector<LogRecord> magnet = good;
    for (size_t i = 2; i < 900; i += 3) magnet[i].v[0] += 600.0f;
    EXPECT_TRUE(check_log(magnet).findings.empty());
}

TEST(LogChecks, TimestampUnitsOrderAndGaps) {
    const std::vector<LogRecord> good = session(magcal::sim::Scenario::Figure8);
    for (const auto& [divisor, unit] :
         {std::pair{1000, "--time-unit us"}, {1000000, "--time-unit ms"}}) {
        std::vector<LogRecord> log = good;
        for (LogRecord& r : log) r.t_ns /= divisor;
        const CheckReport r = check_log(log);
        ASSERT_EQ(kinds(r), std::vector<CheckKind>{CheckKind::TimeUnits}) << unit;
        EXPECT_NE(r.findings[0].detail.find(unit), std::string::npos) << r.findings[0].detail;
    }

    // Sensors written one after another: every gyro and mag record more than
    // a sample period (20 ms) behind the newest acc sample goes back, and the
    // first gyro record is where it shows.
    std::vector<LogRecord> concatenated;
    for (Sensor s : {Sensor::Acc, Sensor::Gyro, Sensor::Mag}) {
        for (const LogRecord& r : good) {
            if (r.sensor == s) concatenated.push_back(r);
        }
    }
    CheckReport r = check_log(concatenated);
    ASSERT_EQ(kinds(r), std::vector<CheckKind>{CheckKind::TimeOrder});
    EXPECT_EQ(r.findings[0].first, 1000u);
    EXPECT_EQ(r.findings[0].count, 2u * 998u);
    EXPECT_NE(r.findings[0].detail.find("magcal convert --log"), std::string::npos);

    // Jitter of less than a sample period between sensors is normal.
    std::vector<LogRecord> jittered = good;
    for (size_t i = 0; i < jittered.size(); i += 3) jittered[i].t_ns += 15000000;  // acc 15 ms late
    EXPECT_TRUE(check_log(jittered).findings.empty());

    // The gyroscope stops at 10 s while the others go on: reported once, at
    // the first record more than 0.5 s after its last sample.
    std::vector<LogRecord> stopped;
    for (const LogRecord& r : good) {
        if (!(r.sensor == Sensor::Gyro && r.t_ns > 11000000000)) stopped.push_back(r);
    }
    r = check_log(stopped);
    ASSERT_EQ(kinds(r), std::vector<CheckKind>{CheckKind::SensorGap});
    EXPECT_EQ(r.findings[0].count, 1u);
    EXPECT_GT(stopped[r.findings[0].first].t_ns, int64_t{11500000000});
    EXPECT_LT(stopped[r.findings[0].first].t_ns, int64_t{11540000001});
    EXPECT_NE(r.findings[0].detail.find("no gyro sample"), std::string::npos);
}

TEST(LogChecks, MissingSensorAndNonFiniteValues) {
    const std::vector<LogRecord> good = session(magcal::sim::Scenario::Figure8, 4.0);
    std::vector<LogRecord> no_gyro;
    for (const LogRecord& r : good) {
        if (r.sensor != Sensor::Gyro) no_gyro.push_back(r);
    }
    CheckReport r = check_log(no_gyro);
    ASSERT_EQ(kinds(r), std::vector<CheckKind>{CheckKind::MissingSensor});
    EXPECT_NE(r.findings[0].detail.find("no gyro sample"), std::string::npos);
    EXPECT_EQ(r.findings[0].count, 200u);  // every mag sample is refused

    std::vector<LogRecord> bad = good;
    bad[31].v[1] = std::numeric_limits<float>::quiet_NaN();  // gyro
    bad[65].v[2] = std::numeric_limits<float>::infinity();   // mag
    bad[90].v[0] = -std::numeric_limits<float>::infinity();  // acc
    r = check_log(bad);
    ASSERT_EQ(kinds(r),
              (std::vector<CheckKind>{CheckKind::NonFiniteMotion, CheckKind::NonFiniteField}));
    EXPECT_EQ(r.findings[0].first, 31u);
    EXPECT_EQ(r.findings[0].count, 2u);
    EXPECT_NE(r.findings[0].detail.find("non-finite gyro"), std::string::npos);
    EXPECT_EQ(r.findings[1].first, 65u);
    EXPECT_EQ(r.findings[1].count, 1u);

    EXPECT_EQ(describe_finding(r.findings[0], "log.csv:33", false),
              "log.csv:33: warning: " + r.findings[0].detail + " (and 1 more line like it)");
    EXPECT_EQ(describe_finding(r.findings[1], "log.csv:66", true),
              "log.csv:66: error: " + r.findings[1].detail);
}

}  // namespace
