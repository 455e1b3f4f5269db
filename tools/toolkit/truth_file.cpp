// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Truth rows are written with %.17g so that they read back exactly.
#include "truth_file.h"

#include <cinttypes>

#include "line_reader.h"
#include "sensor_log.h"
#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {
namespace {

constexpr const char* kHeader =
    "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut";
const char* const kColumns[10] = {"timestamp_ns", "qw",       "qx",       "qy",       "qz",
                                  "heading_deg",  "offset_x", "offset_y", "offset_z", "field_ut"};

}  // namespace

std::vector<TruthRecord> read_truth(const std::string& path) {
    std::vector<TruthRecord> rows;
    bool first = true;
    LineReader in(path);
    std::string_view text;
    std::vector<std::string_view> f;
    while (in.next(&text)) {
        if (is_comment_or_blank(text)) continue;
        const std::string where = location(in.name(), in.number());
        split_fields(text, ',', &f);
        if (first && !is_number(f[0])) {
            bool ok = f.size() == 10;
            for (size_t i = 0; ok && i < 10; ++i) ok = f[i] == kColumns[i];
            if (!ok) bad_header(where, kHeader, f, "");
            first = false;
            continue;
        }
        first = false;
        if (f.size() > 10) {
            throw InputError(where + ": too many fields: " + std::to_string(f.size()) +
                             " (a line is " + kHeader + ")");
        }
        double v[10];
        TruthRecord r{};
        r.t_ns = parse_int64_field(field_at(f, 0, kColumns[0], where, kHeader), kColumns[0], where);
        for (int i = 1; i < 10; ++i) {
            v[i] =
                parse_double_field(field_at(f, i, kColumns[i], where, kHeader), kColumns[i], where);
        }
        r.q = {v[1], v[2], v[3], v[4]};
        r.heading_deg = v[5];
        r.offset = {v[6], v[7], v[8]};
        r.field_ut = v[9];
        rows.push_back(r);
    }
    return rows;
}

void write_truth_header(std::FILE* out) {
    std::fprintf(out, "%s\n", kHeader);
}

void write_truth_record(std::FILE* out, const TruthRecord& r) {
    std::fprintf(out, "%" PRId64 ",%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g\n", r.t_ns,
                 r.q[0], r.q[1], r.q[2], r.q[3], r.heading_deg, r.offset[0], r.offset[1],
                 r.offset[2], r.field_ut);
}

}  // namespace magcal::tool
