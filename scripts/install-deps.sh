#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Installs from Debian what building and testing magcal needs and the machine
# lacks; with --cross also the arm64 and armhf cross compilers and qemu-user;
# with --fuzz also clang and its libFuzzer runtime (the fuzz preset). Does
# nothing (and needs no network) when everything is there. Needs root or sudo
# to install.
set -euo pipefail

packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev zlib1g-dev python3-numpy
          python3-matplotlib python3-dev python3-pybind11 pybind11-dev python3-pytest
          python3-setuptools python3-pip python3-wheel)
for option in "$@"; do
    case "$option" in
        --cross) packages+=(g++-aarch64-linux-gnu g++-arm-linux-gnueabihf qemu-user) ;;
        --fuzz) packages+=(clang libclang-rt-dev) ;;
        *)
            echo "usage: $0 [--cross] [--fuzz]" >&2
            exit 2
            ;;
    esac
done

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }
echo "installing ${missing[*]}"
as_root apt-get update -qq
as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
