// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "api/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef __ANDROID__
#include <android/log.h>
#endif

namespace magcal {

void log_error(const char* tag, const char* format, ...) {
    va_list args;
    va_start(args, format);
#ifdef __ANDROID__
    __android_log_vprint(ANDROID_LOG_ERROR, tag, format, args);
#else
    char message[1024];
    std::vsnprintf(message, sizeof message, format, args);
    const size_t length = std::strlen(message);
    const bool has_newline = length > 0 && message[length - 1] == '\n';
    std::fprintf(stderr, "E/%s: %s%s", tag, message, has_newline ? "" : "\n");
#endif
    va_end(args);
}

void log_assert(const char* condition, const char* tag, const char* message) {
#ifdef __ANDROID__
    __android_log_assert(condition, tag, "%s", message);
#else
    (void)condition;
    std::fprintf(stderr, "E/%s: %s\n", tag, message);
    std::fflush(stderr);
#endif
    std::abort();
}

}  // namespace magcal
