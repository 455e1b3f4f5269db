#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
"""Compares two soft-iron parameter files on one session: how round the
calibrated field is and how far the heading is off with each.

    python3 examples/python/compare_softiron.py [A.json B.json] [--out DIR]

Without files it simulates a phone whose magnetometer is distorted (x reads
20 % high, y 10 % low) and compares the identity with the file that undoes
the distortion.
"""
import argparse
import os

import matplotlib

matplotlib.use(os.environ.get("MPLBACKEND", "Agg"))
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import magcal  # noqa: E402

DISTORTION = [1.2, 0.0, 0.0, 0.0, 0.9, 0.0, 0.0, 0.0, 1.0]


def write_softiron(path, matrix):
    with open(path, "w") as f:
        f.write('{"qvg": [%s]}\n' % ", ".join("%.9f" % v for v in np.ravel(matrix)))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("files", nargs="*", help="two soft-iron parameter files")
    parser.add_argument("--out", default=".", help="directory for the figure")
    args = parser.parse_args()
    if len(args.files) not in (0, 2):
        parser.error("give two soft-iron files, or none")
    os.makedirs(args.out, exist_ok=True)

    sim = magcal.simulate("figure8", duration_s=40, soft_iron=DISTORTION)
    files = args.files
    if not files:
        files = [os.path.join(args.out, "identity.json"), os.path.join(args.out, "undo.json")]
        write_softiron(files[0], np.eye(3))
        write_softiron(files[1], sim.softiron_correction)

    fig, (ax_r, ax_h) = plt.subplots(2, 1, sharex=True, figsize=(9, 5))
    for path in files:
        r = magcal.replay(log=sim.log, truth=sim.truth, softiron=path)
        radius = np.linalg.norm(r.cal.astype(float), axis=1)
        late = r.t_s > 20
        spread = radius[late].std()
        rms = np.sqrt(np.nanmean(r.fused_heading_err[late & (r.accuracy == 3)] ** 2))
        name = os.path.basename(path)
        print("%s: |calibrated field| sd %.2f uT, fused heading RMS %.1f deg after 20 s"
              % (name, spread, rms))
        ax_r.plot(r.t_s, radius, lw=0.7, label="%s (sd %.2f uT)" % (name, spread))
        ax_h.plot(r.t_s, r.fused_heading_err, lw=0.7, label="%s (RMS %.1f deg)" % (name, rms))
    ax_r.set_ylabel("|calibrated field| [uT]")
    ax_r.legend(loc="upper right")
    ax_h.set_ylabel("heading error [deg]")
    ax_h.set_ylim(-45, 45)
    ax_h.set_xlabel("time [s]")
    ax_h.legend(loc="upper right")
    fig.tight_layout()
    out = os.path.join(args.out, "compare_softiron.png")
    fig.savefig(out, dpi=100)
    print("figure ->", out)


if __name__ == "__main__":
    main()
