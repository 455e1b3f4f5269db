// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The shipped real recording (trial 05 of the hand-held IMU dataset in
// data/broad) replayed through the plug-in by the tool's engine: the summary
// must read as stored, and a digest of every output byte of every block of
// 1000 magnetometer samples must match, so any change in what the library
// makes of real data shows, and in which block. Regenerating is deliberate:
// see tests/golden/README.md.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "plugin_library.h"
#include "replay_engine.h"
#include "replay_summary.h"
#include "sensor_log.h"
#include "tool_test_support.h"
#include "truth_file.h"

namespace {

using namespace magcal::tool;

const std::string kTrial =
    std::string(MAGCAL_DATA_DIR) + "/broad/05_undisturbed_slow_rotation_with_breaks_B";
const std::string kExpected = std::string(MAGCAL_GOLDEN_DIR) + "/broad05_expected.txt";
constexpr size_t kBlock = 1000;  // mag samples per digest

// FNV-1a over the bytes of every record the library filled, per block.
class BlockDigests : public RowSink {
  public:
    void on_row(const ResultRow& row) override {
        if (n_ % kBlock == 0) first_t_ = row.t_ns;
        add(&row.result, sizeof row.result);
        for (const FusionOutput* o :
             {&row.rotation_vector, &row.orientation, &row.gravity, &row.linear_accel,
              &row.game_rotation, &row.geomagnetic, &row.virtual_gyro}) {
            add(o, sizeof *o);
        }
        if (++n_ % kBlock == 0) close(row.t_ns);
        last_t_ = row.t_ns;
    }
    std::string finish() {
        if (n_ % kBlock != 0) close(last_t_);
        return text_;
    }

  private:
    void add(const void* p, size_t size) {
        const unsigned char* b = static_cast<const unsigned char*>(p);
        for (size_t i = 0; i < size; ++i) hash_ = (hash_ ^ b[i]) * 1099511628211ull;
    }
    void close(int64_t last_t) {
        char line[96];
        std::snprintf(line, sizeof line, "block %zu %" PRId64 " %" PRId64 " %016" PRIx64 "\n",
                      (n_ - 1) / kBlock, first_t_, last_t, hash_);
        text_ += line;
        hash_ = kOffsetBasis;
    }
    static constexpr uint64_t kOffsetBasis = 14695981039346656037ull;
    uint64_t hash_ = kOffsetBasis;
    size_t n_ = 0;
    int64_t first_t_ = 0, last_t_ = 0;
    std::string text_;
};

TEST(RecordingGolden, Trial05ReplaysToTheStoredSummaryAndOutputDigests) {
    const std::vector<LogRecord> log = read_sensor_log(kTrial + ".csv.gz");
    const std::vector<TruthRecord> truth = read_truth(kTrial + ".truth.csv.gz");
    ASSERT_EQ(log.size(), 3u * 19737u);  // as the file's own comment says: 207 s at 95.24 Hz

    // A private copy of the plug-in is a fresh library whatever else this
    // process has loaded; an identity soft-iron file pins the matrix, so a
    // parameter file on the machine cannot change the outcome.
    magcal::tooltest::ScratchDir dir;
    std::filesystem::copy_file(MAGCAL_PLUGIN_PATH, dir.file("libmagcal.so"));
    magcal::tooltest::write_text(dir.file("identity.json"),
                                 "{\"qvg\": [1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0]}\n");
    ReplaySetup setup;
    setup.softiron_path = dir.file("identity.json");
    setup.truth = &truth;
    ReplaySummary summary;
    summary.set_input(check_log(log));
    BlockDigests digests;
    struct Both : RowSink {
        RowSink *a, *b;
        void on_row(const ResultRow& r) override { a->on_row(r), b->on_row(r); }
    } both;
    both.a = &summary;
    both.b = &digests;
    ReplayOutcome outcome;
    {
        const PluginLibrary plugin(dir.file("libmagcal.so"));
        outcome = replay_session(plugin.binding(), setup, log.data(), log.size(), both);
    }
    summary.set_softiron(outcome.softiron);
    std::string text = summary.text(outcome.final_offset, true);
    // The soft-iron line names the scratch file.
    const size_t soft = text.find("  soft-iron");
    ASSERT_NE(soft, std::string::npos);
    text.erase(soft, text.find('\n', soft) + 1 - soft);
    text += digests.finish();

    if (std::getenv("MAGCAL_UPDATE_GOLDEN") != nullptr &&
        std::string(std::getenv("MAGCAL_UPDATE_GOLDEN")) == "1") {
        std::ofstream(kExpected) << "# magcal replay of data/broad trial 05 with its truth: the "
                                    "summary (without the soft-iron line), then per block of "
                                    "1000 mag samples its first and last t_ns and the FNV-1a "
                                    "64 of every output byte.\n"
                                 << text;
        GTEST_SKIP() << "rewrote " << kExpected;
    }
    std::string expected = magcal::tooltest::slurp(kExpected);
    ASSERT_FALSE(expected.empty()) << kExpected;
    expected.erase(0, expected.find('\n') + 1);  // the comment line
    EXPECT_EQ(text, expected);
}

}  // namespace
