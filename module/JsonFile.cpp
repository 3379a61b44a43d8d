#include "module/JsonFile.h"

#include <json/reader.h>

#include <cerrno>
#include <cstdio>

#include "module/File.h"

namespace KIVO::NEXNotify {

bool ParseJsonText(const char* begin, const char* end, Json::Value& value) {
    try {
        return Json::Reader().parse(begin, end, value, false);
    } catch (const Json::Exception&) {
        // The parser reports nesting beyond its limit in this way.
        return false;
    }
}

bool fromFile(Json::Value& value, const std::string& path) {
    const File file(std::fopen(path.c_str(), "r"));
    if (!file) {
        return false;
    }
    std::string text;
    char chunk[65536];
    size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        text.append(chunk, count);
    }
    if (std::ferror(file.get()) != 0) {
        return false;
    }
    if (!ParseJsonText(text.data(), text.data() + text.size(), value)) {
        errno = EBADMSG;
        return false;
    }
    return true;
}

}  // namespace KIVO::NEXNotify
