// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "softiron_json.h"

#include <cmath>

#include "tool_errors.h"

namespace magcal::tool {

void write_softiron_json(std::FILE* out, const std::array<double, 9>& s) {
    for (double v : s) {
        // The reader accumulates the integer part in 32 bits; stay far below.
        if (!(std::fabs(v) < 1e6)) {
            throw UsageError("soft-iron correction entry too large for the parameter file");
        }
    }
    std::fputs("{\n  \"qvg\": [", out);
    for (int i = 0; i < 9; ++i) {
        std::fprintf(out, "%s%.9f", i == 0 ? "" : i % 3 == 0 ? ",\n          " : ", ", s[i]);
    }
    std::fputs("]\n}\n", out);
}

}  // namespace magcal::tool
