#include "module/JsonFile.h"

#include <json/reader.h>

#include <cstdio>
#include <utility>

#include "module/File.h"

namespace KIVO::NEXNotify {

bool ParseJsonText(std::string_view text, Json::Value& value) {
    try {
        return Json::Reader().parse(text.data(), text.data() + text.size(), value, false);
    } catch (const Json::RuntimeError& error) {
        // The parser reports nesting beyond its limit in this way, and the values that memory is short.
        if (std::string_view(error.what()).find("stackLimit") == std::string_view::npos) {
            throw;
        }
        return false;
    }
}

std::optional<std::string> ReadTextFile(const std::string& path) {
    off_t size = 0;
    const File file = OpenToRead(path, &size);
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    text.reserve(static_cast<size_t>(size));
    char chunk[65536];
    size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        text.append(chunk, count);
    }
    return std::ferror(file.get()) == 0 ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace KIVO::NEXNotify
