// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The replay engine on in-memory samples: each fresh load of the library is
// a fresh session, and what a single NaN accelerometer sample does to a
// session (the behaviour the tool warns about and the README describes)
// outlives initLib and ends only when the library is loaded anew.
#include "replay_engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include "plugin_library.h"
#include "sensor_log.h"
#include "sim/session_simulator.h"
#include "tool_errors.h"
#include "tool_test_support.h"

namespace {

using namespace magcal::tool;

struct Rows : RowSink {
    std::vector<ResultRow> rows;
    void on_row(const ResultRow& row) override { rows.push_back(row); }
};

std::vector<LogRecord> simulated(magcal::sim::Scenario scenario, double seconds) {
    magcal::sim::Config c;
    c.scenario = scenario;
    c.duration_s = seconds;
    std::vector<LogRecord> log;
    for (const auto& s : magcal::sim::simulate(c).samples)
        log.push_back({s.t_ns, s.sensor, s.v, 0, 0});
    return log;
}

std::vector<ResultRow> replay(const PluginLibrary& lib, const std::vector<LogRecord>& log) {
    Rows sink;
    replay_session(lib.binding(), ReplaySetup{}, log.data(), log.size(), sink);
    return sink.rows;
}

bool same_outputs(const ResultRow& a, const ResultRow& b) {
    return std::memcmp(&a.result, &b.result, sizeof a.result) == 0 &&
           std::memcmp(&a.rotation_vector, &b.rotation_vector, 7 * sizeof(FusionOutput)) == 0;
}

TEST(ReplayEngine, NonFiniteAccPoisonsTheSessionThroughInitLibUntilTheLibraryIsReloaded) {
    magcal::tooltest::ScratchDir dir;
    const std::string copy = dir.file("libmagcal.so");  // private: nothing else holds it
    std::filesystem::copy_file(MAGCAL_PLUGIN_PATH, copy);
    const std::vector<LogRecord> clean = simulated(magcal::sim::Scenario::Figure8, 8.0);
    std::vector<ResultRow> reference;
    {
        const PluginLibrary lib(copy);
        reference = replay(lib, clean);
    }
    ASSERT_EQ(reference.size(), 400u);
    ASSERT_EQ(reference.back().result.accuracy, 3);

    std::vector<LogRecord> poisoned = clean;
    const size_t bad = 3 * 200;  // the acc sample of the tick at 4 s, calibrated by then
    ASSERT_EQ(poisoned[bad].sensor, magcal::sim::Sensor::Acc);
    poisoned[bad].v[0] = std::numeric_limits<float>::quiet_NaN();
    {
        const PluginLibrary lib(copy);
        const std::vector<ResultRow> rows = replay(lib, poisoned);
        for (size_t r = 0; r < rows.size(); ++r) {
            const bool after = r >= 200;
            EXPECT_EQ(std::isnan(rows[r].gravity.values[2]), after) << r;
            EXPECT_EQ(std::isnan(rows[r].rotation_vector.values[0]), after) << r;
            EXPECT_EQ(std::isnan(rows[r].linear_accel.values[1]), after) << r;
            // The field calibration goes on; only the fusion is lost.
            EXPECT_EQ(rows[r].result.accuracy, reference[r].result.accuracy) << r;
            EXPECT_FALSE(std::isnan(rows[r].result.offset[0])) << r;
        }
        // The same library initialised again (the next replay starts with
        // initLib) seeds a finite attitude from acc and mag, but the filter
        // state stays poisoned: NaN again once the device turns (at 1 s),
        // for good.
        const std::vector<ResultRow> again = replay(lib, clean);
        size_t first_nan = 1;
        while (first_nan < again.size() && !std::isnan(again[first_nan].gravity.values[2])) {
            ++first_nan;
        }
        EXPECT_GE(first_nan, 50u);
        EXPECT_LT(first_nan, 100u);
        for (size_t r = first_nan; r < again.size(); ++r) {
            EXPECT_TRUE(std::isnan(again[r].rotation_vector.values[0])) << r;
        }
    }
    // Loaded anew, the library is fresh: the clean session replays bit for
    // bit as the first time.
    const PluginLibrary lib(copy);
    const std::vector<ResultRow> fresh = replay(lib, clean);
    ASSERT_EQ(fresh.size(), reference.size());
    for (size_t r = 0; r < fresh.size(); ++r)
        EXPECT_TRUE(same_outputs(fresh[r], reference[r])) << r;
}

TEST(ReplayEngine, MissingExportsAreNamedWhenTheSetupNeedsThem) {
    magcal::tooltest::ScratchDir dir;
    std::filesystem::copy_file(MAGCAL_PLUGIN_PATH, dir.file("libmagcal.so"));
    const PluginLibrary lib(dir.file("libmagcal.so"));
    LibraryBinding table_only;
    table_only.table = lib.binding().table;
    const std::vector<LogRecord> log = simulated(magcal::sim::Scenario::Figure8, 8.0);
    Rows sink;
    ReplaySetup with_state, with_softiron, with_snapshots;
    with_state.restore = SavedCalibration{{1.0f, 2.0f, 3.0f}, 3, 45.0};
    with_softiron.softiron_path = dir.file("soft.json");
    with_snapshots.decision_snapshots = true;
    for (const ReplaySetup& setup : {with_state, with_softiron})
        EXPECT_THROW(replay_session(table_only, setup, log.data(), log.size(), sink),
                     RuntimeFailure);
    // The plug-in hosts load has no snapshot: the trace library has.
    try {
        replay_session(lib.binding(), with_snapshots, log.data(), log.size(), sink);
        ADD_FAILURE() << "no error";
    } catch (const RuntimeFailure& e) {
        EXPECT_NE(std::string(e.what()).find("libmagcal_trace.so"), std::string::npos);
    }
    EXPECT_TRUE(sink.rows.empty());
    // Without the parameter-file reload the engine cannot tell, and says
    // identity, which is what a fresh library without the file holds.
    const ReplayOutcome o = replay_session(table_only, ReplaySetup{}, log.data(), log.size(), sink);
    EXPECT_EQ(o.softiron.source, SoftironInForce::Source::Identity);
    EXPECT_EQ(sink.rows.size(), 400u);
}

// Looking at the decision state must not change a bit of what the host sees:
// the trace library with a snapshot after every sample against the plug-in,
// on a simulated session with a magnet swing and on a real recording.
TEST(ReplayEngine, DecisionSnapshotsChangeNoOutputBit) {
    for (const std::vector<LogRecord>& log :
         {simulated(magcal::sim::Scenario::Magnet, 30.0),
          read_sensor_log(std::string(MAGCAL_DATA_DIR) +
                          "/broad/05_undisturbed_slow_rotation_with_breaks_B.csv.gz")}) {
        std::vector<ResultRow> plain;
        {
            const PluginLibrary plugin(MAGCAL_PLUGIN_PATH);
            plain = replay(plugin, log);
        }
        const PluginLibrary traced(MAGCAL_TRACE_PLUGIN_PATH);
        ReplaySetup setup;
        setup.decision_snapshots = true;
        Rows sink;
        replay_session(traced.binding(), setup, log.data(), log.size(), sink);
        ASSERT_EQ(sink.rows.size(), plain.size());
        size_t differing = 0, accuracy_seen = 0;
        for (size_t r = 0; r < plain.size(); ++r) {
            differing += !same_outputs(sink.rows[r], plain[r]);
            ASSERT_TRUE(sink.rows[r].has_decision);
            // The snapshot is of this sample: its accuracy is the one handed out.
            if (sink.rows[r].processed) {
                EXPECT_EQ(sink.rows[r].decision.accuracy, plain[r].result.accuracy) << r;
                accuracy_seen |= 1u << plain[r].result.accuracy;
            }
        }
        EXPECT_EQ(differing, 0u);
        EXPECT_EQ(accuracy_seen & 0x9u, 0x9u) << "the session shows accuracy 0 and 3";
    }
}

}  // namespace
