# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Cross builds with Debian's cross compilers (g++-<triple>), whose target
# libraries live in /usr/<triple>. Programs built for the target run on the
# build machine under qemu-user with that directory as their root, which is
# how CTest runs every test of a cross build. Included by the per-target
# toolchain files, which set MAGCAL_CROSS_TRIPLE, MAGCAL_CROSS_QEMU and
# CMAKE_SYSTEM_PROCESSOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${MAGCAL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${MAGCAL_CROSS_TRIPLE}-g++)

set(MAGCAL_CROSS_SYSROOT /usr/${MAGCAL_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${MAGCAL_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${MAGCAL_CROSS_QEMU} -L ${MAGCAL_CROSS_SYSROOT})
