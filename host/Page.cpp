#include "host/Page.h"

#include <optional>
#include <system_error>

#include "platform/kivocore/FileContent.h"

namespace KIVO::Host {

namespace {

const std::map<std::string, const char*> kTypes = {
    {".css", "text/css; charset=utf-8"},
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
};

}  // namespace

Page ReadPage(const std::filesystem::path& folder) {
    Page page;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, ignored)) {
        const auto type = kTypes.find(entry.path().extension());
        std::optional<std::string> content;
        if (type == kTypes.end() || !(content = Appliance::ReadFile(entry.path()))) {
            continue;
        }
        const std::string name = entry.path().lexically_relative(folder).generic_string();
        page["/" + (name == "index.html" ? "" : name)] = {std::move(*content), type->second};
    }
    return page;
}

}  // namespace KIVO::Host
