// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Command-line walking for the subcommands: options "--name VALUE" or
// "--name=VALUE", short "-o VALUE", flags, and positional arguments. Parse
// errors throw UsageError naming the option.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace magcal::tool {

class CommandLine {
  public:
    CommandLine(int argc, char** argv, int first);

    // Next argument; false at the end. `*is_option` is true for "-x" and
    // "--xyz" (an "=VALUE" part is kept for value()).
    bool next(std::string* arg, bool* is_option);

    // The value of the option just returned by next().
    std::string value(const std::string& option);

    // Rejects an "=VALUE" on an option that takes none.
    void no_value(const std::string& option);

  private:
    std::vector<std::string> args_;
    size_t pos_ = 0;
    std::string pending_;  // the "=VALUE" part of the current option
    bool has_pending_ = false;
};

double number_arg(const std::string& option, const std::string& text);
uint64_t unsigned_arg(const std::string& option, const std::string& text);
// Numbers separated by commas and/or blanks, exactly `count` of them.
std::vector<double> numbers_arg(const std::string& option, const std::string& text, size_t count);
std::array<double, 3> triple_arg(const std::string& option, const std::string& text);
std::array<double, 9> matrix_arg(const std::string& option, const std::string& text);

}  // namespace magcal::tool
