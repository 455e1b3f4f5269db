// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Doubles are written with 17 significant digits so that a trace reads back
// to the same bits; the column list is built once from the record layout so
// that the writer, the reader and the Python package cannot disagree.
#include "decision_trace.h"

#include <charconv>
#include <cstring>

#include "line_reader.h"
#include "text_fields.h"
#include "tool_errors.h"

namespace magcal::tool {
namespace {

constexpr const char* kLeadColumns[3] = {"t_ns", "t_s", "processed"};

#define MAGCAL_D(field, unit) \
    { #field, offsetof(MagcalDecisionSnapshot, field), true, unit }
#define MAGCAL_V(field, unit)                                                                  \
    {#field "_x", offsetof(MagcalDecisionSnapshot, field), true, unit},                        \
        {#field "_y", offsetof(MagcalDecisionSnapshot, field) + sizeof(double), true, unit}, { \
#field "_z", offsetof(MagcalDecisionSnapshot, field) + 2 * sizeof(double), true, unit  \
    }
#define MAGCAL_I(field, unit) \
    { #field, offsetof(MagcalDecisionSnapshot, field), false, unit }

std::vector<TraceColumn> build_columns() {
    return {
        MAGCAL_V(mag, "uT"),
        MAGCAL_V(offset_est, "uT"),
        MAGCAL_V(offset_pub, "uT"),
        MAGCAL_D(radius, "uT"),
        MAGCAL_D(ref_radius, "uT"),
        MAGCAL_V(rls_centre, "uT"),
        MAGCAL_D(rls_radius, "uT"),
        MAGCAL_D(start_radius_tol, "uT"),
        MAGCAL_D(r_ref6, "uT"),
        MAGCAL_D(r_ref35, "uT"),
        MAGCAL_D(r_ref3, "uT"),
        MAGCAL_D(ref_ang0, "deg"),
        MAGCAL_D(ref_ang1, "deg"),
        MAGCAL_D(ref_ang2, "deg"),
        MAGCAL_D(ref_acc_x, "m/s^2"),
        MAGCAL_D(ref_acc_y, "m/s^2"),
        MAGCAL_D(ref_acc_z, "m/s^2"),
        MAGCAL_D(accuracy3_offset_diff_th, "uT"),
        MAGCAL_D(last_time, "s"),
        MAGCAL_I(accuracy, ""),
        MAGCAL_I(acc_prev, ""),
        MAGCAL_I(run_state, ""),
        MAGCAL_I(period_10ms, "10 ms"),
        MAGCAL_I(move_hold, "samples"),
        MAGCAL_I(fast_hold, "samples"),
        MAGCAL_I(range_hold, "samples"),
        MAGCAL_I(recover_cnt, "samples"),
        MAGCAL_I(rls_drift_cnt, "samples"),
        MAGCAL_I(agree_cnt, "samples"),
        MAGCAL_I(mag_hist_cnt, "samples"),
        MAGCAL_I(disturbed, ""),
        MAGCAL_I(stable, ""),
        MAGCAL_I(cal_flag, ""),
        MAGCAL_I(fusion_enable, ""),
        MAGCAL_I(rls_started, ""),
        MAGCAL_I(kf_ran, ""),
        MAGCAL_I(moving, ""),
        MAGCAL_I(in_cnt, "samples"),
        MAGCAL_I(out_cnt, "samples"),
        MAGCAL_I(cal_stage, ""),
        MAGCAL_I(in6, "samples"),
        MAGCAL_I(out6, "samples"),
        MAGCAL_I(in35, "samples"),
        MAGCAL_I(out35, "samples"),
        MAGCAL_I(in3, "samples"),
        MAGCAL_I(out3, "samples"),
        MAGCAL_I(turn_cnt_x, "samples"),
        MAGCAL_I(turn_cnt_y, "samples"),
        MAGCAL_I(turn_cnt_z, "samples"),
        MAGCAL_I(turn_x, ""),
        MAGCAL_I(turn_y, ""),
        MAGCAL_I(turn_z, ""),
        MAGCAL_I(face_xp, ""),
        MAGCAL_I(face_xn, ""),
        MAGCAL_I(face_yp, ""),
        MAGCAL_I(face_yn, ""),
        MAGCAL_I(face_xp2, ""),
        MAGCAL_I(face_xn2, ""),
        MAGCAL_I(face_yp2, ""),
        MAGCAL_I(face_yn2, ""),
        MAGCAL_I(flip_cnt_x, ""),
        MAGCAL_I(flip_cnt_y, ""),
        MAGCAL_I(flip_cnt_z, ""),
        MAGCAL_I(all_round, ""),
        MAGCAL_I(ref_taken, ""),
        MAGCAL_I(tilt_turn, ""),
        MAGCAL_I(acc3_wait, "samples"),
    };
}

#undef MAGCAL_D
#undef MAGCAL_V
#undef MAGCAL_I

void set_column(MagcalDecisionSnapshot* s, const TraceColumn& c, double d, int32_t i) {
    char* base = reinterpret_cast<char*>(s) + c.offset;
    if (c.is_double)
        std::memcpy(base, &d, sizeof d);
    else
        std::memcpy(base, &i, sizeof i);
}

std::string header_text() {
    std::string h;
    for (const char* lead : kLeadColumns) h += std::string(h.empty() ? "" : ",") + lead;
    for (const TraceColumn& c : trace_columns()) h += std::string(",") + c.name;
    return h;
}

}  // namespace

const std::vector<TraceColumn>& trace_columns() {
    static const std::vector<TraceColumn> columns = build_columns();
    return columns;
}

double column_value(const MagcalDecisionSnapshot& s, const TraceColumn& c) {
    const char* base = reinterpret_cast<const char*>(&s) + c.offset;
    if (c.is_double) {
        double d;
        std::memcpy(&d, base, sizeof d);
        return d;
    }
    int32_t i;
    std::memcpy(&i, base, sizeof i);
    return i;
}

void write_trace_header(std::FILE* out) {
    std::fprintf(out, "%s\n", header_text().c_str());
}

void write_trace_row(std::FILE* out, const TraceRow& row) {
    char buf[4096];
    char* end = buf;
    char* const limit = buf + sizeof buf;
    end = std::to_chars(end, limit, row.t_ns).ptr;
    *end++ = ',';
    end = std::to_chars(end, limit, row.t_s, std::chars_format::general, 17).ptr;
    *end++ = ',';
    *end++ = row.processed ? '1' : '0';
    for (const TraceColumn& c : trace_columns()) {
        *end++ = ',';
        const double v = column_value(row.decision, c);
        if (c.is_double)
            end = std::to_chars(end, limit, v, std::chars_format::general, 17).ptr;
        else
            end = std::to_chars(end, limit, static_cast<int32_t>(v)).ptr;
    }
    *end++ = '\n';
    std::fwrite(buf, 1, static_cast<size_t>(end - buf), out);
}

std::vector<TraceRow> read_trace(const std::string& path) {
    const std::string header = header_text();
    const std::vector<TraceColumn>& columns = trace_columns();
    const size_t width = 3 + columns.size();
    std::vector<TraceRow> rows;
    LineReader in(path);
    std::string_view text;
    std::vector<std::string_view> f;
    bool seen_header = false;
    while (in.next(&text)) {
        if (is_comment_or_blank(text)) continue;
        const std::string where = location(in.name(), in.number());
        if (!seen_header) {
            if (text != header) {
                throw InputError(where +
                                 ": not a decision trace of this magcal version (the header "
                                 "must be the one `magcal replay --trace` writes, starting " +
                                 std::string("t_ns,t_s,processed,mag_x") + ")");
            }
            seen_header = true;
            continue;
        }
        split_fields(text, ',', &f);
        if (f.size() != width) {
            throw InputError(where + ": " + std::to_string(f.size()) + " fields, expected " +
                             std::to_string(width));
        }
        TraceRow r;
        r.t_ns = parse_int64_field(f[0], kLeadColumns[0], where);
        r.t_s = parse_double_field(f[1], kLeadColumns[1], where);
        const int32_t processed = parse_int32_field(f[2], kLeadColumns[2], where);
        if (processed != 0 && processed != 1) {
            throw InputError(where + ": field 'processed': must be 0 or 1, not " + quoted(f[2]));
        }
        r.processed = processed == 1;
        r.decision.size = sizeof(MagcalDecisionSnapshot);
        r.decision.version = MAGCAL_DECISION_SNAPSHOT_VERSION;
        for (size_t i = 0; i < columns.size(); ++i) {
            const TraceColumn& c = columns[i];
            if (c.is_double)
                set_column(&r.decision, c, parse_double_field(f[3 + i], c.name, where), 0);
            else
                set_column(&r.decision, c, 0.0, parse_int32_field(f[3 + i], c.name, where));
        }
        if (r.decision.accuracy < 0 || r.decision.accuracy > 3) {
            throw InputError(
                where + ": field 'accuracy': not 0..3: " + std::to_string(r.decision.accuracy));
        }
        rows.push_back(r);
    }
    if (!seen_header) throw InputError(in.name() + ": empty: no decision trace header");
    return rows;
}

}  // namespace magcal::tool
