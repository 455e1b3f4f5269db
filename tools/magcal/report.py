#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors

"""Draws the results of `magcal replay -o RESULTS.csv` as one figure.

usage: report.py RESULTS.csv --output FILE --format png|svg|pdf [--truth TRUTH.csv]
                 [--softiron FILE.json] [--trace TRACE.csv]

What is drawn, and why it can differ from the truth:
- the field samples in three planes, each sample corrected with the offset
  published with it (no averaging), around a circle of their mean length;
- the published hard-iron offset per axis against the truth offset;
- the accuracy reported with every sample;
- with a decision trace (`magcal replay --trace`), a timeline of the evidence
  the accuracy follows from, as the library held it after each sample;
- the heading of the device +y axis: the fused attitude itself, the azimuth
  output (a one-second circular average that lags fast turns) and the truth;
- heading minus truth, with its RMS from accuracy 3 on (or over the whole
  session, said so, when accuracy 3 is never reached);
- the field strength: per sample, and the library's 0.8 s average of the
  calibrated vector, which shrinks while the phone turns.

Sessions of any length: columns are read in chunks with numpy into compact
arrays, and every series drawn over time keeps the lowest and highest value of
each bucket of consecutive samples (about one bucket per pixel), so spikes stay
visible however long the session.

Exit status: 0 drawn; 1 runtime failure (a package missing, the figure cannot
be written); 2 bad input (the message names the file and the line).
"""

import argparse
import io
import json
import math
import os
import sys
import textwrap
import warnings

DEBIAN_PACKAGES = {"numpy": "python3-numpy", "matplotlib": "python3-matplotlib"}

np = None  # numpy, imported by import_packages() so that a missing one is named

# Drawn points per series over time: about one min/max pair per pixel column
# of a full-width panel.
BUCKETS = 1200
HEADING_WINDOW_S = 120.0
# Dots per plane projection: a random subset, plus the samples farthest from
# the circle, which are the ones that show a disturbance or a bad offset.
SCATTER_RANDOM = 5000
SCATTER_OUTLIERS = 200
LEVEL_SINE = math.sqrt(0.5)  # sin 45 deg: "+y near horizontal"
CAPTION_PT = 9.5

AXES = "xyz"
RESULT_COLUMNS = (
    [("t_ns", "i8")]
    + [(f"mag_{a}", "f4") for a in AXES]
    + [(f"cal_{a}", "f4") for a in AXES]
    + [(f"offset_{a}", "f4") for a in AXES]
    + [("accuracy", "level"), ("processed", "flag")]
    + [(f"rv_{a}", "f4") for a in AXES]
    + [("azimuth", "f4")]
)
RESULT_TRUTH_COLUMNS = [(f"truth_offset_{a}", "f8") for a in AXES] + [("truth_heading", "f8")]
TRUTH_FILE_COLUMNS = (
    [("timestamp_ns", "i8")]
    + [(n, "f8") for n in ("qw", "qx", "qy", "qz", "heading_deg")]
    + [(f"offset_{a}", "f8") for a in AXES]
    + [("field_ut", "f8")]
)
TRUTH_FILE_LAYOUT = "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut"


class InputError(Exception):
    """Bad input; the message names the file and, where there is one, the line."""


def import_packages():
    global np
    missing = []
    for name in DEBIAN_PACKAGES:
        try:
            __import__(name)
        except ImportError:
            missing.append(name)
    if missing:
        debian = " ".join(DEBIAN_PACKAGES[m] for m in missing)
        print(f"{sys.executable} lacks {', '.join(missing)}; "
              f"on Debian: apt-get install -y {debian}", file=sys.stderr)
        sys.exit(1)
    import numpy

    np = numpy


# ---------------------------------------------------------------- reading


def _storage(kind):
    """The numpy type a column is parsed into; 'level' and 'flag' are checked
    and narrowed after parsing."""
    return {"i8": "i8", "f4": "f8", "f8": "f8", "level": "f8", "flag": "f8"}[kind]


def _kept(kind):
    """The numpy type a column is kept in: the library's single-precision
    outputs as float32 (exact: they were printed with nine digits), small
    integers as int8."""
    return {"i8": "i8", "f4": "f4", "f8": "f8", "level": "i1", "flag": "i1"}[kind]


def _is_integer(text):
    digits = text[1:] if text[:1] in "+-" else text
    return digits.isdigit() and digits.isascii()


def _field_error(path, line, name, kind, text):
    """The message for one field numpy refused, or None if the field is fine."""
    if kind == "i8":
        if not _is_integer(text):
            return f"{path}:{line}: field '{name}': not an integer: \"{text}\""
        if not -(2**63) <= int(text) < 2**63:
            return f"{path}:{line}: field '{name}': out of the 64-bit range: \"{text}\""
        return None
    try:
        float(text)
    except ValueError:
        return f"{path}:{line}: field '{name}': not a number: \"{text}\""
    return None


def header_names(path):
    """The names of the first line that is neither blank nor a comment."""
    for _, text in _text_lines(path):
        return [f.strip() for f in text.split(",")]
    return []


def _text_lines(path):
    """(number, stripped text) of the lines that are neither blank nor comments."""
    try:
        handle = open(path, "rb")
    except OSError as err:
        raise InputError(f"{path}: cannot open: {err.strerror}") from None
    with handle:
        for number, raw in enumerate(iter(handle.readline, b""), 1):
            text = raw.decode("utf-8-sig" if number == 1 else "utf-8", "replace").strip()
            if text and not text.startswith("#"):
                yield number, text


class ColumnReader:
    """Named columns of a comma-separated file, read block by block.

    Comment lines (first non-blank character '#') and blank lines are skipped;
    every other line must have as many fields as the header. A block without
    comments whose comma count fits goes through numpy's parser in one call;
    any other block, and any block numpy refuses, is walked line by line so
    that an error names the line and the field. Only the chosen columns are
    kept, each in its compact type.
    """

    BLOCK_BYTES = 1 << 22  # small enough that a block's text never dominates memory

    def __init__(self, path, what, columns, blank_ok=(), layout_if_headerless=None):
        self.path, self.what = path, what
        self.columns = columns  # [(name, kind)]
        self.blank_ok = set(blank_ok)
        self.layout_if_headerless = layout_if_headerless
        self.store, self.size = None, 0

    def read(self):
        """The columns by name, each a numpy array over the data rows."""
        try:
            handle = open(self.path, "rb")
        except OSError as err:
            raise InputError(f"{self.path}: cannot open: {err.strerror}") from None
        with handle:
            try:
                self.file_bytes = os.fstat(handle.fileno()).st_size
                self._read_blocks(handle)
            except OSError as err:
                raise InputError(f"{self.path}: cannot read: {err.strerror}") from None
        if self.store is None:
            return {name: np.zeros(0, _kept(kind)) for name, kind in self.columns}
        return {name: self._trimmed(values) for name, values in self.store.items()}

    def _store(self, rows, block_bytes):
        """Appends parsed rows to the kept columns. The columns are allocated
        once, for the rows the file's size promises, rather than gathered in
        pieces: pieces fragment the heap and double the peak memory."""
        n = len(rows)
        if self.store is None:
            promised = int(self.file_bytes / max(1, block_bytes) * n * 1.02) + 16
            self.store = {name: np.empty(max(n, promised), _kept(kind))
                          for name, kind in self.columns}
        capacity = len(next(iter(self.store.values())))
        if self.size + n > capacity:
            grown = max(self.size + n, capacity + capacity // 2)
            for name, values in self.store.items():
                bigger = np.empty(grown, values.dtype)
                bigger[: self.size] = values[: self.size]
                self.store[name] = bigger
        for name, kind in self.columns:
            self.store[name][self.size: self.size + n] = rows[name]
        self.size += n

    def _trimmed(self, values):
        used = values[: self.size]
        return used.copy() if len(values) > self.size * 1.1 + 16 else used

    def _read_blocks(self, handle):
        pending, line = self._read_header(handle)
        while True:
            block = handle.read(self.BLOCK_BYTES)
            if block:
                block = pending + block
                cut = block.rfind(b"\n") + 1
                if cut == 0:  # one line longer than a block: keep reading
                    pending = block
                    continue
                block, pending = block[:cut], block[cut:]
            else:
                block, pending = pending, b""
                if not block:
                    return
            line = self._parse_block(block, line)

    def _read_header(self, handle):
        """Reads up to the header line. Returns the text already read that
        holds data (a headerless file's first row) and the number of the
        line after the header."""
        number = 0
        for raw in iter(handle.readline, b""):
            number += 1
            text = raw.decode("utf-8-sig" if number == 1 else "utf-8", "replace").strip()
            if not text or text.startswith("#"):
                continue
            names = [f.strip() for f in text.split(",")]
            if self.layout_if_headerless and _is_integer(names[0]):
                self._set_layout(self.layout_if_headerless.split(","), number)
                return raw, number
            self._set_layout(names, number)
            return b"", number + 1
        raise InputError(f"{self.path}: empty: not {self.what}")

    def _set_layout(self, names, number):
        self.width = len(names)
        self.index = []
        for name, _ in self.columns:
            if name not in names:
                raise InputError(f"{self.path}:{number}: header: no column '{name}' "
                                 f"(not {self.what})")
            self.index.append(names.index(name))
        self.dtype = np.dtype([(name, _storage(kind)) for name, kind in self.columns])

    def _parse_block(self, block, first_line):
        """Parses whole lines; returns the number of the line after them."""
        codes = np.frombuffer(block, np.uint8)
        count = int(np.count_nonzero(codes == ord("\n"))) + (0 if block.endswith(b"\n") else 1)
        rows = None
        if b"#" not in block and np.count_nonzero(codes == ord(",")) == count * (self.width - 1):
            rows = self._numpy_parse(io.BytesIO(block), self.index)
            if rows is not None and len(rows) != count:  # numpy skipped blank lines
                rows = None
            numbers = None
        if rows is None:
            rows, numbers = self._parse_lines(block.split(b"\n")[:count], first_line)
        for name, kind in self.columns:
            if kind in ("level", "flag"):
                self._check_level(rows[name], kind, name, numbers, first_line)
        self._store(rows, len(block))
        return first_line + count

    def _numpy_parse(self, source, usecols):
        """The rows as a structured array, or None when numpy refuses a field."""
        with warnings.catch_warnings():
            # An integer read through a float ("1.5", "1e3") is only a warning
            # in numpy; here it is a bad field.
            warnings.simplefilter("error")
            try:
                return np.loadtxt(source, delimiter=",", usecols=usecols, dtype=self.dtype,
                                  comments=None, ndmin=1, encoding="latin1")
            except (ValueError, OverflowError, DeprecationWarning):
                return None

    def _parse_lines(self, lines, first_line):
        """The slow way, for blocks with comments, blank lines, empty fields or errors."""
        kept, numbers = [], []
        for k, raw in enumerate(lines):
            number = first_line + k
            text = raw.decode("utf-8", "replace").strip()
            if not text or text.startswith("#"):
                continue
            fields = [f.strip() for f in text.split(",")]
            if len(fields) != self.width:
                raise InputError(f"{self.path}:{number}: {len(fields)} fields, "
                                 f"the header has {self.width}")
            chosen = []
            for (name, _), i in zip(self.columns, self.index):
                field = fields[i]
                if not field:
                    if name not in self.blank_ok:
                        raise InputError(f"{self.path}:{number}: field '{name}': empty")
                    field = "nan"
                chosen.append(field)
            kept.append(",".join(chosen))
            numbers.append(number)
        if not kept:
            return np.zeros(0, self.dtype), np.zeros(0, "i8")
        rows = self._numpy_parse(io.StringIO("\n".join(kept)), None)
        if rows is None:
            for text, number in zip(kept, numbers):
                for (name, kind), field in zip(self.columns, text.split(",")):
                    message = _field_error(self.path, number, name, kind, field)
                    if message:
                        raise InputError(message)
            raise InputError(f"{self.path}:{numbers[0]}: unreadable from this line on")
        return rows, np.array(numbers, dtype="i8")

    def _check_level(self, values, kind, name, numbers, first_line):
        allowed = (0, 1, 2, 3) if kind == "level" else (0, 1)
        bad = ~np.isin(values, allowed)
        if bad.any():
            k = int(np.argmax(bad))
            line = numbers[k] if numbers is not None else first_line + k
            span = "0..3" if kind == "level" else "0 or 1"
            raise InputError(f"{self.path}:{line}: field '{name}': not {span}: "
                             f"\"{values[k]:g}\"")


def read_results(path):
    """The columns of a results file, with its truth columns when it has them all."""
    header = header_names(path)
    has_truth = all(name in header for name, _ in RESULT_TRUTH_COLUMNS)
    columns = list(RESULT_COLUMNS)
    if has_truth:
        columns += RESULT_TRUTH_COLUMNS
    if "fused_heading" in header:
        columns.append(("fused_heading", "f8"))
    table = ColumnReader(path, "a magcal replay results file", columns,
                         blank_ok=[c for c, _ in RESULT_TRUTH_COLUMNS]).read()
    if len(table["t_ns"]) == 0:
        raise InputError(f"{path}: no result rows to draw")
    table["has_truth"] = has_truth
    return table


# The decision trace's columns the evidence timeline needs.
TRACE_COLUMNS = (
    [("t_ns", "i8"), ("processed", "flag"), ("accuracy", "level"), ("period_10ms", "i8"),
     ("moving", "flag"), ("all_round", "flag"), ("range_hold", "i8"), ("recover_cnt", "i8"),
     ("disturbed", "flag"), ("in6", "i8"), ("in35", "i8"), ("in3", "i8")]
    + [(f"turn_cnt_{a}", "i8") for a in AXES]
    + [(f"flip_cnt_{a}", "i8") for a in AXES]
    + [(f"face_{f}", "flag") for f in ("xp", "xn", "yp", "yn")]
    + [(f"offset_est_{a}", "f8") for a in AXES]
    + [(f"rls_centre_{a}", "f8") for a in AXES]
)
TURN_DONE = 1000  # the library's "seen" value of its turn and flip counters


def read_trace(path, results_t_ns):
    """The trace's evidence columns; its rows must be the results' rows."""
    table = ColumnReader(path, "a magcal decision trace", TRACE_COLUMNS).read()
    t = table["t_ns"]
    if len(t) != len(results_t_ns) or not np.array_equal(t, results_t_ns):
        k = min(len(t), len(results_t_ns))
        differ = np.flatnonzero(t[:k] != results_t_ns[:k])
        where = (f"row {int(differ[0]) + 1} has another timestamp" if len(differ)
                 else f"{len(t)} rows against the results' {len(results_t_ns)}")
        raise InputError(f"{path}: not the trace of these results ({where}): write both with "
                         "one magcal replay -o RESULTS.csv --trace TRACE.csv")
    return table


def steady_needed(period_10ms):
    """Samples in a row each steadiness tracker needs for its step, as the
    library derives them from the sample period: (6 uT, 3.5 uT, 3 uT)."""
    p = period_10ms.astype("i8")
    usual = (p >= 2) & (p <= 29)
    len30 = np.where(usual, 30 // np.maximum(p, 1), 30)
    return len30 // 2, len30, 2 * (len30 // 3)


def evidence_lanes(tr):
    """(label, flag per sample) from the top of the timeline down."""
    need6, need35, need3 = steady_needed(tr["period_10ms"])
    turns = {a: tr[f"turn_cnt_{a}"] >= TURN_DONE for a in AXES}
    faces = sum(tr[f"face_{f}"].astype("i4") for f in ("xp", "xn", "yp", "yn"))
    flipped = sum((tr[f"flip_cnt_{a}"] >= TURN_DONE).astype("i4") for a in AXES) >= 2
    gap = [np.abs(tr[f"offset_est_{a}"] - tr[f"rls_centre_{a}"]) for a in AXES]
    return [
        ("moving (sphere fit learns)", tr["moving"] == 1),
        ("turn about x done", turns["x"]),
        ("turn about y done", turns["y"]),
        ("turn about z done", turns["z"]),
        ("four faces seen", faces == 4),
        ("turned over", flipped),
        ("all round", tr["all_round"] == 1),
        ("offset near sphere (x, y < 10 µT)", (gap[0] < 10.0) & (gap[1] < 10.0)),
        ("radius steady 6 µT", tr["in6"] >= need6),
        ("radius steady 3.5 µT", tr["in35"] >= need35),
        ("radius steady 3 µT", tr["in3"] >= need3),
        ("swing hold (0.6 s)", tr["range_hold"] > 0),
        ("offset recovery (0.8 s)", tr["recover_cnt"] > 0),
        ("disturbed (> 15 µT jump)", tr["disturbed"] == 1),
    ]


def read_truth(path, with_offset_and_heading):
    """The truth rows: timestamp, field strength, the world-up component of the
    device +y axis, and heading and offset when asked for."""
    wanted = {"timestamp_ns", "qw", "qx", "qy", "qz", "field_ut"}
    if with_offset_and_heading:
        wanted |= {"heading_deg", "offset_x", "offset_y", "offset_z"}
    columns = [c for c in TRUTH_FILE_COLUMNS if c[0] in wanted]
    table = ColumnReader(path, "a magcal truth file", columns,
                         layout_if_headerless=TRUTH_FILE_LAYOUT).read()
    qw, qx, qy, qz = (table.pop(c) for c in ("qw", "qx", "qy", "qz"))
    table["y_up"] = 2.0 * (qy * qz + qw * qx)
    return table


def join_truth(results_t, truth_t):
    """For each result timestamp, the truth row with that timestamp (the first
    one when there are several), -1 where there is none."""
    stamps, first = np.unique(truth_t, return_index=True)
    if len(stamps) == 0:
        return np.full(len(results_t), -1)
    pos = np.clip(np.searchsorted(stamps, results_t), 0, len(stamps) - 1)
    return np.where(stamps[pos] == results_t, first[pos], -1)


# ------------------------------------------------------------- quantities


class Session:
    """Every series the figure needs, one numpy array per quantity and axis,
    over the result rows; truth series are None when there is no truth."""


def wrap180(degrees):
    """Angles wrapped to (-180, 180]."""
    return 180.0 - np.mod(180.0 - degrees, 360.0)


def length(v):
    """Lengths of the vectors whose components are the three arrays of v."""
    x, y, z = (np.asarray(c, dtype="f8") for c in v)
    return np.sqrt(x * x + y * y + z * z)


def rotation_vector_w(x, y, z):
    return np.sqrt(np.maximum(0.0, 1.0 - x * x - y * y - z * z))


def heading_of_rotation_vector(x, y, z):
    """Compass heading of the device +y axis [deg, clockwise from north, 0..360)."""
    w = rotation_vector_w(x, y, z)
    return np.mod(np.degrees(np.arctan2(2 * (x * y - w * z), 1 - 2 * (x * x + z * z))), 360.0)


def y_axis_up_of_rotation_vector(x, y, z):
    """World-up component of the device +y axis in the attitude of a rotation vector."""
    return 2.0 * (y * z + rotation_vector_w(x, y, z) * x)


def heading_summary(s):
    """RMS heading errors of the fused attitude and of the azimuth output.

    Over processed samples with a truth heading and +y within 45 deg of
    horizontal (elsewhere a compass heading is ill-defined), from the first
    sample with accuracy 3 on; over the whole session when accuracy 3 is
    never reached. Samples whose fused output is not finite are left out and
    counted.
    """
    reached = np.flatnonzero(s.accuracy >= 3)
    h = {"accuracy3": len(reached) > 0, "count": 0, "nonfinite": 0,
         "fused_rms": math.nan, "azimuth_rms": math.nan, "fused_err": None, "azimuth_err": None,
         "accuracy3_time": float(s.t[reached[0]]) if len(reached) else math.nan}
    if s.truth_heading is None:
        return h
    usable = (s.processed == 1) & np.isfinite(s.truth_heading) & s.level
    if len(reached):
        usable[: reached[0]] = False
    h["fused_err"] = wrap180(s.fused_heading - s.truth_heading)
    h["azimuth_err"] = wrap180(s.azimuth.astype("f8") - s.truth_heading)
    finite = np.isfinite(h["fused_err"]) & np.isfinite(h["azimuth_err"])
    chosen = usable & finite
    h["count"] = int(chosen.sum())
    h["nonfinite"] = int((usable & ~finite).sum())
    if h["count"]:
        h["fused_rms"] = float(np.sqrt(np.mean(np.square(h["fused_err"][chosen]))))
        h["azimuth_rms"] = float(np.sqrt(np.mean(np.square(h["azimuth_err"][chosen]))))
    return h


def summary_scope(h, level_source):
    where = f"+y within 45° of horizontal in the {level_source}"
    if h["accuracy3"]:
        return (f"processed samples from accuracy 3 on ({duration_text(h['accuracy3_time'])}), "
                + where)
    return f"WHOLE SESSION (accuracy 3 never reached): all processed samples, {where}"


def summary_lines(h, s):
    """What the report prints: the heading figures of the picture, in words."""
    if s.truth_heading is None:
        return []
    if not h["count"]:
        if h["accuracy3"]:
            return ["heading error: n/a (no sample from accuracy 3 on with +y within 45 deg "
                    "of horizontal)"]
        return ["heading error: n/a (no processed sample with a truth heading and +y within "
                "45 deg of horizontal)"]
    scope = ("from accuracy 3 on" if h["accuracy3"]
             else "over the whole session, accuracy 3 never reached")
    lines = [f"heading error of the fused attitude: RMS {h['fused_rms']:.2f} deg, azimuth output "
             f"RMS {h['azimuth_rms']:.2f} deg ({samples(h['count'])} {scope}, +y within 45 deg of "
             f"horizontal in the {s.level_source})"]
    if h["nonfinite"]:
        lines.append(f"heading error: {samples(h['nonfinite'])} with a non-finite fused output "
                     "left out")
    return lines


def degrees_text(value):
    return f"{value:.2f}°" if math.isfinite(value) else "n/a"


def samples(count):
    return f"{count} sample" + ("" if count == 1 else "s")


def duration_text(seconds):
    if not math.isfinite(seconds):
        return "n/a"
    if seconds < 600:
        return f"{seconds:.1f} s"
    if seconds < 3 * 3600:
        return f"{seconds / 60:.1f} min"
    return f"{seconds / 3600:.2f} h"


def seconds_since_first(t_ns):
    t0 = int(t_ns[0])
    if int(t_ns.max()) - t0 < 2**62 and t0 - int(t_ns.min()) < 2**62:
        return (t_ns - t0).astype("f8") * 1e-9
    # Too far apart for an exact integer difference; seconds in double suffice here.
    return (t_ns.astype("f8") - float(t0)) * 1e-9


def build_session(args):
    softiron = read_softiron(args.softiron) if args.softiron else None
    results_have_truth = all(n in header_names(args.results) for n, _ in RESULT_TRUTH_COLUMNS)
    # The truth first: it is reduced to what is drawn before the results arrive.
    truth = read_truth(args.truth, not results_have_truth) if args.truth else None
    r = read_results(args.results)
    s = Session()
    s.results_name = os.path.basename(args.results)
    s.softiron_name = os.path.basename(args.softiron) if args.softiron else None
    s.t = seconds_since_first(r["t_ns"])
    s.accuracy, s.processed, s.azimuth = r["accuracy"], r["processed"], r["azimuth"]
    s.raw = [r.pop(f"mag_{a}") for a in AXES]
    s.cal = [r.pop(f"cal_{a}") for a in AXES]
    s.offset = [r.pop(f"offset_{a}") for a in AXES]
    # Each sample corrected with the offset published with it, after the
    # soft-iron matrix as the library applies it (row vector times S): the
    # calibration itself, without the library's 0.8 s output average.
    raw = [v.astype("f8") for v in s.raw]
    if softiron is None:
        s.corrected = [raw[i] - s.offset[i] for i in range(3)]
    else:
        s.corrected = [raw[0] * softiron[0][i] + raw[1] * softiron[1][i] + raw[2] * softiron[2][i]
                       - s.offset[i] for i in range(3)]
    del raw
    rv = [r.pop(f"rv_{a}").astype("f8") for a in AXES]
    # Results of older replays lack the fused heading; it follows from the rotation vector.
    s.fused_heading = (r["fused_heading"] if "fused_heading" in r
                       else heading_of_rotation_vector(*rv))

    s.truth_offset = [r[f"truth_offset_{a}"] for a in AXES] if r["has_truth"] else None
    s.truth_heading = r["truth_heading"] if r["has_truth"] else None
    s.truth_field = None
    y_up = None
    if truth is not None:
        row = join_truth(r["t_ns"], truth["timestamp_ns"])
        hit = row >= 0
        take = row[hit]

        def joined(column):
            values = np.full(len(row), math.nan)
            values[hit] = truth[column][take]
            return values

        s.truth_field = joined("field_ut")
        y_up = joined("y_up")
        if not r["has_truth"]:
            s.truth_heading = joined("heading_deg")
            s.truth_offset = [joined(f"offset_{a}") for a in AXES]
    # A truth column without a single value is no truth at all.
    if s.truth_heading is not None and not np.isfinite(s.truth_heading).any():
        s.truth_heading = None
    if s.truth_offset is not None and not np.isfinite(s.truth_offset).any():
        s.truth_offset = None
    if s.truth_field is not None and not np.isfinite(s.truth_field).any():
        s.truth_field = None
    if y_up is not None and np.isfinite(y_up).any():
        s.level_source = "true attitude"
    else:
        s.level_source = "fused attitude"
        y_up = y_axis_up_of_rotation_vector(*rv)
    s.level = np.abs(y_up) < LEVEL_SINE  # NaN compares false: no attitude, no heading
    s.lanes = evidence_lanes(read_trace(args.trace, r["t_ns"])) if args.trace else None
    return s


def read_softiron(path):
    """The row-major 3x3 matrix S of a soft-iron parameter file (member "qvg")."""
    try:
        with open(path, encoding="utf-8") as handle:
            values = json.load(handle)["qvg"]
        matrix = [float(v) for v in values[:9]
                  if isinstance(v, (int, float)) and not isinstance(v, bool)]
    except OSError as err:
        raise InputError(f"{path}: cannot open: {err.strerror}") from None
    except (ValueError, KeyError, TypeError, IndexError):
        matrix = []
    if len(matrix) != 9 or not all(math.isfinite(v) for v in matrix):
        raise InputError(f"{path}: not a soft-iron parameter file (expected a JSON object whose "
                         "member \"qvg\" is an array of nine numbers)")
    return [matrix[0:3], matrix[3:6], matrix[6:9]]


# --------------------------------------------------------------- drawing


def finite_or_nan(values):
    values = np.asarray(values, dtype="f8")
    return np.where(np.isfinite(values), values, math.nan)


def minmax_decimate(x, y, buckets=BUCKETS):
    """At most 2 * buckets points of (x, y): per bucket of consecutive samples,
    the lowest and the highest y, in the order they occur. NaN (a gap) survives
    only where a whole bucket is NaN."""
    n = len(y)
    if n <= 2 * buckets:
        return x, y
    per = -(-n // buckets)
    rows = -(-n // per)
    padded = np.full(rows * per, math.nan)
    padded[:n] = y
    padded = padded.reshape(rows, per)
    gap = np.isnan(padded)
    low = np.where(gap, math.inf, padded).argmin(axis=1)
    high = np.where(gap, -math.inf, padded).argmax(axis=1)
    base = np.arange(rows) * per
    index = (np.stack([np.minimum(low, high), np.maximum(low, high)], axis=1)
             + base[:, None]).ravel()
    return x[index], y[index]


def unwrap_degrees(a):
    """Angles made continuous across the 0/360 seam (steps of at most 180 deg);
    NaN stays NaN and the next finite value is not unwrapped against it."""
    step = np.diff(a)
    turn = np.where(np.isfinite(step), -360.0 * np.round(step / 360.0), 0.0)
    return a + np.concatenate([[0.0], np.cumsum(turn)])


def circular_segments(x, u, low):
    """Line segments of an unwrapped angle u drawn on [low, low + 360): each one
    shifted into that band, with a second copy where it crosses the top edge,
    so lines run on across the seam instead of jumping across the panel. A
    segment that turns through a whole circle (only between the sub-pixel
    points of a decimated series) becomes a full-height bar."""
    ok = np.isfinite(u[:-1]) & np.isfinite(u[1:])
    x0, x1, u0, u1 = x[:-1][ok], x[1:][ok], u[:-1][ok], u[1:][ok]
    shift = 360.0 * np.floor((np.minimum(u0, u1) - low) / 360.0)
    a, b = u0 - shift, u1 - shift
    whole = np.abs(u1 - u0) >= 360.0
    a[whole], b[whole], x1[whole] = low, low + 360.0, x0[whole]
    seg = [np.stack([np.stack([x0, a], 1), np.stack([x1, b], 1)], 1)]
    over = ~whole & (np.maximum(a, b) > low + 360.0)
    if over.any():
        seg.append(np.stack([np.stack([x0[over], a[over] - 360.0], 1),
                             np.stack([x1[over], b[over] - 360.0], 1)], 1))
    return np.concatenate(seg)


def draw_angle(ax, x, angle, low, **style):
    """An angle series on a fixed band of 360 deg starting at `low`."""
    from matplotlib.collections import LineCollection

    u = unwrap_degrees(finite_or_nan(angle))
    xs, us = minmax_decimate(x, u)
    if len(xs) < 2:
        return ax.plot(xs, np.mod(us - low, 360.0) + low, "o", ms=3, color=style.get("color"),
                       label=style.get("label"))[0]
    lines = LineCollection(circular_segments(xs, us, low), **style)
    ax.add_collection(lines)
    return lines


def draw_series(ax, x, y, *fmt, **style):
    xs, ys = minmax_decimate(x, finite_or_nan(y))
    if np.count_nonzero(np.isfinite(ys)) < 2:  # a line needs two points; show the one there is
        style.setdefault("marker", "o")
    return ax.plot(xs, ys, *fmt, **style)


def bucket_fraction(x, flag, buckets=BUCKETS):
    """Bucket edges (in x) and the fraction of true flags in each bucket."""
    n = len(flag)
    per = max(1, -(-n // buckets))
    starts = np.arange(0, n, per)
    counts = np.diff(np.append(starts, n))
    fraction = np.add.reduceat(flag.astype("f8"), starts) / counts
    edges = np.append(x[starts], x[-1])
    return edges, fraction


def shade(ax, x, flag, low, high):
    """Grey where `flag` holds; per bucket as grey as the share of such samples."""
    if len(x) < 2 or not flag.any():
        return False
    edges, fraction = bucket_fraction(x, flag)
    ax.pcolormesh(edges, [low, high], fraction[None, :], cmap="Greys", vmin=0.0, vmax=4.0,
                  shading="flat", rasterized=True, zorder=0)
    return True


class Layout:
    """Sizes shared by the panels [inches]."""

    width = 15.0
    time_axes_width = 11.2  # a full-width panel less its legend column


def wrapped(text, width_inches):
    return "\n".join(textwrap.wrap(text, int(width_inches * 72 / (CAPTION_PT * 0.5))))


def caption(ax, name, text):
    """A bold panel name and, under it, what is averaged and why it differs from the truth."""
    body = wrapped(text, Layout.time_axes_width)
    ax.annotate(body, xy=(0, 1), xycoords="axes fraction", xytext=(0, 5),
                textcoords="offset points", ha="left", va="bottom", fontsize=CAPTION_PT,
                color="0.25", linespacing=1.3)
    ax.set_title(name, loc="left", fontsize=12.5, fontweight="bold",
                 pad=5 + (body.count("\n") + 1) * CAPTION_PT * 1.3 * 1.22 + 4)


def time_axis(ax, unit):
    from matplotlib.ticker import MaxNLocator

    # At most 12 labels of at most six characters: far apart on a full-width panel.
    steps = [1, 2, 2.5, 5, 10] if unit == "s" else [1, 2, 3, 5, 6, 10]
    ax.xaxis.set_major_locator(MaxNLocator(nbins=12, steps=steps))
    ax.set_xlabel(f"time since the first mag sample [{unit}]")
    ax.tick_params(labelbottom=True)
    ax.grid(alpha=0.3)


def enlarge_dots(legend):
    """Scatter dots drawn tiny for density get a readable size in the key."""
    for handle in getattr(legend, "legend_handles", None) or getattr(legend, "legendHandles", []):
        if hasattr(handle, "set_sizes"):
            handle.set_sizes([30])


def legend_right(ax, handles=None):
    kw = {"handles": handles} if handles is not None else {}
    ax.legend(loc="upper left", bbox_to_anchor=(1.01, 1.0), fontsize=9.5, frameon=False, **kw)


def scatter_subset(distance_from_circle):
    """Indices drawn in the plane projections: a random subset (seeded, so the
    same results give the same picture) plus the samples farthest from the
    circle."""
    n = len(distance_from_circle)
    if n <= SCATTER_RANDOM + SCATTER_OUTLIERS:
        return np.arange(n)
    chosen = np.random.default_rng(12).choice(n, SCATTER_RANDOM, replace=False)
    far = np.argpartition(np.nan_to_num(distance_from_circle, nan=math.inf),
                          n - SCATTER_OUTLIERS)[n - SCATTER_OUTLIERS:]
    return np.unique(np.concatenate([chosen, far]))


def plane_windows(clouds, pick, radius, offset):
    """Per axis, limits of one common width that hold the drawn dots, the
    circle, the offset and the origin."""
    low, high = [], []
    for k in range(3):
        values = [c[k][pick] for c in clouds] + [np.array([offset[k], 0.0])]
        if math.isfinite(radius):
            values.append(np.array([-radius, radius]))
        values = np.concatenate(values)
        values = values[np.isfinite(values)]
        low.append(float(values.min()) if len(values) else -1.0)
        high.append(float(values.max()) if len(values) else 1.0)
    half = max(h - lo for lo, h in zip(low, high)) * 0.55 or 1.0
    return [((lo + h) / 2 - half, (lo + h) / 2 + half) for lo, h in zip(low, high)]


def draw_planes(fig, s, done):
    from matplotlib.ticker import MaxNLocator

    raw = [v[done] for v in s.raw]
    corrected = [v[done] for v in s.corrected]
    size = length(corrected)
    finite = np.isfinite(size)
    radius = float(size[finite].mean()) if finite.any() else math.nan
    pick = scatter_subset(np.abs(size - radius))
    corr_label = "raw·S − published offset" if s.softiron_name else "raw − published offset"
    if s.softiron_name:
        corr_label += f" (S from {s.softiron_name})"
    dot = 3 if len(pick) > 500 else 12  # tiny only where there are many
    square = plane_windows([raw, corrected], pick, radius, [v[-1] for v in s.offset])
    axes = fig.subplots(1, 3)
    for ax, (i, j) in zip(axes, [(0, 1), (1, 2), (2, 0)]):
        ax.scatter(raw[i][pick], raw[j][pick], s=dot, c="0.6", alpha=0.5, label="raw",
                   rasterized=True)
        ax.scatter(corrected[i][pick], corrected[j][pick], s=dot, c="tab:blue", alpha=0.6,
                   label=corr_label, rasterized=True)
        if math.isfinite(radius) and radius > 0:
            a = np.linspace(0, 2 * math.pi, 361)
            ax.plot(radius * np.cos(a), radius * np.sin(a), "--", c="tab:orange", lw=2,
                    label=f"circle of the mean length, {radius:.1f} µT")
        ax.plot([s.offset[i][-1]], [s.offset[j][-1]], "x", c="black", ms=10, mew=2,
                label="final published offset")
        ax.plot([0], [0], "+", c="tab:blue", ms=10)
        # A square window fixed before layout: limits widened while drawing
        # would bring longer tick labels than the layout made room for.
        ax.set_xlim(*square[i])
        ax.set_ylim(*square[j])
        ax.set_aspect("equal", adjustable="box")
        ax.xaxis.set_major_locator(MaxNLocator(nbins=6))
        ax.yaxis.set_major_locator(MaxNLocator(nbins=6))
        ax.set_xlabel(f"{AXES[i]} [µT]")
        ax.set_ylabel(f"{AXES[j]} [µT]")
        ax.set_title(f"{AXES[i]}{AXES[j]} plane", fontsize=11)
        ax.grid(alpha=0.3)
    # Two columns: a key wider than its panel upsets the layout of the row.
    enlarge_dots(axes[1].legend(loc="upper center", bbox_to_anchor=(0.5, -0.16), ncol=2,
                                fontsize=10, frameon=False))
    if not len(size):
        shown = "No processed sample to draw."
    elif len(pick) < len(size):
        shown = (f"Drawn: {len(pick)} of {len(size)} processed samples, a random subset and the "
                 f"{SCATTER_OUTLIERS} farthest from the circle.")
    else:
        shown = f"Drawn: all {len(size)} processed samples."
    fig.suptitle("Field samples in three planes", x=0.01, ha="left", fontsize=12.5,
                 fontweight="bold")
    fig.supxlabel(wrapped(
        "Each dot is one sample, not averaged: raw (grey) and corrected with the offset "
        "published with it (blue). A right offset centres the blue cloud on the origin and "
        "puts it on the circle; the raw cloud sits off-centre by the hard-iron offset. The "
        "library's own calibrated output is not drawn here: it is a 0.8 s average that falls "
        "inside the circle while the phone turns. " + shown, Layout.width - 1.0),
        x=0.01, ha="left", fontsize=CAPTION_PT, color="0.25", linespacing=1.3)


def draw_offset(ax, s, x):
    colours = ["tab:red", "tab:green", "tab:blue"]
    for k, a in enumerate(AXES):
        draw_series(ax, x, s.offset[k], c=colours[k], lw=1.6, label=f"offset {a}")
    end = ""
    if s.truth_offset is not None:
        for k, a in enumerate(AXES):
            draw_series(ax, x, s.truth_offset[k], "--", c=colours[k], lw=1.2, alpha=0.8,
                        label=f"truth {a}")
        error = float(length([[s.offset[k][-1] - s.truth_offset[k][-1]] for k in range(3)])[0])
        if math.isfinite(error):
            end = f" Final error {error:.2f} µT."
    ax.set_ylabel("offset [µT]")
    caption(ax, "Published hard-iron offset" + (" against truth" if s.truth_offset else ""),
            "Not averaged: the estimator's offset, published with a 0.2 µT hysteresis, so it "
            "moves in small steps and holds still while the phone rests"
            + ("; its gap to the dashed truth is the calibration error." if s.truth_offset
               else ".") + end)
    legend_right(ax)


def draw_accuracy(ax, s, x):
    acc = s.accuracy.astype("f8")
    change = np.flatnonzero(np.diff(s.accuracy)) + 1
    if len(change) <= 4 * BUCKETS:
        keep = np.concatenate([[0], change])
        xs, ys = np.append(x[keep], x[-1]), np.append(acc[keep], acc[-1])
        ax.step(xs, ys, where="post", c="tab:purple", lw=2, marker="o" if len(x) == 1 else None)
        ax.fill_between(xs, ys, step="post", color="tab:purple", alpha=0.15)
    else:  # flapping faster than the panel can show: the band it flaps in
        draw_series(ax, x, acc, c="tab:purple", lw=1)
    notes = []
    for level in (1, 2, 3):
        hit = np.flatnonzero(s.accuracy >= level)
        notes.append(f"{level} at {duration_text(s.t[hit[0]])}" if len(hit) else f"{level} never")
    ax.set_ylim(-0.2, 3.4)
    ax.set_yticks([0, 1, 2, 3])
    ax.set_ylabel("accuracy")
    caption(ax, "Calibration accuracy",
            "Reported with every sample, not averaged. First reached: " + ", ".join(notes) + ". "
            "The fused attitude follows the field only once calibration is confirmed; until "
            "then it comes from the gyroscope alone.")


def draw_evidence(ax, s, x):
    """One lane per piece of evidence, grey where it holds (per pixel column as
    grey as the share of its samples), the top lane first."""
    lanes = s.lanes
    for k, (label, flag) in enumerate(lanes):
        row = len(lanes) - 1 - k
        if not shade(ax, x, flag & (s.processed == 1), row + 0.1, row + 0.9):
            ax.plot([], [])  # an empty lane keeps its place
    ax.set_ylim(0, len(lanes))
    ax.set_yticks([len(lanes) - 0.5 - k for k in range(len(lanes))])
    ax.set_yticklabels([label for label, _ in lanes], fontsize=8.5)
    ax.tick_params(axis="y", length=0)
    caption(ax, "What the accuracy follows from",
            "From the decision trace: the library's evidence after each sample, not averaged. "
            "Accuracy 1 needs a turn and the 6 µT steadiness; 2 the 3.5 µT steadiness, a "
            "radius above 20 µT and the offset near the sphere-fit centre; 3 two axes turned "
            "(or the four faces twice, or turned over), all round, the 3 µT steadiness and a "
            "radius of 25 to 70 µT. A swing hold drops what was seen; only a field too strong "
            "for the earth's (or a restart) lowers the accuracy itself.")


def heading_window(s, h, span):
    """The stretch of the session [s] the heading panel shows: all of it when it
    is short; else two minutes around the first accuracy 3 (or the first two
    minutes), where single turns stay readable."""
    if span <= 600:
        return None
    start = h["accuracy3_time"] - 30.0 if h["accuracy3"] else 0.0
    start = min(max(0.0, start), span - HEADING_WINDOW_S)
    return start, start + HEADING_WINDOW_S


def draw_heading(ax, s, x, done, h, window):
    from matplotlib.patches import Patch

    lost = np.flatnonzero(done & ~np.isfinite(s.fused_heading))
    if window is not None:
        done = done & (s.t >= window[0]) & (s.t <= window[1])
        x = s.t
    px = x[done]
    handles = []
    if shade(ax, px, ~s.level[done], 0, 360):
        handles.append(Patch(color="0.8", label="+y steeper than 45°\n(heading ill-defined)"))
    if s.truth_heading is not None:
        handles.append(draw_angle(ax, px, s.truth_heading[done], 0.0, color="0.2",
                                  linewidth=3.5, alpha=0.35, label="truth"))
    handles.append(draw_angle(ax, px, s.azimuth[done], 0.0, color="tab:orange", linewidth=1.2,
                              label="azimuth output\n(1 s average)"))
    handles.append(draw_angle(ax, px, s.fused_heading[done], 0.0, color="tab:blue",
                              linewidth=1.2, label="fused attitude"))
    ax.set_ylim(0, 360)
    ax.set_yticks([0, 90, 180, 270, 360])
    ax.set_ylabel("heading of +y [deg]")
    name = "Heading of the device +y axis, clockwise from north"
    text = ("Blue: the fused attitude itself (rotation vector), not averaged; its gap to the "
            "truth is the error of calibration and fusion together. Orange: the azimuth output, "
            "a 1 s circular moving average, which lags fast turns: it leaves the truth whenever "
            "the phone turns quickly, even with a perfect calibration.")
    if len(lost):
        text += (f" The fused attitude is not finite on {samples(len(lost))}, from "
                 f"{duration_text(s.t[lost[0]])} on: a non-finite accelerometer or gyroscope "
                 "sample poisons the fusion, so a host must drop such samples.")
    if window is not None:
        name += f", {HEADING_WINDOW_S:.0f} s of the session"
        text = (f"A long session's turns do not fit a panel: shown are {HEADING_WINDOW_S:.0f} s "
                + ("around the first accuracy 3" if h["accuracy3"] else "from the start")
                + "; the error panel below covers the whole session. " + text)
        ax.set_xlim(*window)
    caption(ax, name, text)
    legend_right(ax, handles)


def draw_heading_error(ax, s, x, done, h):
    from matplotlib.patches import Patch

    ticks = [-180, -45, -10, -5, 0, 5, 10, 45, 180]
    ax.set_yscale("symlog", linthresh=10, linscale=1.0)
    ax.set_ylim(-180, 180)
    ax.set_yticks(ticks)
    ax.set_yticklabels([str(t) for t in ticks])
    ax.set_ylabel("heading − truth [deg]")
    if h["fused_err"] is None:
        ax.text(0.5, 0.5, "no truth heading: replay with --truth, or give the report --truth",
                transform=ax.transAxes, ha="center", va="center", fontsize=11, color="0.3")
        caption(ax, "Heading error", "Needs the true heading.")
        return
    px = x[done]
    level = s.level[done]
    handles = []
    if shade(ax, px, ~level, -180, 180):
        handles.append(Patch(color="0.8", label="+y steeper than 45°\n(not drawn, not in RMS)"))
    if h["accuracy3"] and h["accuracy3_time"] > 0:
        ax.axvspan(x[0], x[np.flatnonzero(s.accuracy >= 3)[0]], color="tab:purple", alpha=0.08,
                   lw=0)
        handles.append(Patch(color="tab:purple", alpha=0.2,
                             label="before accuracy 3\n(not in RMS)"))
    # Only where a heading is defined: the swings near vertical would fill the panel.
    fused = np.where(level, h["fused_err"][done], math.nan)
    azimuth = np.where(level, h["azimuth_err"][done], math.nan)
    handles.append(draw_angle(ax, px, azimuth, -180.0, color="tab:orange", linewidth=1.0,
                              label=f"azimuth output:\nRMS {degrees_text(h['azimuth_rms'])}"))
    handles.append(draw_angle(ax, px, fused, -180.0, color="tab:blue", linewidth=1.2,
                              label=f"fused attitude:\nRMS {degrees_text(h['fused_rms'])}"))
    ax.axhline(0, c="black", lw=0.8)
    text = (f"Heading − truth, wrapped to ±180°, on a scale linear within ±10° and "
            f"logarithmic beyond. RMS over {samples(h['count'])}: "
            f"{summary_scope(h, s.level_source)}.")
    if h["nonfinite"]:
        text += f" {samples(h['nonfinite'])} with a non-finite fused output left out."
    text += (" The azimuth output's error is mostly its 1 s smoothing lagging the turns; the "
             "fused attitude's error is that of calibration and fusion.")
    caption(ax, "Heading error" + ("" if h["accuracy3"]
                                   else ", WHOLE SESSION: accuracy 3 never reached"), text)
    legend_right(ax, handles)


def draw_field_strength(ax, s, x, done):
    px = x[done]
    draw_series(ax, px, length([v[done] for v in s.raw]), c="0.6", lw=1, label="|raw|")
    draw_series(ax, px, length([v[done] for v in s.cal]), c="tab:orange", lw=0.8, alpha=0.9,
                label="library output\n(0.8 s average)")
    draw_series(ax, px, length([v[done] for v in s.corrected]), c="tab:blue", lw=1.2,
                label="|raw·S − offset|" if s.softiron_name else "|raw − offset|")
    if s.truth_field is not None:
        draw_series(ax, x, s.truth_field, "--", c="black", lw=1, label="truth", zorder=3)
    ax.set_ylabel("field strength [µT]")
    caption(ax, "Field strength",
            "Blue: each sample corrected with its published offset, not averaged; with a right "
            "offset it stays on the true strength"
            + (" (dashed)" if s.truth_field is not None else "") + ". Orange: the library's "
            "calibrated output, a 0.8 s moving average of the calibrated vector: averaging a "
            "vector that turns shortens it, so it dips below the true strength while the phone "
            "turns, even with a perfect offset. Grey: the raw field, which swings with the "
            "hard-iron offset.")
    legend_right(ax)


def draw(s, output, file_format):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    n = len(s.t)
    done = s.processed == 1
    span = float(np.max(s.t) - np.min(s.t))
    # Time in units that keep tick labels short: s up to 10 min, min up to 3 h.
    unit, scale = (("s", 1.0) if span <= 600 else ("min", 60.0) if span <= 3 * 3600
                   else ("h", 3600.0))
    x = s.t / scale
    h = heading_summary(s)

    lanes = s.lanes is not None
    evidence_height = 3.4 if lanes else 0.0
    fig = plt.figure(figsize=(Layout.width, 21 + evidence_height), dpi=100, layout="constrained")
    top, bottom = fig.subfigures(2, 1, height_ratios=[5.6, 15.4 + evidence_height])
    offset = ", ".join(f"{v[-1]:.2f}" for v in s.offset)
    fig.suptitle(f"magcal replay of {s.results_name}\n{n} mag samples ({int(done.sum())} "
                 f"processed) over {duration_text(span)}; final offset ({offset}) µT, "
                 f"accuracy {int(s.accuracy[-1])}", fontsize=15, fontweight="bold")
    draw_planes(top, s, done)

    heights = [2.4, 1.2] + ([evidence_height] if lanes else []) + [2.6, 2.8, 2.4]
    grid = bottom.add_gridspec(len(heights), 1, height_ratios=heights)
    window = heading_window(s, h, span)
    heading_row = 3 if lanes else 2
    first = bottom.add_subplot(grid[0])
    axes = [first] + [bottom.add_subplot(grid[k], sharex=None if k == heading_row and window
                                         else first)
                      for k in range(1, len(heights))]
    panels = [draw_offset, draw_accuracy] + ([draw_evidence] if lanes else [])
    for ax, panel in zip(axes, panels):
        panel(ax, s, x)
    draw_heading(axes[heading_row], s, x, done, h, window)
    draw_heading_error(axes[heading_row + 1], s, x, done, h)
    draw_field_strength(axes[heading_row + 2], s, x, done)
    for k, ax in enumerate(axes):
        time_axis(ax, "s" if k == heading_row and window else unit)
    if span > 0:
        axes[0].set_xlim(np.min(x), np.max(x))

    try:
        fig.savefig(output, format=file_format, dpi=100)
    except OSError as err:
        print(f"{output}: cannot write: {err.strerror}", file=sys.stderr)
        sys.exit(1)
    for line in summary_lines(h, s):
        print("  " + line)


def main():
    parser = argparse.ArgumentParser(description="Draw a magcal replay report.")
    parser.add_argument("results")
    parser.add_argument("--truth")
    parser.add_argument("--softiron")
    parser.add_argument("--trace")
    parser.add_argument("--output", required=True)
    parser.add_argument("--format", default="png", choices=["png", "svg", "pdf"])
    args = parser.parse_args()
    import_packages()
    # NaN and infinite library outputs are expected input (a host that fed a
    # non-finite sample); they are drawn as gaps, not warned about.
    with np.errstate(all="ignore"):
        try:
            session = build_session(args)
        except InputError as err:
            print(err, file=sys.stderr)
            sys.exit(2)
        draw(session, args.output, args.format)


if __name__ == "__main__":
    main()
