// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The descriptor owner behind the soft-iron parameter loader.
#include "params/File.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace android {

File::File(const char* path, const char* mode) : mInitCheck(NO_INIT), mFd(-1) {
    setTo(path, mode);
}

File::~File() { close(); }

int32_t File::setTo(const char* path, const char* mode) {
    close();

    int flags = O_RDONLY;
    if (std::strcmp(mode, "w") == 0) {
        flags = O_WRONLY | O_CREAT | O_TRUNC;
    } else if (std::strcmp(mode, "rw") == 0) {
        flags = O_RDWR | O_CREAT;
    }

    int fd;
    do {
        fd = ::open(path, flags, 0664);  // owner and group write, others read
    } while (fd < 0 && errno == EINTR);

    if (fd < 0) {
        mInitCheck = -errno;
        return mInitCheck;
    }
    mFd = fd;
    mInitCheck = 0;
    return mInitCheck;
}

int32_t File::initCheck() const { return mInitCheck; }

ssize_t File::read(void* data, size_t size) { return ::read(mFd, data, size); }

ssize_t File::write(const void* data, size_t size) { return ::write(mFd, data, size); }

off64_t File::seekTo(off64_t pos, int whence) {
    const off64_t newPos = ::lseek64(mFd, pos, whence);
    return newPos < 0 ? static_cast<off64_t>(-errno) : newPos;
}

void File::close() {
    if (mFd >= 0) {
        ::close(mFd);
        mFd = -1;
    }
    mInitCheck = NO_INIT;
}

}  // namespace android
