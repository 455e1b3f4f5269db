// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The soft-iron parameter file the plug-in reads: a JSON object whose member
// "qvg" is an array of nine numbers, the row-major matrix S the library
// multiplies the raw field by as a row vector (m'[i] = sum_k raw[k] S[k][i]).
#pragma once

#include <array>
#include <cstdio>

namespace magcal::tool {

// Numbers are written in plain decimal with nine fraction digits: the
// library's reader applies an exponent to the fraction digits only and reads
// at most nine of them into a 32-bit integer, so neither an exponent nor more
// digits may appear. UsageError for entries of 1e6 or more.
void write_softiron_json(std::FILE* out, const std::array<double, 9>& s);

}  // namespace magcal::tool
