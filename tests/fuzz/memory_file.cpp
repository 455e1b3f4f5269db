// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
#include "memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace magcal::fuzz {
namespace {

[[noreturn]] void system_failure(const char* what) {
    std::fprintf(stderr, "memory file: %s: %s\n", what, std::strerror(errno));
    std::abort();
}

}  // namespace

MemoryFile::MemoryFile() : fd_(memfd_create("magcal-fuzz-input", MFD_CLOEXEC)) {
    if (fd_ < 0) system_failure("memfd_create");
    path_ = "/proc/self/fd/" + std::to_string(fd_);
}

MemoryFile::~MemoryFile() {
    close(fd_);
}

void MemoryFile::assign(const void* data, size_t size) {
    if (ftruncate(fd_, 0) != 0) system_failure("ftruncate");
    const char* bytes = static_cast<const char*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pwrite(fd_, bytes + done, size - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) system_failure("pwrite");
        done += static_cast<size_t>(n);
    }
}

}  // namespace magcal::fuzz
