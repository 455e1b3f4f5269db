# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# 32-bit ARM with hardware floating point (armhf), where 32-bit pointers and
# 8-byte-aligned int64 put the record layouts to the test:
# g++-arm-linux-gnueabihf, tests under qemu-arm (Debian package qemu-user).
set(CMAKE_SYSTEM_PROCESSOR arm)
set(MAGCAL_CROSS_TRIPLE arm-linux-gnueabihf)
set(MAGCAL_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
# GCC notes that passing some iterators changed ABI in GCC 7.1; every object
# here is built by the same compiler, so the note is noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
