// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Scenario motions. Angular velocities are built from pieces whose value and
// first derivative are continuous (sinusoids under smooth envelopes, and
// raised-cosine rate pulses for discrete turns), as a hand moves a phone; a
// turn by angle a over T seconds runs at a/T * (1 - cos(2 pi s / T)), which
// peaks at 2a/T and integrates to exactly a.
#include "sim/motion_profiles.h"

#include <cmath>
#include <vector>

namespace magcal::sim {
namespace {

constexpr double kDeg = kPi / 180.0;
const Vec3 kUp{0.0, 0.0, 1.0};

// 0 below 0, 1 above 1, a C1 cubic in between.
double smoothstep(double x) {
    if (x <= 0.0) return 0.0;
    if (x >= 1.0) return 1.0;
    return x * x * (3.0 - 2.0 * x);
}

// 1 inside [begin, end], easing in and out over `ramp` seconds at each edge.
// Derivative of smoothstep with respect to x.
double smoothstep_rate(double x) {
    if (x <= 0.0 || x >= 1.0) return 0.0;
    return 6.0 * x * (1.0 - x);
}

double window(double t, double begin, double end, double ramp) {
    if (t <= begin || t >= end) return 0.0;
    return smoothstep((t - begin) / ramp) * smoothstep((end - t) / ramp);
}

// Level, flat attitude whose +y axis points at compass azimuth `azimuth_deg`,
// then tilted about the body x axis by `pitch_deg` (top edge up for > 0).
Quat attitude(double azimuth_deg, double pitch_deg) {
    const Quat yaw = quat_from_axis_angle(kUp, -azimuth_deg * kDeg);
    const Quat pitch = quat_from_axis_angle({1.0, 0.0, 0.0}, pitch_deg * kDeg);
    return quat_mul(yaw, pitch);
}

// Waving the phone in a figure eight. The attitude is yaw psi about the world
// vertical, then pitch theta about the body x axis, then roll phi about the
// body y axis; pitch and roll trace a 1:2 Lissajous figure eight (pitch swings
// past 90 degrees, so the phone goes over on its back; roll leans it both
// ways) while the eight slowly turns about the vertical. The body rate is the
// exact derivative of that attitude:
//   omega = Ry(phi)^T (Rx(theta)^T (0, 0, psi') + (theta', 0, 0)) + (0, phi', 0).
// Rates: median about 1.9 rad/s, peaks about 3.4 rad/s. The hand meanwhile
// traces a figure eight 40 cm wide.
// Active inside the given time windows only; outside them the phone is held
// still, tilted 30 degrees towards the face.
class Figure8Motion : public MotionProfile {
  public:
    struct Span {
        double begin, end;  // [s]
    };
    explicit Figure8Motion(std::vector<Span> spans) : spans_(std::move(spans)) {}

    Quat initial_attitude() const override { return attitude(30.0, kRestPitchDeg); }

    Vec3 body_rate(double t, const Quat&) const override {
        double e = 0.0, de = 0.0;  // envelope and its rate [1/s]
        envelope(t, &e, &de);
        if (e == 0.0 && de == 0.0) return {0.0, 0.0, 0.0};
        const double w = 2.0 * kPi * kEightHz;
        // Roll amplitude breathes between 0.5 and 0.9 rad so every lean is visited.
        const double roll_amp = 0.7 + 0.2 * std::sin(2.0 * kPi * 0.07 * t);
        const double roll_amp_rate = 0.2 * 2.0 * kPi * 0.07 * std::cos(2.0 * kPi * 0.07 * t);
        const double theta = kRestPitchDeg * kDeg + e * kPitchAmp * std::sin(w * t);
        const double theta_rate = kPitchAmp * (de * std::sin(w * t) + e * w * std::cos(w * t));
        // A slow lean (period 22 s) shifts the eight sideways and back.
        const double wl = 2.0 * kPi / 22.0;
        const double phi = e * (roll_amp * std::sin(2.0 * w * t) + kLeanAmp * std::sin(wl * t));
        const double phi_rate = (de * roll_amp + e * roll_amp_rate) * std::sin(2.0 * w * t) +
                                e * roll_amp * 2.0 * w * std::cos(2.0 * w * t) +
                                kLeanAmp * (de * std::sin(wl * t) + e * wl * std::cos(wl * t));
        const double psi_rate = e * (0.31 + 0.15 * std::sin(2.0 * kPi * 0.13 * t));
        // Rx(theta)^T (0, 0, psi') + (theta', 0, 0)
        const Vec3 a{theta_rate, std::sin(theta) * psi_rate, std::cos(theta) * psi_rate};
        // Ry(phi)^T a + (0, phi', 0)
        return {std::cos(phi) * a[0] - std::sin(phi) * a[2], a[1] + phi_rate,
                std::sin(phi) * a[0] + std::cos(phi) * a[2]};
    }

    Vec3 linear_accel_world(double t, const Quat&) const override {
        double e = 0.0, de = 0.0;
        envelope(t, &e, &de);
        if (e == 0.0) return {0.0, 0.0, 0.0};
        const double omega = 2.0 * kPi * kEightHz;  // [rad/s]
        const double ax = 0.2;                      // half width of the eight [m]
        const double ay = 0.1;                      // half height of its lobes [m]
        return {-e * ax * omega * omega * std::sin(omega * t),
                -e * ay * 4.0 * omega * omega * std::sin(2.0 * omega * t), 0.0};
    }

  private:
    static constexpr double kEightHz = 0.2;        // one figure eight every 5 s
    static constexpr double kPitchAmp = 1.75;      // pitch swing [rad], about 100 degrees
    static constexpr double kLeanAmp = 0.7;        // slow sideways lean [rad], about 40 degrees
    static constexpr double kRestPitchDeg = 30.0;  // held towards the face [deg]
    static constexpr double kRampS = 1.0;          // start and stop ease [s]

    void envelope(double t, double* value, double* rate) const {
        for (const Span& s : spans_) {
            if (t <= s.begin || t >= s.end) continue;
            const double a = (t - s.begin) / kRampS, b = (s.end - t) / kRampS;
            *value += smoothstep(a) * smoothstep(b);
            *rate +=
                (smoothstep_rate(a) * smoothstep(b) - smoothstep(a) * smoothstep_rate(b)) / kRampS;
        }
    }

    std::vector<Span> spans_;
};

// A fixed cycle of rate pulses about body axes; pauses are pulses of angle 0.
class PulseMotion : public MotionProfile {
  public:
    struct Pulse {
        Vec3 axis;        // unit, body frame
        double angle;     // [rad]
        double duration;  // [s]
    };
    PulseMotion(Quat start, std::vector<Pulse> cycle) : start_(start), cycle_(std::move(cycle)) {
        for (const Pulse& p : cycle_) period_ += p.duration;
    }

    Quat initial_attitude() const override { return start_; }

    Vec3 body_rate(double t, const Quat&) const override {
        double s = std::fmod(t, period_);
        for (const Pulse& p : cycle_) {
            if (s < p.duration) {
                const double rate =
                    p.angle / p.duration * (1.0 - std::cos(2.0 * kPi * s / p.duration));
                return scale(p.axis, rate);
            }
            s -= p.duration;
        }
        return {0.0, 0.0, 0.0};
    }

  private:
    Quat start_;
    std::vector<Pulse> cycle_;
    double period_ = 0.0;  // [s]
};

// Phone held in front of the face while walking: small sways at the step
// frequency and half of it, slow heading changes about the world vertical,
// and the body's bob and surge with every step.
class WalkMotion : public MotionProfile {
  public:
    Quat initial_attitude() const override { return attitude(75.0, 35.0); }

    Vec3 body_rate(double t, const Quat& q) const override {
        const double e = window(t, 1.0, 1e300, 1.0);
        const double w = 2.0 * kPi;
        const double heading_rate =
            0.12 * std::sin(w * t / 17.0) + 0.08 * std::sin(w * t / 7.3 + 1.0);  // [rad/s]
        const Vec3 turn = rotate_inverse(q, {0.0, 0.0, e * heading_rate});
        const Vec3 sway{e * 0.3 * std::sin(w * kStepHz * t),
                        e * 0.3 * std::sin(w * 0.5 * kStepHz * t + 0.7), 0.0};
        return add(turn, sway);
    }

    Vec3 linear_accel_world(double t, const Quat& q) const override {
        const double e = window(t, 1.0, 1e300, 1.0);
        if (e == 0.0) return {0.0, 0.0, 0.0};
        const double w = 2.0 * kPi * kStepHz;
        const Vec3 y = rotate(q, {0.0, 1.0, 0.0});
        Vec3 forward{y[0], y[1], 0.0};
        const double n = norm(forward);
        forward = n > 1e-9 ? scale(forward, 1.0 / n) : Vec3{0.0, 1.0, 0.0};
        const Vec3 right = cross(forward, kUp);
        Vec3 a = scale(kUp, 1.2 * std::sin(w * t));
        a = add(a, scale(forward, 0.6 * std::cos(w * t)));
        a = add(a, scale(right, 0.3 * std::sin(0.5 * w * t)));
        return scale(a, e);
    }

  private:
    static constexpr double kStepHz = 1.8;  // steps per second
};

// Figure-eight waving, then the phone rests while a magnet approaches and
// leaves (extra field ramping up to 150 uT and back), then waving again.
class MagnetMotion : public Figure8Motion {
  public:
    explicit MagnetMotion(double duration)
        : Figure8Motion({{1.0, 0.4 * duration}, {0.75 * duration, 2.0 * duration}}),
          begin_(0.42 * duration),
          end_(0.72 * duration) {}

    Vec3 disturbance_world(double t) const override {
        if (t <= begin_ || t >= end_) return {0.0, 0.0, 0.0};
        const double third = (end_ - begin_) / 3.0;
        const double level = smoothstep((t - begin_) / third) * smoothstep((end_ - t) / third);
        const Vec3 direction{0.5, -0.6, 0.62};
        return scale(direction, kPeakUt * level / norm(direction));
    }

  private:
    static constexpr double kPeakUt = 150.0;  // strongest extra field [uT]
    double begin_, end_;                      // [s]
};

class StillMotion : public MotionProfile {
  public:
    Quat initial_attitude() const override { return attitude(30.0, 0.0); }
    Vec3 body_rate(double, const Quat&) const override { return {0.0, 0.0, 0.0}; }
};

std::unique_ptr<MotionProfile> flat_turns() {
    const Vec3 z{0.0, 0.0, 1.0};
    std::vector<PulseMotion::Pulse> cycle{
        {z, 0.0, 2.0}, {z, 120.0 * kDeg, 2.0},  {z, 0.0, 1.5}, {z, -200.0 * kDeg, 2.5},
        {z, 0.0, 1.0}, {z, 80.0 * kDeg, 1.2},   {z, 0.0, 2.0}, {z, 150.0 * kDeg, 2.0},
        {z, 0.0, 1.0}, {z, -150.0 * kDeg, 2.0}, {z, 0.0, 1.5}};
    return std::make_unique<PulseMotion>(attitude(30.0, 0.0), std::move(cycle));
}

std::unique_ptr<MotionProfile> flips() {
    const Vec3 x{1.0, 0.0, 0.0};
    const Vec3 y{0.0, 1.0, 0.0};
    std::vector<PulseMotion::Pulse> cycle{{x, 0.0, 2.0},  {x, kPi, 2.0},  {x, 0.0, 2.0},
                                          {x, -kPi, 2.0}, {x, 0.0, 2.0},  {y, kPi, 2.0},
                                          {y, 0.0, 2.0},  {y, -kPi, 2.0}, {y, 0.0, 1.5}};
    return std::make_unique<PulseMotion>(attitude(30.0, 0.0), std::move(cycle));
}

// Plays a motion script: rate pulses for turns, stillness for holds, and a
// room-fixed magnet field that moves between levels with a smooth ramp.
class ScriptMotion : public MotionProfile {
  public:
    explicit ScriptMotion(std::vector<ScriptSegment> script) : script_(std::move(script)) {}

    Quat initial_attitude() const override { return attitude(30.0, 0.0); }

    Vec3 body_rate(double t, const Quat&) const override {
        double begin = 0.0;
        for (const ScriptSegment& s : script_) {
            const double end = begin + s.duration_s;
            if (t < end) {
                if (s.kind != ScriptSegment::Kind::Turn || t < begin) return {0.0, 0.0, 0.0};
                const double T = s.duration_s;
                const double rate = s.angle_rad / T * (1.0 - std::cos(2.0 * kPi * (t - begin) / T));
                return scale(s.axis, rate);
            }
            begin = end;
        }
        return {0.0, 0.0, 0.0};
    }

    Vec3 disturbance_world(double t) const override {
        Vec3 level{0.0, 0.0, 0.0};
        double begin = 0.0;
        for (const ScriptSegment& s : script_) {
            if (t <= begin) break;
            const double end = begin + s.duration_s;
            if (s.kind == ScriptSegment::Kind::Magnet) {
                const Vec3 target = scale(s.direction, s.field_ut);
                const double f = smoothstep((t - begin) / s.duration_s);
                level = add(scale(level, 1.0 - f), scale(target, f));
            }
            begin = end;
        }
        return level;
    }

  private:
    std::vector<ScriptSegment> script_;
};

}  // namespace

std::unique_ptr<MotionProfile> make_motion_profile(const Config& config) {
    if (config.scenario == Scenario::Scripted) return std::make_unique<ScriptMotion>(config.script);
    return make_motion_profile(config.scenario, config.duration_s);
}

std::unique_ptr<MotionProfile> make_motion_profile(Scenario scenario, double duration_s) {
    switch (scenario) {
        case Scenario::Figure8:
            return std::make_unique<Figure8Motion>(
                std::vector<Figure8Motion::Span>{{1.0, duration_s + 2.0}});
        case Scenario::FlatTurns:
            return flat_turns();
        case Scenario::Still:
            return std::make_unique<StillMotion>();
        case Scenario::Walk:
            return std::make_unique<WalkMotion>();
        case Scenario::Magnet:
            return std::make_unique<MagnetMotion>(duration_s);
        case Scenario::Flip:
            return flips();
        case Scenario::Scripted:
            break;  // needs its script: the Config overload
    }
    return std::make_unique<StillMotion>();
}

}  // namespace magcal::sim
