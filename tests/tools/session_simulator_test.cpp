// Physical consistency of the session simulator: every check compares the
// emitted sensors with physics computed independently here (rotation matrices
// written out from the quaternion, a tilt-compensated compass, a gyro
// integrator of our own), never with the simulator's own helpers.
#include "sim/session_simulator.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace {

using magcal::sim::Config;
using magcal::sim::Scenario;
using magcal::sim::Sensor;
using magcal::sim::Session;
using V3 = std::array<double, 3>;
using Q4 = std::array<double, 4>;

constexpr double kG = 9.80665;
constexpr double kPi = 3.14159265358979323846;
const Scenario kAll[] = {Scenario::Figure8, Scenario::FlatTurns, Scenario::Still,
                         Scenario::Walk,    Scenario::Magnet,    Scenario::Flip};

Config quiet(Scenario s, double rate, double duration) {
    Config c;
    c.scenario = s;
    c.rate_hz = rate;
    c.duration_s = duration;
    c.gyro_noise = 0.0;
    c.acc_noise = 0.0;
    c.mag_noise = 0.0;
    return c;
}

V3 vec(const std::array<float, 3>& v) {
    return {v[0], v[1], v[2]};
}
double dot3(const V3& a, const V3& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
double len(const V3& a) {
    return std::sqrt(dot3(a, a));
}
V3 cross3(const V3& a, const V3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
V3 unit(const V3& a) {
    const double n = len(a);
    return {a[0] / n, a[1] / n, a[2] / n};
}

// World-from-body rotation matrix of a unit quaternion (w, x, y, z).
std::array<V3, 3> matrix_of(const Q4& q) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    return {{{w * w + x * x - y * y - z * z, 2 * (x * y - w * z), 2 * (x * z + w * y)},
             {2 * (x * y + w * z), w * w - x * x + y * y - z * z, 2 * (y * z - w * x)},
             {2 * (x * z - w * y), 2 * (y * z + w * x), w * w - x * x - y * y + z * z}}};
}

// R^T v: a world vector seen in body axes.
V3 to_body(const Q4& q, const V3& v) {
    const auto r = matrix_of(q);
    return {r[0][0] * v[0] + r[1][0] * v[1] + r[2][0] * v[2],
            r[0][1] * v[0] + r[1][1] * v[1] + r[2][1] * v[2],
            r[0][2] * v[0] + r[1][2] * v[1] + r[2][2] * v[2]};
}

Q4 mul(const Q4& p, const Q4& q) {
    return {p[0] * q[0] - p[1] * q[1] - p[2] * q[2] - p[3] * q[3],
            p[0] * q[1] + p[1] * q[0] + p[2] * q[3] - p[3] * q[2],
            p[0] * q[2] - p[1] * q[3] + p[2] * q[0] + p[3] * q[1],
            p[0] * q[3] + p[1] * q[2] - p[2] * q[1] + p[3] * q[0]};
}

double angle_between(const Q4& a, const Q4& b) {
    const double d = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3]);
    return 2.0 * std::acos(std::min(1.0, d));
}

double wrap180(double deg) {
    double d = std::fmod(deg, 360.0);
    if (d > 180.0) d -= 360.0;
    if (d < -180.0) d += 360.0;
    return d;
}

TEST(SessionSimulator, EmitsOneAccGyroMagTriplePerTickAndOneTruthRowPerMag) {
    Config c = quiet(Scenario::Walk, 50.0, 2.0);
    c.start_ns = 5'000'000'000;
    const Session s = magcal::sim::simulate(c);
    ASSERT_EQ(s.samples.size(), 300u);
    ASSERT_EQ(s.truth.size(), 100u);
    for (size_t k = 0; k < 100; ++k) {
        const int64_t t = 5'000'000'000 + static_cast<int64_t>(k) * 20'000'000;
        EXPECT_EQ(s.samples[3 * k].sensor, Sensor::Acc);
        EXPECT_EQ(s.samples[3 * k + 1].sensor, Sensor::Gyro);
        EXPECT_EQ(s.samples[3 * k + 2].sensor, Sensor::Mag);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(s.samples[3 * k + i].t_ns, t);
        EXPECT_EQ(s.truth[k].t_ns, t);
        const double h = s.truth[k].heading_deg;
        EXPECT_TRUE(h >= 0.0 && h < 360.0) << h;
    }

    for (Scenario sc : kAll) {
        Scenario back = Scenario::Still;
        ASSERT_TRUE(magcal::sim::parse_scenario(magcal::sim::scenario_name(sc), &back));
        EXPECT_EQ(back, sc);
    }
    Scenario untouched = Scenario::Flip;
    EXPECT_FALSE(magcal::sim::parse_scenario("figure-8", &untouched));
    EXPECT_EQ(untouched, Scenario::Flip);
    EXPECT_STREQ(magcal::sim::scenario_name(Scenario::FlatTurns), "flat-turns");

    EXPECT_THROW(magcal::sim::simulate(quiet(Scenario::Still, 0.0, 1.0)), std::invalid_argument);
    EXPECT_THROW(magcal::sim::simulate(quiet(Scenario::Still, NAN, 1.0)), std::invalid_argument);
    EXPECT_THROW(magcal::sim::simulate(quiet(Scenario::Still, 50.0, -1.0)), std::invalid_argument);
    EXPECT_TRUE(magcal::sim::simulate(quiet(Scenario::Still, 50.0, 0.0)).samples.empty());
}

TEST(SessionSimulator, AccelerometerReadsGravityInTheBodyFrame) {
    // Flat on a table: the body z axis is up, so the reading is (0, 0, +g).
    const Session still = magcal::sim::simulate(quiet(Scenario::Still, 50.0, 1.0));
    for (size_t i = 0; i < still.samples.size(); i += 3) {
        const V3 a = vec(still.samples[i].v);
        EXPECT_NEAR(a[0], 0.0, 1e-5);
        EXPECT_NEAR(a[1], 0.0, 1e-5);
        EXPECT_NEAR(a[2], kG, 1e-5);
    }

    // Flips only rotate the phone: at every instant the reading is the body
    // view of (0, 0, g); in the pause after the first flip about x it lies
    // face down and reads (0, 0, -g).
    const Session flip = magcal::sim::simulate(quiet(Scenario::Flip, 100.0, 18.0));
    for (size_t k = 0; k < flip.truth.size(); ++k) {
        const V3 a = vec(flip.samples[3 * k].v);
        const V3 expected = to_body(flip.truth[k].q_world_from_body, {0.0, 0.0, kG});
        for (int i = 0; i < 3; ++i) ASSERT_NEAR(a[i], expected[i], 2e-5) << "tick " << k;
    }
    const V3 face_down = vec(flip.samples[3 * 500].v);  // t = 5 s
    EXPECT_NEAR(face_down[0], 0.0, 1e-5);
    EXPECT_NEAR(face_down[1], 0.0, 1e-5);
    EXPECT_NEAR(face_down[2], -kG, 1e-5);

    // Walking adds the body's own acceleration on top of gravity, which
    // averages out over whole steps but not sample by sample.
    const Session walk = magcal::sim::simulate(quiet(Scenario::Walk, 100.0, 6.0));
    double largest = 0.0;
    for (size_t k = 200; k < walk.truth.size(); ++k) {
        const V3 a = vec(walk.samples[3 * k].v);
        largest = std::max(largest, std::fabs(len(a) - kG));
    }
    EXPECT_GT(largest, 0.5);
}

TEST(SessionSimulator, IntegratingTheGyroscopeReproducesTheTrueAttitude) {
    // Our own integrator: exponential map of the mean of two successive rates.
    for (Scenario sc : kAll) {
        const Session s = magcal::sim::simulate(quiet(sc, 2000.0, 8.0));
        Q4 q = s.truth[0].q_world_from_body;
        double worst = 0.0, turned = 0.0;
        for (size_t k = 1; k < s.truth.size(); ++k) {
            const V3 g0 = vec(s.samples[3 * (k - 1) + 1].v);
            const V3 g1 = vec(s.samples[3 * k + 1].v);
            const double dt = (s.truth[k].t_ns - s.truth[k - 1].t_ns) * 1e-9;
            const V3 w{0.5 * (g0[0] + g1[0]), 0.5 * (g0[1] + g1[1]), 0.5 * (g0[2] + g1[2])};
            const double angle = len(w) * dt;
            turned += angle;
            if (angle > 0.0) {
                const double s2 = std::sin(0.5 * angle) / len(w);
                q = mul(q, {std::cos(0.5 * angle), w[0] * s2, w[1] * s2, w[2] * s2});
            }
            worst = std::max(worst, angle_between(q, s.truth[k].q_world_from_body));
        }
        EXPECT_LT(worst, 2e-5) << magcal::sim::scenario_name(sc);
        if (sc != Scenario::Still) {
            EXPECT_GT(turned, 1.0) << magcal::sim::scenario_name(sc);
        }
    }

    // The gyroscope bias is added to the true rate, nothing else.
    Config biased = quiet(Scenario::FlatTurns, 50.0, 6.0);
    biased.gyro_bias = {0.01, -0.02, 0.03};
    const Session plain = magcal::sim::simulate(quiet(Scenario::FlatTurns, 50.0, 6.0));
    const Session with_bias = magcal::sim::simulate(biased);
    for (size_t i = 1; i < plain.samples.size(); i += 3) {
        for (int a = 0; a < 3; ++a) {
            EXPECT_NEAR(with_bias.samples[i].v[a] - plain.samples[i].v[a], biased.gyro_bias[a],
                        1e-6);
        }
    }
}

TEST(SessionSimulator, MagnetometerSeesTheConfiguredEarthFieldThroughTheDistortion) {
    const std::array<double, 9> a{1.10, 0.05, -0.02, 0.03, 0.95, 0.04, -0.01, 0.02, 1.05};
    std::array<double, 9> s_corr;
    ASSERT_TRUE(magcal::sim::softiron_correction(a, &s_corr));
    std::array<double, 3> offset_corrected;
    ASSERT_TRUE(magcal::sim::corrected_offset(a, {25.0, -35.0, 40.0}, &offset_corrected));
    const double sin_dip = std::sin(60.0 * kPi / 180.0);

    for (Scenario sc : {Scenario::Figure8, Scenario::Flip, Scenario::FlatTurns}) {
        Config c = quiet(sc, 50.0, 30.0);
        c.soft_iron = a;
        const Session s = magcal::sim::simulate(c);
        int compared_headings = 0;
        for (size_t k = 0; k < s.truth.size(); ++k) {
            const V3 raw = vec(s.samples[3 * k + 2].v);
            // The library's correction: the raw field as a row vector times S.
            V3 f;
            for (int i = 0; i < 3; ++i) {
                f[i] = raw[0] * s_corr[0 * 3 + i] + raw[1] * s_corr[1 * 3 + i] +
                       raw[2] * s_corr[2 * 3 + i] - offset_corrected[i];
            }
            ASSERT_NEAR(len(f), 45.0, 2e-4) << magcal::sim::scenario_name(sc) << " tick " << k;
            EXPECT_DOUBLE_EQ(s.truth[k].field_ut, 45.0);
            EXPECT_EQ(s.truth[k].offset_ut, c.hard_iron_ut);
            // The field is in the body frame of the true attitude.
            const V3 expected =
                to_body(s.truth[k].q_world_from_body,
                        {0.0, 45.0 * std::cos(60.0 * kPi / 180.0), -45.0 * sin_dip});
            for (int i = 0; i < 3; ++i) ASSERT_NEAR(f[i], expected[i], 2e-4);
            if (sc == Scenario::Figure8) continue;  // its hand motion tilts the accelerometer
            // Dip: the field leans sin(dip) below the horizontal, away from the
            // accelerometer's up; and a tilt-compensated compass from the two
            // sensors gives the truth heading.
            const V3 up = unit(vec(s.samples[3 * k].v));
            EXPECT_NEAR(dot3(unit(f), up), -sin_dip, 1e-5);
            const V3 east = unit(cross3(f, up));
            const V3 north = cross3(up, east);
            if (std::fabs(up[1]) > 0.9) continue;  // body +y nearly vertical: no heading
            const double heading = std::atan2(east[1], north[1]) * 180.0 / kPi;
            EXPECT_NEAR(wrap180(heading - s.truth[k].heading_deg), 0.0, 1e-3) << "tick " << k;
            ++compared_headings;
        }
        if (sc != Scenario::Figure8) {
            EXPECT_GT(compared_headings, 1000);
        }
    }

    // A magnet adds tens to hundreds of microtesla for a while, then leaves.
    const Session m = magcal::sim::simulate(quiet(Scenario::Magnet, 50.0, 60.0));
    double peak = 0.0;
    for (size_t k = 0; k < m.truth.size(); ++k) {
        const V3 raw = vec(m.samples[3 * k + 2].v);
        const V3 f{raw[0] - 25.0, raw[1] + 35.0, raw[2] - 40.0};
        ASSERT_NEAR(len(f), m.truth[k].field_ut, 2e-4);
        peak = std::max(peak, m.truth[k].field_ut);
    }
    EXPECT_GT(peak, 100.0);
    EXPECT_LT(peak, 250.0);
    EXPECT_DOUBLE_EQ(m.truth.front().field_ut, 45.0);
    EXPECT_DOUBLE_EQ(m.truth.back().field_ut, 45.0);

    EXPECT_FALSE(magcal::sim::softiron_correction({1, 2, 3, 2, 4, 6, 0, 0, 1}, &s_corr));
}

TEST(SessionSimulator, NoiseIsSeededGaussianWithTheConfiguredSpread) {
    Config c;
    c.scenario = Scenario::Still;
    c.duration_s = 4.0;
    c.jitter_s = 0.001;
    const Session a = magcal::sim::simulate(c);
    const Session b = magcal::sim::simulate(c);
    ASSERT_EQ(a.samples.size(), b.samples.size());
    EXPECT_EQ(0, std::memcmp(a.samples.data(), b.samples.data(),
                             a.samples.size() * sizeof(a.samples[0])));
    c.seed = 2;
    const Session other = magcal::sim::simulate(c);
    size_t differing = 0;
    for (size_t i = 0; i < a.samples.size(); ++i) differing += a.samples[i].v != other.samples[i].v;
    EXPECT_GT(differing, a.samples.size() * 9 / 10);

    // Spread: 20000 still gyroscope samples with sigma 0.01 around a bias, and
    // timestamps scattered by 1 ms around the 20 ms grid.
    Config n = quiet(Scenario::Still, 50.0, 400.0);
    n.gyro_noise = 0.01;
    n.gyro_bias = {0.1, 0.0, -0.1};
    n.jitter_s = 0.001;
    const Session s = magcal::sim::simulate(n);
    for (int axis = 0; axis < 3; ++axis) {
        double sum = 0.0, sum2 = 0.0, beyond3 = 0.0;
        const double count = static_cast<double>(s.truth.size());
        for (size_t k = 0; k < s.truth.size(); ++k) {
            const double d = s.samples[3 * k + 1].v[axis] - n.gyro_bias[axis];
            sum += d;
            sum2 += d * d;
            beyond3 += std::fabs(d) > 0.03;
        }
        EXPECT_NEAR(sum / count, 0.0, 0.0003);
        EXPECT_NEAR(std::sqrt(sum2 / count), 0.01, 0.0003);
        EXPECT_LT(beyond3 / count, 0.006);  // a normal law leaves 0.27 % beyond 3 sigma
    }
    double jitter2 = 0.0;
    for (size_t k = 0; k < s.truth.size(); ++k) {
        const double d =
            (s.truth[k].t_ns - n.start_ns - static_cast<int64_t>(k) * 20'000'000) * 1e-9;
        jitter2 += d * d;
    }
    EXPECT_NEAR(std::sqrt(jitter2 / s.truth.size()), 0.001, 0.00003);
}

}  // namespace
