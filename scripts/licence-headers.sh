#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Every tracked source carries the licence header:
#   SPDX-License-Identifier: Apache-2.0
#   Copyright 2026 The magcal Authors
# in the comment style of its language, after a shebang line if there is one.
#   --check  list the sources without it; exit 1 if there are any
#   --fix    add it where it is missing (running it twice changes nothing)
# Sources: C and C++ files, CMake files and templates, shell and Python
# scripts, Android.bp and .ci/run. Not: data, golden files, JSON (which has no
# comments), Markdown, the export map and LICENSE itself.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly spdx="SPDX-License-Identifier: Apache-2.0"
readonly copyright="Copyright 2026 The magcal Authors"

usage() { echo "usage: $0 --check|--fix" >&2; exit 2; }
[ $# -eq 1 ] || usage
mode=$1
[ "$mode" = --check ] || [ "$mode" = --fix ] || usage

# The comment style of a source, or nothing when the file is not a source.
# A header keeps the style it opens with: C headers /* */, C++ headers //.
style_of() {
    case "$1" in
        *.c) echo block ;;
        *.h | *.h.in) if head -n 1 "$1" | grep -q '^/\*'; then echo block; else echo slashes; fi ;;
        *.cpp | *.cc | *.hpp | *.bp) echo slashes ;;
        *.cmake | *.cmake.in | *.pc.in | */CMakeLists.txt | CMakeLists.txt | *.sh | *.py | .ci/run) echo hash ;;
        *) ;;
    esac
}

has_header() { head -n 5 "$1" | grep -q "$spdx"; }

# Writes the file with the header added: after a shebang (and a Python
# coding line); joined to a leading comment of the same style by an empty
# comment line, otherwise followed by a blank line.
add_header() {
    local file=$1 style=$2 tmp
    tmp=$(mktemp "$file.XXXXXX")
    awk -v style="$style" -v spdx="$spdx" -v copyright="$copyright" '
        function header(next_line) {
            if (style == "block") {
                print "/* " spdx; print " * " copyright " */"; print ""
                return
            }
            marker = (style == "slashes") ? "//" : "#"
            print marker " " spdx; print marker " " copyright
            if (index(next_line, marker) == 1 && substr(next_line, 1, 2) != "#!") print marker
            else print ""
        }
        NR == 1 && /^#!/ { print; next }
        !done && /^#.*coding[:=]/ && style == "hash" { print; next }
        !done { header($0); done = 1 }
        { print }
        END { if (!done) header("") }
    ' "$file" >"$tmp"
    chmod --reference="$file" "$tmp"
    mv "$tmp" "$file"
}

missing=0
while IFS= read -r -d '' file; do
    style=$(style_of "$file")
    [ -n "$style" ] && [ -f "$file" ] || continue
    has_header "$file" && continue
    if [ "$mode" = --fix ]; then
        add_header "$file" "$style"
        echo "added the licence header to $file"
    else
        echo "no licence header: $file"
        missing=$((missing + 1))
    fi
done < <(git ls-files -z)

if [ "$mode" = --check ]; then
    if [ "$missing" -gt 0 ]; then
        echo "$missing sources lack the licence header; ./scripts/licence-headers.sh --fix adds it" >&2
        exit 1
    fi
    echo "every source carries the licence header"
fi
