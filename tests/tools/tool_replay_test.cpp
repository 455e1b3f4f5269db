// magcal replay against the plug-in itself: the tool runs as a child process
// (the library's state is process-wide), and this process loads a private
// copy of the same plug-in, feeds it the same log through the host table and
// compares every output bit for bit with the tool's CSV.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "magcal/magcal_host.h"
#include "tool_test_support.h"

namespace {

using magcal::sim::Scenario;
using magcal::sim::Sensor;
using magcal::tooltest::CsvTable;
using magcal::tooltest::LogLine;
using magcal::tooltest::run_tool;
using magcal::tooltest::ScratchDir;
using magcal::tooltest::ToolRun;
using magcal::tooltest::write_text;

// A private copy of the plug-in, so that this process starts from fresh
// library state whatever ran before it.
class PluginCopy {
  public:
    explicit PluginCopy(const ScratchDir& dir) {
        const std::string copy = dir.file("libmagcal-copy.so");
        std::filesystem::copy_file(MAGCAL_PLUGIN_PATH, copy);
        handle_ = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle_ != nullptr) {
            api_ = static_cast<const MagLibApiInterface*>(dlsym(handle_, "MAG_LIB_API_INTERFACE"));
        }
    }
    ~PluginCopy() {
        if (handle_ != nullptr) dlclose(handle_);
    }
    const MagLibApiInterface* api() const { return api_; }
    void* symbol(const char* name) const { return dlsym(handle_, name); }

  private:
    void* handle_ = nullptr;
    const MagLibApiInterface* api_ = nullptr;
};

bool same_float(float expected, const std::string& text) {
    const float got = std::strtof(text.c_str(), nullptr);
    if (std::isnan(expected)) return std::isnan(got);
    uint32_t a, b;
    std::memcpy(&a, &expected, 4);
    std::memcpy(&b, &got, 4);
    return a == b;
}

void expect_floats(const CsvTable& t, size_t row, const char* prefix, const float* v,
                   const char* const names[3]) {
    for (int k = 0; k < 3; ++k) {
        const std::string column = std::string(prefix) + names[k];
        EXPECT_TRUE(same_float(v[k], t.text(row, column)))
            << "row " << row << " " << column << ": table " << v[k] << ", tool "
            << t.text(row, column);
    }
}

SensorSample sample_of(const LogLine& l) {
    SensorSample s;
    std::memset(&s, 0, sizeof s);
    s.timestamp = l.t_ns;
    s.x = l.v[0];
    s.y = l.v[1];
    s.z = l.v[2];
    s.status = l.status;
    return s;
}

double wrap180(double deg) {
    while (deg > 180.0) deg -= 360.0;
    while (deg <= -180.0) deg += 360.0;
    return deg;
}

// Compass heading of the device +y axis [deg] in the attitude of a rotation
// vector, found by rotating the axis, q (0, 0, 1, 0) q*, with the Hamilton
// product and reading its east and north components.
double heading_by_rotating_y(const float* rv) {
    const double x = rv[0], y = rv[1], z = rv[2];
    const double w = std::sqrt(std::max(0.0, 1.0 - x * x - y * y - z * z));
    // p = q (0, 0, 1, 0)
    const double pw = -y, px = -z, py = w, pz = x;
    // p q*, with q* = (w, -x, -y, -z); only the x (east) and y (north) parts
    const double east = -pw * x + px * w - py * z + pz * y;
    const double north = -pw * y + px * z + py * w - pz * x;
    return std::atan2(east, north) * 180.0 / 3.141592653589793;
}

magcal::sim::Config session_config(Scenario scenario, double duration, uint64_t seed) {
    magcal::sim::Config c;
    c.scenario = scenario;
    c.duration_s = duration;
    c.seed = seed;
    return c;
}

TEST(ToolReplay, OutputsEqualDirectTableCallsBitForBit) {
    ScratchDir dir;
    const magcal::sim::Session session =
        magcal::sim::simulate(session_config(Scenario::Figure8, 8.0, 3));
    std::vector<LogLine> lines = magcal::tooltest::log_lines(session);
    // Awkward records the tool must pass through unchanged, with the
    // processed flag the host-side rules predict.
    const int64_t t0 = lines.front().t_ns;
    lines.insert(lines.begin(), {t0 - 5'000'000, Sensor::Mag, {10.0f, 20.0f, 30.0f}, 0, false});
    const size_t mid = 3 * 200;  // tick 200, 4 s in
    const int64_t tm = lines[mid].t_ns;
    const std::vector<LogLine> extra{
        {tm - 300'000'000, Sensor::Mag, {30.0f, -20.0f, 70.0f}, 5, true},  // back in time
        {tm + 1, Sensor::Mag, {0.0f, 0.0f, 0.0f}, 0, false},               // zero field
        {tm + 2, Sensor::Mag, {5000.0f, 0.0f, 0.0f}, 0, false},            // beyond 4914 uT
        {tm + 3, Sensor::Acc, {0.0f, 0.0f, 0.0f}, 0, false},               // zero gravity...
        {tm + 4, Sensor::Mag, {30.0f, -20.0f, 70.0f}, 0, false},           // ...refuses this
        {tm + 5, Sensor::Acc, {0.0f, 0.5f, 9.7f}, 2, true}};
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(mid), extra.begin(), extra.end());
    write_text(dir.file("log.csv"), magcal::tooltest::log_text(lines));

    std::string truth =
        "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut\n";
    char buf[300];
    for (const auto& r : session.truth) {
        std::snprintf(buf, sizeof buf,
                      "%lld,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g\n",
                      static_cast<long long>(r.t_ns), r.q_world_from_body[0],
                      r.q_world_from_body[1], r.q_world_from_body[2], r.q_world_from_body[3],
                      r.heading_deg, r.offset_ut[0], r.offset_ut[1], r.offset_ut[2], r.field_ut);
        truth += buf;
    }
    write_text(dir.file("truth.csv"), truth);

    const ToolRun run = run_tool({"replay", dir.file("log.csv"), "-o", dir.file("results.csv"),
                                  "--truth", dir.file("truth.csv"), "--plugin", MAGCAL_PLUGIN_PATH},
                                 dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const CsvTable t(dir.file("results.csv"));

    PluginCopy plugin(dir);
    const MagLibApiInterface* api = plugin.api();
    ASSERT_NE(api, nullptr) << dlerror();
    api->initLib();

    static const char* const xyz[3] = {"x", "y", "z"};
    static const char* const apr[3] = {"azimuth", "pitch", "roll"};
    bool acc_seen = false, gyro_seen = false, acc_zero = false;
    size_t row = 0, refused = 0;
    int64_t previous_t = INT64_MIN;
    bool went_back = false;
    for (const LogLine& l : lines) {
        const SensorSample s = sample_of(l);
        if (l.sensor == Sensor::Acc) {
            api->caliApiSetAccData(&s);
            acc_seen = true;
            acc_zero = l.v[0] == 0.0f && l.v[1] == 0.0f && l.v[2] == 0.0f;
            continue;
        }
        if (l.sensor == Sensor::Gyro) {
            api->caliApiSetGyroData(&s);
            gyro_seen = true;
            continue;
        }
        ASSERT_LT(row, t.size());
        CalibratedMagResult out;
        FusionOutput rv, ori, grav, lin, game, geo, vg;
        for (void* p :
             {static_cast<void*>(&out), static_cast<void*>(&rv), static_cast<void*>(&ori),
              static_cast<void*>(&grav), static_cast<void*>(&lin), static_cast<void*>(&game),
              static_cast<void*>(&geo), static_cast<void*>(&vg)}) {
            std::memset(p, 0, 40);
        }
        api->doCaliApi(&s, &out);
        api->getRotationVector(&rv);
        api->getOrientation(&ori);
        api->getGravity(&grav);
        api->getLinearaccel(&lin);
        api->getGameRotationVector(&game);
        api->getGeoMagnetic(&geo);
        api->getVirtualGyro(&vg);

        EXPECT_EQ(t.i(row, "t_ns"), l.t_ns) << "row " << row;
        went_back |= l.t_ns < previous_t;
        previous_t = l.t_ns;
        expect_floats(t, row, "mag_", l.v.data(), xyz);
        expect_floats(t, row, "cal_", out.field, xyz);
        expect_floats(t, row, "offset_", out.offset, xyz);
        EXPECT_EQ(t.i(row, "accuracy"), out.accuracy) << "row " << row;
        expect_floats(t, row, "rv_", rv.values, xyz);
        expect_floats(t, row, "", ori.values, apr);
        expect_floats(t, row, "gravity_", grav.values, xyz);
        expect_floats(t, row, "linacc_", lin.values, xyz);
        expect_floats(t, row, "game_rv_", game.values, xyz);
        expect_floats(t, row, "geomag_", geo.values, xyz);
        expect_floats(t, row, "vgyro_", vg.values, xyz);

        const double length =
            std::sqrt(double{l.v[0]} * l.v[0] + double{l.v[1]} * l.v[1] + double{l.v[2]} * l.v[2]);
        const bool processed =
            acc_seen && gyro_seen && !acc_zero && length != 0.0 && length <= 4914.0;
        refused += !processed;
        EXPECT_EQ(t.i(row, "processed"), processed ? 1 : 0) << "row " << row;

        // Truth columns: filled where the simulator has a row for the timestamp.
        const auto* truth_row = [&]() -> const magcal::sim::TruthRow* {
            for (const auto& r : session.truth)
                if (r.t_ns == l.t_ns) return &r;
            return nullptr;
        }();
        if (truth_row == nullptr) {
            EXPECT_EQ(t.text(row, "offset_error"), "") << "row " << row;
            EXPECT_EQ(t.text(row, "fused_heading_err"), "") << "row " << row;
        } else {
            double e2 = 0.0;
            for (int k = 0; k < 3; ++k) {
                const double d = double{out.offset[k]} - truth_row->offset_ut[k];
                e2 += d * d;
            }
            EXPECT_NEAR(t.d(row, "offset_error"), std::sqrt(e2), 1e-9) << "row " << row;
            double dh = double{ori.values[0]} - truth_row->heading_deg;
            while (dh > 180.0) dh -= 360.0;
            while (dh <= -180.0) dh += 360.0;
            EXPECT_NEAR(t.d(row, "heading_error"), dh, 1e-9) << "row " << row;
            EXPECT_EQ(t.d(row, "truth_heading"), truth_row->heading_deg);
            EXPECT_NEAR(t.d(row, "fused_heading_err"),
                        wrap180(t.d(row, "fused_heading") - truth_row->heading_deg), 1e-9)
                << "row " << row;
        }
        const double fused = t.d(row, "fused_heading");
        EXPECT_TRUE(fused >= 0.0 && fused < 360.0) << "row " << row << ": " << fused;
        EXPECT_NEAR(wrap180(fused - heading_by_rotating_y(rv.values)), 0.0, 1e-9) << "row " << row;
        ++row;
    }
    EXPECT_EQ(row, t.size());
    EXPECT_TRUE(went_back);
    EXPECT_EQ(refused, 4u);  // before acc/gyro, zero field, 5000 uT, zero acc
    EXPECT_NE(run.out.find("mag processed      401, refused 4"), std::string::npos) << run.out;
}

TEST(ToolReplay, SoftIronFileIsInstalledAfterInitialisation) {
    // A non-symmetric distortion, so that applying S transposed would show.
    ScratchDir dir;
    const ToolRun sim =
        run_tool({"simulate", "--scenario", "figure8", "--duration", "3", "--seed", "4", "-o",
                  dir.file("log.csv"), "--soft-iron", "1.2,0.1,0, -0.05,0.9,0.02, 0,0.03,1.1",
                  "--softiron-out", dir.file("soft.json")},
                 dir);
    ASSERT_EQ(sim.status, 0) << sim.err;
    const ToolRun run = run_tool({"replay", dir.file("log.csv"), "-o", dir.file("results.csv"),
                                  "--softiron", dir.file("soft.json")},
                                 dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const CsvTable t(dir.file("results.csv"));
    ASSERT_EQ(t.size(), 150u);

    // The first processed sample is corrected but not yet offset-corrected
    // or averaged: its calibrated field is A^-1 raw.
    const double inv_a[9] = {0.82949076946294,  -0.09222153288955, 0.00167675514345,
                             0.04611076644478,  1.10665839467463,  -0.02012106172136,
                             -0.00125756635758, -0.03018159258204, 0.90963966531967};
    for (int i = 0; i < 3; ++i) {
        const double expected = inv_a[3 * i] * t.f(0, "mag_x") +
                                inv_a[3 * i + 1] * t.f(0, "mag_y") +
                                inv_a[3 * i + 2] * t.f(0, "mag_z");
        EXPECT_NEAR(t.f(0, i == 0   ? "cal_x"
                           : i == 1 ? "cal_y"
                                    : "cal_z"),
                    expected, 1e-5 * std::fabs(expected) + 1e-5);
    }

    // And every output equals a host that installs the same file itself.
    PluginCopy plugin(dir);
    ASSERT_NE(plugin.api(), nullptr);
    const MagLibApiInterface* api = plugin.api();
    api->initLib();
    using ReadJson = decltype(&getJsonCalibration);
    using Install = int32_t (*)(const double*);
    const auto read_json = reinterpret_cast<ReadJson>(plugin.symbol("getJsonCalibration"));
    const auto install = reinterpret_cast<Install>(plugin.symbol("QvGyroCal_config_softiron"));
    ASSERT_TRUE(read_json != nullptr && install != nullptr);
    double m[9];
    ASSERT_EQ(read_json(dir.file("soft.json").c_str(), "qvg", m, 9), 0);
    install(m);
    size_t row = 0;
    for (const LogLine& l : magcal::tooltest::log_lines(magcal::sim::simulate([] {
             magcal::sim::Config c = session_config(Scenario::Figure8, 3.0, 4);
             c.soft_iron = {1.2, 0.1, 0.0, -0.05, 0.9, 0.02, 0.0, 0.03, 1.1};
             return c;
         }()))) {
        const SensorSample s = sample_of(l);
        if (l.sensor == Sensor::Acc) {
            api->caliApiSetAccData(&s);
        } else if (l.sensor == Sensor::Gyro) {
            api->caliApiSetGyroData(&s);
        } else {
            CalibratedMagResult out;
            std::memset(&out, 0, sizeof out);
            api->doCaliApi(&s, &out);
            static const char* const xyz[3] = {"x", "y", "z"};
            expect_floats(t, row, "mag_", l.v.data(), xyz);
            expect_floats(t, row, "cal_", out.field, xyz);
            expect_floats(t, row, "offset_", out.offset, xyz);
            ++row;
        }
    }
    EXPECT_EQ(row, t.size());
}

TEST(ToolReplay, StateFileCarriesTheCalibrationIntoTheNextRun) {
    ScratchDir dir;
    const std::string state = dir.file("state.txt");

    // Run 1 learns a calibration by waving the phone and saves it.
    write_text(dir.file("wave.csv"),
               magcal::tooltest::log_text(magcal::tooltest::log_lines(
                   magcal::sim::simulate(session_config(Scenario::Figure8, 40.0, 5)))));
    ToolRun run = run_tool(
        {"replay", dir.file("wave.csv"), "-o", dir.file("wave-results.csv"), "--state", state},
        dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const CsvTable wave(dir.file("wave-results.csv"));
    ASSERT_GT(wave.size(), 0u);
    const size_t last = wave.size() - 1;
    const std::array<float, 3> saved{wave.f(last, "offset_x"), wave.f(last, "offset_y"),
                                     wave.f(last, "offset_z")};
    const int saved_accuracy = static_cast<int>(wave.i(last, "accuracy"));
    const double cx = wave.f(last, "cal_x"), cy = wave.f(last, "cal_y"), cz = wave.f(last, "cal_z");
    const double saved_radius = std::sqrt(cx * cx + cy * cy + cz * cz);
    char expected[400];
    std::snprintf(expected, sizeof expected, "offset %.9g %.9g %.9g\naccuracy %d\nradius %.17g\n",
                  double{saved[0]}, double{saved[1]}, double{saved[2]}, saved_accuracy,
                  saved_radius);
    const std::string state_text = magcal::tooltest::slurp(state);
    EXPECT_NE(state_text.find(expected), std::string::npos) << state_text;
    // Some calibration was learnt, or the round trip below would prove nothing.
    EXPECT_GT(std::fabs(saved[0]) + std::fabs(saved[1]) + std::fabs(saved[2]), 10.0f);

    // Run 2 holds the phone still: nothing can be learnt, so whatever it
    // publishes comes from the restored state.
    write_text(dir.file("still.csv"),
               magcal::tooltest::log_text(magcal::tooltest::log_lines(
                   magcal::sim::simulate(session_config(Scenario::Still, 3.0, 6)))));
    run = run_tool({"replay", dir.file("still.csv"), "-o", dir.file("fresh.csv")}, dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const CsvTable fresh(dir.file("fresh.csv"));
    run = run_tool(
        {"replay", dir.file("still.csv"), "-o", dir.file("restored.csv"), "--state", state}, dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("restored"), std::string::npos) << run.out;
    const CsvTable restored(dir.file("restored.csv"));
    ASSERT_EQ(restored.size(), 150u);
    ASSERT_EQ(fresh.size(), 150u);

    // The first processed sample seeds the filters from the start-up state;
    // from the next one on, the restored offset is the published one.
    for (size_t r = 1; r < restored.size(); ++r) {
        EXPECT_EQ(restored.f(r, "offset_x"), saved[0]) << "row " << r;
        EXPECT_EQ(restored.f(r, "offset_y"), saved[1]) << "row " << r;
        EXPECT_EQ(restored.f(r, "offset_z"), saved[2]) << "row " << r;
        EXPECT_EQ(fresh.f(r, "offset_x"), 0.0f) << "row " << r;
    }
    if (saved_accuracy >= 2) {
        EXPECT_EQ(restored.i(restored.size() - 1, "accuracy"), 3);
        EXPECT_EQ(fresh.i(fresh.size() - 1, "accuracy"), 0);
    }
    // And the run saves it again unchanged.
    const std::string after = magcal::tooltest::slurp(state);
    std::snprintf(expected, sizeof expected, "offset %.9g %.9g %.9g\n", double{saved[0]},
                  double{saved[1]}, double{saved[2]});
    EXPECT_NE(after.find(expected), std::string::npos) << after;

    // Run 3 turns the phone flat on the table under the restored calibration:
    // the fused attitude's heading follows the true one. A compass with 0.3 uT
    // of noise on the 22.5 uT horizontal field scatters by about 1 deg; a
    // wrong sign or axis convention would be off by tens of degrees.
    run = run_tool({"simulate", "--scenario", "flat-turns", "--duration", "10", "--seed", "6", "-o",
                    dir.file("turns.csv"), "--truth", dir.file("turns-truth.csv")},
                   dir);
    ASSERT_EQ(run.status, 0) << run.err;
    run = run_tool({"replay", dir.file("turns.csv"), "--truth", dir.file("turns-truth.csv"), "-o",
                    dir.file("turns-results.csv"), "--state", state},
                   dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const CsvTable turns(dir.file("turns-results.csv"));
    ASSERT_EQ(turns.size(), 500u);
    double sq = 0.0, turned = 0.0;
    for (size_t r = 1; r < turns.size(); ++r) {  // row 0 is the seeding sample
        const double e = turns.d(r, "fused_heading_err");
        sq += e * e;
        turned += std::fabs(wrap180(turns.d(r, "truth_heading") - turns.d(r - 1, "truth_heading")));
    }
    EXPECT_GT(turned, 180.0);  // it did turn
    EXPECT_LT(std::sqrt(sq / static_cast<double>(turns.size() - 1)), 3.0);
}

}  // namespace
