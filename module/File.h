#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>

namespace KIVO::NEXNotify {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

/// An open file, closed at the end of its life.
using File = std::unique_ptr<FILE, CloseFile>;

/// The regular file at the path, open for reading; null when there is none. Opening anything else, such as a
/// named pipe, might wait for another process.
inline File OpenToRead(const std::string& path) {
    struct stat status = {};
    const bool isRegular = stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return File(isRegular ? std::fopen(path.c_str(), "r") : nullptr);
}

}  // namespace KIVO::NEXNotify
