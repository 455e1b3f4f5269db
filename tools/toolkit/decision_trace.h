// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The decision trace: one row per magnetometer sample with the library's
// decision snapshot after it, as `magcal replay --trace` writes it and
// `magcal why`, the report and the Python package read it. Columns are the
// snapshot's fields under the library's own names (vectors as NAME_x,
// NAME_y, NAME_z), after the sample's timestamp, its time since the first
// magnetometer sample and whether the library processed it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "magcal/magcal_decision_snapshot.h"

namespace magcal::tool {

struct TraceRow {
    int64_t t_ns = 0;        // the mag sample's timestamp [ns]
    double t_s = 0.0;        // since the first mag sample [s]
    bool processed = false;  // false: refused or before acc and gyro; the state is unchanged
    MagcalDecisionSnapshot decision{};
};

// One snapshot column: a double or an int32 at a byte offset of the record.
struct TraceColumn {
    const char* name;
    size_t offset;  // into MagcalDecisionSnapshot [bytes]
    bool is_double;
    const char* unit;  // "" for counts and flags given in samples or 0/1
};

// Every snapshot field in record order, vectors expanded; not size/version.
const std::vector<TraceColumn>& trace_columns();

double column_value(const MagcalDecisionSnapshot& s, const TraceColumn& c);

void write_trace_header(std::FILE* out);
void write_trace_row(std::FILE* out, const TraceRow& row);

// Reads a trace as written above (gzip too). InputError naming file and
// line for a header that is not this version's, a short row or a bad number.
std::vector<TraceRow> read_trace(const std::string& path);

}  // namespace magcal::tool
