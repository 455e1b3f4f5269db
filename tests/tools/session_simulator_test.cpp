// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Physical consistency of the session simulator: the emitted sensors are
// compared with physics computed here (the rotation written out from the
// quaternion and a gyro integrator of our own). The simulator's soft-iron
// inverse is used only to undo its distortion, so a wrong inverse shows as a
// wrong field.
#include "sim/session_simulator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace {

using namespace magcal::sim;
using V3 = std::array<double, 3>;
using Q4 = std::array<double, 4>;

constexpr double kG = 9.80665;  // standard gravity [m/s^2]
constexpr double kPi = 3.14159265358979323846;
const Scenario kAll[] = {Scenario::Figure8, Scenario::FlatTurns, Scenario::Still,
                         Scenario::Walk,    Scenario::Magnet,    Scenario::Flip};

Config quiet(Scenario s, double rate, double duration) {
    Config c;
    c.scenario = s;
    c.rate_hz = rate;
    c.duration_s = duration;
    c.gyro_noise = c.acc_noise = c.mag_noise = 0.0;
    return c;
}

V3 vec(const std::array<float, 3>& v) {
    return {v[0], v[1], v[2]};
}
double norm(const V3& a) {
    return std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
}

// The world-from-body rotation matrix of the unit quaternion (w, x, y, z).
std::array<V3, 3> rotation(const Q4& q) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    return {{{w * w + x * x - y * y - z * z, 2 * (x * y - w * z), 2 * (x * z + w * y)},
             {2 * (x * y + w * z), w * w - x * x + y * y - z * z, 2 * (y * z - w * x)},
             {2 * (x * z - w * y), 2 * (y * z + w * x), w * w - x * x - y * y + z * z}}};
}

// R^T v: a world vector seen in body axes.
V3 to_body(const Q4& q, const V3& v) {
    const auto r = rotation(q);
    V3 out;
    for (int i = 0; i < 3; ++i) out[i] = r[0][i] * v[0] + r[1][i] * v[1] + r[2][i] * v[2];
    return out;
}

TEST(SessionSimulator, NamesScenariosAndRejectsBadConfigs) {
    // (Sample order and timestamps are pinned by the tests below.)
    for (Scenario sc : kAll) {
        Scenario back = sc == Scenario::Still ? Scenario::Flip : Scenario::Still;
        EXPECT_TRUE(parse_scenario(scenario_name(sc), &back) && back == sc) << scenario_name(sc);
    }
    Scenario unknown = Scenario::Flip;
    EXPECT_FALSE(parse_scenario("figure-8", &unknown));
    EXPECT_EQ(unknown, Scenario::Flip);
    for (double rate : {0.0, double{NAN}})
        EXPECT_THROW(simulate(quiet(Scenario::Still, rate, 1.0)), std::invalid_argument);
    EXPECT_THROW(simulate(quiet(Scenario::Still, 50.0, -1.0)), std::invalid_argument);
}

TEST(SessionSimulator, IntegratingTheGyroscopeReproducesTheTrueAttitude) {
    // Our own integrator: exponential map of the mean of two successive
    // rates, after removing the configured bias.
    for (Scenario sc : kAll) {
        Config c = quiet(sc, 2000.0, 8.0);
        c.gyro_bias = {0.01, -0.02, 0.03};
        const Session s = simulate(c);
        Q4 q = s.truth[0].q_world_from_body;
        double worst = 0.0, turned = 0.0;
        for (size_t k = 1; k < s.truth.size(); ++k) {
            const V3 g0 = vec(s.samples[3 * k - 2].v), g1 = vec(s.samples[3 * k + 1].v);
            V3 w;
            for (int i = 0; i < 3; ++i) w[i] = 0.5 * (g0[i] + g1[i]) - c.gyro_bias[i];
            const double angle = norm(w) * (s.truth[k].t_ns - s.truth[k - 1].t_ns) * 1e-9;
            turned += angle;
            if (angle > 0.0) {
                const double h = std::sin(0.5 * angle) / norm(w);
                const Q4 p{std::cos(0.5 * angle), w[0] * h, w[1] * h, w[2] * h};
                q = {q[0] * p[0] - q[1] * p[1] - q[2] * p[2] - q[3] * p[3],
                     q[0] * p[1] + q[1] * p[0] + q[2] * p[3] - q[3] * p[2],
                     q[0] * p[2] - q[1] * p[3] + q[2] * p[0] + q[3] * p[1],
                     q[0] * p[3] + q[1] * p[2] - q[2] * p[1] + q[3] * p[0]};
            }
            const Q4& t = s.truth[k].q_world_from_body;
            const double d = std::fabs(q[0] * t[0] + q[1] * t[1] + q[2] * t[2] + q[3] * t[3]);
            worst = std::max(worst, 2.0 * std::acos(std::min(1.0, d)));
        }
        EXPECT_LT(worst, 2e-5) << scenario_name(sc);
        EXPECT_TRUE(sc == Scenario::Still || turned > 1.0) << scenario_name(sc);
    }
}

TEST(SessionSimulator, SensorsSeeGravityAndFieldInTheTrueAttitude) {
    const std::array<double, 9> a{1.10, 0.05, -0.02, 0.03, 0.95, 0.04, -0.01, 0.02, 1.05};
    std::array<double, 9> s_corr;
    std::array<double, 3> offset;
    ASSERT_TRUE(softiron_correction(a, &s_corr) && corrected_offset(a, {25, -35, 40}, &offset));
    EXPECT_FALSE(softiron_correction({1, 2, 3, 2, 4, 6, 0, 0, 1}, &s_corr));  // singular
    const double dip = 60.0 * kPi / 180.0;
    for (Scenario sc : {Scenario::Figure8, Scenario::Flip, Scenario::Magnet, Scenario::Walk}) {
        Config c = quiet(sc, 50.0, 60.0);
        c.soft_iron = a;
        const Session s = simulate(c);
        double peak = 0.0, acc_off_g = 0.0;
        for (size_t k = 0; k < s.truth.size(); ++k) {
            const TruthRow& truth = s.truth[k];
            // Flips only rotate the phone, so the accelerometer reads the body
            // view of (0, 0, g); walking adds the body's bob and surge.
            const V3 acc = vec(s.samples[3 * k].v);
            const V3 gravity = to_body(truth.q_world_from_body, {0.0, 0.0, kG});
            for (int i = 0; sc == Scenario::Flip && i < 3; ++i)
                ASSERT_NEAR(acc[i], gravity[i], 2e-5) << "tick " << k;
            acc_off_g = std::max(acc_off_g, std::fabs(norm(acc) - kG));
            // The library's correction: the raw field as a row vector times S.
            const V3 raw = vec(s.samples[3 * k + 2].v);
            V3 f;
            for (int i = 0; i < 3; ++i)
                f[i] = raw[0] * s_corr[i] + raw[1] * s_corr[3 + i] + raw[2] * s_corr[6 + i] -
                       offset[i];
            ASSERT_NEAR(norm(f), truth.field_ut, 2e-4) << scenario_name(sc) << " tick " << k;
            peak = std::max(peak, truth.field_ut);
            // The heading is the compass azimuth of body +y: the east and
            // north parts of R's second column.
            const auto r = rotation(truth.q_world_from_body);
            const double heading = std::atan2(r[0][1], r[1][1]) * 180.0 / kPi;
            const double error = std::remainder(heading - truth.heading_deg, 360.0);
            ASSERT_TRUE(std::hypot(r[0][1], r[1][1]) < 0.1 || std::fabs(error) < 1e-9) << k;
            ASSERT_TRUE(truth.heading_deg >= 0.0 && truth.heading_deg < 360.0);
            if (sc == Scenario::Magnet) continue;
            ASSERT_EQ(truth.field_ut, 45.0);
            const V3 expected = to_body(truth.q_world_from_body,
                                        {0.0, 45.0 * std::cos(dip), -45.0 * std::sin(dip)});
            for (int i = 0; i < 3; ++i) ASSERT_NEAR(f[i], expected[i], 2e-4) << "tick " << k;
        }
        // A magnet adds tens to hundreds of uT for a while, then leaves.
        EXPECT_TRUE(sc != Scenario::Magnet || (peak > 100.0 && peak < 250.0)) << peak;
        EXPECT_EQ(s.truth.back().field_ut, 45.0);
        EXPECT_TRUE(sc != Scenario::Walk || acc_off_g > 0.5) << acc_off_g;
    }
}

TEST(SessionSimulator, SameSeedSameSessionAndNoiseOfTheConfiguredSpread) {
    Config c;
    c.scenario = Scenario::Still;
    c.duration_s = 100.0;
    c.gyro_noise = 0.01;
    c.jitter_s = 0.001;
    c.start_ns = 5'000'000'000;
    const Session s = simulate(c), again = simulate(c);
    ASSERT_EQ(s.samples.size(), again.samples.size());
    EXPECT_EQ(
        0, std::memcmp(s.samples.data(), again.samples.data(), s.samples.size() * sizeof(Sample)));
    c.seed = 2;
    const Session other = simulate(c);
    size_t differing = 0;
    for (size_t i = 0; i < s.samples.size(); ++i) differing += s.samples[i].v != other.samples[i].v;
    EXPECT_GT(differing, s.samples.size() * 9 / 10);

    // 5000 still ticks: the gyro scattered by 0.01 rad/s around 0, the
    // timestamps by 1 ms around the 20 ms grid from the start.
    double gyro = 0.0, gyro2 = 0.0, jitter2 = 0.0;
    for (size_t k = 0; k < s.truth.size(); ++k) {
        const V3 g = vec(s.samples[3 * k + 1].v);
        gyro += (g[0] + g[1] + g[2]) / 3.0;
        gyro2 += std::pow(norm(g), 2) / 3.0;
        jitter2 += std::pow((s.truth[k].t_ns - c.start_ns - int64_t(k) * 20'000'000) * 1e-9, 2);
    }
    EXPECT_NEAR(gyro / 5000.0, 0.0, 0.0003);
    EXPECT_NEAR(std::sqrt(gyro2 / 5000.0), 0.01, 0.0003);
    EXPECT_NEAR(std::sqrt(jitter2 / 5000.0), 0.001, 0.00003);
}

}  // namespace
