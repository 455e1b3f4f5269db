// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal why: the plain-words explanation of a decision trace written
// earlier by `magcal replay --trace`, without replaying the log again.
#include <cstdio>
#include <optional>
#include <string>

#include "accuracy_why.h"
#include "calibration_state.h"
#include "command_line.h"
#include "commands.h"
#include "decision_trace.h"
#include "tool_errors.h"

namespace magcal::tool {

const char* const kWhyHelp =
    "usage: magcal why TRACE.csv [--state FILE]\n"
    "\n"
    "Says what held the calibration accuracy back and what would move it, for\n"
    "the whole session and for every stretch below 3, and why it dropped, from\n"
    "a decision trace written by 'magcal replay --trace'. Times are seconds from\n"
    "the first mag sample. TRACE.csv may be gzip-compressed, or - for standard\n"
    "input.\n"
    "\n"
    "  --state FILE   the calibration state the replay restored (magcal replay\n"
    "                 --state), so that a rejected restore is explained with it\n"
    "  -h, --help     this text\n"
    "\n"
    "Exit status: 0 ok, 2 bad input or usage.\n";

int run_why(int argc, char** argv) {
    std::string trace_path, state_path;
    CommandLine cl(argc, argv, 0);
    std::string a;
    bool is_option = false;
    while (cl.next(&a, &is_option)) {
        if (!is_option) {
            if (!trace_path.empty()) throw UsageError("unexpected argument \"" + a + "\"");
            trace_path = a;
        } else if (a == "--state") {
            state_path = cl.value(a);
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (trace_path.empty()) throw UsageError("missing TRACE.csv");
    std::optional<RestoredCalibration> restored;
    if (!state_path.empty()) {
        const SavedCalibration s = read_calibration_state(state_path);
        restored = RestoredCalibration{s.accuracy, s.radius};
    }
    const std::vector<TraceRow> rows = read_trace(trace_path);
    std::fputs(why_text(explain_accuracy(rows, restored)).c_str(), stdout);
    return kExitOk;
}

}  // namespace magcal::tool
