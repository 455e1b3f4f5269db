// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal replay: checks a sensor log, feeds it through the plug-in as a
// sensor service would (the replay engine), and writes what came back.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "accuracy_why.h"
#include "calibration_state.h"
#include "command_line.h"
#include "commands.h"
#include "decision_trace.h"
#include "log_checks.h"
#include "output_file.h"
#include "plugin_library.h"
#include "replay_engine.h"
#include "replay_results.h"
#include "replay_summary.h"
#include "sensor_log.h"
#include "text_fields.h"
#include "tool_errors.h"
#include "truth_file.h"

namespace magcal::tool {

const char* const kReplayHelp =
    "usage: magcal replay LOG.csv [-o RESULTS.csv] [options]\n"
    "\n"
    "Checks the log, then loads the magcal plug-in as a sensor service does and\n"
    "feeds it the log in file order: acc -> caliApiSetAccData, gyro ->\n"
    "caliApiSetGyroData, mag -> doCaliApi, then every getter. Prints a summary.\n"
    "LOG.csv may be gzip-compressed, or - for standard input.\n"
    "\n"
    "  -o, --output RESULTS.csv  one row per mag sample with every output (- for\n"
    "                            standard output; the summary then goes to stderr)\n"
    "  --plugin PATH             the plug-in to load (default: the libmagcal.so\n"
    "                            built beside this tool)\n"
    "  --softiron FILE.json      install the soft-iron matrix of FILE (JSON member\n"
    "                            \"qvg\", nine numbers) after initLib\n"
    "  --state FILE              restore the calibration saved in FILE before the\n"
    "                            run (if FILE exists) and save the final one after\n"
    "  --truth TRUTH.csv         compare with ground truth (magcal simulate --truth)\n"
    "  --trace TRACE.csv         also write the library's decision state after every\n"
    "                            mag sample (docs/log-format.md) and say, after the\n"
    "                            summary, what held the accuracy back and what would\n"
    "                            move it; loads libmagcal_trace.so, the plug-in's\n"
    "                            objects with that snapshot exported (the results\n"
    "                            are the same bits as through the plug-in)\n"
    "  --strict                  treat the input checks' warnings as errors\n"
    "  --plugin-log              let the plug-in's start-up log through to stderr\n"
    "  -h, --help                this text\n"
    "\n"
    "The input checks warn, once per kind, about units that look wrong (field,\n"
    "rate, acceleration, timestamps), timestamps that go back, a sensor that\n"
    "stops, a missing sensor and NaN or infinite values. The samples reach the\n"
    "library unchanged. A log without a mag sample is an error.\n"
    "\n"
    "A mag sample counts as refused when the library cannot have processed it:\n"
    "before both an acc and a gyro sample arrived, with an all-zero acc or mag\n"
    "vector, or with |mag| above 4914 uT (or not a number).\n"
    "\n"
    "Exit status: 0 ok, 1 runtime failure (e.g. plug-in not loadable),\n"
    "2 bad input or usage (also any input warning under --strict).\n";

namespace {

struct ReplayOptions {
    std::string log_path, results_path, plugin_path, softiron_path, state_path, truth_path,
        trace_path;
    bool plugin_log = false, strict = false;
};

ReplayOptions parse(int argc, char** argv) {
    ReplayOptions o;
    CommandLine cl(argc, argv, 0);
    std::string a;
    bool is_option = false;
    while (cl.next(&a, &is_option)) {
        if (!is_option) {
            if (!o.log_path.empty()) throw UsageError("unexpected argument \"" + a + "\"");
            o.log_path = a;
        } else if (a == "-o" || a == "--output") {
            o.results_path = cl.value(a);
        } else if (a == "--plugin") {
            o.plugin_path = cl.value(a);
        } else if (a == "--softiron") {
            o.softiron_path = cl.value(a);
        } else if (a == "--state") {
            o.state_path = cl.value(a);
        } else if (a == "--truth") {
            o.truth_path = cl.value(a);
        } else if (a == "--trace") {
            o.trace_path = cl.value(a);
        } else if (a == "--plugin-log") {
            cl.no_value(a);
            o.plugin_log = true;
        } else if (a == "--strict") {
            cl.no_value(a);
            o.strict = true;
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (o.log_path.empty()) throw UsageError("missing LOG.csv");
    return o;
}

bool file_exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

class ResultsWriter : public RowSink {
  public:
    // The header waits for the first row: an error before it leaves nothing
    // on a destination that is written directly.
    ResultsWriter(std::FILE* out, bool with_truth) : out_(out), with_truth_(with_truth) {}
    void on_row(const ResultRow& row) override {
        if (!started_) write_result_header(out_, with_truth_);
        started_ = true;
        write_result_row(out_, row, with_truth_);
    }

  private:
    std::FILE* out_;
    bool with_truth_;
    bool started_ = false;
};

// A progress line on a terminal for logs long enough to make one wait.
class Progress : public RowSink {
  public:
    explicit Progress(size_t total)
        : total_(total), active_(total >= kMinRows && isatty(STDERR_FILENO)) {}
    ~Progress() override {
        if (active_) std::fputs("\r                \r", stderr);
    }

    void on_row(const ResultRow&) override {
        if (!active_) return;
        const int percent = static_cast<int>(++done_ * 100 / total_);
        if (percent == shown_) return;
        shown_ = percent;
        std::fprintf(stderr, "\rreplaying: %3d%%", percent);
        std::fflush(stderr);
    }

  private:
    static constexpr size_t kMinRows = 30000;  // about ten minutes at 50 Hz
    size_t total_, done_ = 0;
    bool active_;
    int shown_ = -1;
};

// Turns each row's snapshot into a trace row: written out, and explained.
class TraceRecorder : public RowSink {
  public:
    TraceRecorder(std::FILE* out, std::optional<RestoredCalibration> restored)
        : out_(out), explainer_(restored) {}
    void on_row(const ResultRow& row) override {
        if (!have_t0_) {
            have_t0_ = true;
            t0_ns_ = row.t_ns;
            write_trace_header(out_);
        }
        TraceRow t;
        t.t_ns = row.t_ns;
        t.t_s = static_cast<double>(row.t_ns - t0_ns_) * 1e-9;
        t.processed = row.processed;
        t.decision = row.decision;
        write_trace_row(out_, t);
        explainer_.add(t);
    }
    std::vector<WhyMessage> finish() { return explainer_.finish(); }

  private:
    std::FILE* out_;
    AccuracyExplainer explainer_;
    bool have_t0_ = false;
    int64_t t0_ns_ = 0;
};

class FanOut : public RowSink {
  public:
    explicit FanOut(std::vector<RowSink*> sinks) : sinks_(std::move(sinks)) {}
    void on_row(const ResultRow& row) override {
        for (RowSink* s : sinks_) s->on_row(row);
    }

  private:
    std::vector<RowSink*> sinks_;
};

}  // namespace

int run_replay(int argc, char** argv) {
    const ReplayOptions o = parse(argc, argv);
    check_output_names(
        {{"LOG", o.log_path}, {"--truth", o.truth_path}, {"--softiron", o.softiron_path}},
        {{"-o", o.results_path}, {"--state", o.state_path}, {"--trace", o.trace_path}});

    // Every input is read and checked before the plug-in is touched.
    const std::vector<LogRecord> log = read_sensor_log(o.log_path);
    const std::string log_name = o.log_path == "-" ? "<stdin>" : o.log_path;
    std::vector<TruthRecord> truth;
    if (!o.truth_path.empty()) truth = read_truth(o.truth_path);
    ReplaySetup setup;
    if (!o.state_path.empty() && file_exists(o.state_path)) {
        setup.restore = read_calibration_state(o.state_path);
    }
    if (!o.softiron_path.empty() && access(o.softiron_path.c_str(), R_OK) != 0) {
        throw InputError(o.softiron_path + ": cannot open: " + std::strerror(errno));
    }
    const CheckReport checks = check_log(log);
    if (checks.per_sensor[2] == 0) {
        throw InputError(log_name + ": no mag sample (" + std::to_string(checks.per_sensor[0]) +
                         " acc, " + std::to_string(checks.per_sensor[1]) +
                         " gyro): the library works only on magnetometer samples");
    }
    for (const CheckFinding& f : checks.findings) {
        const std::string where = location(log_name, log[f.first].line);
        std::fprintf(stderr, "%s\n", describe_finding(f, where, o.strict).c_str());
    }
    if (o.strict && !checks.findings.empty()) {
        throw InputError("magcal replay: --strict: the log has " +
                         std::to_string(checks.findings.size()) + " kind(s) of warning");
    }

    setup.quiet_plugin = !o.plugin_log;
    setup.softiron_path = o.softiron_path;
    const bool with_truth = !o.truth_path.empty();
    if (with_truth) setup.truth = &truth;
    ReplaySummary summary;
    summary.set_input(checks);
    const bool tracing = !o.trace_path.empty();
    setup.decision_snapshots = tracing;
    const PluginLibrary plugin(!o.plugin_path.empty() ? o.plugin_path
                               : tracing              ? PluginLibrary::default_trace_path()
                                                      : PluginLibrary::default_path());
    std::unique_ptr<OutputFile> results;
    std::unique_ptr<ResultsWriter> writer;
    if (!o.results_path.empty()) {
        results = std::make_unique<OutputFile>(o.results_path);
        writer = std::make_unique<ResultsWriter>(results->stream(), with_truth);
    }
    std::unique_ptr<OutputFile> trace_file;
    std::unique_ptr<TraceRecorder> trace;
    if (tracing) {
        trace_file = std::make_unique<OutputFile>(o.trace_path);
        std::optional<RestoredCalibration> restored;
        if (setup.restore)
            restored = RestoredCalibration{setup.restore->accuracy, setup.restore->radius};
        trace = std::make_unique<TraceRecorder>(trace_file->stream(), restored);
    }
    ReplayOutcome outcome;
    {
        Progress progress(checks.per_sensor[2]);
        std::vector<RowSink*> sinks{&summary, &progress};
        if (writer) sinks.push_back(writer.get());
        if (trace) sinks.push_back(trace.get());
        FanOut all(sinks);
        outcome = replay_session(plugin.binding(), setup, log.data(), log.size(), all);
    }
    summary.set_softiron(outcome.softiron);

    std::unique_ptr<OutputFile> state;
    if (!o.state_path.empty() && outcome.any_processed) {
        state = std::make_unique<OutputFile>(o.state_path);
        write_calibration_state(
            state->stream(), {outcome.final_offset, outcome.final_accuracy, outcome.last_radius});
    }
    if (results) results->commit();
    if (trace_file) trace_file->commit();
    if (state) state->commit();

    // With the results on standard output the summary must not mix into them.
    std::FILE* out = o.results_path == "-" || o.trace_path == "-" ? stderr : stdout;
    std::fprintf(out, "replay of %s through %s\n", log_name.c_str(), plugin.path().c_str());
    if (setup.restore) {
        const SavedCalibration& r = *setup.restore;
        std::fprintf(out,
                     "  restored           offset %.3f %.3f %.3f uT, accuracy %d, radius %.3f uT\n",
                     static_cast<double>(r.offset[0]), static_cast<double>(r.offset[1]),
                     static_cast<double>(r.offset[2]), r.accuracy, r.radius);
    }
    std::fputs(summary.text(outcome.final_offset, with_truth).c_str(), out);
    if (trace) std::fputs(why_text(trace->finish()).c_str(), out);
    if (results && o.results_path != "-")
        std::fprintf(out, "results -> %s\n", o.results_path.c_str());
    if (trace && o.trace_path != "-") std::fprintf(out, "trace -> %s\n", o.trace_path.c_str());
    if (state) std::fprintf(out, "calibration state -> %s\n", o.state_path.c_str());
    if (!o.state_path.empty() && !state) {
        std::fprintf(out, "calibration state not saved: no mag sample was processed\n");
    }
    return kExitOk;
}

}  // namespace magcal::tool
