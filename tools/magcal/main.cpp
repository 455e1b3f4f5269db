// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// magcal: simulate sensor sessions, replay them through the plug-in, and draw
// a report. Exit status: 0 ok, 1 runtime failure, 2 bad input or usage.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "commands.h"
#include "magcal/magcal_version.h"
#include "tool_errors.h"

namespace {

const char* const kMainHelp =
    "usage: magcal COMMAND [options]\n"
    "\n"
    "Commands:\n"
    "  simulate   write a simulated sensor log and its ground truth\n"
    "  replay     feed a sensor log through the magcal plug-in, print a summary\n"
    "  report     draw a replay's results as a PNG (needs python3-numpy, python3-matplotlib)\n"
    "  convert    turn other recordings (per-sensor or wide CSV files) into a sensor log\n"
    "  why        say from a decision trace (replay --trace) what held the accuracy back\n"
    "\n"
    "'magcal COMMAND --help' describes each command; 'magcal --version' prints the version.\n"
    "Exit status: 0 ok, 1 runtime failure, 2 bad input or usage.\n";

bool wants_help(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace magcal::tool;
    if (argc < 2) {
        std::fputs(kMainHelp, stderr);
        return kExitBadInput;
    }
    const std::string command = argv[1];
    if (command == "-h" || command == "--help" || command == "help") {
        std::fputs(kMainHelp, stdout);
        return kExitOk;
    }
    if (command == "--version") {
        std::puts("magcal " MAGCAL_VERSION_STRING);
        return kExitOk;
    }
    struct Entry {
        const char* name;
        int (*run)(int, char**);
        const char* help;
    };
    const Entry entries[] = {{"simulate", run_simulate, kSimulateHelp},
                             {"replay", run_replay, kReplayHelp},
                             {"report", run_report, kReportHelp},
                             {"convert", run_convert, kConvertHelp},
                             {"why", run_why, kWhyHelp}};
    for (const Entry& e : entries) {
        if (command != e.name) continue;
        if (wants_help(argc - 2, argv + 2)) {
            std::fputs(e.help, stdout);
            return kExitOk;
        }
        try {
            return e.run(argc - 2, argv + 2);
        } catch (const UsageError& err) {
            std::fprintf(stderr, "magcal %s: %s\nTry 'magcal %s --help'.\n", e.name, err.what(),
                         e.name);
            return kExitBadInput;
        } catch (const InputError& err) {
            std::fprintf(stderr, "%s\n", err.what());
            return kExitBadInput;
        } catch (const RuntimeFailure& err) {
            std::fprintf(stderr, "magcal %s: %s\n", e.name, err.what());
            return kExitRuntime;
        } catch (const std::exception& err) {
            std::fprintf(stderr, "magcal %s: %s\n", e.name, err.what());
            return kExitRuntime;
        }
    }
    std::fprintf(stderr, "magcal: unknown command \"%s\"\n\n%s", command.c_str(), kMainHelp);
    return kExitBadInput;
}
