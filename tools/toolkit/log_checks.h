// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Plausibility checks of a sensor log before it is replayed. They report
// what a person most likely got wrong (units, time order, a sensor that
// stops, values the library cannot survive); they never change a sample.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "sensor_log.h"

namespace magcal::tool {

enum class CheckKind {
    FieldUnits,       // |mag| implausible for microtesla
    RateUnits,        // |gyro| beyond any phone gyroscope in rad/s
    AccelUnits,       // |acc| implausible for m/s^2
    TimeUnits,        // sample period implausible for nanoseconds
    TimeOrder,        // timestamps go back by more than a sample period
    SensorGap,        // a sensor stops while the others go on
    MissingSensor,    // no acc or no gyro sample at all
    NonFiniteMotion,  // NaN or infinite acc or gyro value
    NonFiniteField,   // NaN or infinite mag value
};

// A short name for summaries ("time order").
const char* check_kind_name(CheckKind kind);

struct CheckFinding {
    CheckKind kind;
    size_t first;        // index of the first record it concerns
    size_t count;        // how many records it concerns
    std::string detail;  // what was found and its likely cause, one sentence or two
};

struct CheckReport {
    std::array<size_t, 3> per_sensor{};  // records of acc, gyro, mag
    std::vector<CheckFinding> findings;  // at most one per kind, in the order of CheckKind
};

CheckReport check_log(const std::vector<LogRecord>& records);

// One line for a person: "WHERE: warning: DETAIL (and N more lines like
// it)", with "error" for `as_error`. `where` names the first record's file
// and line.
std::string describe_finding(const CheckFinding& finding, const std::string& where, bool as_error);

}  // namespace magcal::tool
