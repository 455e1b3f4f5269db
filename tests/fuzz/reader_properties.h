// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Properties shared by the targets of the tool's readers: how they fail, and
// what holds of sensor-log records however they were obtained (from the
// strict reader or from the converter). Each require_ aborts through
// FUZZ_REQUIRE when the property is broken.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "fuzz_properties.h"
#include "sensor_log.h"
#include "tool_errors.h"

namespace magcal::fuzz {

// Runs `read`; returns the message of the InputError it threw, or an empty
// string when it returned. Any other exception is a broken property.
template <typename Read>
std::string input_error_of(Read read) {
    try {
        read();
        return {};
    } catch (const tool::InputError& e) {
        const std::string message = e.what();
        FUZZ_REQUIRE(!message.empty(), "an InputError without a message");
        return message;
    } catch (const std::exception& e) {
        fail(__FILE__, __LINE__, "only InputError", "%s", e.what());
    }
}

// An input error that names `name` and a line in 1..max_line (any line when
// max_line < 1), or the whole file with one of `whole_file`. Every reader
// may also refuse compressed input as a whole when built without zlib (the
// cross builds are).
void require_names_file_and_line(const std::string& message, const std::string& name, int max_line,
                                 std::vector<std::string> whole_file = {});

// What `write` prints into a stream, as a string.
template <typename Write>
std::string written_by(Write write) {
    char* bytes = nullptr;
    size_t size = 0;
    std::FILE* out = open_memstream(&bytes, &size);
    FUZZ_REQUIRE(out != nullptr, "open_memstream failed");
    write(out);
    std::fclose(out);
    std::string text(bytes, size);
    std::free(bytes);
    return text;
}

// Time, sensor and the three values bit for bit (NaN: same sign). Not the
// status, which the log writer leaves out.
bool same_sample(const tool::LogRecord& a, const tool::LogRecord& b);

// Written by the log writer and read back by the strict reader, `records`
// are the same samples.
void require_log_round_trip(const std::vector<tool::LogRecord>& records);

// The input checks count every record under its sensor and report at most
// one finding per kind, in order, each about records that exist, on one line.
void require_checks_consistent(const std::vector<tool::LogRecord>& records);

}  // namespace magcal::fuzz
