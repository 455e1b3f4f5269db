// magcal replay: feeds a sensor log through the plug-in exactly as a sensor
// service would (dlopen, MAG_LIB_API_INTERFACE, initLib, then acc and gyro
// samples stored and every mag sample processed with doCaliApi), reads every
// getter after each mag sample, and writes what came back.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "calibration_state.h"
#include "command_line.h"
#include "commands.h"
#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_host.h"
#include "output_file.h"
#include "plugin_library.h"
#include "replay_results.h"
#include "replay_summary.h"
#include "sensor_log.h"
#include "tool_errors.h"
#include "truth_file.h"

namespace magcal::tool {

const char* const kReplayHelp =
    "usage: magcal replay LOG.csv [-o RESULTS.csv] [options]\n"
    "\n"
    "Loads the magcal plug-in as a sensor service does and feeds it the log in\n"
    "file order: acc -> caliApiSetAccData, gyro -> caliApiSetGyroData,\n"
    "mag -> doCaliApi, then every getter. Prints a summary.\n"
    "\n"
    "  -o, --output RESULTS.csv  one row per mag sample with every output\n"
    "  --plugin PATH             the plug-in to load (default: the libmagcal.so\n"
    "                            built beside this tool)\n"
    "  --softiron FILE.json      install the soft-iron matrix of FILE (JSON member\n"
    "                            \"qvg\", nine numbers) after initLib\n"
    "  --state FILE              restore the calibration saved in FILE before the\n"
    "                            run (if FILE exists) and save the final one after\n"
    "  --truth TRUTH.csv         compare with ground truth (magcal simulate --truth)\n"
    "  --plugin-log              let the plug-in's start-up log through to stderr\n"
    "  -h, --help                this text\n"
    "\n"
    "A mag sample counts as refused when the library cannot have processed it:\n"
    "before both an acc and a gyro sample arrived, with an all-zero acc or mag\n"
    "vector, or with |mag| above 4914 uT (or not a number).\n"
    "\n"
    "Exit status: 0 ok, 1 runtime failure (e.g. plug-in not loadable),\n"
    "2 bad input or usage.\n";

namespace {

struct ReplayOptions {
    std::string log_path, results_path, plugin_path, softiron_path, state_path, truth_path;
    bool plugin_log = false;
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
        } else if (a == "--plugin-log") {
            cl.no_value(a);
            o.plugin_log = true;
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

// Mirrors the library's refusal rules from the host's side.
class RefusalTracker {
  public:
    void saw(const LogRecord& r) {
        if (r.sensor == sim::Sensor::Acc) {
            acc_ready_ = true;
            acc_zero_ = r.v[0] == 0.0f && r.v[1] == 0.0f && r.v[2] == 0.0f;
        } else if (r.sensor == sim::Sensor::Gyro) {
            gyro_ready_ = true;
        }
    }

    bool processes(const std::array<float, 3>& mag) const {
        if (!acc_ready_ || !gyro_ready_ || acc_zero_) return false;
        if (mag[0] == 0.0f && mag[1] == 0.0f && mag[2] == 0.0f) return false;
        const double x = mag[0], y = mag[1], z = mag[2];
        const double length = std::sqrt(x * x + y * y + z * z);
        return length <= 4914.0;  // also false for NaN: the library's upper limit [uT]
    }

  private:
    bool acc_ready_ = false, gyro_ready_ = false, acc_zero_ = false;
};

// Truth rows by timestamp: in step with the log when it can, else by lookup.
class TruthIndex {
  public:
    explicit TruthIndex(const std::vector<TruthRecord>& rows) : rows_(rows) {
        for (size_t i = rows.size(); i-- > 0;) first_[rows[i].t_ns] = i;
    }

    const TruthRecord* find(int64_t t_ns) {
        if (next_ < rows_.size() && rows_[next_].t_ns == t_ns) return &rows_[next_++];
        const auto it = first_.find(t_ns);
        if (it == first_.end()) return nullptr;
        next_ = it->second + 1;
        return &rows_[it->second];
    }

  private:
    const std::vector<TruthRecord>& rows_;
    std::unordered_map<int64_t, size_t> first_;
    size_t next_ = 0;
};

// A progress line on a terminal for logs long enough to make one wait.
class Progress {
  public:
    explicit Progress(size_t total)
        : total_(total), active_(total >= kMinRecords && isatty(STDERR_FILENO)) {}

    void update(size_t done) {
        if (!active_) return;
        const int percent = static_cast<int>(done * 100 / total_);
        if (percent == shown_) return;
        shown_ = percent;
        std::fprintf(stderr, "\rreplaying: %3d%%", percent);
        std::fflush(stderr);
    }

    ~Progress() {
        if (active_) std::fputs("\r                \r", stderr);
    }

  private:
    static constexpr size_t kMinRecords = 100000;  // about ten minutes at 50 Hz
    size_t total_;
    bool active_;
    int shown_ = -1;
};

}  // namespace

int run_replay(int argc, char** argv) {
    const ReplayOptions o = parse(argc, argv);

    // Every input is checked before the plug-in is touched.
    const std::vector<LogRecord> log = read_sensor_log(o.log_path);
    std::vector<TruthRecord> truth;
    if (!o.truth_path.empty()) truth = read_truth(o.truth_path);
    std::unique_ptr<SavedCalibration> restore;
    if (!o.state_path.empty() && file_exists(o.state_path)) {
        restore = std::make_unique<SavedCalibration>(read_calibration_state(o.state_path));
    }
    if (!o.softiron_path.empty() && access(o.softiron_path.c_str(), R_OK) != 0) {
        throw InputError(o.softiron_path + ": cannot open: " + std::strerror(errno));
    }

    ReplaySummary summary;
    const PluginLibrary plugin(o.plugin_path.empty() ? PluginLibrary::default_path()
                                                     : o.plugin_path);
    const MagLibApiInterface& api = plugin.table();
    {
        const StderrSilencer quiet(!o.plugin_log);
        api.initLib();
    }
    if (!o.softiron_path.empty()) {
        const auto read_json = plugin.function<decltype(&getJsonCalibration)>("getJsonCalibration");
        const auto install =
            plugin.function<decltype(&QvGyroCal_config_softiron)>("QvGyroCal_config_softiron");
        double m[9];
        int32_t status;
        {
            const StderrSilencer quiet(!o.plugin_log);
            status = read_json(o.softiron_path.c_str(), "qvg", m, 9);
        }
        if (status != 0) {
            throw InputError(o.softiron_path +
                             ": not a soft-iron parameter file (expected a JSON object whose "
                             "member \"qvg\" is an array of nine numbers)");
        }
        install(m);
        summary.set_softiron(m);
    }
    if (restore) {
        api.caliApiSetOffset(restore->offset.data());
        // The table's SetOffset keeps the library's last accuracy and radius;
        // the exported status call restores those too.
        const auto config_status =
            plugin.function<decltype(&QvGyroCal_config_status)>("QvGyroCal_config_status");
        const double offset[3] = {restore->offset[0], restore->offset[1], restore->offset[2]};
        config_status(offset, restore->accuracy, restore->radius);
    }

    std::unique_ptr<OutputFile> results;
    const bool with_truth = !o.truth_path.empty();
    if (!o.results_path.empty()) {
        results = std::make_unique<OutputFile>(o.results_path);
        write_result_header(results->stream(), with_truth);
    }

    RefusalTracker refusals;
    TruthIndex truth_index(truth);
    Progress progress(log.size());
    // What the state file keeps: the radius is |calibrated field| of the last
    // processed sample (the table hands out no radius of the library's own).
    double last_radius = 0.0;  // [uT]
    int final_accuracy = restore ? restore->accuracy : 0;
    bool any_processed = false;
    for (size_t i = 0; i < log.size(); ++i) {
        const LogRecord& r = log[i];
        progress.update(i);
        SensorSample s;
        std::memset(&s, 0, sizeof s);
        s.timestamp = r.t_ns;
        s.x = r.v[0];
        s.y = r.v[1];
        s.z = r.v[2];
        s.status = r.status;
        refusals.saw(r);
        if (r.sensor == sim::Sensor::Acc) {
            summary.count_sample(0);
            api.caliApiSetAccData(&s);
            continue;
        }
        if (r.sensor == sim::Sensor::Gyro) {
            summary.count_sample(1);
            api.caliApiSetGyroData(&s);
            continue;
        }
        summary.count_sample(2);
        ResultRow row;
        std::memset(&row, 0, sizeof row);
        row.t_ns = r.t_ns;
        row.raw = r.v;
        row.processed = refusals.processes(r.v);
        api.doCaliApi(&s, &row.result);
        api.getRotationVector(&row.rotation_vector);
        api.getOrientation(&row.orientation);
        api.getGravity(&row.gravity);
        api.getLinearaccel(&row.linear_accel);
        api.getGameRotationVector(&row.game_rotation);
        api.getGeoMagnetic(&row.geomagnetic);
        api.getVirtualGyro(&row.virtual_gyro);
        row.fused_heading = heading_of_rotation_vector(row.rotation_vector.values);
        final_accuracy = row.result.accuracy;
        if (row.processed) {
            const double x = row.result.field[0], y = row.result.field[1], z = row.result.field[2];
            last_radius = std::sqrt(x * x + y * y + z * z);
            any_processed = true;
        }
        if (with_truth) {
            row.truth = truth_index.find(r.t_ns);
            if (row.truth != nullptr) {
                double e2 = 0.0;
                for (int k = 0; k < 3; ++k) {
                    const double d =
                        static_cast<double>(row.result.offset[k]) - row.truth->offset[k];
                    e2 += d * d;
                }
                row.offset_error = std::sqrt(e2);
                row.heading_error =
                    circular_difference_deg(row.orientation.values[0], row.truth->heading_deg);
                row.fused_heading_error =
                    circular_difference_deg(row.fused_heading, row.truth->heading_deg);
            }
        }
        summary.add(row);
        if (results) write_result_row(results->stream(), row, with_truth);
    }

    std::array<float, 3> final_offset{};
    api.caliApiGetOffset(final_offset.data());
    std::unique_ptr<OutputFile> state;
    if (!o.state_path.empty() && any_processed) {
        state = std::make_unique<OutputFile>(o.state_path);
        write_calibration_state(state->stream(), {final_offset, final_accuracy, last_radius});
    }
    if (results) results->commit();
    if (state) state->commit();

    std::printf("replay of %s through %s\n", o.log_path.c_str(), plugin.path().c_str());
    if (restore) {
        std::printf("  restored           offset %.3f %.3f %.3f uT, accuracy %d, radius %.3f uT\n",
                    static_cast<double>(restore->offset[0]),
                    static_cast<double>(restore->offset[1]),
                    static_cast<double>(restore->offset[2]), restore->accuracy, restore->radius);
    }
    summary.print(stdout, final_offset, with_truth);
    if (results) std::printf("results -> %s\n", o.results_path.c_str());
    if (state) std::printf("calibration state -> %s\n", o.state_path.c_str());
    if (!o.state_path.empty() && !state) {
        std::printf("calibration state not saved: no mag sample was processed\n");
    }
    return kExitOk;
}

}  // namespace magcal::tool
