#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

namespace KIVO::NEXNotify {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

/// An open file, closed at the end of its life.
using File = std::unique_ptr<FILE, CloseFile>;

/// The regular file at the path, open for reading, with its size unless that is null; null, with errno
/// telling why, when there is none. Opening anything else, such as a named pipe, might wait for another
/// process.
[[nodiscard]] inline File OpenToRead(const std::string& path, off_t* size = nullptr) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return nullptr;
    }
    if (size != nullptr) {
        *size = status.st_size;
    }
    return File(std::fopen(path.c_str(), "r"));
}

}  // namespace KIVO::NEXNotify
