// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tool_errors.h"

#ifdef MAGCAL_HAVE_ZLIB
#include <zlib.h>
#endif

namespace magcal::tool {
namespace {

constexpr size_t kChunk = 1 << 16;  // bytes per read: large enough to amortise the calls

}  // namespace

bool looks_gzip_compressed(std::string_view start) {
    return start.size() >= 2 && static_cast<unsigned char>(start[0]) == 0x1f &&
           static_cast<unsigned char>(start[1]) == 0x8b;
}

// zlib reads plain files too, so with zlib every file goes through it.
// Without zlib a compressed file is read through the system's gzip, which
// then writes the plain text into a pipe.
struct LineReader::Source {
    int fd = -1;
    pid_t gunzip = -1;  // the gzip child, while it runs
#ifdef MAGCAL_HAVE_ZLIB
    gzFile gz = nullptr;
#endif
    ~Source() {
#ifdef MAGCAL_HAVE_ZLIB
        if (gz != nullptr) {
            gzclose(gz);
            return;
        }
#endif
        if (fd > STDIN_FILENO) close(fd);
        if (gunzip > 0) waitpid(gunzip, nullptr, 0);  // it stops at the closed pipe
    }

    // Replaces fd, a seekable compressed file, by a pipe from `gzip -dc`.
    // False when that cannot be set up.
    bool read_through_gunzip() {
        int pipe_fds[2];
        if (lseek(fd, 0, SEEK_SET) != 0 || pipe2(pipe_fds, O_CLOEXEC) != 0) return false;
        const pid_t child = fork();
        if (child < 0) {
            close(pipe_fds[0]);
            close(pipe_fds[1]);
            return false;
        }
        if (child == 0) {
            if (dup2(fd, STDIN_FILENO) < 0 || dup2(pipe_fds[1], STDOUT_FILENO) < 0) _exit(127);
            const int null = open("/dev/null", O_WRONLY);
            if (null >= 0) dup2(null, STDERR_FILENO);
            execlp("gzip", "gzip", "-dc", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(pipe_fds[1]);
        if (fd > STDIN_FILENO) close(fd);
        fd = pipe_fds[0];
        gunzip = child;
        return true;
    }

    // Collects the gzip child at the end of its output; false when it failed.
    bool gunzip_succeeded() {
        if (gunzip <= 0) return true;
        int status = 0;
        const pid_t done = waitpid(gunzip, &status, 0);
        gunzip = -1;
        return done > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
};

LineReader::LineReader(const std::string& path)
    : source_(std::make_unique<Source>()), name_(path == "-" ? "<stdin>" : path) {
    source_->fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (source_->fd < 0) throw InputError(name_ + ": cannot open: " + std::strerror(errno));
    struct stat st;
    if (fstat(source_->fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        throw InputError(name_ + ": cannot open: " + std::strerror(EISDIR));
    }
#ifdef MAGCAL_HAVE_ZLIB
    // gzdopen takes the descriptor over; keep stdin open for others.
    const int fd = source_->fd == STDIN_FILENO ? dup(STDIN_FILENO) : source_->fd;
    source_->gz = fd < 0 ? nullptr : gzdopen(fd, "rb");
    if (source_->gz == nullptr) {
        if (fd >= 0 && fd != source_->fd) close(fd);
        throw InputError(name_ + ": cannot open: " + std::strerror(errno ? errno : ENOMEM));
    }
    gzbuffer(source_->gz, kChunk);
#endif
}

LineReader::LineReader(std::string text, std::string name)
    : name_(std::move(name)), buffer_(std::move(text)), eof_(true) {}

LineReader::~LineReader() = default;

bool LineReader::fill() {
    if (eof_) return false;
    if (pos_ > 0) {
        buffer_.erase(0, pos_);
        pos_ = 0;
    }
    const size_t old = buffer_.size();
    buffer_.resize(old + kChunk);
    long got = 0;
#ifdef MAGCAL_HAVE_ZLIB
    got = gzread(source_->gz, &buffer_[old], kChunk);
    int code = Z_OK;
    const char* why = gzerror(source_->gz, &code);
    if (got < 0 || (got == 0 && code != Z_OK)) {
        buffer_.resize(old);
        // zlib prefixes its message with "<fd:N>: ", which means nothing here.
        std::string reason = why != nullptr ? why : "unknown error";
        if (reason.rfind("<fd:", 0) == 0 && reason.find(": ") != std::string::npos) {
            reason.erase(0, reason.find(": ") + 2);
        }
        throw InputError(name_ + ":" + std::to_string(number_ + 1) +
                         ": damaged compressed data: " + reason);
    }
#else
    do {
        got = read(source_->fd, &buffer_[old], kChunk);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        buffer_.resize(old);
        throw InputError(name_ + ": read error: " + std::strerror(errno));
    }
    if (old == 0 && number_ == 0 && source_->gunzip < 0 &&
        looks_gzip_compressed({buffer_.data(), size_t(got)})) {
        buffer_.resize(old);
        if (!source_->read_through_gunzip()) {
            throw InputError(name_ +
                             ": gzip-compressed, and this magcal was built without zlib and "
                             "cannot run gzip on it: decompress it first (gunzip -k " +
                             name_ + ")");
        }
        return fill();
    }
    if (got == 0 && !source_->gunzip_succeeded()) {
        buffer_.resize(old);
        throw InputError(name_ + ":" + std::to_string(number_ + 1) +
                         ": damaged compressed data (gzip could not decompress it)");
    }
#endif
    buffer_.resize(old + static_cast<size_t>(got));
    if (got == 0) eof_ = true;
    return got > 0;
}

bool LineReader::next(std::string_view* line) {
    size_t end;
    while ((end = buffer_.find('\n', pos_)) == std::string::npos) {
        if (!fill()) break;
    }
    if (end == std::string::npos) {
        if (pos_ >= buffer_.size()) return false;
        end = buffer_.size();
    }
    size_t stop = end;
    if (stop > pos_ && buffer_[stop - 1] == '\r') --stop;
    *line = std::string_view(buffer_).substr(pos_, stop - pos_);
    pos_ = end < buffer_.size() ? end + 1 : end;
    ++number_;
    return true;
}

}  // namespace magcal::tool
