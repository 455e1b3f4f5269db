# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# The plain-words messages from Python, on scripted sessions whose outcome the
# library's rules decide: turns about z alone cannot reach accuracy 3.
import pytest

import magcal


def test_turns_about_z_alone_ask_for_another_axis():
    sim = magcal.simulate(script="hold 1; turn z 360 90; hold 1; turn z -360 90; hold 3")
    assert len(sim.log) == 3 * 50 * 13  # the script's 13 s at 50 Hz
    r = magcal.replay(log=sim.log, trace=True)
    assert r.final_accuracy == 2
    session, *rest = r.why
    assert session.kind == "session" and session.rule == "coverage"
    last = [m for m in rest if m.kind == "stretch"][-1]
    assert last.accuracy == 2 and last.rule == "coverage"
    assert "turn the device about its x or y axis; the turn about z is done" in last.text
    assert magcal.why_text(r.why).startswith("why:\n  session of ")


def test_magnet_drop_is_explained_with_its_time():
    calibrate = ("hold 1; turn z 360 90; tilt +x 60 60; turn z 360 90; tilt -x 120 60; "
                 "turn z 360 90; tilt +x 60 60; tilt +y 60 60; turn z 360 90; tilt -y 120 60; "
                 "turn z 360 90; tilt +y 60 60; hold 2")
    sim = magcal.simulate(script=calibrate + "; magnet 200 3; hold 3")
    r = magcal.replay(log=sim.log, trace=True)
    drops = [m for m in r.why if m.kind == "drop"]
    assert [(m.from_accuracy, m.accuracy, m.rule) for m in drops] == [(3, 0, "strong-field")]
    # The drop is where the trace's accuracy first falls.
    falls = (r.trace["accuracy"][1:] < r.trace["accuracy"][:-1]).nonzero()[0]
    assert abs(drops[0].t_begin_s - r.trace["t_s"][falls[0] + 1]) < 1e-9


def test_a_damaged_trace_is_refused():
    r = magcal.replay(log=magcal.simulate("still", duration_s=1).log, trace=True)
    trace = dict(r.trace)
    trace["in6"] = trace["in6"].astype(float)
    trace["in6"][3] = float("nan")
    with pytest.raises(ValueError, match="in6"):
        magcal.why(trace)
    del trace["in6"]
    with pytest.raises(ValueError, match="lacks column in6"):
        magcal.why(trace)


def test_without_trace_there_is_no_why():
    r = magcal.replay(log=magcal.simulate("still", duration_s=1).log)
    assert r.trace is None and r.why is None
