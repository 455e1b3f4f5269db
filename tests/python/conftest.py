# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# The package under test is the staged one on PYTHONPATH (CTest sets it);
# the tool it must agree with is MAGCAL_TOOL.
import os
import subprocess

import pytest


@pytest.fixture(scope="session")
def tool():
    path = os.environ.get("MAGCAL_TOOL")
    if not path:
        pytest.fail("MAGCAL_TOOL must name the built magcal tool (CTest sets it)")

    def run(*args, check=True):
        done = subprocess.run([path, *map(str, args)], capture_output=True, text=True)
        if check and done.returncode != 0:
            raise AssertionError("magcal %s failed (%d): %s" % (" ".join(map(str, args)),
                                                                done.returncode, done.stderr))
        return done

    return run
