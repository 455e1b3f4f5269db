// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Keyed lines, blank-separated values; each key exactly once.
#include "calibration_state.h"

#include <sstream>
#include <vector>

#include "line_reader.h"
#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {
namespace {

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    std::string w;
    while (in >> w) out.push_back(w);
    return out;
}

void expect_count(const std::vector<std::string>& w, size_t count, const std::string& where) {
    if (w.size() != count) {
        throw InputError(where + ": '" + w[0] + "' takes " + std::to_string(count - 1) +
                         (count == 2 ? " value" : " values") + ", found " +
                         std::to_string(w.size() - 1));
    }
}

}  // namespace

SavedCalibration read_calibration_state(const std::string& path) {
    SavedCalibration s{};
    bool have_offset = false, have_accuracy = false, have_radius = false;
    LineReader in(path);
    std::string_view text;
    while (in.next(&text)) {
        if (is_comment_or_blank(text)) continue;
        const std::string where = location(in.name(), in.number());
        const std::vector<std::string> w = words(std::string(text));
        // A form feed or vertical tab is no blank to the line check but
        // separates words here: a line of them holds no word at all.
        if (w.empty()) continue;
        bool* seen = nullptr;
        if (w[0] == "offset") {
            expect_count(w, 4, where);
            static const char* const kNames[3] = {"offset x", "offset y", "offset z"};
            for (int i = 0; i < 3; ++i) s.offset[i] = parse_float_field(w[1 + i], kNames[i], where);
            seen = &have_offset;
        } else if (w[0] == "accuracy") {
            expect_count(w, 2, where);
            s.accuracy = parse_int32_field(w[1], "accuracy", where);
            if (s.accuracy < 0 || s.accuracy > 3) {
                throw InputError(where + ": field 'accuracy': not in 0..3: " + quoted(w[1]));
            }
            seen = &have_accuracy;
        } else if (w[0] == "radius") {
            expect_count(w, 2, where);
            s.radius = parse_double_field(w[1], "radius", where);
            seen = &have_radius;
        } else {
            throw InputError(where + ": unknown key " + quoted(w[0]) +
                             " (expected offset, accuracy or radius)");
        }
        if (*seen) throw InputError(where + ": '" + w[0] + "' given twice");
        *seen = true;
    }
    const char* missing = !have_offset     ? "offset"
                          : !have_accuracy ? "accuracy"
                          : !have_radius   ? "radius"
                                           : nullptr;
    if (missing != nullptr) throw InputError(path + ": missing '" + missing + "'");
    return s;
}

void write_calibration_state(std::FILE* out, const SavedCalibration& s) {
    std::fprintf(out,
                 "# magcal calibration state\n"
                 "# offset: published hard-iron offset [uT]; accuracy: 0..3;\n"
                 "# radius: |calibrated field| of the last processed sample [uT]\n"
                 "offset %.9g %.9g %.9g\naccuracy %d\nradius %.17g\n",
                 static_cast<double>(s.offset[0]), static_cast<double>(s.offset[1]),
                 static_cast<double>(s.offset[2]), static_cast<int>(s.accuracy), s.radius);
}

}  // namespace magcal::tool
