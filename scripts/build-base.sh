#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Builds the plug-in of an earlier commit, from `git archive`, under
# build/base-<commit>/, with the default preset's flags, and prints the path
# of its libmagcal.so. Used to compare a change with what it replaces.
#
#   scripts/build-base.sh COMMIT
set -euo pipefail
cd "$(dirname "$0")/.."
commit=$(git rev-parse --short "${1:?usage: scripts/build-base.sh COMMIT}")
dir=build/base-$commit
if [ ! -f "$dir/build/libmagcal.so" ]; then
  rm -rf "$dir"
  mkdir -p "$dir/src"
  git archive "$commit" | tar -x -C "$dir/src"
  cmake -S "$dir/src" -B "$dir/build" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DMAGCAL_BUILD_TESTS=OFF -DMAGCAL_BUILD_BENCH=OFF -DMAGCAL_BUILD_TOOLS=OFF >/dev/null
  cmake --build "$dir/build" --target magcal -j 2 >/dev/null
fi
echo "$PWD/$dir/build/libmagcal.so"
