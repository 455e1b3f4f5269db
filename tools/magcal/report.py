#!/usr/bin/env python3
"""Draws the results of `magcal replay -o RESULTS.csv` as one figure.

usage: report.py RESULTS.csv --output FILE --format png|svg|pdf [--truth TRUTH.csv]
                 [--softiron FILE.json]

Panels: the raw field and each sample corrected with the published offset
(raw - offset; the library's own calibrated output is a 0.8 s moving average
that shrinks during fast turns) in the xy, yz and zx planes, with the circle
of their mean length; the published offset per axis against truth; the
accuracy over time; the fused attitude's heading and the azimuth output
against truth; the field strength over time. `magcal report` runs this
script; it exits 2 on bad input and 1 when matplotlib is missing.
"""

import argparse
import json
import math
import os
import sys

INSTALL_HINT = "apt-get install -y python3-matplotlib"


def fail(message, status=2):
    print(message, file=sys.stderr)
    sys.exit(status)


def read_table(path, required, what):
    """Header-addressed CSV rows (comments and blank lines skipped)."""
    try:
        handle = open(path, encoding="utf-8", errors="replace")
    except OSError as err:
        fail(f"{path}: cannot open: {err.strerror}")
    header, rows = None, []
    with handle:
        for number, line in enumerate(handle, 1):
            text = line.strip()
            if not text or text.startswith("#"):
                continue
            fields = [f.strip() for f in text.split(",")]
            if header is None:
                header = fields
                for name in required:
                    if name not in header:
                        fail(f"{path}:{number}: not {what}: no column '{name}'")
                continue
            if len(fields) != len(header):
                fail(f"{path}:{number}: {len(fields)} fields, the header has {len(header)}")
            rows.append((number, dict(zip(header, fields))))
    if header is None:
        fail(f"{path}: empty: not {what}")
    return header, rows


def number(path, line, row, name, blank_ok=False):
    text = row[name]
    if text == "" and blank_ok:
        return math.nan
    try:
        return float(text)
    except ValueError:
        fail(f"{path}:{line}: field '{name}': not a number: \"{text}\"")


def read_softiron(path):
    """The row-major 3x3 matrix S of a soft-iron parameter file (member "qvg")."""
    try:
        with open(path, encoding="utf-8") as handle:
            values = json.load(handle)["qvg"]
        matrix = [float(v) for v in values[:9]]
    except OSError as err:
        fail(f"{path}: cannot open: {err.strerror}")
    except (ValueError, KeyError, TypeError):
        matrix = []
    if len(matrix) != 9:
        fail(f"{path}: not a soft-iron parameter file (expected a JSON object whose member "
             "\"qvg\" is an array of nine numbers)")
    return matrix


def heading_of_rotation_vector(x, y, z):
    """Compass heading of the device +y axis [deg, clockwise from north, 0..360)."""
    w = math.sqrt(max(0.0, 1.0 - x * x - y * y - z * z))
    heading = math.degrees(math.atan2(2 * (x * y - w * z), 1 - 2 * (x * x + z * z)))
    return heading % 360.0


def broken_at_wraps(values):
    """Angles with a gap wherever they wrap past 0/360, so lines do not cross the plot."""
    out = []
    for k, v in enumerate(values):
        if k > 0 and abs(v - values[k - 1]) > 180:
            out.append(math.nan)
        out.append(v)
    return out


def times_broken_at_wraps(times, values):
    out = []
    for k, t in enumerate(times):
        if k > 0 and abs(values[k] - values[k - 1]) > 180:
            out.append(math.nan)
        out.append(t)
    return out


def enlarge_dots(legend):
    """Scatter dots drawn tiny for density get a readable size in the legend."""
    handles = getattr(legend, "legend_handles", None) or getattr(legend, "legendHandles", [])
    for handle in handles:
        if hasattr(handle, "set_sizes"):
            handle.set_sizes([30])


def main():
    parser = argparse.ArgumentParser(description="Draw a magcal replay report.")
    parser.add_argument("results")
    parser.add_argument("--truth")
    parser.add_argument("--softiron")
    parser.add_argument("--output", required=True)
    parser.add_argument("--format", default="png", choices=["png", "svg", "pdf"])
    args = parser.parse_args()

    try:
        import matplotlib

        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
        from matplotlib.gridspec import GridSpec
    except ImportError:
        fail(f"matplotlib is missing; install it with: {INSTALL_HINT}", 1)

    axes_names = ["x", "y", "z"]
    required = (["t_ns", "accuracy", "azimuth", "processed"]
                + [f"mag_{a}" for a in axes_names] + [f"cal_{a}" for a in axes_names]
                + [f"offset_{a}" for a in axes_names] + [f"rv_{a}" for a in axes_names])
    header, rows = read_table(args.results, required, "a magcal replay results file")
    if not rows:
        fail(f"{args.results}: no result rows to draw")

    res = {name: [] for name in required}
    truth_cols = ["truth_offset_x", "truth_offset_y", "truth_offset_z", "truth_heading"]
    has_truth_cols = all(c in header for c in truth_cols)
    for c in truth_cols:
        res[c] = []
    for line, row in rows:
        for name in required:
            res[name].append(number(args.results, line, row, name))
        for c in truth_cols:
            res[c].append(number(args.results, line, row, c, True) if has_truth_cols else math.nan)

    # Older results files lack the fused heading; it follows from the rotation vector.
    if "fused_heading" in header:
        res["fused_heading"] = [number(args.results, line, row, "fused_heading")
                                for line, row in rows]
    else:
        res["fused_heading"] = [heading_of_rotation_vector(res["rv_x"][i], res["rv_y"][i],
                                                           res["rv_z"][i])
                                for i in range(len(rows))]
    softiron = read_softiron(args.softiron) if args.softiron else [1, 0, 0, 0, 1, 0, 0, 0, 1]

    t0 = res["t_ns"][0]
    time = [(t - t0) * 1e-9 for t in res["t_ns"]]
    n = len(time)

    # Truth from a separate file, joined on the timestamp.
    truth_field = [math.nan] * n
    if args.truth:
        _, trows = read_table(args.truth, ["timestamp_ns", "heading_deg", "offset_x", "offset_y",
                                           "offset_z", "field_ut"], "a magcal truth file")
        by_time = {}
        for line, row in trows:
            t = int(number(args.truth, line, row, "timestamp_ns"))
            by_time.setdefault(t, (line, row))
        for i, t in enumerate(res["t_ns"]):
            hit = by_time.get(int(t))
            if hit is None:
                continue
            line, row = hit
            truth_field[i] = number(args.truth, line, row, "field_ut")
            if not has_truth_cols:
                for a in axes_names:
                    res[f"truth_offset_{a}"][i] = number(args.truth, line, row, f"offset_{a}")
                res["truth_heading"][i] = number(args.truth, line, row, "heading_deg")
    have_offset_truth = any(not math.isnan(v) for v in res["truth_offset_x"])
    have_heading_truth = any(not math.isnan(v) for v in res["truth_heading"])

    processed = [i for i in range(n) if res["processed"][i] == 1.0]
    raw = [[res[f"mag_{a}"][i] for i in processed] for a in axes_names]
    cal = [[res[f"cal_{a}"][i] for i in processed] for a in axes_names]
    # Each sample corrected with the offset published with it (after the
    # soft-iron matrix, a row vector times S, as the library applies it):
    # the calibration itself, without the library's 0.8 s output average.
    offset = [[res[f"offset_{a}"][i] for i in processed] for a in axes_names]
    corr = [[raw[0][k] * softiron[c] + raw[1][k] * softiron[3 + c] + raw[2][k] * softiron[6 + c]
             - offset[c][k] for k in range(len(processed))] for c in range(3)]

    def lengths(v):
        return [math.sqrt(v[0][k] ** 2 + v[1][k] ** 2 + v[2][k] ** 2)
                for k in range(len(processed))]

    cal_norm, raw_norm, corr_norm = lengths(cal), lengths(raw), lengths(corr)
    radius = sum(corr_norm) / len(corr_norm) if corr_norm else 0.0
    corr_label = "raw·S − published offset" if args.softiron else "raw − published offset"
    final_offset = [res[f"offset_{a}"][-1] for a in axes_names]
    final_accuracy = int(res["accuracy"][-1])

    colours = ["tab:red", "tab:green", "tab:blue"]
    fig = plt.figure(figsize=(16, 14), dpi=100, layout="constrained")
    grid = GridSpec(3, 3, figure=fig, height_ratios=[1.15, 1, 1])
    fig.suptitle(
        f"magcal replay of {os.path.basename(args.results)}: {n} mag samples "
        f"({len(processed)} processed), final offset "
        f"({final_offset[0]:.2f}, {final_offset[1]:.2f}, {final_offset[2]:.2f}) µT, "
        f"accuracy {final_accuracy}",
        fontsize=15, fontweight="bold")

    # Plane projections: the corrected cloud should hug the circle.
    step = max(1, len(processed) // 6000)  # keeps the scatter legible
    circle = [2 * math.pi * k / 360 for k in range(361)]
    for col, (i, j) in enumerate([(0, 1), (1, 2), (2, 0)]):
        ax = fig.add_subplot(grid[0, col])
        ax.scatter(raw[i][::step], raw[j][::step], s=3, c="0.6", alpha=0.5, label="raw",
                   rasterized=True)
        ax.scatter(corr[i][::step], corr[j][::step], s=3, c="tab:blue", alpha=0.6,
                   label=corr_label + (f" (S from {os.path.basename(args.softiron)})"
                                       if args.softiron else ""), rasterized=True)
        if radius > 0:
            ax.plot([radius * math.cos(a) for a in circle], [radius * math.sin(a) for a in circle],
                    "--", c="tab:orange", lw=2, label=f"circle of the mean length, {radius:.1f} µT")
        ax.plot([final_offset[i]], [final_offset[j]], "x", c="black", ms=10, mew=2,
                label="final offset")
        ax.plot([0], [0], "+", c="tab:blue", ms=10)
        ax.set_aspect("equal", adjustable="datalim")
        ax.set_xlabel(f"{axes_names[i]} [µT]")
        ax.set_ylabel(f"{axes_names[j]} [µT]")
        ax.set_title(f"Field, {axes_names[i]}{axes_names[j]} plane")
        ax.grid(alpha=0.3)
        if col == 1:
            legend = ax.legend(loc="upper center", bbox_to_anchor=(0.5, -0.13), ncol=4,
                               fontsize=10, frameon=False)
            enlarge_dots(legend)

    # Offset per axis against truth.
    ax = fig.add_subplot(grid[1, 0:2])
    for k, a in enumerate(axes_names):
        ax.plot(time, res[f"offset_{a}"], c=colours[k], lw=1.6, label=f"offset {a}")
        if have_offset_truth:
            ax.plot(time, res[f"truth_offset_{a}"], "--", c=colours[k], lw=1.2, alpha=0.8,
                    label=f"truth {a}")
    ax.set_xlabel("time [s]")
    ax.set_ylabel("offset [µT]")
    ax.set_title("Published hard-iron offset" + (" against truth" if have_offset_truth else ""))
    ax.grid(alpha=0.3)
    ax.legend(loc="best", fontsize=9, ncol=3 if have_offset_truth else 1)

    # Accuracy timeline.
    ax = fig.add_subplot(grid[1, 2])
    ax.step(time, res["accuracy"], where="post", c="tab:purple", lw=2)
    ax.fill_between(time, res["accuracy"], step="post", color="tab:purple", alpha=0.15)
    for level in (1, 2, 3):
        reached = next((time[i] for i in range(n) if res["accuracy"][i] >= level), None)
        if reached is not None:
            ax.annotate(f"{level} at {reached:.1f} s", (reached, level), xytext=(6, -14),
                        textcoords="offset points", fontsize=9)
    ax.set_ylim(-0.2, 3.4)
    ax.set_yticks([0, 1, 2, 3])
    ax.set_xlabel("time [s]")
    ax.set_ylabel("accuracy")
    ax.set_title("Calibration accuracy")
    ax.grid(alpha=0.3)

    # Heading against truth: lines broken where the angle wraps at 0/360.
    ax = fig.add_subplot(grid[2, 0:2])
    ptime = [time[i] for i in processed]

    def heading_line(values, **style):
        ax.plot(times_broken_at_wraps(ptime, values), broken_at_wraps(values), **style)

    # Shaded where the fused attitude's +y axis is steeper than 45 deg: there
    # a compass heading is ill-defined and swings fast.
    steep = []
    for i in processed:
        x, y, z = res["rv_x"][i], res["rv_y"][i], res["rv_z"][i]
        w = math.sqrt(max(0.0, 1.0 - x * x - y * y - z * z))
        steep.append(abs(2 * (y * z + w * x)) >= math.sqrt(0.5))
    if any(steep):
        ax.fill_between(ptime, 0, 360, where=steep, step="mid", color="0.9", lw=0,
                        label="+y steeper than 45° (heading ill-defined)")
    if have_heading_truth:
        heading_line([res["truth_heading"][i] for i in processed], c="0.2", lw=3.5,
                     alpha=0.35, label="truth")
    heading_line([res["fused_heading"][i] for i in processed], c="tab:blue", lw=1.2,
                 label="fused attitude (rotation vector)")
    heading_line([res["azimuth"][i] for i in processed], c="tab:orange", lw=1.2,
                 label="azimuth output (1 s average)")
    ax.set_xlim(time[0], time[-1])
    ax.set_ylim(0, 360)
    ax.set_yticks([0, 90, 180, 270, 360])
    ax.set_xlabel("time [s]")
    ax.set_ylabel("heading of +y [deg, clockwise from north]")
    ax.set_title("Heading" + (" against truth" if have_heading_truth else ""))
    ax.grid(alpha=0.3)
    ax.legend(loc="upper center", bbox_to_anchor=(0.5, -0.12), ncol=4, fontsize=9,
              frameon=False)

    # Field strength: raw swings with the offset, the corrected field should be flat.
    ax = fig.add_subplot(grid[2, 2])
    ax.plot(ptime, raw_norm, c="0.6", lw=1, label="|raw|")
    ax.plot(ptime, corr_norm, c="tab:blue", lw=1.2, label=f"|{corr_label}|")
    ax.plot(ptime, cal_norm, c="tab:orange", lw=0.7, alpha=0.8,
            label="library output (0.8 s average)")
    if any(not math.isnan(v) for v in truth_field):
        ax.plot(time, truth_field, "--", c="black", lw=1, label="truth", zorder=3)
    ax.set_xlabel("time [s]")
    ax.set_ylabel("field strength [µT]")
    ax.set_title("Field strength")
    ax.grid(alpha=0.3)
    ax.legend(loc="upper center", bbox_to_anchor=(0.5, -0.12), ncol=1, fontsize=9,
              frameon=False)

    try:
        fig.savefig(args.output, format=args.format, dpi=100)
    except OSError as err:
        fail(f"{args.output}: cannot write: {err.strerror}", 1)


if __name__ == "__main__":
    main()
