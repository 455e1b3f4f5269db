// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The trace file: its columns are exactly the snapshot's fields, a trace
// reads back to the same bits, and a damaged one is refused with its file
// and line.
#include "decision_trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "tool_errors.h"
#include "tool_test_support.h"

namespace {

using namespace magcal::tool;
using namespace magcal::tooltest;

TEST(DecisionTrace, ColumnsCoverEverySnapshotFieldOnce) {
    std::vector<std::pair<size_t, size_t>> spans;  // offset, size
    std::vector<std::string> names;
    for (const TraceColumn& c : trace_columns()) {
        spans.emplace_back(c.offset, c.is_double ? sizeof(double) : sizeof(int32_t));
        names.push_back(c.name);
    }
    std::sort(spans.begin(), spans.end());
    size_t at = offsetof(MagcalDecisionSnapshot, mag);  // after size and version
    for (const auto& [offset, size] : spans) {
        EXPECT_EQ(offset, at) << "gap or overlap before byte " << offset;
        at = offset + size;
    }
    EXPECT_EQ(at, sizeof(MagcalDecisionSnapshot));
    // Names are the library's: a few that documents and the report rely on.
    for (const char* name : {"cal_stage", "turn_cnt_x", "in6", "range_hold", "recover_cnt",
                             "rls_centre_z", "offset_est_x", "face_yn2", "moving"})
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
}

void write_rows(const std::string& path, const std::vector<TraceRow>& rows) {
    std::FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    write_trace_header(f);
    for (const TraceRow& r : rows) write_trace_row(f, r);
    std::fclose(f);
}

TEST(DecisionTrace, RowsReadBackBitForBit) {
    // Values that a short decimal form would round: thirds, tiny, huge,
    // negative zero, and the extremes of int32.
    std::vector<TraceRow> rows(3);
    for (size_t i = 0; i < rows.size(); ++i) {
        TraceRow& r = rows[i];
        std::memset(&r.decision, 0, sizeof r.decision);
        r.decision.size = sizeof r.decision;
        r.decision.version = MAGCAL_DECISION_SNAPSHOT_VERSION;
        r.t_ns = 1'000'000'000 + static_cast<int64_t>(i) * 20'000'000;
        r.t_s = static_cast<double>(i) / 3.0;
        r.processed = i != 1;
        for (const TraceColumn& c : trace_columns()) {
            char* p = reinterpret_cast<char*>(&r.decision) + c.offset;
            const double d = (c.offset % 3 == 0 ? -1.0 : 1.0) / 3.0 * (1.0 + c.offset) +
                             (i == 2 ? 4.9e-324 : 0.0);
            const int32_t n = i == 0   ? std::numeric_limits<int32_t>::min()
                              : i == 1 ? std::numeric_limits<int32_t>::max()
                                       : -500;
            c.is_double ? std::memcpy(p, &d, sizeof d) : std::memcpy(p, &n, sizeof n);
        }
        r.decision.accuracy = static_cast<int32_t>(i);
    }
    rows[0].decision.radius = -0.0;
    rows[1].decision.rls_radius = 1e308;
    ScratchDir dir;
    write_rows(dir.file("trace.csv"), rows);
    const std::vector<TraceRow> back = read_trace(dir.file("trace.csv"));
    ASSERT_EQ(back.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(back[i].t_ns, rows[i].t_ns);
        EXPECT_EQ(back[i].t_s, rows[i].t_s);
        EXPECT_EQ(back[i].processed, rows[i].processed);
        EXPECT_EQ(std::memcmp(&back[i].decision, &rows[i].decision, sizeof rows[i].decision), 0)
            << "row " << i;
    }
    EXPECT_TRUE(std::signbit(back[0].decision.radius));
}

TEST(DecisionTrace, DamagedTracesNameFileAndLine) {
    ScratchDir dir;
    const std::string path = dir.file("t.csv");
    write_rows(path, {TraceRow{}});
    const std::string good = slurp(path);
    const std::string header = good.substr(0, good.find('\n') + 1);
    const std::string row = good.substr(header.size());
    const std::vector<std::string> names = split(header.substr(0, header.size() - 1), ',');
    // The good row with one column's field replaced.
    const auto with = [&](const std::string& column, const std::string& value) {
        const size_t k = std::find(names.begin(), names.end(), column) - names.begin();
        return map_csv_lines(row, [&](int, std::vector<std::string>& f) { f[k] = value; });
    };
    const std::pair<std::string, std::string> cases[] = {
        {"", ": empty: no decision trace header"},
        {"t_ns,t_s,processed,mag_x\n" + row, ":1: not a decision trace"},
        {header + row + row.substr(0, row.rfind(',')) + "\n", ":3: "},
        {header + row.substr(0, row.size() - 1) + ",0\n", ":2: "},
        {"# comment\n" + header + with("t_s", "x"), ":3: field 't_s'"},
        {header + row + with("accuracy", "4"), ":3: field 'accuracy': not 0..3"},
        {header + with("processed", "2"), ":2: field 'processed'"},
    };
    for (const auto& [text, message] : cases) {
        write_text(path, text);
        try {
            read_trace(path);
            ADD_FAILURE() << message << ": no error";
        } catch (const InputError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path + message, 0), 0u) << e.what();
        }
    }
}

}  // namespace
