#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
"""Shows the decision trace of a session that never reaches accuracy 3: a
phone turned only about its z axis (flat on a table). The library's own
evidence says why: the turn counter about z is done, x and y never are.

    python3 examples/python/trace_never_three.py [--out DIR]
"""
import argparse
import os

import matplotlib

matplotlib.use(os.environ.get("MPLBACKEND", "Agg"))
import matplotlib.pyplot as plt  # noqa: E402

import magcal  # noqa: E402

SCRIPT = "hold 1; turn z 360 90; hold 1; turn z -270 60; hold 2; turn z 180 90; hold 3"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=".", help="directory for the figure")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    sim = magcal.simulate(script=SCRIPT)
    r = magcal.replay(log=sim.log, trace=True)
    print(magcal.why_text(r.why), end="")
    tr = r.trace
    t = tr["t_s"]

    fig, axes = plt.subplots(4, 1, sharex=True, figsize=(9, 7))
    axes[0].step(t, tr["accuracy"], where="post", color="tab:green", label="accuracy")
    axes[0].step(t, tr["cal_stage"], where="post", color="tab:grey", ls="--", label="cal_stage")
    axes[0].set_yticks([0, 1, 2, 3])
    axes[0].legend(loc="lower right")
    axes[0].set_title("Turned about z only: " + r.why[0].text.split(": ", 1)[1][:60] + "...")
    for axis, colour in zip("xyz", ("tab:red", "tab:orange", "tab:blue")):
        axes[1].step(t, tr["turn_cnt_" + axis], where="post", color=colour,
                     label="turn_cnt_" + axis)
    axes[1].set_ylabel("turn counters\n(1000 = done)")
    axes[1].legend(loc="center right")
    for name, colour in (("in6", "tab:olive"), ("in35", "tab:cyan"), ("in3", "tab:purple")):
        axes[2].step(t, tr[name], where="post", color=colour, label=name)
    axes[2].set_ylabel("steady radius\n[samples]")
    axes[2].legend(loc="center right")
    axes[3].plot(t, tr["radius"], color="black", lw=0.8, label="radius")
    axes[3].set_ylabel("radius [uT]")
    axes[3].set_xlabel("time from the first mag sample [s]")
    fig.tight_layout()
    path = os.path.join(args.out, "trace_never_three.png")
    fig.savefig(path, dpi=100)
    print("figure ->", path)


if __name__ == "__main__":
    main()
