#!/usr/bin/env bash
# The same tests under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan "$@"
