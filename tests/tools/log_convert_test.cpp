// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The converter: exact timestamps in any unit, the layouts phones and
// loggers write (per-sensor and wide files, ; and tab, byte-order mark,
// decimal comma, gzip, header or none), merging in time order, and errors
// that name the file, the line and what is there.
#include "log_convert.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstdlib>
#include <functional>

#include "sim/session_simulator.h"
#include "tool_errors.h"
#include "tool_test_support.h"

namespace {

using magcal::sim::Sensor;
using namespace magcal::tool;
using magcal::tooltest::ScratchDir;
using magcal::tooltest::split;
using magcal::tooltest::write_text;

TEST(LogConvert, TimestampsConvertExactlyFromEveryUnit) {
    struct Case {
        const char* text;
        int exponent;
        int64_t ns;
    };
    const Case cases[] = {
        {"1699999999.123456789", 0, 1699999999123456789},  // epoch seconds: no double could
        {"1699999999123.4567", -3, 1699999999123456700},
        {"20000", -6, 20000000},
        {"-1.5", -9, -2},  // half away from zero
        {"0.49", -9, 0},
        {"2.0000000005", 0, 2000000001},  // the tenth digit rounds
        {"1.5e3", -3, 1500000000},
        {"+7", -9, 7},
        {".25", 0, 250000000},
        {"9223372036854775807", -9, INT64_MAX},
        {"-9223372036854775808", -9, INT64_MIN},
    };
    for (const Case& c : cases) {
        int64_t ns = 0;
        ASSERT_TRUE(parse_timestamp_ns(c.text, c.exponent, &ns)) << c.text;
        EXPECT_EQ(ns, c.ns) << c.text;
    }
    int64_t ns = 0;
    for (const char* bad : {"", "-", ".", "1.2.3", "12:00:01", "1e", "0x10", "nan",
                            "9223372036854775808", "9223372036854.775808"}) {
        EXPECT_FALSE(parse_timestamp_ns(bad, bad[0] == '9' && bad[13] == '.' ? -3 : -9, &ns))
            << bad;
    }
}

// A short simulated session written in foreign layouts must come back as
// the same samples (to float precision after a unit conversion).
std::string values(const magcal::sim::Sample& s, double scale, char separator) {
    char buf[100];
    std::snprintf(buf, sizeof buf, "%.9g%c%.9g%c%.9g", s.v[0] * scale, separator, s.v[1] * scale,
                  separator, s.v[2] * scale);
    return buf;
}

class Foreign : public ::testing::Test {
  protected:
    void SetUp() override {
        magcal::sim::Config c;
        c.duration_s = 2.0;
        c.jitter_s = 0.003;  // timestamps not on a grid, and sensors out of step
        samples_ = magcal::sim::simulate(c).samples;
    }

    // Every sample of `sensor` as a line: its values times `scale` and its
    // time in milliseconds, first or last.
    std::string lines(Sensor sensor, double scale, char separator, bool time_last) const {
        std::string text;
        for (const auto& s : samples_) {
            if (s.sensor != sensor) continue;
            char t[40];
            std::snprintf(t, sizeof t, "%.6f", s.t_ns / 1e6);
            text += time_last ? values(s, scale, separator) + separator + t + "\n"
                              : t + (separator + values(s, scale, separator)) + "\n";
        }
        return text;
    }

    void expect_same(const Conversion& c, double tolerance) const {
        ASSERT_EQ(c.records.size(), samples_.size());
        // In time order, acc and gyro before mag at one instant: what the
        // simulator writes too.
        for (size_t i = 0; i < samples_.size(); ++i) {
            EXPECT_EQ(c.records[i].t_ns, samples_[i].t_ns) << i;
            EXPECT_EQ(c.records[i].sensor, samples_[i].sensor) << i;
            for (int k = 0; k < 3; ++k) {
                EXPECT_NEAR(c.records[i].v[k], samples_[i].v[k],
                            tolerance * (1.0 + std::fabs(samples_[i].v[k])))
                    << i;
            }
        }
    }

    ScratchDir dir_;
    std::vector<magcal::sim::Sample> samples_;
};

TEST_F(Foreign, PerSensorFilesInOtherUnitsSeparatorsAndEncodings) {
    // acc: ';' with decimal commas, a byte-order mark and a comment, in g;
    // gyro: tab-separated, no header, in deg/s; mag: gauss, compressed,
    // time in the last column. Time in fractional milliseconds throughout.
    std::string acc = "\xef\xbb\xbf# exported\ntime_ms;ax;ay;az\n" +
                      lines(Sensor::Acc, 1.0 / 9.80665, ';', false);
    std::replace(acc.begin(), acc.end(), '.', ',');
    write_text(dir_.file("acc.csv"), acc);
    write_text(dir_.file("gyro.tsv"), lines(Sensor::Gyro, 180.0 / 3.141592653589793, '\t', false));
    write_text(dir_.file("mag.csv"), "mx,my,mz,time\n" + lines(Sensor::Mag, 0.01, ',', true));
    ASSERT_EQ(std::system(("gzip " + dir_.file("mag.csv")).c_str()), 0);

    ConvertOptions o;
    o.sources = {{Sensor::Mag, dir_.file("mag.csv.gz"), {"mx", "my", "mz"}, 100.0},
                 {Sensor::Gyro, dir_.file("gyro.tsv"), {}, 3.141592653589793 / 180.0},
                 {Sensor::Acc, dir_.file("acc.csv"), {"2", "3", "4"}, 9.80665}};
    o.time_exponent = -3;
    // The time column is the first of acc and gyro, the last of mag: one
    // call per layout, then merged as logs.
    o.time_column = "1";
    ConvertOptions first_column = o;
    first_column.sources.erase(first_column.sources.begin());
    const Conversion acc_gyro = convert_recordings(first_column);
    // Source lines, for messages: after the mark, comment and header; and the
    // gyro file's first line, as it has no header.
    EXPECT_EQ(acc_gyro.records[0].line, 3);
    EXPECT_EQ(acc_gyro.records[1].line, 1);
    ConvertOptions last_column = o;
    last_column.sources.resize(1);
    last_column.time_column = "time";
    const Conversion mag = convert_recordings(last_column);

    std::FILE* log = std::fopen(dir_.file("parts.csv").c_str(), "w");
    write_log_header(log);
    for (const Conversion* part : {&mag, &acc_gyro}) {
        for (const LogRecord& r : part->records) write_log_record(log, r.t_ns, r.sensor, r.v);
    }
    std::fclose(log);
    ConvertOptions merge;
    merge.logs = {dir_.file("parts.csv")};
    expect_same(convert_recordings(merge), 1e-6);
}

TEST_F(Foreign, OneWideFileWithEmptyCellsWhereASensorHasNoSample) {
    // Rows as a logger that samples every sensor on its own clock writes
    // them: one row per sample, the other sensors' cells empty.
    std::string text = "t,ax,ay,az,gx,gy,gz,mx,my,mz,note\n";
    for (const auto& s : samples_) {
        std::string cells[3] = {",,", ",,", ",,"};
        cells[static_cast<int>(s.sensor)] = values(s, 1.0, ',');
        text +=
            std::to_string(s.t_ns) + "," + cells[0] + "," + cells[1] + "," + cells[2] + ",text\n";
    }
    write_text(dir_.file("wide.csv"), text);
    ConvertOptions o;
    o.sources = {{Sensor::Mag, dir_.file("wide.csv"), {"mx", "my", "mz"}, 1.0},
                 {Sensor::Acc, dir_.file("wide.csv"), {"ax", "ay", "az"}, 1.0},
                 {Sensor::Gyro, dir_.file("wide.csv"), {"5", "6", "7"}, 1.0}};
    o.time_column = "t";
    const Conversion c = convert_recordings(o);
    EXPECT_EQ(c.files.size(), 1u);  // read once for all three sensors
    expect_same(c, 0.0);            // SI units: the very same floats
}

TEST(LogConvert, ErrorsNameFileLineAndWhatIsThere) {
    ScratchDir dir;
    const struct {
        std::string text;
        const char* columns;  // "x,y,q"; "" for none
        const char* time;
        const char* message;  // after the file name
    } cases[] = {
        {"t,x,y,z\n1,2,3,4\n", "x,y,q", "t",
         ":1: no column named \"q\" (the header has \"t\", \"x\", \"y\", \"z\")"},
        {"1,2,3,4\n", "x,y,z", "1", ":1: no column named \"x\" (the file has no header line)"},
        {"1,2,3,4\n", "2,3,9", "1", ":1: no column 9: the line has 4 columns"},
        {"1,2,3\n", "", "1",
         ":1: mag: no column 4 after the time column: name the columns (--mag FILE:X,Y,Z)"},
        {"t,x,y,z\n1,2,,4\n", "", "t", ":2: field 'mag y': not a number: \"\""},
        {"t,x,y,z\n,2,3,4\n", "", "t", ":2: no timestamp in column 1"},
        {"t,x,y,z\n12:00,2,3,4\n", "", "t",
         ":2: timestamp: not a number that fits in 64-bit nanoseconds: \"12:00\""},
        {std::string("\xff\xfet\0,\0", 6), "", "t",
         ":1: UTF-16 text; save the file as UTF-8 first"},
        {"# only a comment\n", "", "1", ": no data"},
    };
    for (const auto& c : cases) {
        write_text(dir.file("in.csv"), c.text);
        ConvertOptions o;
        o.sources = {{Sensor::Mag, dir.file("in.csv"),
                      *c.columns ? split(c.columns, ',') : std::vector<std::string>{}, 1.0}};
        o.time_column = c.time;
        try {
            convert_recordings(o);
            ADD_FAILURE() << "no error for " << c.message;
        } catch (const InputError& e) {
            EXPECT_EQ(std::string(e.what()), dir.file("in.csv") + c.message);
        }
    }
}

}  // namespace
