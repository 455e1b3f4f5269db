// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal simulate: writes a simulated sensor log, its ground truth and,
// for a soft-iron distortion, the parameter file that undoes it.
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "output_file.h"
#include "sensor_log.h"
#include "sim/session_simulator.h"
#include "softiron_json.h"
#include "tool_errors.h"
#include "truth_file.h"

namespace magcal::tool {

const char* const kSimulateHelp =
    "usage: magcal simulate --scenario NAME -o LOG.csv [options]\n"
    "       magcal simulate --script \"SEGMENT; SEGMENT; ...\" -o LOG.csv [options]\n"
    "\n"
    "Simulates a phone's accelerometer, gyroscope and magnetometer and writes\n"
    "them as a sensor log (docs/log-format.md), with optional ground truth.\n"
    "\n"
    "  --scenario NAME       figure8, flat-turns, still, walk, magnet or flip\n"
    "  --script TEXT         a scripted motion instead, from a flat attitude; the\n"
    "                        duration defaults to the script's. Segments, separated\n"
    "                        by ';':\n"
    "                          hold S              keep still for S seconds\n"
    "                          turn AXIS DEG DPS   turn about body x, y or z by DEG\n"
    "                                              degrees at DPS deg/s on average\n"
    "                          tilt EDGE DEG DPS   raise edge +x, -x, +y or -y by DEG\n"
    "                          magnet UT S [DIR]   a magnet fixed in the room brings\n"
    "                                              the extra field to UT uT over S\n"
    "                                              seconds (0 removes it); DIR east\n"
    "                                              (default), north, up or down\n"
    "                        e.g. \"hold 1; turn z 360 90; tilt +x 60 60; magnet 200 0.5\"\n"
    "  -o, --output LOG.csv  the sensor log to write\n"
    "  --truth TRUTH.csv     also write the ground truth, one row per mag sample\n"
    "  --softiron-out FILE   also write the soft-iron parameter file (JSON member\n"
    "                        \"qvg\") that undoes --soft-iron; the truth offset is\n"
    "                        then given in the corrected frame, A^-1 * offset\n"
    "  --rate HZ             sample rate of each sensor (default 50)\n"
    "  --duration S          length in seconds (default 60)\n"
    "  --offset X,Y,Z        hard-iron offset in uT (default 25,-35,40)\n"
    "  --soft-iron A00,...   nine numbers, row-major distortion A:\n"
    "                        raw = A * field + offset (default identity)\n"
    "  --field UT            earth field strength (default 45)\n"
    "  --dip DEG             inclination, field down in the north (default 60)\n"
    "  --gyro-noise RAD/S    1-sigma gyroscope noise (default 0.002)\n"
    "  --acc-noise M/S2      1-sigma accelerometer noise (default 0.02)\n"
    "  --mag-noise UT        1-sigma magnetometer noise (default 0.3)\n"
    "  --gyro-bias X,Y,Z     gyroscope bias in rad/s (default 0,0,0)\n"
    "  --jitter S            1-sigma timestamp jitter (default 0)\n"
    "  --seed N              random seed (default 1); same seed, same log\n"
    "  -h, --help            this text\n"
    "\n"
    "Exit status: 0 ok, 1 runtime failure, 2 bad usage.\n";

namespace {

struct SimulateOptions {
    sim::Config config;
    bool have_scenario = false, have_duration = false;
    std::string log_path, truth_path, softiron_path, script;
};

SimulateOptions parse(int argc, char** argv) {
    SimulateOptions o;
    sim::Config& c = o.config;
    CommandLine cl(argc, argv, 0);
    std::string a;
    bool is_option = false;
    while (cl.next(&a, &is_option)) {
        if (!is_option) throw UsageError("unexpected argument \"" + a + "\"");
        if (a == "--scenario") {
            const std::string name = cl.value(a);
            if (!sim::parse_scenario(name, &c.scenario)) {
                throw UsageError("unknown scenario \"" + name +
                                 "\" (expected figure8, flat-turns, still, walk, magnet or flip)");
            }
            o.have_scenario = true;
        } else if (a == "--script") {
            o.script = cl.value(a);
            try {
                c.script = sim::parse_motion_script(o.script);
            } catch (const std::invalid_argument& e) {
                throw UsageError(std::string("--script: ") + e.what());
            }
        } else if (a == "-o" || a == "--output") {
            o.log_path = cl.value(a);
        } else if (a == "--truth") {
            o.truth_path = cl.value(a);
        } else if (a == "--softiron-out") {
            o.softiron_path = cl.value(a);
        } else if (a == "--rate") {
            c.rate_hz = number_arg(a, cl.value(a));
        } else if (a == "--duration") {
            c.duration_s = number_arg(a, cl.value(a));
            o.have_duration = true;
        } else if (a == "--offset") {
            c.hard_iron_ut = triple_arg(a, cl.value(a));
        } else if (a == "--soft-iron") {
            c.soft_iron = matrix_arg(a, cl.value(a));
        } else if (a == "--field") {
            c.field_ut = number_arg(a, cl.value(a));
        } else if (a == "--dip") {
            c.dip_deg = number_arg(a, cl.value(a));
        } else if (a == "--gyro-noise") {
            c.gyro_noise = number_arg(a, cl.value(a));
        } else if (a == "--acc-noise") {
            c.acc_noise = number_arg(a, cl.value(a));
        } else if (a == "--mag-noise") {
            c.mag_noise = number_arg(a, cl.value(a));
        } else if (a == "--gyro-bias") {
            c.gyro_bias = triple_arg(a, cl.value(a));
        } else if (a == "--jitter") {
            c.jitter_s = number_arg(a, cl.value(a));
        } else if (a == "--seed") {
            c.seed = unsigned_arg(a, cl.value(a));
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (!c.script.empty()) {
        if (o.have_scenario && c.scenario != sim::Scenario::Scripted)
            throw UsageError("--script replaces --scenario: give one of them");
        c.scenario = sim::Scenario::Scripted;
        o.have_scenario = true;
        if (!o.have_duration) c.duration_s = sim::script_duration(c.script);
    } else if (o.have_scenario && c.scenario == sim::Scenario::Scripted) {
        throw UsageError("the scripted scenario needs --script");
    }
    if (!o.have_scenario) throw UsageError("missing --scenario NAME (or --script)");
    if (o.log_path.empty()) throw UsageError("missing -o LOG.csv");
    if (c.rate_hz <= 0.0) throw UsageError("--rate must be positive");
    if (c.duration_s < 0.0) throw UsageError("--duration must not be negative");
    for (double sigma : {c.gyro_noise, c.acc_noise, c.mag_noise, c.jitter_s}) {
        if (sigma < 0.0) throw UsageError("noise and jitter levels must not be negative");
    }
    return o;
}

}  // namespace

int run_simulate(int argc, char** argv) {
    const SimulateOptions o = parse(argc, argv);
    const sim::Config& c = o.config;
    check_output_names(
        {}, {{"-o", o.log_path}, {"--truth", o.truth_path}, {"--softiron-out", o.softiron_path}});

    // With a parameter file the library sees A^-1 raw, where the offset is A^-1 h.
    std::array<double, 9> correction{};
    std::array<double, 3> truth_offset = c.hard_iron_ut;
    if (!o.softiron_path.empty()) {
        if (!sim::softiron_correction(c.soft_iron, &correction) ||
            !sim::corrected_offset(c.soft_iron, c.hard_iron_ut, &truth_offset)) {
            throw UsageError("--soft-iron: the matrix is singular, so nothing undoes it");
        }
    }

    sim::Session session;
    try {
        session = sim::simulate(c);
    } catch (const std::invalid_argument& e) {
        throw UsageError(e.what());
    }

    OutputFile log(o.log_path);
    std::fprintf(log.stream(),
                 "# magcal simulate --scenario %s --rate %.9g --duration %.9g --seed %" PRIu64
                 "\n# offset %.9g,%.9g,%.9g uT; field %.9g uT, dip %.9g deg; noise gyro "
                 "%.9g rad/s, acc %.9g m/s^2, mag %.9g uT; jitter %.9g s\n",
                 sim::scenario_name(c.scenario), c.rate_hz, c.duration_s, c.seed, c.hard_iron_ut[0],
                 c.hard_iron_ut[1], c.hard_iron_ut[2], c.field_ut, c.dip_deg, c.gyro_noise,
                 c.acc_noise, c.mag_noise, c.jitter_s);
    if (!o.script.empty()) {
        std::string one_line = o.script;
        for (char& ch : one_line)
            if (ch == '\n' || ch == '\r') ch = ';';
        std::fprintf(log.stream(), "# script: %s\n", one_line.c_str());
    }
    std::fputs("# soft-iron distortion A (row-major):", log.stream());
    for (double v : c.soft_iron) std::fprintf(log.stream(), " %.9g", v);
    std::fputc('\n', log.stream());
    write_log_header(log.stream());
    for (const sim::Sample& s : session.samples) {
        write_log_record(log.stream(), s.t_ns, s.sensor, s.v);
    }

    std::unique_ptr<OutputFile> truth;
    if (!o.truth_path.empty()) {
        truth = std::make_unique<OutputFile>(o.truth_path);
        std::fprintf(truth->stream(), "# ground truth of %s; offset in the %s frame [uT]\n",
                     o.log_path.c_str(),
                     o.softiron_path.empty() ? "raw sensor" : "soft-iron-corrected");
        write_truth_header(truth->stream());
        for (const sim::TruthRow& r : session.truth) {
            write_truth_record(truth->stream(), {r.t_ns, r.q_world_from_body, r.heading_deg,
                                                 truth_offset, r.field_ut});
        }
    }

    std::unique_ptr<OutputFile> softiron;
    if (!o.softiron_path.empty()) {
        softiron = std::make_unique<OutputFile>(o.softiron_path);
        write_softiron_json(softiron->stream(), correction);
    }

    log.commit();
    if (truth) truth->commit();
    if (softiron) softiron->commit();

    std::printf("simulated %s: %.6g s at %.6g Hz, %zu samples -> %s\n",
                sim::scenario_name(c.scenario), c.duration_s, c.rate_hz, session.samples.size(),
                o.log_path.c_str());
    if (truth) std::printf("ground truth -> %s\n", o.truth_path.c_str());
    if (softiron) std::printf("soft-iron parameter file -> %s\n", o.softiron_path.c_str());
    return kExitOk;
}

}  // namespace magcal::tool
