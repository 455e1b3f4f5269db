// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The saved-calibration reader on arbitrary bytes. Beyond memory safety and
// undefined behaviour: it returns a state, or throws an InputError whose
// one-line message names the file and a line of it (a key missing from the
// whole file names the file only), and nothing else; a state it returns has
// an accuracy in 0..3, and written by the state writer it reads back the
// same, bit for bit.
#include <cstdint>
#include <string>

#include "calibration_state.h"
#include "line_reader.h"
#include "memory_file.h"
#include "reader_properties.h"

using magcal::tool::SavedCalibration;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static magcal::fuzz::MemoryFile file;
    const std::string text(reinterpret_cast<const char*>(data), size);
    file.assign(text.data(), text.size());
    SavedCalibration state{};
    const std::string error = magcal::fuzz::input_error_of(
        [&] { state = magcal::tool::read_calibration_state(file.path()); });
    if (!error.empty()) {
        const bool compressed = magcal::tool::looks_gzip_compressed(text);
        magcal::fuzz::require_names_file_and_line(
            error, file.path(), compressed ? 0 : magcal::fuzz::count_lines(text), {"missing '"});
        return 0;
    }
    FUZZ_REQUIRE(state.accuracy >= 0 && state.accuracy <= 3, "accuracy %d accepted",
                 static_cast<int>(state.accuracy));

    const std::string written = magcal::fuzz::written_by(
        [&](std::FILE* out) { magcal::tool::write_calibration_state(out, state); });
    file.assign(written.data(), written.size());
    SavedCalibration again{};
    const std::string reread_error = magcal::fuzz::input_error_of(
        [&] { again = magcal::tool::read_calibration_state(file.path()); });
    FUZZ_REQUIRE(reread_error.empty(), "the writer's state does not read back: %s",
                 reread_error.c_str());
    bool same =
        again.accuracy == state.accuracy && magcal::fuzz::same_double(again.radius, state.radius);
    for (size_t i = 0; i < 3; ++i) {
        same = same && magcal::fuzz::same_float(again.offset[i], state.offset[i]);
    }
    FUZZ_REQUIRE(same, "the state changes when written and read back");
    return 0;
}
