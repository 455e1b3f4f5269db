// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The Python that draws the report. The report needs numpy and matplotlib,
// which on Debian are packages of the system interpreter (/usr/bin/python3),
// while the python3 first on a developer's PATH is often another build that
// cannot see them. So: an interpreter the user names is used as it is; else
// python3 from the PATH when it has both packages, else /usr/bin/python3 when
// that has them; else an error that names what is missing and how to install it.
#pragma once

#include <string>
#include <vector>

namespace magcal::tool {

struct ReportPython {
    std::string path;    // the interpreter to run
    std::string reason;  // how it was chosen, for --verbose
};

// `requested` is the interpreter of --python or MAGCAL_PYTHON ("" for none)
// and `requested_by` says which. Throws RuntimeFailure when no interpreter
// with numpy and matplotlib can be found.
ReportPython find_report_python(const std::string& requested, const std::string& requested_by);

// Runs args[0] (a path, or a name looked up in PATH) with the remaining
// arguments and returns its exit status, or -1 when it could not be started
// or did not exit normally. With `out`, its stdout is captured there and its
// stderr discarded; without, both pass through.
int run_program(const std::vector<std::string>& args, std::string* out);

}  // namespace magcal::tool
