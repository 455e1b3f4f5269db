// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Lines of a text file, one at a time and without holding the whole file:
// a 10-hour log is millions of lines. Reads plain files, gzip-compressed
// files (recognised by their magic bytes, not by the name; through zlib, or
// through the system's gzip when the tool is built without zlib), standard
// input for the name "-", and text in memory.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace magcal::tool {

class LineReader {
  public:
    // InputError "FILE: cannot open: REASON" when the file cannot be read.
    explicit LineReader(const std::string& path);
    // Lines of `text`; `name` is what messages call it.
    LineReader(std::string text, std::string name);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its line break (nor a CR before it); false at the
    // end. The view stays valid until the next call. InputError on a read
    // error or a damaged compressed file.
    bool next(std::string_view* line);

    // 1-based number of the line last returned.
    int number() const { return number_; }
    // The file name as given ("-" reads as "<stdin>").
    const std::string& name() const { return name_; }

  private:
    bool fill();  // appends more input to buffer_; false at the end

    struct Source;
    std::unique_ptr<Source> source_;
    std::string name_;
    std::string buffer_;
    size_t pos_ = 0;    // start of the next line in buffer_
    bool eof_ = false;  // the source has nothing more
    int number_ = 0;
};

// True when the file starts with the gzip magic bytes.
bool looks_gzip_compressed(std::string_view start);

}  // namespace magcal::tool
