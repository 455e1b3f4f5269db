# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# 64-bit ARM (arm64), the architecture phones run: g++-aarch64-linux-gnu,
# tests under qemu-aarch64 (Debian package qemu-user).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(MAGCAL_CROSS_TRIPLE aarch64-linux-gnu)
set(MAGCAL_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
