// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "replay_engine.h"

#include <cmath>
#include <cstring>
#include <unordered_map>

#include "tool_errors.h"

namespace magcal::tool {
namespace {

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

void compare_with_truth(ResultRow* row) {
    double e2 = 0.0;
    for (int k = 0; k < 3; ++k) {
        const double d = static_cast<double>(row->result.offset[k]) - row->truth->offset[k];
        e2 += d * d;
    }
    row->offset_error = std::sqrt(e2);
    row->heading_error =
        circular_difference_deg(row->orientation.values[0], row->truth->heading_deg);
    row->fused_heading_error = circular_difference_deg(row->fused_heading, row->truth->heading_deg);
}

SoftironInForce install_softiron(const LibraryBinding& library, const ReplaySetup& setup) {
    SoftironInForce in_force;
    if (setup.softiron_path.empty()) {
        // What initLib loaded, read again by the library's own loader.
        if (library.load_pdc != nullptr) {
            double m[9];
            int32_t found;
            {
                const StderrSilencer quiet(setup.quiet_plugin);
                found = library.load_pdc(m);
            }
            if (found == 1) {
                in_force.source = SoftironInForce::Source::PluginFile;
                std::memcpy(in_force.matrix.data(), m, sizeof m);
            }
        }
        return in_force;
    }
    if (library.get_json_calibration == nullptr || library.config_softiron == nullptr) {
        throw RuntimeFailure(
            "the library does not export getJsonCalibration and "
            "QvGyroCal_config_softiron, which --softiron needs");
    }
    double m[9];
    int32_t status;
    {
        const StderrSilencer quiet(setup.quiet_plugin);
        status = library.get_json_calibration(setup.softiron_path.c_str(), "qvg", m, 9);
    }
    if (status != 0) {
        throw InputError(setup.softiron_path +
                         ": not a soft-iron parameter file (expected a JSON object whose "
                         "member \"qvg\" is an array of nine numbers)");
    }
    library.config_softiron(m);
    in_force.source = SoftironInForce::Source::GivenFile;
    in_force.path = setup.softiron_path;
    std::memcpy(in_force.matrix.data(), m, sizeof m);
    return in_force;
}

// A snapshot of another layout would be misread field by field.
void check_snapshot_layout(const LibraryBinding& library) {
    if (library.decision_snapshot == nullptr) {
        throw RuntimeFailure(
            "the library does not export magcal_decision_snapshot: a trace needs "
            "libmagcal_trace.so, not the plug-in hosts load");
    }
    MagcalDecisionSnapshot probe;
    std::memset(&probe, 0, sizeof probe);
    if (library.decision_snapshot(&probe, sizeof probe) != 0 ||
        probe.version != MAGCAL_DECISION_SNAPSHOT_VERSION || probe.size != sizeof probe) {
        throw RuntimeFailure("the library's decision snapshot is not version " +
                             std::to_string(MAGCAL_DECISION_SNAPSHOT_VERSION) + " of " +
                             std::to_string(sizeof probe) + " bytes: use the matching magcal");
    }
}

}  // namespace

ReplayOutcome replay_session(const LibraryBinding& library, const ReplaySetup& setup,
                             const LogRecord* records, size_t count, RowSink& sink) {
    const MagLibApiInterface& api = *library.table;
    if (setup.restore && library.config_status == nullptr) {
        throw RuntimeFailure(
            "the library does not export QvGyroCal_config_status, which a restore needs");
    }
    if (setup.decision_snapshots) check_snapshot_layout(library);
    {
        const StderrSilencer quiet(setup.quiet_plugin);
        api.initLib();
    }
    ReplayOutcome outcome;
    outcome.softiron = install_softiron(library, setup);
    if (setup.restore) {
        const SavedCalibration& s = *setup.restore;
        api.caliApiSetOffset(s.offset.data());
        // The table's SetOffset keeps the library's last accuracy and radius;
        // the exported status call restores those too.
        const double offset[3] = {s.offset[0], s.offset[1], s.offset[2]};
        library.config_status(offset, s.accuracy, s.radius);
        outcome.final_accuracy = s.accuracy;
    }

    RefusalTracker refusals;
    std::optional<TruthIndex> truth_index;
    if (setup.truth != nullptr) truth_index.emplace(*setup.truth);
    ResultRow row;
    for (size_t i = 0; i < count; ++i) {
        const LogRecord& r = records[i];
        SensorSample s;
        std::memset(&s, 0, sizeof s);
        s.timestamp = r.t_ns;
        s.x = r.v[0];
        s.y = r.v[1];
        s.z = r.v[2];
        s.status = r.status;
        refusals.saw(r);
        if (r.sensor == sim::Sensor::Acc) {
            api.caliApiSetAccData(&s);
            continue;
        }
        if (r.sensor == sim::Sensor::Gyro) {
            api.caliApiSetGyroData(&s);
            continue;
        }
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
        if (setup.decision_snapshots) {
            library.decision_snapshot(&row.decision, sizeof row.decision);
            row.has_decision = true;
        }
        outcome.final_accuracy = row.result.accuracy;
        if (row.processed) {
            const double x = row.result.field[0], y = row.result.field[1], z = row.result.field[2];
            outcome.last_radius = std::sqrt(x * x + y * y + z * z);
            outcome.any_processed = true;
        }
        if (truth_index) {
            row.truth = truth_index->find(r.t_ns);
            if (row.truth != nullptr) compare_with_truth(&row);
        }
        sink.on_row(row);
    }
    api.caliApiGetOffset(outcome.final_offset.data());
    return outcome;
}

}  // namespace magcal::tool
