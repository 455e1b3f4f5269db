// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The library's only way to say anything: the platform log on Android,
// "E/<tag>: <message>" on stderr elsewhere. Start-up and JSON code only; the
// per-sample path never logs.
#pragma once

namespace magcal {

// Logs at priority 6 (error) under `tag`, printf-style.
void log_error(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));

// A failed internal check: logs `message` under `tag` (with the failed
// `condition` on Android, where the platform assert takes it) and aborts.
[[noreturn]] void log_assert(const char* condition, const char* tag, const char* message);

}  // namespace magcal
