// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The three ways a magcal command ends, and their exit statuses:
//   0  success
//   1  runtime failure (the plug-in cannot be loaded, a file cannot be
//      written, Python or matplotlib missing, ...)
//   2  bad input or usage (unknown option, malformed log, truth or state
//      file, unreadable input file)
// Commands throw one of these; main() prints the message and exits.
#pragma once

#include <stdexcept>
#include <string>

namespace magcal::tool {

constexpr int kExitOk = 0;
constexpr int kExitRuntime = 1;
constexpr int kExitBadInput = 2;

// Wrong command line; main() adds a pointer to --help.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Malformed or unreadable input file; the message names the file (and line).
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Anything else that stops a command.
struct RuntimeFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace magcal::tool
