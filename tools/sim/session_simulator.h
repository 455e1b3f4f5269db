// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Deterministic simulation of a phone's accelerometer, gyroscope and
// magnetometer while a person moves it, with the ground truth a calibration
// and fusion library should recover.
//
// Frames: world x east, y north, z up. The attitude q_world_from_body follows
// a smooth body-frame angular-velocity profile per scenario, integrated with
// sub-stepped RK4, so integrating the noise-free gyroscope reproduces it.
//   gyro = omega_body + gyro_bias + noise                         [rad/s]
//   acc  = R^T (a_world + (0, 0, g)) + noise, g = 9.80665          [m/s^2]
//   mag  = A (R^T (B_earth + B_disturbance)) + hard_iron + noise   [uT]
//   B_earth = field_ut * (0, cos dip, -sin dip)
// Every tick emits acc, gyro and mag with one timestamp. The sensors sample
// at the nominal instants start + k / rate; timestamp jitter only perturbs
// the reported timestamp (host-side time stamping), and the truth row carries
// the same reported timestamp so rows join on it.
//
// All randomness comes from one seeded std::mt19937_64 through our own
// Box-Muller transform, drawn in a fixed order (acc x y z, gyro x y z,
// mag x y z, jitter) whatever the noise levels, so a session is identical on
// every standard library.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/motion_script.h"

namespace magcal::sim {

enum class Scenario { Figure8, FlatTurns, Still, Walk, Magnet, Flip, Scripted };
enum class Sensor { Acc, Gyro, Mag };

struct Config {
    Scenario scenario = Scenario::Figure8;
    double rate_hz = 50.0;                                  // sample rate of each sensor [Hz]
    double duration_s = 60.0;                               // [s]
    std::array<double, 3> hard_iron_ut{25.0, -35.0, 40.0};  // [uT]
    // Distortion A, row-major: raw = A * field + hard_iron.
    std::array<double, 9> soft_iron{1, 0, 0, 0, 1, 0, 0, 0, 1};
    double field_ut = 45.0;                    // earth field strength [uT]
    double dip_deg = 60.0;                     // inclination, field points down in the north [deg]
    double gyro_noise = 0.002;                 // [rad/s] 1-sigma
    double acc_noise = 0.02;                   // [m/s^2] 1-sigma
    double mag_noise = 0.3;                    // [uT] 1-sigma
    std::array<double, 3> gyro_bias{0, 0, 0};  // [rad/s]
    double jitter_s = 0.0;                     // timestamp jitter 1-sigma [s]
    uint64_t seed = 1;
    int64_t start_ns = 1'000'000'000;  // timestamp of the first tick [ns]
    // Scripted only: the motion, from a flat attitude with +y at azimuth 30
    // degrees. Past its end the device stays still.
    std::vector<ScriptSegment> script;
};

struct Sample {
    int64_t t_ns;  // [ns]
    Sensor sensor;
    std::array<float, 3> v;  // [m/s^2], [rad/s] or [uT]
};

struct TruthRow {
    int64_t t_ns;                             // timestamp of the matching mag sample [ns]
    std::array<double, 4> q_world_from_body;  // w, x, y, z
    double heading_deg;                       // azimuth of body +y, clockwise from north [0, 360)
    std::array<double, 3> offset_ut;          // hard-iron offset in the raw sensor frame [uT]
    double field_ut;  // strength of the true field at the device, earth plus disturbance [uT]
};

struct Session {
    std::vector<Sample> samples;  // acc, gyro, mag per tick, in that order
    std::vector<TruthRow> truth;  // one row per mag sample
};

// Throws std::invalid_argument for a configuration that cannot be simulated
// (non-positive or non-finite rate, negative or non-finite duration, more
// than 100 million ticks).
Session simulate(const Config& config);

const char* scenario_name(Scenario scenario);  // "figure8", "flat-turns", ..., "scripted"
bool parse_scenario(const std::string& name, Scenario* out);

// Standard gravity used for the accelerometer [m/s^2].
constexpr double kGravity = 9.80665;

// The earth field in world coordinates for a configuration [uT].
std::array<double, 3> earth_field_world(const Config& config);

// Inverse of a row-major 3x3 matrix; false when it is singular or not finite.
bool invert3(const std::array<double, 9>& m, std::array<double, 9>* inverse);

// The matrix S that undoes the distortion A for a library that corrects the
// raw field as a row vector times S (m'[i] = sum_k raw[k] * S[k][i]):
// S = (A^-1)^T, so that m' = A^-1 raw = field + A^-1 hard_iron. False when A
// is singular.
bool softiron_correction(const std::array<double, 9>& a, std::array<double, 9>* s);

// The hard-iron offset as it appears after that correction: A^-1 hard_iron.
bool corrected_offset(const std::array<double, 9>& a, const std::array<double, 3>& hard_iron,
                      std::array<double, 3>* out);

}  // namespace magcal::sim
