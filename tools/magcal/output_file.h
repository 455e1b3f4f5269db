// An output file that appears only when complete: data goes to a temporary
// file in the destination's directory, and commit() renames it into place.
// Destroying an uncommitted OutputFile removes the temporary, so an error
// leaves no partial output behind.
#pragma once

#include <cstdio>
#include <string>

namespace magcal::tool {

class OutputFile {
  public:
    // RuntimeFailure when the temporary cannot be created.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::FILE* stream() { return stream_; }
    const std::string& path() const { return path_; }
    const std::string& temp_path() const { return temp_path_; }

    // Closes the temporary and renames it to the destination; RuntimeFailure
    // on any write error (the temporary is then removed).
    void commit();

    // Closes and renames a file another program wrote to temp_path().
    void commit_external();

  private:
    std::string path_;
    std::string temp_path_;
    std::FILE* stream_ = nullptr;
    bool committed_ = false;
};

}  // namespace magcal::tool
