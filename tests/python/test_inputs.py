# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Readers and the simulator from Python: the same records as the tool's
# files (with the simulator's options) and the input checks' warnings.
import gzip

import numpy as np

import magcal


def test_read_log_matches_simulate_and_reads_gzip(tmp_path, tool):
    # Every option away from its default, so that one the package drops shows.
    tool("simulate", "--scenario", "walk", "--duration", "3", "--seed", "5", "--offset", "1,2,3",
         "--soft-iron", "1.1,0.1,0,0,0.9,0,0,0,1", "--gyro-bias", "0.01,0,0", "--jitter", "0.001",
         "-o", tmp_path / "log.csv", "--truth", tmp_path / "truth.csv")
    sim = magcal.simulate("walk", duration_s=3, seed=5, offset=(1, 2, 3), jitter_s=0.001,
                          soft_iron=[1.1, 0.1, 0, 0, 0.9, 0, 0, 0, 1], gyro_bias=(0.01, 0, 0))
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

