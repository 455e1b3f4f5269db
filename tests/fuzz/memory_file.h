// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A file with a path that lives in memory, for readers that only take a
// path: the fuzz targets rewrite it for every input, millions of times, so
// it must not touch a disk or leave anything behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace magcal::fuzz {

class MemoryFile {
  public:
    // Aborts when the system cannot make one: no input could be checked.
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Replaces the whole content.
    void assign(const void* data, size_t size);

    // Opening it gives a new descriptor at offset 0, as for a file on disk.
    const std::string& path() const { return path_; }

  private:
    int fd_;
    std::string path_;
};

}  // namespace magcal::fuzz
