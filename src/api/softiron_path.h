// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Where the soft-iron parameter file lives. A build-time setting so that tests
// can build a variant of the library that reads a file of their own.
#pragma once

namespace magcal {

const char* softiron_file_path();

}  // namespace magcal
