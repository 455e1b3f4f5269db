// Temporary-then-rename output. The temporary is a hidden sibling of the
// destination so that the rename stays within one file system.
#include "output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tool_errors.h"

namespace magcal::tool {

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
    const size_t slash = path_.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    if (base.empty()) throw RuntimeFailure(path_ + ": not a file name");
    std::string pattern = dir + "." + base + ".tmp.XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0) throw RuntimeFailure(path_ + ": cannot create: " + std::strerror(errno));
    temp_path_ = name.data();
    // mkstemp makes the file private; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    stream_ = fdopen(fd, "w");
    if (stream_ == nullptr) {
        const int err = errno;
        close(fd);
        unlink(temp_path_.c_str());
        throw RuntimeFailure(path_ + ": cannot create: " + std::strerror(err));
    }
}

OutputFile::~OutputFile() {
    if (committed_) return;
    if (stream_ != nullptr) std::fclose(stream_);
    unlink(temp_path_.c_str());
}

void OutputFile::commit() {
    const bool write_error = std::ferror(stream_) != 0;
    const bool close_error = std::fclose(stream_) != 0;
    stream_ = nullptr;
    if (write_error || close_error) {
        throw RuntimeFailure(path_ + ": write failed: " + std::strerror(errno));
    }
    commit_external();
}

void OutputFile::commit_external() {
    if (stream_ != nullptr) {
        std::fclose(stream_);
        stream_ = nullptr;
    }
    if (std::rename(temp_path_.c_str(), path_.c_str()) != 0) {
        throw RuntimeFailure(path_ + ": cannot write: " + std::strerror(errno));
    }
    committed_ = true;
}

}  // namespace magcal::tool
