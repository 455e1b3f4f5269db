// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal replay against the plug-in itself: the tool runs as a child process
// (the library's state is process-wide), and this process loads a private
// copy of the same plug-in, feeds it the same samples through the host table
// and expects every output column of the tool's CSV bit for bit.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstring>
#include <memory>

#include "magcal/magcal_host.h"
#include "sensor_log.h"
#include "sim/session_simulator.h"
#include "tool_test_support.h"

namespace {

using namespace magcal::tooltest;
using magcal::sim::Sample;
using magcal::sim::Sensor;

constexpr double kDeg = 180.0 / 3.141592653589793;  // degrees per radian

std::string log_text(const std::vector<Sample>& samples) {  // %.9g reads back exactly
    std::string text = "timestamp_ns,sensor,x,y,z\n";
    char buf[200];
    for (const Sample& s : samples) {
        std::snprintf(buf, sizeof buf, "%" PRId64 ",%s,%.9g,%.9g,%.9g\n", s.t_ns,
                      magcal::tool::sensor_name(s.sensor), s.v[0], s.v[1], s.v[2]);
        text += buf;
    }
    return text;
}

// Feeds `samples` to a fresh private copy of the plug-in as a host would
// (initLib, then installing the soft-iron file `softiron`) and expects every
// library column of the tool's results `t` to hold the same bits.
void expect_same_as_table(const ScratchDir& dir, const std::vector<Sample>& samples,
                          const CsvTable& t, const std::string& softiron) {
    const std::string copy = dir.file("libmagcal-copy.so");
    std::filesystem::copy_file(MAGCAL_PLUGIN_PATH, copy);
    const std::unique_ptr<void, int (*)(void*)> lib(dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL),
                                                    dlclose);
    ASSERT_NE(lib, nullptr) << dlerror();
    const auto* api =
        static_cast<const MagLibApiInterface*>(dlsym(lib.get(), "MAG_LIB_API_INTERFACE"));
    const auto read_json =
        reinterpret_cast<decltype(&getJsonCalibration)>(dlsym(lib.get(), "getJsonCalibration"));
    const auto install =
        reinterpret_cast<int32_t (*)(const double*)>(dlsym(lib.get(), "QvGyroCal_config_softiron"));
    ASSERT_TRUE(api && read_json && install);
    api->initLib();
    double m[9];
    ASSERT_EQ(read_json(softiron.c_str(), "qvg", m, 9), 0);
    install(m);
    const QvgGetterFn getters[7] = {
        api->getRotationVector,     api->getOrientation, api->getGravity,    api->getLinearaccel,
        api->getGameRotationVector, api->getGeoMagnetic, api->getVirtualGyro};
    const char* const prefixes[7] = {"rv_",      "",        "gravity_", "linacc_",
                                     "game_rv_", "geomag_", "vgyro_"};
    size_t row = 0;
    for (const Sample& x : samples) {
        const SensorSample s{x.t_ns, x.v[0], x.v[1], x.v[2], 0};
        if (x.sensor != Sensor::Mag) {
            (x.sensor == Sensor::Acc ? api->caliApiSetAccData : api->caliApiSetGyroData)(&s);
            continue;
        }
        ASSERT_LT(row, t.size());
        const auto expect_bits = [&](const std::string& prefix, const float* v) {
            static const char* const kAngles[3] = {"azimuth", "pitch", "roll"};
            for (int k = 0; k < 3; ++k) {
                const std::string column = prefix.empty() ? kAngles[k] : prefix + "xyz"[k];
                const float got = t.f(row, column);
                EXPECT_TRUE(std::isnan(v[k]) ? std::isnan(got) : !std::memcmp(&got, &v[k], 4))
                    << "row " << row << " " << column << ": table " << v[k] << ", tool "
                    << t.text(row, column);
            }
        };
        CalibratedMagResult out{};
        api->doCaliApi(&s, &out);
        EXPECT_EQ(t.d(row, "t_ns"), x.t_ns) << "row " << row;
        EXPECT_EQ(t.d(row, "accuracy"), out.accuracy) << "row " << row;
        expect_bits("mag_", x.v.data());
        expect_bits("cal_", out.field);
        expect_bits("offset_", out.offset);
        for (int g = 0; g < 7; ++g) {
            FusionOutput o{};
            getters[g](&o);
            expect_bits(prefixes[g], o.values);
        }
        ++row;
    }
    EXPECT_EQ(row, t.size());
}

TEST(ToolReplay, OutputsEqualDirectTableCallsBitForBit) {
    // A non-symmetric soft-iron distortion, so that installing S transposed
    // would show.
    ScratchDir dir;
    ToolRun run = run_tool(
        "simulate --scenario figure8 --duration 8 --seed 3 -o @sim.csv --truth @truth.csv "
        "--soft-iron 1.2,0.1,0,-0.05,0.9,0.02,0,0.03,1.1 --softiron-out @soft.json "
        "--offset 1.5,-2,3 --jitter 0.002 --gyro-bias 0.01,0,0",
        dir);
    ASSERT_EQ(run.status, 0) << run.err;
    magcal::sim::Config c;
    c.duration_s = 8.0;
    c.seed = 3;
    c.soft_iron = {1.2, 0.1, 0.0, -0.05, 0.9, 0.02, 0.0, 0.03, 1.1};
    c.hard_iron_ut = {1.5, -2.0, 3.0};
    c.jitter_s = 0.002;
    c.gyro_bias = {0.01, 0.0, 0.0};
    const magcal::sim::Session sim = magcal::sim::simulate(c);
    // Awkward records the tool must pass through unchanged: row r is tick
    // r - 1's mag up to tick 199, the extras are rows 201-204.
    std::vector<Sample> samples = sim.samples;
    samples.insert(samples.begin(), {samples[0].t_ns - 5'000'000, Sensor::Mag, {10, 20, 30}});
    const int64_t t200 = samples[601].t_ns;
    const std::vector<Sample> extra{
        {sim.truth[185].t_ns, Sensor::Mag, {30, -20, 70}},  // back in time
        {t200 - 4, Sensor::Mag, {0, 0, 0}},                 // zero field
        {t200 - 3, Sensor::Mag, {5000, 0, 0}},              // beyond 4914 uT
        {t200 - 2, Sensor::Acc, {0, 0, 0}},                 // zero gravity...
        {t200 - 1, Sensor::Mag, {30, -20, 70}},             // ...refuses this
        {t200 - 1, Sensor::Acc, {0.0f, 0.5f, 9.7f}}};
    samples.insert(samples.begin() + 601, extra.begin(), extra.end());
    write_text(dir.file("log.csv"), log_text(samples));
    run = run_tool(
        "replay @log.csv -o @results.csv --truth @truth.csv --softiron @soft.json "
        "--plugin " MAGCAL_PLUGIN_PATH,
        dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("mag processed      401, refused 4"), std::string::npos) << run.out;
    const CsvTable t(dir.file("results.csv"));
    expect_same_as_table(dir, samples, t, dir.file("soft.json"));

    // A^-1, worked out by hand. The first processed sample is neither
    // offset-corrected nor averaged yet: its calibrated field is A^-1 raw.
    // The truth offset is given in the corrected frame, A^-1 (1.5, -2, 3).
    const double inv_a[3][3] = {{0.82949076946294, -0.09222153288955, 0.00167675514345},
                                {0.04611076644478, 1.10665839467463, -0.02012106172136},
                                {-0.00125756635758, -0.03018159258204, 0.90963966531967}};
    double offset[3];
    for (int i = 0; i < 3; ++i) {
        const std::string cal = std::string("cal_") + "xyz"[i];
        const double expected = inv_a[i][0] * t.f(1, "mag_x") + inv_a[i][1] * t.f(1, "mag_y") +
                                inv_a[i][2] * t.f(1, "mag_z");
        EXPECT_NEAR(t.f(1, cal), expected, 1e-5 * std::fabs(expected) + 1e-5) << cal;
        offset[i] = inv_a[i][0] * 1.5 - inv_a[i][1] * 2.0 + inv_a[i][2] * 3.0;
    }
    // The parameter file holds S = (A^-1)^T in plain decimals, nine digits
    // after the point (the library's reader misreads exponents).
    std::istringstream json(slurp(dir.file("soft.json")));
    std::string number;
    std::getline(json, number, '[');
    for (int k = 0; k < 9 && std::getline(json, number, k < 8 ? ',' : ']'); ++k) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "%.9f", inv_a[k % 3][k / 3]);
        EXPECT_EQ(number.substr(number.find_first_not_of(" \n")), expected) << k;
    }
    // The tool's own columns, from the (now proven) library outputs.
    for (size_t row = 0; row < t.size(); ++row) {
        const bool refused = row == 0 || (row >= 202 && row <= 204);
        EXPECT_EQ(t.d(row, "processed"), refused ? 0 : 1) << row;
        // Heading of device +y in the rotation vector's attitude, by rotating
        // the axis: q (0, 0, 1, 0) q* with q = (w, x, y, z). This agrees with
        // the tool's closed form only as far as the float q is of unit length.
        const double x = t.f(row, "rv_x"), y = t.f(row, "rv_y"), z = t.f(row, "rv_z");
        const double w = std::sqrt(std::max(0.0, 1.0 - x * x - y * y - z * z));
        const double pw = -y, px = -z, py = w, pz = x;  // q (0, 0, 1, 0)
        const double east = -pw * x + px * w - py * z + pz * y;
        const double north = -pw * y + px * z + py * w - pz * x;
        const double fused = t.d(row, "fused_heading");
        EXPECT_TRUE(fused >= 0.0 && fused < 360.0) << row << ": " << fused;
        EXPECT_NEAR(wrap180(fused - std::atan2(east, north) * kDeg), 0.0, 1e-4) << row;
        // Truth rows join on the timestamp, also out of step (row 201); the
        // refused rows are also the ones off the tick grid, without truth.
        if (refused) {
            EXPECT_EQ(t.text(row, "offset_error") + t.text(row, "fused_heading_err"), "") << row;
            continue;
        }
        const double heading = sim.truth[row == 201 ? 185 : row - (row > 201 ? 5 : 1)].heading_deg;
        double e2 = 0.0;
        for (int k = 0; k < 3; ++k) {
            const std::string axis(1, "xyz"[k]);
            EXPECT_NEAR(t.d(row, "truth_offset_" + axis), offset[k], 1e-12) << row;
            e2 += std::pow(t.f(row, "offset_" + axis) - t.d(row, "truth_offset_" + axis), 2);
        }
        EXPECT_EQ(t.d(row, "truth_heading"), heading) << row;
        EXPECT_NEAR(t.d(row, "offset_error"), std::sqrt(e2), 1e-9) << row;
        EXPECT_NEAR(t.d(row, "heading_error"), wrap180(t.f(row, "azimuth") - heading), 1e-9);
        EXPECT_NEAR(t.d(row, "fused_heading_err"), wrap180(fused - heading), 1e-9);
    }
}

TEST(ToolReplay, StateFileCarriesTheCalibrationIntoTheNextRun) {
    ScratchDir dir;
    const auto tool = [&](const std::string& args) {
        const ToolRun run = run_tool(args, dir);
        EXPECT_EQ(run.status, 0) << args << "\n" << run.err;
    };
    // Run 1 learns a calibration by waving the phone and saves it.
    tool("simulate --scenario figure8 --duration 40 --seed 5 -o @wave.csv");
    tool("replay @wave.csv -o @wave-results.csv --state @state.txt");
    const CsvTable wave(dir.file("wave-results.csv"));
    ASSERT_EQ(wave.size(), 2000u);
    float saved[3];
    double r2 = 0.0;
    for (int k = 0; k < 3; ++k) {
        saved[k] = wave.f(1999, std::string("offset_") + "xyz"[k]);
        r2 += std::pow(wave.f(1999, std::string("cal_") + "xyz"[k]), 2);
    }
    char expected[400];
    std::snprintf(expected, sizeof expected, "offset %.9g %.9g %.9g\naccuracy 3\nradius %.17g\n",
                  saved[0], saved[1], saved[2], std::sqrt(r2));
    EXPECT_EQ(wave.d(1999, "accuracy"), 3);
    EXPECT_NE(slurp(dir.file("state.txt")).find(expected), std::string::npos) << expected;
    // Something was learnt, or the round trip below would prove nothing.
    EXPECT_GT(std::fabs(saved[0]) + std::fabs(saved[1]) + std::fabs(saved[2]), 10.0f);

    // Run 2 turns the phone flat on the table with the saved state. Row 0
    // seeds the filters from the start-up state; from row 1 on the restored
    // offset is published, with accuracy 3, until the turns teach the
    // library more (2 s in).
    tool("simulate --scenario flat-turns --duration 10 --seed 6 -o @turns.csv --truth @truth.csv");
    tool("replay @turns.csv --truth @truth.csv -o @restored.csv --state @state.txt");
    const CsvTable restored(dir.file("restored.csv"));
    ASSERT_EQ(restored.size(), 500u);
    for (size_t r = 1; r < 100; ++r) {
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(restored.f(r, std::string("offset_") + "xyz"[k]), saved[k]) << r;
        EXPECT_EQ(restored.d(r, "accuracy"), 3) << "row " << r;
    }
    // Under the restored calibration the fused heading follows the truth: a
    // compass with 0.3 uT of noise on the 22.5 uT horizontal field scatters
    // by about 1 deg; a wrong sign or axis would be off by tens of degrees.
    double sq = 0.0, turned = 0.0;
    for (size_t r = 1; r < restored.size(); ++r) {
        sq += std::pow(restored.d(r, "fused_heading_err"), 2);
        turned +=
            std::fabs(wrap180(restored.d(r, "truth_heading") - restored.d(r - 1, "truth_heading")));
    }
    EXPECT_GT(turned, 180.0);  // it did turn
    EXPECT_LT(std::sqrt(sq / 499.0), 3.0);
}

}  // namespace
