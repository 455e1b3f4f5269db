// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// An output file that never leaves a partial or clobbered file behind.
// A regular file (or a new one) is written to a temporary file in its
// directory and renamed into place by commit(): destroying an uncommitted
// OutputFile removes the temporary. A symbolic link is written through: the
// file it points to is replaced, the link stays. Anything else (a device, a
// FIFO, "-" for standard output) is written directly, as it cannot be
// replaced.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace magcal::tool {

class OutputFile {
  public:
    // RuntimeFailure when the destination cannot be opened or the temporary
    // cannot be created.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::FILE* stream() { return stream_; }
    const std::string& path() const { return path_; }
    // True for standard output, devices and FIFOs: written as it goes.
    bool direct() const { return direct_; }

    // A file another program may write in place of stream() (for a direct
    // destination, a private temporary whose content commit_external copies).
    const std::string& temp_path() const;

    // Completes the file (rename, or flush for a direct destination);
    // RuntimeFailure on any write error (the temporary is then removed).
    void commit();

    // Completes a file another program wrote to temp_path().
    void commit_external();

  private:
    std::string path_;    // as given, for messages
    std::string target_;  // the file written: path_ with symbolic links followed
    mutable std::string temp_path_;
    std::FILE* stream_ = nullptr;
    bool direct_ = false;
    bool committed_ = false;
};

// A file named on a command line, with the option that named it ("-o").
struct NamedFile {
    std::string option;
    std::string path;
};

// UsageError when an output is a directory, names one of the inputs, or
// names the same file as another output (through any link or path);
// devices are exempt, since writing one twice clobbers nothing. Empty
// paths are skipped. Call it before anything runs.
void check_output_names(const std::vector<NamedFile>& inputs,
                        const std::vector<NamedFile>& outputs);

}  // namespace magcal::tool
