// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// How the phone moves in each scenario: its starting attitude, its body-frame
// angular velocity, the linear acceleration of its body and any magnetic
// disturbance near it. Every quantity is a smooth function of time (and, for
// turns about the world vertical, of the current attitude), so the simulator
// can integrate it as finely as it likes and sample it exactly.
#pragma once

#include <memory>

#include "sim/rotation.h"
#include "sim/session_simulator.h"

namespace magcal::sim {

class MotionProfile {
  public:
    virtual ~MotionProfile() = default;

    virtual Quat initial_attitude() const = 0;  // q_world_from_body at t = 0

    // Angular velocity in body axes [rad/s] at time t [s] since the first tick,
    // given the attitude q at that time.
    virtual Vec3 body_rate(double t, const Quat& q) const = 0;

    // Linear acceleration of the device in world axes [m/s^2].
    virtual Vec3 linear_accel_world(double /*t*/, const Quat& /*q*/) const {
        return {0.0, 0.0, 0.0};
    }

    // Extra magnetic field at the device in world axes [uT].
    virtual Vec3 disturbance_world(double /*t*/) const { return {0.0, 0.0, 0.0}; }
};

// The profile of a scenario for a session of `duration_s` seconds (scenarios
// with phases place them at fixed fractions of the duration).
std::unique_ptr<MotionProfile> make_motion_profile(Scenario scenario, double duration_s);
// The same for a whole configuration: the scripted scenario plays its script.
std::unique_ptr<MotionProfile> make_motion_profile(const Config& config);

}  // namespace magcal::sim
