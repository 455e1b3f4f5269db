#!/usr/bin/env bash
# Configure, build and run every test of the optimised build.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
ctest --preset default "$@"
