#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

namespace KIVO::Host {

struct PageFile {
    std::string content;
    /// The value of its Content-Type header.
    const char* type;
};

/// The page's files by URL path, "/" being index.html. Held in memory, so that no request ever names a file.
using Page = std::map<std::string, PageFile, std::less<>>;

/// Reads the files of the known types in the folder and the folders below. Empty when there is none.
Page ReadPage(const std::filesystem::path& folder);

}  // namespace KIVO::Host
