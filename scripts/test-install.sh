#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# What an integrator does with magcal, checked: install the default build
# into a temporary prefix and build a separate host project against it through
# find_package(magcal) and through pkg-config; embed the sources with
# add_subdirectory and no options; configure a library-only build with neither
# GoogleTest, Google Benchmark nor a C compiler. Every host program replays
# the golden stream and compares what it sees bit for bit.
# Run after ./scripts/test.sh (it installs build/default).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
work=$(mktemp -d /tmp/magcal-install-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
consumer=tests/consumer
no_test_deps=(-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON)

step() { printf '\n== %s\n' "$*"; }
fail() { echo "test-install: $*" >&2; exit 1; }

step "cmake --install build/default --prefix $prefix"
[ -f build/default/CMakeCache.txt ] || fail "build/default is not configured: run ./scripts/test.sh first"
cmake --install build/default --prefix "$prefix" >"$work/install.log"
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' build/default/CMakeCache.txt)
for f in "$libdir/libmagcal.so" "$libdir/libmagcal_static.a" \
         include/magcal/magcal_host.h include/magcal/magcal_algorithms.h \
         include/magcal/magcal_export.h include/magcal/magcal_version.h \
         "$libdir/cmake/magcal/magcalConfig.cmake" "$libdir/cmake/magcal/magcalConfigVersion.cmake" \
         "$libdir/cmake/magcal/magcalTargets.cmake" "$libdir/pkgconfig/magcal.pc" \
         bin/magcal share/magcal/report.py "$libdir/magcal/libmagcal_trace.so"; do
    [ -f "$prefix/$f" ] || fail "the install lacks $f"
done
# Nothing escapes the prefix (to /usr/local, say).
outside=$(grep -E '^-- (Installing|Up-to-date): ' "$work/install.log" | grep -v -- "-- [A-Za-z-]*: $prefix/" || true)
[ -z "$outside" ] || fail "installed outside the prefix: $outside"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/default/CMakeCache.txt)
[ "$("$prefix/bin/magcal" --version)" = "magcal $version" ] || fail "installed magcal --version is not $version"
[ "$(PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig pkg-config --modversion magcal)" = "$version" ] ||
    fail "pkg-config does not report version $version"
echo "installed $(grep -cE '^-- (Installing|Up-to-date): ' "$work/install.log") files, version $version"
# The installed tool finds the installed plug-in on its own.
"$prefix/bin/magcal" replay tests/golden/figure8_50hz_input.csv >"$work/replay.txt" 2>&1 ||
    { cat "$work/replay.txt"; fail "the installed magcal cannot replay"; }
grep -q "through $(realpath "$prefix/$libdir")/libmagcal.so" "$work/replay.txt" ||
    { cat "$work/replay.txt"; fail "the installed magcal did not load the installed plug-in"; }
# ... and, for a trace, the installed trace library, which hosts never find.
"$prefix/bin/magcal" replay tests/golden/figure8_50hz_input.csv --trace "$work/trace.csv" \
    >"$work/replay-trace.txt" 2>&1 ||
    { cat "$work/replay-trace.txt"; fail "the installed magcal cannot replay with --trace"; }
grep -q "through $(realpath "$prefix/$libdir")/magcal/libmagcal_trace.so" "$work/replay-trace.txt" ||
    { cat "$work/replay-trace.txt"; fail "the installed magcal did not load the installed trace library"; }
[ ! -e "$prefix/$libdir/libmagcal_trace.so" ] || fail "the trace library is where hosts look for plug-ins"

# The Python package, when built, installs offline from the build tree and
# replays from outside it.
checks=4
if [ -d build/default/python/magcal ]; then
    checks=5
    step "pip install --no-build-isolation --no-index build/default/python"
    python=$(sed -n 's/^MAGCAL_PYTHON_EXECUTABLE:INTERNAL=//p' build/default/CMakeCache.txt)
    "$python" -m pip install --quiet --no-build-isolation --no-index --no-deps --no-compile \
        --target "$work/site" build/default/python >"$work/pip.log" 2>&1 ||
        { cat "$work/pip.log"; fail "the Python package does not install offline"; }
    (cd "$work" && PYTHONPATH="$work/site" "$python" -c '
import magcal, sys
assert magcal.__file__.startswith(sys.argv[1]), magcal.__file__
r = magcal.replay(log=magcal.simulate("figure8", duration_s=8).log, trace=True)
assert r.final_accuracy == 3 and r.why[0].kind == "session", r.why
print("installed package replays: accuracy", r.final_accuracy)' "$work/site") ||
        fail "the installed Python package does not replay"
fi

run_consumer() { # way, extra cmake arguments...
    local way=$1 dir=$work/consumer-$1
    shift
    cmake -S "$consumer" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DMAGCAL_CONSUMER_VIA="$way" "$@" \
        >"$dir.log" 2>&1 || { cat "$dir.log"; fail "configuring the $way consumer failed"; }
    cmake --build "$dir" -j 2 >>"$dir.log" 2>&1 || { cat "$dir.log"; fail "building the $way consumer failed"; }
    for program in "$dir"/consumer_*; do
        # The library logs the missing soft-iron file to stderr; keep it for failures.
        "$program" 2>"$dir.err" || { cat "$dir.err"; fail "$(basename "$program") ($way) does not see the golden outputs"; }
    done
}

step "a host project through find_package(magcal)"
run_consumer package -DCMAKE_PREFIX_PATH="$prefix"

step "a host project through pkg-config"
PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig run_consumer pkg-config

step "a host project that adds the sources with add_subdirectory and no options"
run_consumer subdirectory "${no_test_deps[@]}"

step "a library-only configuration needs no GoogleTest, Benchmark or C compiler"
cmake -S "$root" -B "$work/library-only" -DMAGCAL_BUILD_TESTS=OFF -DMAGCAL_BUILD_BENCH=OFF \
    -DMAGCAL_BUILD_TOOLS=OFF -DCMAKE_C_COMPILER=/nonexistent/cc "${no_test_deps[@]}" \
    >"$work/library-only.log" 2>&1 || { cat "$work/library-only.log"; fail "library-only configuration failed"; }
echo "configured"

printf '\nInstall and consumer checks: %d passed, 0 failed\n' "$checks"
