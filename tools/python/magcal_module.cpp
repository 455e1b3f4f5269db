// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The compiled half of the Python package: the tool's readers, simulator,
// replay engine and explainer, with numpy arrays in and out. The Python half
// (magcal/__init__.py) shapes the arguments and documents the API.
//
// A replay loads the library file it is given anew (dlopen ... dlclose), so
// every call starts from a freshly initialised library state; nothing here is
// thread-safe, and the GIL is held throughout.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "accuracy_why.h"
#include "calibration_state.h"
#include "decision_trace.h"
#include "log_checks.h"
#include "plugin_library.h"
#include "replay_engine.h"
#include "replay_results.h"
#include "sensor_log.h"
#include "sim/session_simulator.h"
#include "text_fields.h"
#include "tool_errors.h"
#include "truth_file.h"

namespace py = pybind11;
using namespace magcal::tool;
namespace sim = magcal::sim;

namespace {

// An input array of T, converted (and made contiguous) when it is not one.
template <typename T>
using In = py::array_t<T, py::array::c_style | py::array::forcecast>;

template <typename T>
py::array_t<T> vector_array(size_t n) {
    return py::array_t<T>(static_cast<py::ssize_t>(n));
}
template <typename T>
py::array_t<T> matrix_array(size_t n, size_t width) {
    return py::array_t<T>({static_cast<py::ssize_t>(n), static_cast<py::ssize_t>(width)});
}

// ---- sensor logs --------------------------------------------------------

py::dict log_arrays(const std::vector<LogRecord>& log) {
    auto t = vector_array<int64_t>(log.size());
    auto sensor = vector_array<int8_t>(log.size());
    auto values = matrix_array<float>(log.size(), 3);
    auto status = vector_array<int32_t>(log.size());
    auto line = vector_array<int32_t>(log.size());
    auto tt = t.mutable_unchecked<1>();
    auto ss = sensor.mutable_unchecked<1>();
    auto vv = values.mutable_unchecked<2>();
    auto st = status.mutable_unchecked<1>();
    auto ll = line.mutable_unchecked<1>();
    for (size_t i = 0; i < log.size(); ++i) {
        const auto k = static_cast<py::ssize_t>(i);
        tt(k) = log[i].t_ns;
        ss(k) = static_cast<int8_t>(log[i].sensor);
        for (int c = 0; c < 3; ++c) vv(k, c) = log[i].v[c];
        st(k) = log[i].status;
        ll(k) = log[i].line;
    }
    py::dict d;
    d["t_ns"] = t;
    d["sensor"] = sensor;
    d["values"] = values;
    d["status"] = status;
    d["line"] = line;
    return d;
}

// A log given as arrays: t_ns (N,), sensor (N,), values (N, 3), status (N,).
std::vector<LogRecord> log_records(const py::dict& d) {
    const auto t = d["t_ns"].cast<In<int64_t>>();
    const auto sensor = d["sensor"].cast<In<int8_t>>();
    const auto values = d["values"].cast<In<float>>();
    const auto status = d["status"].cast<In<int32_t>>();
    const py::ssize_t n = t.size();
    if (t.ndim() != 1 || sensor.ndim() != 1 || sensor.size() != n || status.size() != n ||
        values.ndim() != 2 || values.shape(0) != n || values.shape(1) != 3)
        throw py::value_error("a log is t_ns (N,), sensor (N,), values (N, 3) and status (N,)");
    auto tt = t.unchecked<1>();
    auto ss = sensor.unchecked<1>();
    auto vv = values.unchecked<2>();
    auto st = status.unchecked<1>();
    std::vector<LogRecord> log(static_cast<size_t>(n));
    for (py::ssize_t i = 0; i < n; ++i) {
        if (ss(i) < 0 || ss(i) > 2)
            throw py::value_error("sensor codes are 0 (acc), 1 (gyro) and 2 (mag); record " +
                                  std::to_string(i) + " has " + std::to_string(ss(i)));
        LogRecord& r = log[static_cast<size_t>(i)];
        r.t_ns = tt(i);
        r.sensor = static_cast<sim::Sensor>(ss(i));
        r.v = {vv(i, 0), vv(i, 1), vv(i, 2)};
        r.status = st(i);
        r.line = static_cast<int>(i) + 1;
    }
    return log;
}

std::vector<std::string> log_warnings(const std::vector<LogRecord>& log, const std::string& name) {
    std::vector<std::string> warnings;
    for (const CheckFinding& f : check_log(log).findings)
        warnings.push_back(describe_finding(f, location(name, log[f.first].line), false));
    return warnings;
}

py::dict read_log(const std::string& path) {
    const std::vector<LogRecord> log = read_sensor_log(path);
    py::dict d = log_arrays(log);
    d["warnings"] = log_warnings(log, path == "-" ? "<stdin>" : path);
    return d;
}

// ---- truth --------------------------------------------------------------

py::dict truth_arrays(const std::vector<TruthRecord>& rows) {
    auto t = vector_array<int64_t>(rows.size());
    auto q = matrix_array<double>(rows.size(), 4);
    auto heading = vector_array<double>(rows.size());
    auto offset = matrix_array<double>(rows.size(), 3);
    auto field = vector_array<double>(rows.size());
    auto tt = t.mutable_unchecked<1>();
    auto qq = q.mutable_unchecked<2>();
    auto hh = heading.mutable_unchecked<1>();
    auto oo = offset.mutable_unchecked<2>();
    auto ff = field.mutable_unchecked<1>();
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto k = static_cast<py::ssize_t>(i);
        tt(k) = rows[i].t_ns;
        for (int c = 0; c < 4; ++c) qq(k, c) = rows[i].q[c];
        hh(k) = rows[i].heading_deg;
        for (int c = 0; c < 3; ++c) oo(k, c) = rows[i].offset[c];
        ff(k) = rows[i].field_ut;
    }
    py::dict d;
    d["t_ns"] = t;
    d["q"] = q;
    d["heading_deg"] = heading;
    d["offset"] = offset;
    d["field_ut"] = field;
    return d;
}

std::vector<TruthRecord> truth_records(const py::dict& d) {
    const auto t = d["t_ns"].cast<In<int64_t>>();
    const auto q = d["q"].cast<In<double>>();
    const auto h = d["heading_deg"].cast<In<double>>();
    const auto o = d["offset"].cast<In<double>>();
    const auto f = d["field_ut"].cast<In<double>>();
    const py::ssize_t n = t.size();
    if (q.ndim() != 2 || q.shape(0) != n || q.shape(1) != 4 || h.size() != n || o.ndim() != 2 ||
        o.shape(0) != n || o.shape(1) != 3 || f.size() != n)
        throw py::value_error(
            "truth is t_ns (N,), q (N, 4), heading_deg (N,), offset (N, 3), field_ut (N,)");
    std::vector<TruthRecord> rows(static_cast<size_t>(n));
    auto tt = t.unchecked<1>();
    auto qq = q.unchecked<2>();
    auto hh = h.unchecked<1>();
    auto oo = o.unchecked<2>();
    auto ff = f.unchecked<1>();
    for (py::ssize_t i = 0; i < n; ++i) {
        TruthRecord& r = rows[static_cast<size_t>(i)];
        r.t_ns = tt(i);
        r.q = {qq(i, 0), qq(i, 1), qq(i, 2), qq(i, 3)};
        r.heading_deg = hh(i);
        r.offset = {oo(i, 0), oo(i, 1), oo(i, 2)};
        r.field_ut = ff(i);
    }
    return rows;
}

// ---- simulator ------------------------------------------------------------

template <size_t N>
std::array<double, N> fixed(const py::handle& h, const char* name) {
    const auto v = h.cast<std::vector<double>>();
    if (v.size() != N)
        throw py::value_error(std::string(name) + " needs " + std::to_string(N) + " numbers");
    std::array<double, N> a;
    for (size_t i = 0; i < N; ++i) a[i] = v[i];
    return a;
}

py::dict simulate(const py::dict& o) {
    sim::Config c;
    if (o.contains("script") && !o["script"].is_none()) {
        c.scenario = sim::Scenario::Scripted;
        c.script = sim::parse_motion_script(o["script"].cast<std::string>());
        c.duration_s = sim::script_duration(c.script);
    } else {
        const std::string name = o["scenario"].cast<std::string>();
        if (!sim::parse_scenario(name, &c.scenario) || c.scenario == sim::Scenario::Scripted)
            throw py::value_error("unknown scenario \"" + name +
                                  "\" (expected figure8, flat-turns, still, walk, magnet or flip)");
    }
    if (!o["duration_s"].is_none()) c.duration_s = o["duration_s"].cast<double>();
    c.rate_hz = o["rate_hz"].cast<double>();
    c.hard_iron_ut = fixed<3>(o["offset"], "offset");
    if (!o["soft_iron"].is_none()) c.soft_iron = fixed<9>(o["soft_iron"], "soft_iron");
    c.field_ut = o["field_ut"].cast<double>();
    c.dip_deg = o["dip_deg"].cast<double>();
    c.gyro_noise = o["gyro_noise"].cast<double>();
    c.acc_noise = o["acc_noise"].cast<double>();
    c.mag_noise = o["mag_noise"].cast<double>();
    c.gyro_bias = fixed<3>(o["gyro_bias"], "gyro_bias");
    c.jitter_s = o["jitter_s"].cast<double>();
    c.seed = o["seed"].cast<uint64_t>();
    for (double sigma : {c.gyro_noise, c.acc_noise, c.mag_noise, c.jitter_s})
        if (!(sigma >= 0.0)) throw py::value_error("noise and jitter levels must not be negative");
    const sim::Session s = sim::simulate(c);
    std::vector<LogRecord> log;
    log.reserve(s.samples.size());
    for (const sim::Sample& smp : s.samples) log.push_back({smp.t_ns, smp.sensor, smp.v, 0, 0});
    std::vector<TruthRecord> truth;
    truth.reserve(s.truth.size());
    for (const sim::TruthRow& r : s.truth)
        truth.push_back({r.t_ns, r.q_world_from_body, r.heading_deg, r.offset_ut, r.field_ut});
    py::dict d;
    d["log"] = log_arrays(log);
    d["truth"] = truth_arrays(truth);
    // The parameter file that undoes the distortion, and the offset it
    // leaves, as `magcal simulate --softiron-out` writes them.
    std::array<double, 9> correction{};
    std::array<double, 3> corrected{};
    if (sim::softiron_correction(c.soft_iron, &correction) &&
        sim::corrected_offset(c.soft_iron, c.hard_iron_ut, &corrected)) {
        d["softiron_correction"] = correction;
        d["corrected_offset"] = corrected;
    } else {
        d["softiron_correction"] = py::none();
        d["corrected_offset"] = py::none();
    }
    return d;
}

// ---- replay results -----------------------------------------------------

// The columns of `magcal replay -o`, in its order, with the type each is
// written in: float32 (%.9g), float64 (%.17g) or an integer.
enum class Type { F32, F64, I64, U8 };
struct ResultColumn {
    std::string name;
    Type type;
    std::function<double(const ResultRow&)> value;
};

std::vector<ResultColumn> result_columns(bool with_truth) {
    std::vector<ResultColumn> c;
    auto floats = [&](const std::string& prefix, std::function<const float*(const ResultRow&)> of) {
        for (int k = 0; k < 3; ++k)
            c.push_back(
                {prefix + "xyz"[k], Type::F32, [of, k](const ResultRow& r) { return of(r)[k]; }});
    };
    c.push_back({"t_ns", Type::I64, nullptr});
    floats("mag_", [](const ResultRow& r) { return r.raw.data(); });
    floats("cal_", [](const ResultRow& r) { return r.result.field; });
    floats("offset_", [](const ResultRow& r) { return r.result.offset; });
    c.push_back({"accuracy", Type::U8, [](const ResultRow& r) { return r.result.accuracy; }});
    floats("rv_", [](const ResultRow& r) { return r.rotation_vector.values; });
    c.push_back({"azimuth", Type::F32, [](const ResultRow& r) { return r.orientation.values[0]; }});
    c.push_back({"pitch", Type::F32, [](const ResultRow& r) { return r.orientation.values[1]; }});
    c.push_back({"roll", Type::F32, [](const ResultRow& r) { return r.orientation.values[2]; }});
    floats("gravity_", [](const ResultRow& r) { return r.gravity.values; });
    floats("linacc_", [](const ResultRow& r) { return r.linear_accel.values; });
    floats("game_rv_", [](const ResultRow& r) { return r.game_rotation.values; });
    floats("geomag_", [](const ResultRow& r) { return r.geomagnetic.values; });
    floats("vgyro_", [](const ResultRow& r) { return r.virtual_gyro.values; });
    c.push_back({"processed", Type::U8, [](const ResultRow& r) { return r.processed ? 1 : 0; }});
    c.push_back({"fused_heading", Type::F64, [](const ResultRow& r) { return r.fused_heading; }});
    if (with_truth) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        for (int k = 0; k < 3; ++k)
            c.push_back(
                {std::string("truth_offset_") + "xyz"[k], Type::F64,
                 [k, nan](const ResultRow& r) { return r.truth ? r.truth->offset[k] : nan; }});
        c.push_back({"truth_heading", Type::F64,
                     [nan](const ResultRow& r) { return r.truth ? r.truth->heading_deg : nan; }});
        c.push_back({"offset_error", Type::F64,
                     [nan](const ResultRow& r) { return r.truth ? r.offset_error : nan; }});
        c.push_back({"heading_error", Type::F64,
                     [nan](const ResultRow& r) { return r.truth ? r.heading_error : nan; }});
        c.push_back({"fused_heading_err", Type::F64,
                     [nan](const ResultRow& r) { return r.truth ? r.fused_heading_error : nan; }});
    }
    return c;
}

// Keeps rows in column form as they come: a 10-hour replay is 1.8 million
// rows, and column vectors are what numpy wants.
class ColumnSink : public RowSink {
  public:
    ColumnSink(bool with_truth, bool with_trace, std::optional<RestoredCalibration> restored)
        : columns_(result_columns(with_truth)),
          values_(columns_.size()),
          with_trace_(with_trace),
          explainer_(restored) {
        if (with_trace_) trace_values_.resize(trace_columns().size());
    }

    void on_row(const ResultRow& row) override {
        t_ns_.push_back(row.t_ns);
        for (size_t i = 1; i < columns_.size(); ++i) values_[i].push_back(columns_[i].value(row));
        if (!with_trace_) return;
        if (t_.empty()) t0_ = row.t_ns;
        TraceRow tr;
        tr.t_ns = row.t_ns;
        tr.t_s = static_cast<double>(row.t_ns - t0_) * 1e-9;
        tr.processed = row.processed;
        tr.decision = row.decision;
        t_.push_back(tr.t_s);
        processed_.push_back(row.processed ? 1 : 0);
        const std::vector<TraceColumn>& tc = trace_columns();
        for (size_t i = 0; i < tc.size(); ++i)
            trace_values_[i].push_back(column_value(row.decision, tc[i]));
        explainer_.add(tr);
    }

    py::dict results() const {
        py::dict d;
        const size_t n = t_ns_.size();
        auto t = vector_array<int64_t>(n);
        std::memcpy(t.mutable_data(), t_ns_.data(), n * sizeof(int64_t));
        d["t_ns"] = t;
        for (size_t i = 1; i < columns_.size(); ++i)
            d[columns_[i].name.c_str()] = typed(columns_[i].type, values_[i]);
        return d;
    }

    std::vector<std::string> names() const {
        std::vector<std::string> n;
        for (const ResultColumn& c : columns_) n.push_back(c.name);
        return n;
    }

    py::object trace() const {
        if (!with_trace_) return py::none();
        py::dict d;
        const size_t n = t_ns_.size();
        auto t = vector_array<int64_t>(n);
        std::memcpy(t.mutable_data(), t_ns_.data(), n * sizeof(int64_t));
        d["t_ns"] = t;
        d["t_s"] = typed(Type::F64, t_);
        d["processed"] = typed(Type::U8, processed_);
        const std::vector<TraceColumn>& tc = trace_columns();
        for (size_t i = 0; i < tc.size(); ++i)
            d[tc[i].name] = tc[i].is_double ? typed(Type::F64, trace_values_[i])
                                            : int32_array(trace_values_[i]);
        return std::move(d);
    }

    std::vector<WhyMessage> why() { return explainer_.finish(); }

  private:
    static py::object typed(Type type, const std::vector<double>& v) {
        switch (type) {
            case Type::F32: {
                auto a = vector_array<float>(v.size());
                float* p = a.mutable_data();
                for (size_t i = 0; i < v.size(); ++i) p[i] = static_cast<float>(v[i]);
                return std::move(a);
            }
            case Type::U8: {
                auto a = vector_array<uint8_t>(v.size());
                uint8_t* p = a.mutable_data();
                for (size_t i = 0; i < v.size(); ++i) p[i] = static_cast<uint8_t>(v[i]);
                return std::move(a);
            }
            default: {
                auto a = vector_array<double>(v.size());
                std::memcpy(a.mutable_data(), v.data(), v.size() * sizeof(double));
                return std::move(a);
            }
        }
    }
    static py::object int32_array(const std::vector<double>& v) {
        auto a = vector_array<int32_t>(v.size());
        int32_t* p = a.mutable_data();
        for (size_t i = 0; i < v.size(); ++i) p[i] = static_cast<int32_t>(v[i]);
        return std::move(a);
    }

    std::vector<ResultColumn> columns_;
    std::vector<int64_t> t_ns_;
    std::vector<std::vector<double>> values_;
    bool with_trace_;
    AccuracyExplainer explainer_;
    int64_t t0_ = 0;
    std::vector<double> t_;
    std::vector<double> processed_;
    std::vector<std::vector<double>> trace_values_;
};

py::list messages_of(const std::vector<WhyMessage>& messages) {
    static const char* kinds[] = {"session", "stretch", "drop"};
    py::list out;
    for (const WhyMessage& m : messages) {
        py::dict d;
        d["kind"] = kinds[static_cast<int>(m.kind)];
        d["t_begin_s"] = m.t_begin_s;
        d["t_end_s"] = m.t_end_s;
        d["accuracy"] = m.accuracy;
        d["from_accuracy"] = m.from_accuracy;
        d["rule"] = m.rule ? py::cast(why_rule_name(*m.rule)) : py::none();
        d["text"] = m.text;
        out.append(d);
    }
    return out;
}

std::optional<SavedCalibration> restore_of(const py::object& r) {
    if (r.is_none()) return std::nullopt;
    if (py::isinstance<py::str>(r)) return read_calibration_state(r.cast<std::string>());
    const py::dict d = r.cast<py::dict>();
    const std::array<double, 3> o = fixed<3>(d["offset"], "restore offset");
    SavedCalibration s;
    s.offset = {static_cast<float>(o[0]), static_cast<float>(o[1]), static_cast<float>(o[2])};
    s.accuracy = d["accuracy"].cast<int32_t>();
    s.radius = d["radius"].cast<double>();
    if (s.accuracy < 0 || s.accuracy > 3) throw py::value_error("restore accuracy must be 0 to 3");
    return s;
}

// What the explainer needs of a restored calibration.
std::optional<RestoredCalibration> restored_of(const std::optional<SavedCalibration>& s) {
    if (!s) return std::nullopt;
    return RestoredCalibration{s->accuracy, s->radius};
}

py::dict replay(const std::string& library_path, const py::dict& log_dict,
                const std::string& softiron_path, const py::object& restore,
                const py::object& truth, bool trace) {
    const std::vector<LogRecord> log = log_records(log_dict);
    ReplaySetup setup;
    setup.softiron_path = softiron_path;
    setup.restore = restore_of(restore);
    setup.decision_snapshots = trace;
    std::vector<TruthRecord> truth_rows;
    if (!truth.is_none()) {
        truth_rows = truth_records(truth.cast<py::dict>());
        setup.truth = &truth_rows;
    }
    ColumnSink sink(!truth.is_none(), trace, restored_of(setup.restore));
    ReplayOutcome outcome;
    {
        const PluginLibrary library(library_path);  // a fresh load: a fresh library state
        outcome = replay_session(library.binding(), setup, log.data(), log.size(), sink);
    }
    py::dict d;
    d["columns"] = sink.results();
    d["column_names"] = sink.names();
    d["trace"] = sink.trace();
    d["why"] = trace ? py::object(messages_of(sink.why())) : py::object(py::none());
    d["final_offset"] = outcome.final_offset;
    d["final_accuracy"] = outcome.final_accuracy;
    d["last_radius"] = outcome.last_radius;
    d["softiron"] = outcome.softiron.matrix;
    return d;
}

py::list why_of_file(const std::string& path, const py::object& restore) {
    const std::optional<RestoredCalibration> restored = restored_of(restore_of(restore));
    return messages_of(explain_accuracy(read_trace(path), restored));
}

py::list why_of_arrays(const py::dict& trace, const py::object& restore) {
    const std::optional<RestoredCalibration> restored = restored_of(restore_of(restore));
    const auto t = trace["t_ns"].cast<In<int64_t>>();
    const auto ts = trace["t_s"].cast<In<double>>();
    const auto processed = trace["processed"].cast<In<int32_t>>();
    const py::ssize_t n = t.size();
    if (ts.size() != n || processed.size() != n)
        throw py::value_error("trace arrays differ in length");
    std::vector<In<double>> cols;
    for (const TraceColumn& c : trace_columns()) {
        if (!trace.contains(c.name))
            throw py::value_error(std::string("trace lacks column ") + c.name);
        cols.push_back(trace[c.name].cast<In<double>>());
        if (cols.back().size() != n)
            throw py::value_error(std::string("trace column ") + c.name + " differs in length");
    }
    AccuracyExplainer explainer(restored);
    const std::vector<TraceColumn>& tc = trace_columns();
    for (py::ssize_t i = 0; i < n; ++i) {
        TraceRow r;
        r.t_ns = t.at(i);
        r.t_s = ts.at(i);
        r.processed = processed.at(i) != 0;
        for (size_t c = 0; c < tc.size(); ++c) {
            char* p = reinterpret_cast<char*>(&r.decision) + tc[c].offset;
            const double v = cols[c].at(i);
            if (tc[c].is_double) {
                std::memcpy(p, &v, sizeof v);
            } else {
                if (!(v >= -2147483648.0 && v <= 2147483647.0))
                    throw py::value_error(std::string("trace column ") + tc[c].name +
                                          " holds a value that is no int32");
                const int32_t iv = static_cast<int32_t>(v);
                std::memcpy(p, &iv, sizeof iv);
            }
        }
        explainer.add(r);
    }
    return messages_of(explainer.finish());
}

py::list trace_column_list() {
    py::list out;
    for (const TraceColumn& c : trace_columns())
        out.append(py::make_tuple(c.name, c.unit, c.is_double));
    return out;
}

}  // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "Compiled core of the magcal package; use the functions of magcal instead.";
    // The tool's three error kinds arrive in Python as these.
    py::register_exception<InputError>(m, "InputError", PyExc_ValueError);
    py::register_exception<RuntimeFailure>(m, "RuntimeFailure", PyExc_RuntimeError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const UsageError& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        } catch (const std::invalid_argument& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        }
    });
    m.def("read_log", &read_log, py::arg("path"));
    m.def(
        "read_truth", [](const std::string& path) { return truth_arrays(read_truth(path)); },
        py::arg("path"));
    m.def("log_warnings", [](const py::dict& d, const std::string& name) {
        return log_warnings(log_records(d), name);
    });
    m.def("simulate", &simulate, py::arg("options"));
    m.def("replay", &replay, py::arg("library"), py::arg("log"), py::arg("softiron_path"),
          py::arg("restore"), py::arg("truth"), py::arg("trace"));
    m.def("why_of_file", &why_of_file, py::arg("path"), py::arg("restore"));
    m.def("why_of_arrays", &why_of_arrays, py::arg("trace"), py::arg("restore"));
    m.def("trace_columns", &trace_column_list);
    m.def("snapshot_version", []() { return MAGCAL_DECISION_SNAPSHOT_VERSION; });
}
