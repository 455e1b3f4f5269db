// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The version a person reads from the tool is the one the headers carry, and
// the header's parts agree with its string: both come from the project
// version, and a broken template or a hard-coded string would split them.
#include <gtest/gtest.h>

#include <string>

#include "magcal/magcal_version.h"
#include "tool_test_support.h"

namespace {

using magcal::tooltest::run_tool;
using magcal::tooltest::ScratchDir;

TEST(Version, HeaderPartsSpellTheVersionString) {
    const std::string parts = std::to_string(MAGCAL_VERSION_MAJOR) + "." +
                              std::to_string(MAGCAL_VERSION_MINOR) + "." +
                              std::to_string(MAGCAL_VERSION_PATCH);
    EXPECT_EQ(parts, MAGCAL_VERSION_STRING);
    EXPECT_EQ(MAGCAL_VERSION,
              MAGCAL_VERSION_MAJOR * 10000 + MAGCAL_VERSION_MINOR * 100 + MAGCAL_VERSION_PATCH);
    // The number orders releases only while minor and patch stay below 100.
    EXPECT_LT(MAGCAL_VERSION_MINOR, 100);
    EXPECT_LT(MAGCAL_VERSION_PATCH, 100);
}

TEST(Version, ToolPrintsTheHeaderVersionOnStdout) {
    const ScratchDir dir;
    const auto run = run_tool("--version", dir);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "magcal " MAGCAL_VERSION_STRING "\n");
    EXPECT_EQ(run.err, "");
    // Help names the option, so a person who does not know it can find it.
    EXPECT_NE(run_tool("--help", dir).out.find("--version"), std::string::npos);
}

}  // namespace
