// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A scripted motion: a list of segments played one after the other, for
// sessions that must show one particular thing (a device that is only ever
// turned about z, a magnet brought close for a moment). Text form, segments
// separated by ';' or line breaks, blanks free:
//   hold S                 keep still for S seconds
//   turn AXIS DEG DPS      turn about the body axis x, y or z by DEG degrees
//                          (sign = direction) at DPS degrees per second on
//                          average (a smooth rate pulse peaking at twice that)
//   tilt EDGE DEG DPS      raise the body edge +x, -x, +y or -y by DEG
//                          degrees (a turn about the other horizontal axis)
//   magnet UT S [DIR]      bring the extra field of a magnet fixed in the
//                          room to UT microtesla over S seconds (0 takes it
//                          away); DIR east (default), north, up or down
// The magnet's field stays at its level through later segments.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/rotation.h"

namespace magcal::sim {

struct ScriptSegment {
    enum class Kind { Hold, Turn, Magnet };
    Kind kind = Kind::Hold;
    double duration_s = 0.0;        // [s]
    Vec3 axis{0.0, 0.0, 1.0};       // Turn: unit body axis
    double angle_rad = 0.0;         // Turn: signed [rad]
    double field_ut = 0.0;          // Magnet: level reached at the end [uT]
    Vec3 direction{1.0, 0.0, 0.0};  // Magnet: unit world direction
};

// std::invalid_argument naming the segment (1-based) and its text.
std::vector<ScriptSegment> parse_motion_script(const std::string& text);

// Sum of the segments' durations [s].
double script_duration(const std::vector<ScriptSegment>& script);

}  // namespace magcal::sim
