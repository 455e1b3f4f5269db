#include "line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
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
struct LineReader::Source {
    int fd = -1;
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
    if (old == 0 && number_ == 0 && looks_gzip_compressed({buffer_.data(), size_t(got)})) {
        throw InputError(name_ +
                         ": gzip-compressed, and this magcal was built without zlib: "
                         "decompress it first (gunzip -k " +
                         name_ + ")");
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
