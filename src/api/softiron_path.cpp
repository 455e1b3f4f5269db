// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "api/softiron_path.h"

#ifndef MAGCAL_SOFTIRON_PATH
#define MAGCAL_SOFTIRON_PATH "/proc/mag_soft_parameter.json"
#endif

namespace magcal {

const char* softiron_file_path() { return MAGCAL_SOFTIRON_PATH; }

}  // namespace magcal
