# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
"""Evaluate the magcal calibration and fusion library from Python.

numpy arrays in, numpy arrays out, through the same objects as the plug-in
a sensor service loads and the same replay engine as the ``magcal`` tool:
``replay`` gives the same bits as ``magcal replay``.

    import magcal
    sim = magcal.simulate("figure8", duration_s=30)
    r = magcal.replay(log=sim.log, truth=sim.truth, trace=True)
    r.accuracy, r.offset, r.heading_error      # arrays, one row per mag sample
    print(magcal.why_text(r.why))              # what held the accuracy back

Every call of ``replay`` loads the library anew, so it starts from a freshly
initialised library state and calls are independent of each other. Nothing
here is thread-safe: the library's state is process-wide, so do not call
``replay`` from two threads at once (separate processes are fine).
"""

import os
from collections import namedtuple

import numpy as np

from . import _core

__all__ = [
    "replay", "read_log", "read_truth", "simulate", "why", "why_text",
    "Log", "Truth", "Simulation", "Replay", "WhyMessage",
    "ACC", "GYRO", "MAG", "InputError", "RuntimeFailure", "library_path",
]

#: Sensor codes of a :class:`Log`.
ACC, GYRO, MAG = 0, 1, 2

#: A malformed input (file and line in the message); a ValueError.
InputError = _core.InputError
#: The library cannot be loaded, lacks a function, or a file cannot be written.
RuntimeFailure = _core.RuntimeFailure


def library_path():
    """The library replays load: libmagcal_trace.so beside this package, or
    the file named by the environment variable MAGCAL_TRACE_LIBRARY."""
    return os.environ.get("MAGCAL_TRACE_LIBRARY") or os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "libmagcal_trace.so")


class Log:
    """Sensor records in file order, as the library is fed them.

    Attributes: ``t_ns`` (N,) int64 timestamps [ns]; ``sensor`` (N,) int8,
    ``ACC``, ``GYRO`` or ``MAG``; ``values`` (N, 3) float32 in m/s^2, rad/s or
    uT; ``status`` (N,) int32; ``line`` (N,) the line in the file (or the
    record number); ``warnings``, the input checks' findings as the tool words
    them (units, time order, gaps, NaN), each naming file and line.
    """

    def __init__(self, t_ns, sensor, values, status=None, line=None, warnings=None):
        self.t_ns = np.ascontiguousarray(t_ns, dtype=np.int64)
        self.sensor = np.ascontiguousarray(sensor, dtype=np.int8)
        self.values = np.ascontiguousarray(values, dtype=np.float32).reshape(-1, 3)
        n = len(self.t_ns)
        if len(self.sensor) != n or len(self.values) != n:
            raise ValueError("t_ns, sensor and values must have the same length")
        self.status = (np.zeros(n, np.int32) if status is None
                       else np.ascontiguousarray(status, dtype=np.int32))
        self.line = np.arange(1, n + 1, dtype=np.int32) if line is None else np.asarray(line)
        self.warnings = list(warnings) if warnings is not None else _core.log_warnings(
            self._arrays(), "<arrays>")

    @classmethod
    def from_ticks(cls, t_ns, acc, gyro, mag):
        """One tick per row: acc, gyro and mag (each (N, 3)) share the
        timestamp t_ns (N,) and are fed in that order, as the simulator
        emits them."""
        t = np.asarray(t_ns, dtype=np.int64).reshape(-1)
        n = len(t)
        parts = [np.asarray(a, dtype=np.float32).reshape(-1, 3) for a in (acc, gyro, mag)]
        if any(len(p) != n for p in parts):
            raise ValueError("t_ns, acc, gyro and mag must have one row per tick")
        values = np.stack(parts, axis=1).reshape(-1, 3)
        sensor = np.tile(np.array([ACC, GYRO, MAG], np.int8), n)
        return cls(np.repeat(t, 3), sensor, values)

    def _arrays(self):
        return {"t_ns": self.t_ns, "sensor": self.sensor, "values": self.values,
                "status": self.status}

    def __len__(self):
        return len(self.t_ns)

    def of(self, sensor):
        """(t_ns, values) of one sensor's records."""
        keep = self.sensor == sensor
        return self.t_ns[keep], self.values[keep]


Truth = namedtuple("Truth", "t_ns q heading_deg offset field_ut")
Truth.__doc__ = """Ground truth, one row per mag sample: ``t_ns`` (N,) [ns];
``q`` (N, 4) the attitude q_world_from_body (w, x, y, z; world x east, y north,
z up); ``heading_deg`` (N,) compass heading of the device +y axis [deg];
``offset`` (N, 3) the hard-iron offset in the frame the library calibrates in
[uT]; ``field_ut`` (N,) the true field strength at the device [uT]."""

Simulation = namedtuple("Simulation", "log truth softiron_correction corrected_offset")
Simulation.__doc__ = """A simulated session: its :class:`Log`, its :class:`Truth`
(offset in the raw sensor frame), the soft-iron matrix that undoes the
distortion as the library applies it (3, 3) and the offset after that
correction (3,); the last two are None for a singular distortion."""

WhyMessage = namedtuple("WhyMessage", "kind t_begin_s t_end_s accuracy from_accuracy rule text")
WhyMessage.__doc__ = """One plain-words message: ``kind`` "session" (the first
message: the whole session), "stretch" (a stretch at one accuracy below 3)
or "drop"; times in seconds from the first mag sample; ``rule`` the name of
what held the accuracy back (a stretch), caused a drop, or is missing at the
end (the session), e.g. "coverage", "radius-unsteady", "strong-field"; None
when nothing is missing; ``text`` the sentence the tool prints."""


def _truth_dict(truth):
    if truth is None:
        return None
    return {"t_ns": truth.t_ns, "q": truth.q, "heading_deg": truth.heading_deg,
            "offset": truth.offset, "field_ut": truth.field_ut}


def read_log(path):
    """Reads a sensor log as ``magcal replay`` does (gzip too; "-" for
    standard input) and returns a :class:`Log` whose ``warnings`` are the
    input checks' findings. Raises InputError naming file and line."""
    d = _core.read_log(os.fspath(path))
    return Log(d["t_ns"], d["sensor"], d["values"], d["status"], d["line"], d["warnings"])


def read_truth(path):
    """Reads a ground-truth file (``magcal simulate --truth``) as a :class:`Truth`."""
    d = _core.read_truth(os.fspath(path))
    return Truth(d["t_ns"], d["q"], d["heading_deg"], d["offset"], d["field_ut"])


def simulate(scenario="figure8", *, script=None, rate_hz=50.0, duration_s=None,
             offset=(25.0, -35.0, 40.0), soft_iron=None, field_ut=45.0, dip_deg=60.0,
             gyro_noise=0.002, acc_noise=0.02, mag_noise=0.3, gyro_bias=(0.0, 0.0, 0.0),
             jitter_s=0.0, seed=1):
    """Simulates a session, as ``magcal simulate`` with the same options.

    ``scenario`` is "figure8", "flat-turns", "still", "walk", "magnet" or
    "flip"; or give ``script``, a scripted motion ("hold 1; turn z 360 90;
    tilt +x 60 60; magnet 200 0.5 up", see ``magcal simulate --help``), whose
    length is then the default duration (60 s otherwise). ``soft_iron`` is the
    row-major 3x3 distortion A (raw = A field + offset). Same options, same
    seed: the same bits. Returns a :class:`Simulation`.
    """
    d = _core.simulate({
        "scenario": scenario, "script": script, "rate_hz": float(rate_hz),
        "duration_s": (60.0 if script is None else None) if duration_s is None
        else float(duration_s),
        "offset": [float(v) for v in offset],
        "soft_iron": None if soft_iron is None else [float(v) for v in np.ravel(soft_iron)],
        "field_ut": float(field_ut), "dip_deg": float(dip_deg),
        "gyro_noise": float(gyro_noise), "acc_noise": float(acc_noise),
        "mag_noise": float(mag_noise), "gyro_bias": [float(v) for v in gyro_bias],
        "jitter_s": float(jitter_s), "seed": int(seed)})
    lg = d["log"]
    t = d["truth"]
    correction = d["softiron_correction"]
    return Simulation(
        Log(lg["t_ns"], lg["sensor"], lg["values"], lg["status"], lg["line"], []),
        Truth(t["t_ns"], t["q"], t["heading_deg"], t["offset"], t["field_ut"]),
        None if correction is None else np.array(correction).reshape(3, 3),
        None if d["corrected_offset"] is None else np.array(d["corrected_offset"]))


class Replay:
    """What a replay handed back, one row per magnetometer sample.

    ``columns`` maps every column name of ``magcal replay -o`` (``t_ns``,
    ``mag_x`` ... ``fused_heading``, and with truth ``truth_offset_x`` ...
    ``fused_heading_err``) to an array: float32 for what the library hands
    out, float64 for the tool's own figures, uint8 for ``accuracy`` and
    ``processed``; ``column_names`` keeps the tool's order. Each column is
    also an attribute (``r.azimuth``), and vectors come stacked: ``r.mag``,
    ``r.cal``, ``r.offset``, ``r.rv``, ``r.gravity``, ``r.linacc``,
    ``r.game_rv``, ``r.geomag``, ``r.vgyro`` (and ``r.truth_offset``) are
    (N, 3); ``r.t_s`` is seconds from the first mag sample.

    With ``trace=True``: ``trace``, a dict of the decision trace's columns
    (``t_ns``, ``t_s``, ``processed`` and the library's decision state after
    each sample under its own names: ``accuracy``, ``cal_stage``,
    ``turn_cnt_x``, ``in6``, ``range_hold``, ...; docs/log-format.md lists
    them), and ``why``, the :class:`WhyMessage` list. Without, both are None.

    ``final_offset`` (3,) float32 and ``final_accuracy``: caliApiGetOffset and
    the accuracy after the last sample; ``softiron`` (3, 3): the matrix in
    force.
    """

    _VECTORS = ("mag", "cal", "offset", "rv", "gravity", "linacc", "game_rv", "geomag",
                "vgyro", "truth_offset")

    def __init__(self, d):
        self.columns = d["columns"]
        self.column_names = list(d["column_names"])
        self.trace = d["trace"]
        self.why = None if d["why"] is None else [WhyMessage(**m) for m in d["why"]]
        self.final_offset = np.array(d["final_offset"], dtype=np.float32)
        self.final_accuracy = int(d["final_accuracy"])
        self.softiron = np.array(d["softiron"]).reshape(3, 3)

    def __len__(self):
        return len(self.columns["t_ns"])

    def __getattr__(self, name):
        columns = self.__dict__.get("columns", {})
        if name in columns:
            return columns[name]
        if name in Replay._VECTORS and name + "_x" in columns:
            return np.stack([columns[name + "_" + a] for a in "xyz"], axis=1)
        if name == "t_s" and "t_ns" in columns:
            t = columns["t_ns"]
            return (t - t[0]) * 1e-9 if len(t) else np.zeros(0)
        raise AttributeError(name)


def _softiron_path(softiron, keep):
    if softiron is None:
        return ""
    if isinstance(softiron, (str, os.PathLike)):
        return os.fspath(softiron)
    # A matrix: written as the parameter file the library's own reader takes.
    import tempfile
    m = np.asarray(softiron, dtype=float).reshape(9)
    if not np.all(np.isfinite(m)) or np.any(np.abs(m) >= 1e6):
        raise ValueError("softiron entries must be finite and below 1e6")
    f = tempfile.NamedTemporaryFile("w", suffix=".json", delete=False)
    keep.append(f.name)
    with f:
        f.write('{"qvg": [%s]}\n' % ", ".join("%.9f" % v for v in m))
    return f.name


def replay(t_ns=None, acc=None, gyro=None, mag=None, *, log=None, softiron=None, restore=None,
           truth=None, trace=False, library=None):
    """Replays samples through the library exactly as ``magcal replay``.

    Give either ``t_ns`` (N,) with ``acc``, ``gyro`` and ``mag`` (N, 3): one
    tick each, fed acc, gyro, mag in that order; or ``log``, a :class:`Log`
    (``read_log``, ``simulate``), fed in its order, so any recording replays.

    ``softiron``: a parameter file (path) or a 3x3 matrix, installed after
    initLib; ``restore``: a calibration pushed back before the first sample,
    a dict ``{"offset": (x, y, z), "accuracy": n, "radius": r}`` or the path
    of a ``magcal replay --state`` file; ``truth``: a :class:`Truth` to join on
    the timestamp (adds the truth columns); ``trace``: also take the decision
    trace and explain it; ``library``: another build of libmagcal_trace.so.

    Each call loads the library anew: a freshly initialised library state,
    independent of every other call. Not thread-safe. Returns a
    :class:`Replay`, whose arrays are the same bits the tool writes.
    """
    if log is None:
        if t_ns is None or acc is None or gyro is None or mag is None:
            raise ValueError("give t_ns, acc, gyro and mag, or log=")
        log = Log.from_ticks(t_ns, acc, gyro, mag)
    elif t_ns is not None or acc is not None or gyro is not None or mag is not None:
        raise ValueError("give either arrays or log=, not both")
    temporary = []
    try:
        d = _core.replay(os.fspath(library) if library is not None else library_path(),
                         log._arrays(), _softiron_path(softiron, temporary),
                         os.fspath(restore) if isinstance(restore, os.PathLike) else restore,
                         _truth_dict(truth), bool(trace))
    finally:
        for name in temporary:
            os.unlink(name)
    return Replay(d)


def why(trace, restore=None):
    """The plain-words messages for a decision trace: ``Replay.trace`` (a
    dict of arrays) or the path of a ``magcal replay --trace`` file. ``restore``
    as in :func:`replay`, to explain a rejected restore with its radius.
    Returns a list of :class:`WhyMessage`, the session's first."""
    if isinstance(trace, (str, os.PathLike)):
        messages = _core.why_of_file(os.fspath(trace), restore)
    else:
        messages = _core.why_of_arrays(trace, restore)
    return [WhyMessage(**m) for m in messages]


def why_text(messages):
    """The messages as ``magcal replay --trace`` prints them."""
    return "why:\n" + "".join("  %s\n" % m.text for m in messages)
