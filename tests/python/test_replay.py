# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# magcal.replay against the magcal tool: every column, formatted the way the
# tool formats it, must give the tool's bytes; each call is a fresh library.
import numpy as np
import pytest

import magcal

FLOAT32, FLOAT64 = "%.9g", "%.17g"


def tool_lines(path):
    with open(path) as f:
        return [line.rstrip("\n") for line in f if not line.startswith("#")]


def formatted(columns, names):
    """The rows of a column dict in the tool's number formats."""
    n = len(columns[names[0]])
    texts = []
    for name in names:
        a = columns[name]
        if a.dtype == np.float32:
            texts.append([FLOAT32 % float(v) for v in a])
        elif a.dtype == np.float64:
            # Rows without truth are empty fields in the tool's file.
            texts.append(["" if np.isnan(v) and name.startswith(("truth_", "offset_error",
                                                                   "heading_error",
                                                                   "fused_heading_err"))
                          else FLOAT64 % v for v in a])
        else:
            texts.append([str(int(v)) for v in a])
    return [",".join(t[i] for t in texts) for i in range(n)]


@pytest.fixture(scope="module")
def session(tmp_path_factory, tool):
    d = tmp_path_factory.mktemp("replay")
    tool("simulate", "--scenario", "magnet", "--duration", "20", "--seed", "7", "--jitter",
         "0.003", "--soft-iron", "1.1,0.05,0,-0.02,0.95,0.01,0,0.02,1.05",
         "--softiron-out", d / "soft.json", "-o", d / "log.csv", "--truth", d / "truth.csv")
    tool("replay", d / "log.csv", "--truth", d / "truth.csv", "--softiron", d / "soft.json",
         "-o", d / "results.csv", "--trace", d / "trace.csv")
    return d


def test_every_column_and_the_trace_are_the_tools_bytes(session):
    r = magcal.replay(log=magcal.read_log(session / "log.csv"),
                      truth=magcal.read_truth(session / "truth.csv"),
                      softiron=session / "soft.json", trace=True)
    for path, names, columns in (("results.csv", r.column_names, r.columns),
                                 ("trace.csv", list(r.trace), r.trace)):
        lines = tool_lines(session / path)
        assert lines[0] == ",".join(names)
        mine = formatted(columns, names)
        assert len(mine) == len(lines) - 1 == 1000
        differing = [i for i, (a, b) in enumerate(zip(mine, lines[1:])) if a != b]
        assert differing == [], "%s: first differing row %d:\n%s\n%s" % (
            path, differing[0], mine[differing[0]], lines[1 + differing[0]])
    # The same messages from the arrays, from the tool's file and in the replay.
    assert magcal.why(r.trace) == r.why == magcal.why(session / "trace.csv")


def test_arrays_in_one_tick_each_equal_the_same_log(session):
    sim = magcal.simulate("figure8", duration_s=6, seed=3)
    log = sim.log
    t, acc = log.of(magcal.ACC)
    _, gyro = log.of(magcal.GYRO)
    _, mag = log.of(magcal.MAG)
    by_ticks = magcal.replay(t, acc, gyro, mag)
    by_log = magcal.replay(log=log)
    for name in by_log.column_names:
        assert np.array_equal(by_ticks.columns[name], by_log.columns[name], equal_nan=True), name
    assert by_log.mag.shape == (300, 3)
    assert by_log.accuracy[-1] == 3


def test_each_call_is_a_fresh_library():
    sim = magcal.simulate("figure8", duration_s=8)
    first = magcal.replay(log=sim.log)
    # A NaN accelerometer sample poisons the fusion of the library it reaches
    # for as long as that library stays loaded ...
    bad = magcal.Log(sim.log.t_ns, sim.log.sensor, sim.log.values.copy())
    bad.values[3 * 200, 0] = np.nan
    poisoned = magcal.replay(log=bad)
    assert np.isnan(poisoned.gravity_z[-1])
    # ... and the next call does not see it: the same bits as the first.
    again = magcal.replay(log=sim.log)
    for name in first.column_names:
        assert np.array_equal(first.columns[name], again.columns[name]), name


def test_restore_and_softiron_forms_agree(tmp_path):
    sim = magcal.simulate("figure8", duration_s=6, soft_iron=[1.2, 0.1, 0, 0, 0.9, 0, 0, 0, 1.0])
    path = tmp_path / "state.txt"
    path.write_text("offset 20.5 -29 40\naccuracy 3\nradius 45\n")
    by_file = magcal.replay(log=sim.log, softiron=sim.softiron_correction, restore=path)
    by_dict = magcal.replay(log=sim.log, softiron=sim.softiron_correction,
                            restore={"offset": (20.5, -29, 40), "accuracy": 3, "radius": 45})
    for name in by_file.column_names:
        assert np.array_equal(by_file.columns[name], by_dict.columns[name]), name
    assert np.allclose(by_file.softiron, sim.softiron_correction, atol=1e-9)
    # And the restore did reach the library.
    plain = magcal.replay(log=sim.log, softiron=sim.softiron_correction)
    assert not np.array_equal(plain.offset, by_file.offset)


def test_bad_arguments_are_named(tmp_path):
    sim = magcal.simulate("still", duration_s=1)
    t, acc = sim.log.of(magcal.ACC)
    with pytest.raises(ValueError, match="one row per tick"):
        magcal.replay(t, acc[:-1], acc, acc)
    with pytest.raises(ValueError, match="not both"):
        magcal.replay(t, acc, acc, acc, log=sim.log)
    with pytest.raises(ValueError, match="sensor codes"):
        magcal.replay(log=magcal.Log([1, 2], [0, 7], np.zeros((2, 3))))
    with pytest.raises(ValueError, match="restore accuracy"):
        magcal.replay(log=sim.log, restore={"offset": (0, 0, 0), "accuracy": 9, "radius": 1})
    with pytest.raises(magcal.RuntimeFailure, match="cannot load"):
        magcal.replay(log=sim.log, library=tmp_path / "nothing.so")
    bad = tmp_path / "bad.csv"
    bad.write_text("timestamp_ns,sensor,x,y,z\n1,acc,0,0,9.8\n2,compass,1,2,3\n")
    with pytest.raises(magcal.InputError, match=str(bad) + ":3:"):
        magcal.read_log(bad)
    with pytest.raises(ValueError, match="segment 1"):
        magcal.simulate(script="wobble 3")
