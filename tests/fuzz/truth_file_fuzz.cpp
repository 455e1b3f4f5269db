// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The ground-truth reader on arbitrary bytes. Beyond memory safety and
// undefined behaviour: it returns rows, or throws an InputError whose
// one-line message names the file and a line of it, and nothing else; rows
// written by the truth writer read back to the same rows, bit for bit.
#include <cstdint>
#include <string>
#include <vector>

#include "line_reader.h"
#include "memory_file.h"
#include "reader_properties.h"
#include "truth_file.h"

namespace {

using magcal::fuzz::same_double;
using magcal::tool::TruthRecord;

bool same_row(const TruthRecord& a, const TruthRecord& b) {
    bool same = a.t_ns == b.t_ns && same_double(a.heading_deg, b.heading_deg) &&
                same_double(a.field_ut, b.field_ut);
    for (size_t i = 0; i < 4; ++i) same = same && same_double(a.q[i], b.q[i]);
    for (size_t i = 0; i < 3; ++i) same = same && same_double(a.offset[i], b.offset[i]);
    return same;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static magcal::fuzz::MemoryFile file;
    const std::string text(reinterpret_cast<const char*>(data), size);
    file.assign(text.data(), text.size());
    std::vector<TruthRecord> rows;
    const std::string error =
        magcal::fuzz::input_error_of([&] { rows = magcal::tool::read_truth(file.path()); });
    if (!error.empty()) {
        // Compressed text has lines the target does not count.
        const bool compressed = magcal::tool::looks_gzip_compressed(text);
        magcal::fuzz::require_names_file_and_line(error, file.path(),
                                                  compressed ? 0 : magcal::fuzz::count_lines(text));
        return 0;
    }

    const std::string written = magcal::fuzz::written_by([&](std::FILE* out) {
        magcal::tool::write_truth_header(out);
        for (const TruthRecord& r : rows) magcal::tool::write_truth_record(out, r);
    });
    file.assign(written.data(), written.size());
    std::vector<TruthRecord> again;
    const std::string reread_error =
        magcal::fuzz::input_error_of([&] { again = magcal::tool::read_truth(file.path()); });
    FUZZ_REQUIRE(reread_error.empty(), "the writer's rows do not read back: %s",
                 reread_error.c_str());
    FUZZ_REQUIRE(again.size() == rows.size(), "%zu rows written, %zu read back", rows.size(),
                 again.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        FUZZ_REQUIRE(same_row(rows[i], again[i]), "row %zu changes when written and read back", i);
    }
    return 0;
}
