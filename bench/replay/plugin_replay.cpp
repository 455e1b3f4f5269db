// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Replays a recorded sensor log through the plug-in exactly as a host does:
// dlopen, resolve MAG_LIB_API_INTERFACE, initLib, then for every line of the
// log the accelerometer or gyroscope setter, or doCaliApi followed by all
// seven getters. The log is parsed before any timing starts.
//
//   magcal_plugin_replay [--rounds N] [--perturb SEED] LOG PLUGIN [BASELINE]
//
// With --perturb the parsed log is changed, the same way for a given seed,
// before anything runs: about one value in a hundred becomes a special value
// (NaN, infinity, a signed zero, a denormal, 1e30, the largest float), some
// samples become zero vectors and some timestamps jump, so that two builds
// can be compared on input no sensor should ever produce.
//
// With two builds the rounds alternate (A B A B ...), so that a drift of the
// machine's speed hits both alike; the report gives the median ns per
// magnetometer sample of each and the median of the per-pair ratios, and
// says whether the two builds handed out the same bytes for every sample.
// `replay_stream` is the one function to count with
// `valgrind --tool=callgrind --toggle-collect=replay_stream`.
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "magcal/magcal_host.h"

namespace {

struct Event {
    char sensor;  // 'a', 'g' or 'm'
    SensorSample sample;
};

// Everything a host receives for one magnetometer sample.
struct MagOutputs {
    CalibratedMagResult result;
    FusionOutput getters[7];
};

bool parse_line(const std::string& line, Event* ev) {
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') return false;
    char name[8] = {0};
    long long t = 0;
    float x = 0, y = 0, z = 0;
    int status = 0;
    const int n = std::sscanf(line.c_str(), " %lld , %7[a-z] , %f , %f , %f , %d", &t, name, &x, &y,
                              &z, &status);
    if (n < 5) return false;
    const std::string s = name;
    if (s != "acc" && s != "gyro" && s != "mag") return false;
    ev->sensor = s[0];
    ev->sample = SensorSample{static_cast<int64_t>(t), x, y, z, n == 6 ? status : 0};
    return true;
}

std::vector<Event> load_log(const char* path) {
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path);
        std::exit(2);
    }
    std::vector<Event> events;
    std::string line;
    while (std::getline(in, line)) {
        Event ev{};
        if (parse_line(line, &ev)) events.push_back(ev);
    }
    return events;
}

void perturb(std::vector<Event>& events, unsigned seed) {
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                              -std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(),
                              0.0f,
                              -0.0f,
                              std::numeric_limits<float>::denorm_min(),
                              1e30f,
                              std::numeric_limits<float>::max()};
    std::mt19937 rng(seed);
    auto chance = [&rng](unsigned per_mille) { return rng() % 1000 < per_mille; };
    int64_t shift = 0;
    for (Event& e : events) {
        float* v[3] = {&e.sample.x, &e.sample.y, &e.sample.z};
        if (chance(10)) *v[rng() % 3] = specials[rng() % 9];
        if (chance(2)) *v[0] = *v[1] = *v[2] = 0.0f;
        if (chance(1)) shift += chance(500) ? 10'000'000'000 : -2'000'000'000;
        e.sample.timestamp += shift;
    }
}

const MagLibApiInterface* load_plugin(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "cannot load %s: %s\n", path, dlerror());
        std::exit(2);
    }
    auto* api = static_cast<const MagLibApiInterface*>(dlsym(handle, "MAG_LIB_API_INTERFACE"));
    if (api == nullptr) {
        std::fprintf(stderr, "%s has no MAG_LIB_API_INTERFACE\n", path);
        std::exit(2);
    }
    return api;
}

}  // namespace

// The host's loop; everything inside is what one pass of the log costs.
extern "C" __attribute__((noinline)) void replay_stream(const MagLibApiInterface* api,
                                                        const Event* events, size_t count,
                                                        MagOutputs* out) {
    for (size_t i = 0; i < count; ++i) {
        const Event& ev = events[i];
        if (ev.sensor == 'a') {
            api->caliApiSetAccData(&ev.sample);
        } else if (ev.sensor == 'g') {
            api->caliApiSetGyroData(&ev.sample);
        } else {
            api->doCaliApi(&ev.sample, &out->result);
            api->getGravity(&out->getters[0]);
            api->getRotationVector(&out->getters[1]);
            api->getOrientation(&out->getters[2]);
            api->getLinearaccel(&out->getters[3]);
            api->getGameRotationVector(&out->getters[4]);
            api->getGeoMagnetic(&out->getters[5]);
            api->getVirtualGyro(&out->getters[6]);
            ++out;
        }
    }
}

namespace {

struct Run {
    const MagLibApiInterface* api;
    std::vector<MagOutputs> outputs;
    std::vector<double> ns_per_sample;
};

void time_round(Run& run, const std::vector<Event>& events, size_t mag_count) {
    std::fill(run.outputs.begin(), run.outputs.end(), MagOutputs{});
    const auto start = std::chrono::steady_clock::now();
    replay_stream(run.api, events.data(), events.size(), run.outputs.data());
    const auto stop = std::chrono::steady_clock::now();
    const double ns = std::chrono::duration<double, std::nano>(stop - start).count();
    run.ns_per_sample.push_back(ns / static_cast<double>(mag_count));
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 1;
    int perturb_seed = -1;
    int arg = 1;
    while (arg + 1 < argc && argv[arg][0] == '-') {
        if (std::strcmp(argv[arg], "--rounds") == 0)
            rounds = std::max(1, std::atoi(argv[arg + 1]));
        else if (std::strcmp(argv[arg], "--perturb") == 0)
            perturb_seed = std::max(0, std::atoi(argv[arg + 1]));
        else
            break;
        arg += 2;
    }
    if (argc - arg < 2 || argc - arg > 3) {
        std::fprintf(stderr, "usage: %s [--rounds N] [--perturb SEED] LOG PLUGIN [BASELINE]\n",
                     argv[0]);
        return 2;
    }
    std::vector<Event> events = load_log(argv[arg]);
    if (perturb_seed >= 0) perturb(events, static_cast<unsigned>(perturb_seed));
    const size_t mag_count = static_cast<size_t>(std::count_if(
        events.begin(), events.end(), [](const Event& e) { return e.sensor == 'm'; }));
    if (mag_count == 0) {
        std::fprintf(stderr, "%s has no magnetometer samples\n", argv[arg]);
        return 2;
    }

    std::vector<Run> runs;
    for (int k = arg + 1; k < argc; ++k) {
        Run run{load_plugin(argv[k]), std::vector<MagOutputs>(mag_count), {}};
        run.api->initLib();
        runs.push_back(std::move(run));
    }

    bool identical = true;
    for (int r = 0; r < rounds; ++r) {
        for (Run& run : runs) time_round(run, events, mag_count);
        if (runs.size() == 2 && std::memcmp(runs[0].outputs.data(), runs[1].outputs.data(),
                                            mag_count * sizeof(MagOutputs)) != 0)
            identical = false;
    }

    std::printf("log: %s%s, %zu magnetometer samples, %d round(s)\n", argv[arg],
                perturb_seed >= 0 ? " (perturbed)" : "", mag_count, rounds);
    for (size_t k = 0; k < runs.size(); ++k)
        std::printf("%-8s %s: median %.1f ns per magnetometer sample\n",
                    k == 0 ? "build" : "baseline", argv[arg + 1 + static_cast<int>(k)],
                    median(runs[k].ns_per_sample));
    if (runs.size() == 2) {
        std::vector<double> ratios;
        for (int r = 0; r < rounds; ++r)
            ratios.push_back(runs[1].ns_per_sample[r] / runs[0].ns_per_sample[r]);
        std::printf("baseline / build: median of per-round ratios %.2f\n", median(ratios));
        std::printf("outputs of the two builds: %s\n",
                    identical ? "identical in every byte" : "DIFFERENT");
        return identical ? 0 : 1;
    }
    return 0;
}
