// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The temporary is a hidden sibling of the destination so that the rename
// stays within one file system.
#include "output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tool_errors.h"

namespace magcal::tool {
namespace {

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

std::string base_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The path with every symbolic link of its last component followed, also a
// dangling one (writing through it creates its target).
std::string follow_links(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {  // the kernel's own limit on link chains
        struct stat st;
        if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::vector<char> target(static_cast<size_t>(st.st_size > 0 ? st.st_size : PATH_MAX) + 1);
        const ssize_t n = readlink(path.c_str(), target.data(), target.size() - 1);
        if (n < 0) return path;
        const std::string to(target.data(), static_cast<size_t>(n));
        path = to[0] == '/' ? to : directory_of(path) + to;
    }
    throw RuntimeFailure(path + ": too many levels of symbolic links");
}

// Creates a private file from `pattern` (ending in XXXXXX) with the given
// permissions; returns its descriptor and sets `name`.
int make_temporary(const std::string& pattern, mode_t mode, std::string* name) {
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const int fd = mkstemp(buf.data());
    if (fd < 0) return fd;
    fchmod(fd, mode);
    *name = buf.data();
    return fd;
}

mode_t default_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
    if (path_ == "-") {
        direct_ = true;
        stream_ = stdout;
        return;
    }
    target_ = follow_links(path_);
    struct stat st;
    const bool exists = stat(target_.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) throw RuntimeFailure(path_ + ": is a directory");
    if (exists && !S_ISREG(st.st_mode)) {
        direct_ = true;
        const int fd = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
        stream_ = fd < 0 ? nullptr : fdopen(fd, "w");
        if (stream_ == nullptr) {
            const int err = errno;
            if (fd >= 0) close(fd);
            throw RuntimeFailure(path_ + ": cannot open: " + std::strerror(err));
        }
        return;
    }
    const std::string base = base_of(target_);
    if (base.empty()) throw RuntimeFailure(path_ + ": not a file name");
    // A replaced file keeps its permissions.
    const mode_t mode = exists ? (st.st_mode & 07777) : default_mode();
    const int fd =
        make_temporary(directory_of(target_) + "." + base + ".tmp.XXXXXX", mode, &temp_path_);
    if (fd < 0) throw RuntimeFailure(path_ + ": cannot create: " + std::strerror(errno));
    stream_ = fdopen(fd, "w");
    if (stream_ == nullptr) {
        const int err = errno;
        close(fd);
        unlink(temp_path_.c_str());
        throw RuntimeFailure(path_ + ": cannot create: " + std::strerror(err));
    }
}

OutputFile::~OutputFile() {
    if (stream_ != nullptr && stream_ != stdout) std::fclose(stream_);
    if (!temp_path_.empty() && !(committed_ && !direct_)) unlink(temp_path_.c_str());
}

const std::string& OutputFile::temp_path() const {
    if (temp_path_.empty() && direct_) {
        const char* dir = std::getenv("TMPDIR");
        const std::string pattern =
            std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/magcal.XXXXXX";
        const int fd = make_temporary(pattern, 0600, &temp_path_);
        if (fd < 0) throw RuntimeFailure(pattern + ": cannot create: " + std::strerror(errno));
        close(fd);
    }
    return temp_path_;
}

void OutputFile::commit() {
    if (direct_) {
        const bool failed = std::fflush(stream_) != 0 || std::ferror(stream_) != 0;
        const int err = errno;
        if (stream_ != stdout) std::fclose(stream_);
        stream_ = nullptr;
        committed_ = true;
        if (failed) throw RuntimeFailure(path_ + ": write failed: " + std::strerror(err));
        return;
    }
    const bool write_error = std::ferror(stream_) != 0;
    const bool close_error = std::fclose(stream_) != 0;
    stream_ = nullptr;
    if (write_error || close_error) {
        throw RuntimeFailure(path_ + ": write failed: " + std::strerror(errno));
    }
    commit_external();
}

void OutputFile::commit_external() {
    if (direct_) {
        // Copy what the other program wrote.
        std::FILE* in = std::fopen(temp_path().c_str(), "rb");
        if (in == nullptr)
            throw RuntimeFailure(temp_path_ + ": cannot open: " + std::strerror(errno));
        char buf[1 << 16];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, in)) > 0) std::fwrite(buf, 1, n, stream_);
        std::fclose(in);
        commit();
        return;
    }
    if (stream_ != nullptr) {
        std::fclose(stream_);
        stream_ = nullptr;
    }
    if (std::rename(temp_path_.c_str(), target_.c_str()) != 0) {
        throw RuntimeFailure(path_ + ": cannot write: " + std::strerror(errno));
    }
    committed_ = true;
}

namespace {

// What a name refers to: the file's device and inode when it exists, else
// its absolute path with links followed; standard output for "-".
struct FileIdentity {
    bool device = false;
    std::string key;
};

FileIdentity identify(const std::string& path) {
    if (path == "-") return {false, "<stdout>"};
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        return {S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode),
                std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino)};
    }
    const std::string target = follow_links(path);
    char dir[PATH_MAX];
    const std::string parent = directory_of(target).empty() ? "." : directory_of(target);
    if (realpath(parent.c_str(), dir) == nullptr) return {false, target};
    return {false, std::string(dir) + "/" + base_of(target)};
}

}  // namespace

void check_output_names(const std::vector<NamedFile>& inputs,
                        const std::vector<NamedFile>& outputs) {
    std::vector<std::pair<const NamedFile*, FileIdentity>> seen;
    for (const NamedFile& in : inputs) {
        if (!in.path.empty() && in.path != "-") seen.push_back({&in, identify(in.path)});
    }
    const size_t input_count = seen.size();
    for (const NamedFile& out : outputs) {
        if (out.path.empty()) continue;
        struct stat st;
        if (out.path != "-" && stat(out.path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            throw UsageError(out.option + " " + out.path + ": is a directory");
        }
        const FileIdentity id = identify(out.path);
        for (size_t i = 0; i < seen.size() && !id.device; ++i) {
            if (seen[i].second.key != id.key) continue;
            const NamedFile& other = *seen[i].first;
            throw UsageError(out.option + " " + out.path + " names the same file as " +
                             other.option + " " + other.path +
                             (i < input_count ? ": the command would overwrite its input"
                                              : ": one output would overwrite the other"));
        }
        seen.push_back({&out, id});
    }
}

}  // namespace magcal::tool
