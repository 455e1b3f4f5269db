# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# The package carries compiled files built by CMake: mark the wheel as
# platform-specific so that it is never taken for a pure-Python one.
from setuptools import setup
from setuptools.dist import Distribution


class BinaryDistribution(Distribution):
    def has_ext_modules(self):
        return True


setup(distclass=BinaryDistribution)
