#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Cross-builds the tests and tools for arm64 or armhf with Debian's cross
# compilers and runs every test under qemu-user:
#   ./scripts/test-cross.sh arm64|armhf [ctest arguments]
# ./scripts/install-deps.sh --cross installs what this needs.
set -euo pipefail
cd "$(dirname "$0")/.."
case "${1:-}" in
    arm64 | armhf) preset=$1 ;;
    *) echo "usage: $0 arm64|armhf [ctest arguments]" >&2; exit 2 ;;
esac
shift
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" "$@"
