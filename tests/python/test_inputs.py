# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Readers and the simulator from Python: the same records as the tool's
# files, the input checks' warnings, and determinism.
import gzip

import numpy as np

import magcal


def test_read_log_matches_simulate_and_reads_gzip(tmp_path, tool):
    tool("simulate", "--scenario", "walk", "--duration", "3", "--seed", "5",
         "-o", tmp_path / "log.csv", "--truth", tmp_path / "truth.csv")
    sim = magcal.simulate("walk", duration_s=3, seed=5)
    log = magcal.read_log(tmp_path / "log.csv")
    assert np.array_equal(log.t_ns, sim.log.t_ns)
    assert np.array_equal(log.sensor, sim.log.sensor)
    assert np.array_equal(log.values.view(np.uint32), sim.log.values.view(np.uint32))
    truth = magcal.read_truth(tmp_path / "truth.csv")
    assert np.array_equal(truth.q, sim.truth.q) and np.array_equal(truth.offset, sim.truth.offset)
    with open(tmp_path / "log.csv", "rb") as f, gzip.open(tmp_path / "log.csv.gz", "wb") as g:
        g.write(f.read())
    packed = magcal.read_log(tmp_path / "log.csv.gz")
    assert np.array_equal(packed.values, log.values)


def test_warnings_name_file_and_line(tmp_path):
    path = tmp_path / "g.csv"
    # An accelerometer in g instead of m/s^2.
    rows = ["timestamp_ns,sensor,x,y,z"]
    for k in range(200):
        t = 1_000_000_000 + k * 20_000_000
        rows += ["%d,acc,0,0,1" % t, "%d,gyro,0,0,0" % t, "%d,mag,20,0,-40" % t]
    path.write_text("\n".join(rows) + "\n")
    warnings = magcal.read_log(path).warnings
    assert len(warnings) == 1
    assert warnings[0].startswith("%s:2: warning:" % path)


def test_simulation_is_deterministic_and_scripts_set_the_duration():
    a = magcal.simulate(script="hold 0.5; turn x 90 90", seed=4)
    b = magcal.simulate(script="hold 0.5; turn x 90 90", seed=4)
    assert len(a.log) == 3 * 75
    assert np.array_equal(a.log.values, b.log.values)
    c = magcal.simulate(script="hold 0.5; turn x 90 90", seed=5)
    assert not np.array_equal(a.log.values, c.log.values)
