// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The subcommands of the magcal tool. Each takes the arguments after its
// name, returns an exit status and throws the errors of tool_errors.h.
#pragma once

namespace magcal::tool {

int run_simulate(int argc, char** argv);
int run_replay(int argc, char** argv);
int run_report(int argc, char** argv);
int run_convert(int argc, char** argv);
int run_why(int argc, char** argv);

extern const char* const kSimulateHelp;
extern const char* const kReplayHelp;
extern const char* const kReportHelp;
extern const char* const kConvertHelp;
extern const char* const kWhyHelp;

}  // namespace magcal::tool
