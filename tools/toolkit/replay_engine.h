// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The replay engine: feeds sensor samples to a bound magcal library exactly
// as a sensor service would (initLib, then acc and gyro samples stored and
// every mag sample processed with doCaliApi, then every getter) and hands
// one result row per mag sample to a sink. It prints nothing and reads no
// file except a soft-iron file through the library's own reader; the
// samples reach the library unchanged.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "calibration_state.h"
#include "plugin_library.h"
#include "replay_results.h"
#include "sensor_log.h"
#include "truth_file.h"

namespace magcal::tool {

// Where the soft-iron matrix in force during a replay came from.
struct SoftironInForce {
    enum class Source { Identity, PluginFile, GivenFile };
    Source source = Source::Identity;
    std::array<double, 9> matrix{1, 0, 0, 0, 1, 0, 0, 0, 1};  // row-major, as the library holds it
    std::string path;                                         // the given file (GivenFile only)
};

struct ReplaySetup {
    bool quiet_plugin = true;  // send the library's start-up log on stderr to /dev/null
    // Installed after initLib, read with the library's own reader. Empty: the
    // library keeps what initLib loaded from its parameter file.
    std::string softiron_path;
    std::optional<SavedCalibration> restore;          // pushed back after initLib, as a host does
    const std::vector<TruthRecord>* truth = nullptr;  // rows joined on the timestamp
    // Take the decision snapshot after every mag sample (after the getters,
    // so nothing the host sees can depend on it). Needs a library that
    // exports it (libmagcal_trace.so).
    bool decision_snapshots = false;
};

class RowSink {
  public:
    virtual ~RowSink() = default;
    virtual void on_row(const ResultRow& row) = 0;
};

struct ReplayOutcome {
    SoftironInForce softiron;
    std::array<float, 3> final_offset{};  // caliApiGetOffset after the last sample [uT]
    int final_accuracy = 0;
    // |calibrated field| of the last processed sample [uT], what a state file
    // keeps: the table hands out no radius of the library's own.
    double last_radius = 0.0;
    bool any_processed = false;
};

// Runs one session through `library`, which must be freshly loaded for a
// fresh library state. InputError when the soft-iron file is not one the
// library reads; RuntimeFailure when the library lacks a function the setup
// needs (or the snapshot, or one of another layout).
ReplayOutcome replay_session(const LibraryBinding& library, const ReplaySetup& setup,
                             const LogRecord* records, size_t count, RowSink& sink);

}  // namespace magcal::tool
