// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The plug-in as a sensor service sees it: loaded with dlopen, reached only
// through MAG_LIB_API_INTERFACE. Each test runs in its own process (ctest),
// so each sees a freshly loaded library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cctype>
#include <cstring>
#include <fstream>
#include <set>
#include <string>

#include "magcal/magcal_decision_snapshot.h"
#include "magcal/magcal_host.h"
#include "sim/session_simulator.h"

namespace {

class Plugin : public testing::Test {
protected:
    void SetUp() override {
        handle_ = dlopen(MAGCAL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        api_ = static_cast<const MagLibApiInterface*>(dlsym(handle_, "MAG_LIB_API_INTERFACE"));
        ASSERT_NE(api_, nullptr);
    }
    void TearDown() override {
        if (handle_ != nullptr) dlclose(handle_);
    }

    static SensorSample sample(int64_t t_ns, float x, float y, float z) {
        SensorSample s;
        s.timestamp = t_ns;
        s.x = x;
        s.y = y;
        s.z = z;
        s.status = 3;
        return s;
    }

    // Feeds a simulated session through the table; returns the last result.
    CalibratedMagResult feed(const magcal::sim::Session& session) {
        CalibratedMagResult last{};
        for (const auto& s : session.samples) {
            const SensorSample in = sample(s.t_ns, s.v[0], s.v[1], s.v[2]);
            switch (s.sensor) {
                case magcal::sim::Sensor::Acc: api_->caliApiSetAccData(&in); break;
                case magcal::sim::Sensor::Gyro: api_->caliApiSetGyroData(&in); break;
                case magcal::sim::Sensor::Mag: api_->doCaliApi(&in, &last); break;
            }
        }
        return last;
    }

    void* handle_ = nullptr;
    const MagLibApiInterface* api_ = nullptr;
};

magcal::sim::Session short_figure8(double seconds) {
    magcal::sim::Config config;
    config.duration_s = seconds;
    return magcal::sim::simulate(config);
}

TEST_F(Plugin, TableCarriesItsNameAndTheEntryPointsInSlotOrder) {
    EXPECT_STREQ(api_->name, "MAG_LIB_API_INTERFACE");
    const char* names[] = {"QVG_initLib",          "QVG_enableLib",
                           "QVG_caliApiGetOffset", "QVG_caliApiSetOffset",
                           "QVG_caliApiSetGyroData", "QVG_caliApiSetAccData",
                           "QVG_SetMagData",       "QVG_doCaliApi",
                           "QVG_getGravity",       "QVG_getRotationVector",
                           "QVG_getOrientation",   "QVG_getLinearaccel",
                           "QVG_getGameRotationVector", "QVG_getGeoMagnetic",
                           "QVG_getVirtualGyro"};
    void* const* slots = reinterpret_cast<void* const*>(&api_->initLib);
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(slots[i], dlsym(handle_, names[i])) << "slot " << i + 1 << " " << names[i];
    EXPECT_NE(dlsym(handle_, "QVG_caliApiSetMagData"), nullptr);
    EXPECT_NE(dlsym(handle_, "QVG_LoadPDC"), nullptr);
}

TEST_F(Plugin, MagnetometerSampleThroughSlotSevenChangesNothing) {
    api_->initLib();
    const SensorSample acc = sample(1000, 0.0f, 0.0f, 9.8f);
    const SensorSample gyro = sample(1000, 0.1f, 0.0f, 0.0f);
    const SensorSample mag = sample(2000, 10.0f, 20.0f, -40.0f);
    api_->caliApiSetAccData(&acc);
    api_->caliApiSetGyroData(&gyro);
    FusionOutput before{};
    api_->getGeoMagnetic(&before);
    EXPECT_EQ(api_->setMagData(&mag), 0);
    FusionOutput after{};
    api_->getGeoMagnetic(&after);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof after), 0);
    EXPECT_EQ(after.timestamp, 0);
    float offset[3] = {9, 9, 9};
    api_->caliApiGetOffset(offset);
    EXPECT_EQ(offset[0], 0.0f);

    // The same sample through QVG_doCaliApi is processed.
    CalibratedMagResult result{};
    api_->doCaliApi(&mag, &result);
    api_->getGeoMagnetic(&after);
    EXPECT_EQ(after.timestamp, 2000);
}

TEST_F(Plugin, SampleBeforeTheOtherSensorsGivesZerosWithTheNewTimestamp) {
    api_->initLib();
    CalibratedMagResult result;
    std::memset(&result, 0xAB, sizeof result);
    const SensorSample mag = sample(123456789, 10.0f, 20.0f, -40.0f);
    EXPECT_EQ(api_->doCaliApi(&mag, &result), 0);
    EXPECT_EQ(result.timestamp, 123456789);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(result.field[k], 0.0f);
        EXPECT_EQ(result.offset[k], 0.0f);
    }
    EXPECT_EQ(result.accuracy, 0);
    for (int k = 0; k < 7; ++k) EXPECT_EQ(result.tail[k], 0xAB);  // bytes 33-39 untouched
    FusionOutput out{};
    api_->getGravity(&out);
    EXPECT_EQ(out.timestamp, 0);  // nothing was published

    // With only the accelerometer it is still not processed.
    const SensorSample acc = sample(1, 0.0f, 0.0f, 9.8f);
    api_->caliApiSetAccData(&acc);
    api_->doCaliApi(&mag, &result);
    api_->getGravity(&out);
    EXPECT_EQ(out.timestamp, 0);
}

TEST_F(Plugin, GettersWriteOnlyTimestampValuesAndAccuracy) {
    api_->initLib();
    feed(short_figure8(3.0));
    const QvgGetterFn getters[] = {api_->getGravity,         api_->getRotationVector,
                                   api_->getOrientation,     api_->getLinearaccel,
                                   api_->getGameRotationVector, api_->getGeoMagnetic,
                                   api_->getVirtualGyro};
    for (const QvgGetterFn get : getters) {
        FusionOutput out;
        std::memset(&out, 0x5A, sizeof out);
        ASSERT_EQ(get(&out), 0);
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&out);
        for (int b = 20; b < 32; ++b) EXPECT_EQ(bytes[b], 0x5A) << "byte " << b;
        for (int b = 33; b < 40; ++b) EXPECT_EQ(bytes[b], 0x5A) << "byte " << b;
        EXPECT_NE(out.timestamp, 0x5A5A5A5A5A5A5A5A);
        EXPECT_LE(out.accuracy, 3);
    }
    FusionOutput rv, game;
    std::memset(&rv, 0, sizeof rv);
    std::memset(&game, 0, sizeof game);
    api_->getRotationVector(&rv);
    api_->getGameRotationVector(&game);
    EXPECT_EQ(std::memcmp(&rv, &game, sizeof rv), 0);
}

TEST_F(Plugin, ShortSessionThroughTheTableProducesConsistentOutputs) {
    api_->initLib();
    const magcal::sim::Session session = short_figure8(10.0);
    const CalibratedMagResult last = feed(session);
    EXPECT_EQ(last.timestamp, session.samples.back().t_ns);
    FusionOutput gravity, linear, virtual_gyro, rv;
    api_->getGravity(&gravity);
    api_->getLinearaccel(&linear);
    api_->getVirtualGyro(&virtual_gyro);
    api_->getRotationVector(&rv);
    EXPECT_EQ(gravity.timestamp, last.timestamp);
    EXPECT_NEAR(std::sqrt(gravity.values[0] * gravity.values[0] +
                          gravity.values[1] * gravity.values[1] +
                          gravity.values[2] * gravity.values[2]),
                9.79, 1e-3);
    // The virtual gyroscope passes the last gyroscope sample through.
    const auto& last_gyro = session.samples[session.samples.size() - 2];
    ASSERT_EQ(last_gyro.sensor, magcal::sim::Sensor::Gyro);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(virtual_gyro.values[k], last_gyro.v[k]);
    // The rotation vector is a unit quaternion's vector part.
    const double n2 = rv.values[0] * rv.values[0] + rv.values[1] * rv.values[1] +
                      rv.values[2] * rv.values[2];
    EXPECT_LE(n2, 1.0 + 1e-6);
}

TEST_F(Plugin, OffsetRoundTripAndRestartKeepsWhatWasLearnt) {
    api_->initLib();
    const float stored[3] = {12.5f, -3.25f, 40.0f};
    api_->caliApiSetOffset(stored);
    float read[3] = {0, 0, 0};
    api_->caliApiGetOffset(read);
    EXPECT_EQ(read[0], 12.5f);
    EXPECT_EQ(read[1], -3.25f);
    EXPECT_EQ(read[2], 40.0f);

    api_->initLib();
    const CalibratedMagResult learnt = feed(short_figure8(40.0));
    ASSERT_GT(learnt.accuracy, 0);
    float before[3];
    api_->caliApiGetOffset(before);
    api_->initLib();  // keeps the fusion state, asks for a restart
    float cleared[3] = {1, 1, 1};
    api_->caliApiGetOffset(cleared);
    EXPECT_EQ(cleared[0], 0.0f);  // the last result was cleared ...
    const SensorSample acc = sample(1, 0.0f, 0.0f, 9.8f);
    const SensorSample gyro = sample(1, 0.0f, 0.0f, 0.0f);
    const SensorSample mag = sample(2, 10.0f, 20.0f, -40.0f);
    api_->caliApiSetAccData(&acc);
    api_->caliApiSetGyroData(&gyro);
    CalibratedMagResult after{};
    api_->doCaliApi(&mag, &after);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(after.offset[k], before[k]);  // ... the offset was not
}

std::set<std::string> exported_symbols(const char* library = MAGCAL_PLUGIN_PATH) {
    const std::string command =
        std::string(MAGCAL_NM_COMMAND) + " -D --defined-only --format=posix " + library;
    std::set<std::string> names;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return names;
    char line[512];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        char name[256];
        char type = 0;
        if (std::sscanf(line, "%255s %c", name, &type) == 2) names.insert(name);
    }
    pclose(pipe);
    return names;
}

// The documented interface: every name the public headers declare with
// MAGCAL_API (a function name before its '(', an object name before '[' or ';').
std::set<std::string> documented_symbols() {
    std::set<std::string> names;
    for (const char* header : {"magcal_host.h", "magcal_algorithms.h"}) {
        std::ifstream in(std::string(MAGCAL_INCLUDE_DIR) + "/magcal/" + header);
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("MAGCAL_API ", 0) != 0) continue;
            size_t end = line.find_first_of("([;");
            size_t begin = end;
            while (begin > 0 && (std::isalnum(static_cast<unsigned char>(line[begin - 1])) ||
                                 line[begin - 1] == '_'))
                --begin;
            names.insert(line.substr(begin, end - begin));
        }
    }
    return names;
}

TEST(PluginSymbols, ExportsExactlyTheDocumentedNames) {
    const std::set<std::string> expected = documented_symbols();
    ASSERT_GT(expected.size(), 100u);
    for (const char* name : {"MAG_LIB_API_INTERFACE", "QVG_caliApiSetMagData", "QVG_LoadPDC",
                             "getJsonCalibration", "qt_gy_p", "accuracy3_offset_diff_th"})
        EXPECT_TRUE(expected.count(name)) << name;
    std::set<std::string> actual = exported_symbols();
    ASSERT_FALSE(actual.empty()) << "could not list the plug-in's dynamic symbols";
    // Sanitizer builds add their own runtime hooks; they are not the library's interface.
    for (auto it = actual.begin(); it != actual.end();)
        it = (it->rfind("__", 0) == 0) ? actual.erase(it) : std::next(it);
    for (const std::string& name : expected) EXPECT_TRUE(actual.count(name)) << "missing " << name;
    for (const std::string& name : actual) EXPECT_TRUE(expected.count(name)) << "unexpected " << name;
}

// Symbols that the plug-in's procedure linkage table resolves at load time.
std::set<std::string> plt_symbols() {
    const std::string command = std::string(MAGCAL_READELF_COMMAND) + " -rW " MAGCAL_PLUGIN_PATH;
    std::set<std::string> names;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        char offset[64], info[64], type[64], value[64], name[512];
        if (std::sscanf(line, "%63s %63s %63s %63s %511s", offset, info, type, value, name) == 5 &&
            std::string(type).find("JUMP_SLOT") != std::string::npos)
            names.insert(name);
    }
    pclose(pipe);
    return names;
}

// The library's calls to its own exported functions are bound when it is
// linked, so none of them costs a lookup or can be replaced by the host.
TEST(PluginSymbols, InternalCallsNeverGoThroughTheDynamicSymbolTable) {
    const std::set<std::string> own = exported_symbols(MAGCAL_PLUGIN_PATH);
    ASSERT_TRUE(own.count("qvmtx_mulm")) << "could not list the plug-in's dynamic symbols";
    const std::set<std::string> plt = plt_symbols();
    ASSERT_FALSE(plt.empty()) << "could not list the plug-in's relocations";
    for (const std::string& name : plt)
        EXPECT_FALSE(own.count(name)) << name << " goes through the PLT";
}

// The tools' library is the plug-in plus exactly one name; hosts never get it.
TEST(PluginSymbols, TraceLibraryAddsOnlyTheDecisionSnapshot) {
    std::set<std::string> expected = exported_symbols(MAGCAL_PLUGIN_PATH);
    ASSERT_FALSE(expected.empty());
    EXPECT_FALSE(expected.count("magcal_decision_snapshot"));
    expected.insert("magcal_decision_snapshot");
    EXPECT_EQ(exported_symbols(MAGCAL_TRACE_PLUGIN_PATH), expected);

    void* plugin = dlopen(MAGCAL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(dlsym(plugin, "magcal_decision_snapshot"), nullptr);
    dlclose(plugin);
}

TEST(PluginSymbols, DecisionSnapshotRefusesAnotherLayoutAndWritesNothing) {
    void* lib = dlopen(MAGCAL_TRACE_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr);
    using Snapshot = int32_t (*)(MagcalDecisionSnapshot*, size_t);
    const auto snapshot = reinterpret_cast<Snapshot>(dlsym(lib, "magcal_decision_snapshot"));
    ASSERT_NE(snapshot, nullptr);
    MagcalDecisionSnapshot s;
    std::memset(&s, 0xA5, sizeof s);
    EXPECT_EQ(snapshot(&s, sizeof s - 8), -1);
    EXPECT_EQ(snapshot(&s, sizeof s + 8), -1);
    EXPECT_EQ(snapshot(nullptr, sizeof s), -1);
    EXPECT_EQ(s.size, 0xA5A5A5A5u);
    EXPECT_EQ(s.accuracy, static_cast<int32_t>(0xA5A5A5A5u));
    ASSERT_EQ(snapshot(&s, sizeof s), 0);
    EXPECT_EQ(s.size, sizeof s);
    EXPECT_EQ(s.version, static_cast<uint32_t>(MAGCAL_DECISION_SNAPSHOT_VERSION));
    // Fresh state: the library's load-time values, not the fill pattern.
    EXPECT_EQ(s.period_10ms, 2);
    EXPECT_EQ(s.ref_acc_z, static_cast<double>(9.8f));
    EXPECT_EQ(s.accuracy3_offset_diff_th, 15.0);
    EXPECT_EQ(s.start_radius_tol, 10.0);
    EXPECT_EQ(s.accuracy, 0);
    dlclose(lib);
}

}  // namespace
