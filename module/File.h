#pragma once

#include <cstdio>
#include <memory>

namespace KIVO::NEXNotify {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

/// An open file, closed at the end of its life.
using File = std::unique_ptr<FILE, CloseFile>;

}  // namespace KIVO::NEXNotify
