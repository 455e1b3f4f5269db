// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Scripted motions: the segments do what their words say (checked against
// rotations and fields worked out here), and a malformed script is refused
// with the segment that is wrong.
#include "sim/motion_script.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "sim/session_simulator.h"

namespace {

using namespace magcal::sim;

Session quiet_script(const std::string& text, double rate = 100.0) {
    Config c;
    c.scenario = Scenario::Scripted;
    c.script = parse_motion_script(text);
    c.duration_s = script_duration(c.script) + 0.5;  // a little stillness after it
    c.rate_hz = rate;
    c.gyro_noise = c.acc_noise = c.mag_noise = 0.0;
    return simulate(c);
}

TEST(MotionScript, TurnAboutZChangesTheHeadingByItsAngle) {
    const Session s = quiet_script("hold 1; turn z 90 45");
    ASSERT_FALSE(s.truth.empty());
    EXPECT_NEAR(s.truth.front().heading_deg, 30.0, 1e-9);  // the script's start attitude
    // A positive turn about the up axis is anticlockwise seen from above: the
    // compass heading falls by the angle.
    EXPECT_NEAR(s.truth.back().heading_deg, 300.0, 1e-6);
    // Integrating the emitted gyroscope gives the same angle.
    double angle = 0.0;
    for (const Sample& smp : s.samples)
        if (smp.sensor == Sensor::Gyro) angle += smp.v[2] * 0.01;
    EXPECT_NEAR(angle * 180.0 / kPi, 90.0, 0.5);
}

TEST(MotionScript, TiltRaisesTheNamedEdge) {
    for (const auto& [edge, axis, sign] :
         {std::tuple{"+x", 0, 1.0}, {"-x", 0, -1.0}, {"+y", 1, 1.0}, {"-y", 1, -1.0}}) {
        const Session s = quiet_script(std::string("tilt ") + edge + " 60 60");
        const Sample& acc = s.samples[s.samples.size() - 3];
        ASSERT_EQ(acc.sensor, Sensor::Acc);
        // The accelerometer reads +g along the upward direction: a raised
        // edge shows g sin 60 on its axis, with the edge's sign.
        EXPECT_NEAR(acc.v[axis], sign * kGravity * std::sin(kPi / 3.0), 1e-3) << edge;
        EXPECT_NEAR(acc.v[2], kGravity * 0.5, 1e-3) << edge;
    }
}

TEST(MotionScript, MagnetRampsToItsLevelAndStays) {
    const Session s = quiet_script("magnet 100 1 up; hold 1; turn z 180 90");
    Config c;
    const std::array<double, 3> earth = earth_field_world(c);  // 45 uT, dip 60: down in the north
    const double up = earth[2] + 100.0;
    const double expected = std::sqrt(earth[1] * earth[1] + up * up);
    EXPECT_NEAR(s.truth.front().field_ut, c.field_ut, 1e-9);
    EXPECT_NEAR(s.truth.back().field_ut, expected, 1e-9);
    // And back down again.
    const Session off = quiet_script("magnet 100 1 east; magnet 0 2");
    EXPECT_NEAR(off.truth.back().field_ut, c.field_ut, 1e-9);
}

TEST(MotionScript, DurationIsTheSumOfTheSegments) {
    const std::vector<ScriptSegment> s =
        parse_motion_script("hold 1.5;turn x -90 45\n tilt +y 30 60 ;; magnet 50 0.25 down");
    ASSERT_EQ(s.size(), 4u);
    EXPECT_DOUBLE_EQ(script_duration(s), 1.5 + 2.0 + 0.5 + 0.25);
    EXPECT_LT(s[1].angle_rad, 0.0);
    EXPECT_EQ(s[3].direction[2], -1.0);
}

TEST(MotionScript, BadSegmentsAreNamed) {
    for (const auto& [text, expected] : {
             std::pair{"hold 1; turn q 90 45", "segment 2 \"turn q 90 45\": the axis"},
             {"hold -1", "segment 1 \"hold -1\": the time"},
             {"hold 1; fly 3", "segment 2 \"fly 3\": unknown segment"},
             {"turn z 90", "segment 1 \"turn z 90\": expected turn AXIS"},
             {"turn z 90 0", "the rate must be more than 0"},
             {"turn z 0 45", "the angle must not be 0"},
             {"tilt +z 30 30", "the edge must be"},
             {"magnet 10", "expected magnet"},
             {"magnet 10 1 sideways", "the direction must be"},
             {"magnet -5 1", "between 0 and 5000"},
             {"hold nan", "not a number"},
             {"hold 1e300", "at most 1e6"},
             {" ; ;", "motion script is empty"},
         }) {
        try {
            parse_motion_script(text);
            ADD_FAILURE() << text << ": no error";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(expected), std::string::npos)
                << text << ": " << e.what();
        }
    }
    Config c;
    c.scenario = Scenario::Scripted;
    EXPECT_THROW(simulate(c), std::invalid_argument);  // a scripted session needs its script
}

}  // namespace
