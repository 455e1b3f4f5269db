// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Session simulator: integrates the scenario's attitude between ticks and
// turns the true state at each tick into the three sensor readings and one
// truth row. The attitude ODE q' = q (0, omega_body) / 2 is integrated with
// classical RK4 in sub-steps of at most 1 ms; at the rates a phone reaches
// (a few rad/s) that is accurate to far below single precision, so the
// emitted gyroscope integrates back to the emitted truth.
#include "sim/session_simulator.h"

#include <cmath>
#include <stdexcept>

#include "sim/gaussian_source.h"
#include "sim/motion_profiles.h"
#include "sim/rotation.h"

namespace magcal::sim {
namespace {

constexpr double kMaxSubstepS = 0.001;  // RK4 step bound [s]; error ~ (|w| h)^5, negligible
constexpr double kMaxTicks = 1e8;       // keeps memory in check (about 8 GB of samples)

Quat attitude_rate(const MotionProfile& motion, double t, const Quat& q) {
    const Vec3 w = motion.body_rate(t, quat_normalized(q));
    const Quat p = quat_mul(q, {0.0, w[0], w[1], w[2]});
    return {0.5 * p[0], 0.5 * p[1], 0.5 * p[2], 0.5 * p[3]};
}

Quat axpy(const Quat& q, double h, const Quat& k) {
    return {q[0] + h * k[0], q[1] + h * k[1], q[2] + h * k[2], q[3] + h * k[3]};
}

// Advances q from t over `span` seconds in `steps` RK4 steps.
Quat integrate(const MotionProfile& motion, double t, Quat q, double span, int steps) {
    const double h = span / steps;
    for (int i = 0; i < steps; ++i) {
        const double t0 = t + span * i / steps;
        const Quat k1 = attitude_rate(motion, t0, q);
        const Quat k2 = attitude_rate(motion, t0 + 0.5 * h, axpy(q, 0.5 * h, k1));
        const Quat k3 = attitude_rate(motion, t0 + 0.5 * h, axpy(q, 0.5 * h, k2));
        const Quat k4 = attitude_rate(motion, t0 + h, axpy(q, h, k3));
        Quat sum;
        for (int c = 0; c < 4; ++c) sum[c] = k1[c] + 2.0 * k2[c] + 2.0 * k3[c] + k4[c];
        q = quat_normalized(axpy(q, h / 6.0, sum));
    }
    return q;
}

Vec3 mat_vec(const std::array<double, 9>& m, const Vec3& v) {
    return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
            m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

std::array<float, 3> reading(const Vec3& v, double sigma, GaussianSource& noise) {
    std::array<float, 3> out;
    for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(v[i] + sigma * noise.next());
    return out;
}

void validate(const Config& c) {
    if (!(std::isfinite(c.rate_hz) && c.rate_hz > 0.0))
        throw std::invalid_argument("sample rate must be a positive number of Hz");
    if (!(std::isfinite(c.duration_s) && c.duration_s >= 0.0))
        throw std::invalid_argument("duration must be a non-negative number of seconds");
    if (c.scenario == Scenario::Scripted && c.script.empty())
        throw std::invalid_argument("the scripted scenario needs a motion script");
    if (c.duration_s * c.rate_hz > kMaxTicks)
        throw std::invalid_argument("session too long: more than 100 million ticks");
    if (!std::isfinite(c.jitter_s) || std::fabs(static_cast<double>(c.start_ns)) +
                                              (c.duration_s + 1.0) * 1e9 +
                                              std::fabs(c.jitter_s) * 1e10 >
                                          9e18)
        throw std::invalid_argument("timestamps would overflow 64-bit nanoseconds");
}

}  // namespace

std::array<double, 3> earth_field_world(const Config& c) {
    const double dip = c.dip_deg * (kPi / 180.0);
    return {0.0, c.field_ut * std::cos(dip), -c.field_ut * std::sin(dip)};
}

Session simulate(const Config& config) {
    validate(config);
    const auto motion = make_motion_profile(config);
    const int64_t ticks = std::llround(config.duration_s * config.rate_hz);
    const double period = 1.0 / config.rate_hz;  // [s]
    const int substeps = static_cast<int>(std::ceil(period / kMaxSubstepS));
    const Vec3 earth = earth_field_world(config);
    const Vec3 gravity_specific_force{0.0, 0.0, kGravity};  // what the accelerometer feels at rest
    GaussianSource noise(config.seed);

    Session session;
    session.samples.reserve(static_cast<size_t>(ticks) * 3);
    session.truth.reserve(static_cast<size_t>(ticks));
    Quat q = motion->initial_attitude();
    for (int64_t k = 0; k < ticks; ++k) {
        const double t = static_cast<double>(k) * period;
        if (k > 0) q = integrate(*motion, t - period, q, period, substeps);

        const Vec3 accel = add(motion->linear_accel_world(t, q), gravity_specific_force);
        const Vec3 rate = add(motion->body_rate(t, q), config.gyro_bias);
        const Vec3 field_world = add(earth, motion->disturbance_world(t));
        const Vec3 field_raw =
            add(mat_vec(config.soft_iron, rotate_inverse(q, field_world)), config.hard_iron_ut);

        const std::array<float, 3> acc = reading(rotate_inverse(q, accel), config.acc_noise, noise);
        const std::array<float, 3> gyro = reading(rate, config.gyro_noise, noise);
        const std::array<float, 3> mag = reading(field_raw, config.mag_noise, noise);
        const double jitter = config.jitter_s * noise.next();
        const int64_t t_ns = config.start_ns +
                             std::llround(static_cast<double>(k) * 1e9 / config.rate_hz) +
                             std::llround(jitter * 1e9);

        session.samples.push_back({t_ns, Sensor::Acc, acc});
        session.samples.push_back({t_ns, Sensor::Gyro, gyro});
        session.samples.push_back({t_ns, Sensor::Mag, mag});
        session.truth.push_back({t_ns, q, heading_deg(q), config.hard_iron_ut, norm(field_world)});
    }
    return session;
}

const char* scenario_name(Scenario scenario) {
    switch (scenario) {
        case Scenario::Figure8:
            return "figure8";
        case Scenario::FlatTurns:
            return "flat-turns";
        case Scenario::Still:
            return "still";
        case Scenario::Walk:
            return "walk";
        case Scenario::Magnet:
            return "magnet";
        case Scenario::Flip:
            return "flip";
        case Scenario::Scripted:
            return "scripted";
    }
    return "unknown";
}

bool parse_scenario(const std::string& name, Scenario* out) {
    for (Scenario s : {Scenario::Figure8, Scenario::FlatTurns, Scenario::Still, Scenario::Walk,
                       Scenario::Magnet, Scenario::Flip, Scenario::Scripted}) {
        if (name == scenario_name(s)) {
            *out = s;
            return true;
        }
    }
    return false;
}

bool invert3(const std::array<double, 9>& m, std::array<double, 9>* inverse) {
    const double c00 = m[4] * m[8] - m[5] * m[7];
    const double c01 = m[5] * m[6] - m[3] * m[8];
    const double c02 = m[3] * m[7] - m[4] * m[6];
    const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
    if (!std::isfinite(det) || det == 0.0) return false;
    const std::array<double, 9> adj{c00, m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                                    c01, m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                                    c02, m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    for (int i = 0; i < 9; ++i) (*inverse)[i] = adj[i] / det;
    for (double v : *inverse)
        if (!std::isfinite(v)) return false;
    return true;
}

bool softiron_correction(const std::array<double, 9>& a, std::array<double, 9>* s) {
    std::array<double, 9> inv;
    if (!invert3(a, &inv)) return false;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) (*s)[r * 3 + c] = inv[c * 3 + r];
    return true;
}

bool corrected_offset(const std::array<double, 9>& a, const std::array<double, 3>& hard_iron,
                      std::array<double, 3>* out) {
    std::array<double, 9> inv;
    if (!invert3(a, &inv)) return false;
    *out = mat_vec(inv, hard_iron);
    return true;
}

}  // namespace magcal::sim
