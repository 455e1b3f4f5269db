// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A thin owner of one POSIX file descriptor, used to read the soft-iron
// parameter file. Results follow the platform's status convention: 0, or a
// negative errno.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace android {

class File {
public:
    enum : int32_t { NO_INIT = -19 };  // no successful open yet, or closed

    File(const char* path, const char* mode);
    ~File();

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Closes any open descriptor and opens `path`: "r" read-only, "w"
    // write-only created and truncated, "rw" read-write created; any other
    // mode reads. Retries an interrupted open. Returns 0 or the negative errno.
    int32_t setTo(const char* path, const char* mode);

    // Result of the last open; NO_INIT before one and after close().
    int32_t initCheck() const;

    // Pass straight through to the descriptor (-1 with errno on failure).
    ssize_t read(void* data, size_t size);
    ssize_t write(const void* data, size_t size);

    // The new position, or the negative errno.
    off64_t seekTo(off64_t pos, int whence);

    void close();

private:
    int32_t mInitCheck;  // 0, a negative errno, or NO_INIT
    int32_t mFd;         // -1 when closed
};

}  // namespace android
