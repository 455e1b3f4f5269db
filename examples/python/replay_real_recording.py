#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
"""Replays the shipped real recording (trial 05: 35 s at rest, then slow turns
with pauses) and plots the heading error of the fused attitude against the
optical ground truth, with the accuracy under it.

    python3 examples/python/replay_real_recording.py [--out DIR]
"""
import argparse
import os

import matplotlib

matplotlib.use(os.environ.get("MPLBACKEND", "Agg"))
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import magcal  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
DATA = os.environ.get("MAGCAL_DATA_DIR", os.path.join(HERE, "..", "..", "data"))
TRIAL = os.path.join(DATA, "broad", "05_undisturbed_slow_rotation_with_breaks_B")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=".", help="directory for the figure")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    log = magcal.read_log(TRIAL + ".csv.gz")
    for warning in log.warnings:
        print(warning)
    r = magcal.replay(log=log, truth=magcal.read_truth(TRIAL + ".truth.csv.gz"))
    t = r.t_s
    error = r.fused_heading_err
    # Every sample at accuracy 3; the tool's summary keeps only those whose +y
    # axis is within 45 degrees of horizontal, hence its smaller figure.
    calibrated = (r.accuracy == 3) & np.isfinite(error)
    rms = np.sqrt(np.mean(error[calibrated] ** 2))
    first3 = t[np.argmax(r.accuracy == 3)]
    print("accuracy 3 from %.1f s; fused heading error once calibrated: RMS %.1f deg over "
          "%d samples" % (first3, rms, calibrated.sum()))

    fig, (ax, ax_acc) = plt.subplots(2, 1, sharex=True, figsize=(9, 5),
                                     gridspec_kw={"height_ratios": [3, 1]})
    ax.plot(t, error, lw=0.7, color="tab:blue")
    ax.axhline(0, color="grey", lw=0.5)
    ax.set_ylabel("fused heading - truth [deg]")
    ax.set_ylim(-60, 60)
    ax.set_title("Real recording, trial 05: RMS %.1f deg at accuracy 3" % rms)
    ax_acc.step(t, r.accuracy, where="post", color="tab:green")
    ax_acc.set_ylabel("accuracy")
    ax_acc.set_yticks([0, 1, 2, 3])
    ax_acc.set_xlabel("time from the first mag sample [s]")
    fig.tight_layout()
    path = os.path.join(args.out, "real_recording_heading_error.png")
    fig.savefig(path, dpi=100)
    print("figure ->", path)


if __name__ == "__main__":
    main()
