// Any file as a text catalogue: the sections that are listed must be its own, and the tags that lookups find,
// by path and in the open file alike, and those of the category file that the notification tool makes of it.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "fuzz/Support.h"
#include "module/File.h"
#include "notify/NotifyString.h"
#include "notify/StringList.h"
#include "platform/kivocore/Json.h"
#include "platform/notification_utils/CategoryFile.h"
#include "tests/support/ApplianceRoot.h"

using namespace KIVO::Fuzz;

namespace {

/// What a lookup found, "" when nothing.
std::string Found(int result, const NString& record) {
    std::string found;
    for (const char* text :
         {record.category, record.level, record.messageText, record.altMessageText, record.mailText}) {
        ExpectEqual("text of a failed lookup", std::to_string(result != 0 && text != nullptr), "0");
        found += text != nullptr ? std::string("|") + text : "-";
    }
    return result == 0 ? found : "";
}

/// The category file's number of events, nothing without the file.
std::string CategoryFileSize(const KIVO::Test::ApplianceRoot& root) {
    try {
        WriteCategoryFile("enu");
    } catch (const std::runtime_error&) {
        return "-1";
    }
    Json::Value document;
    KIVO::Appliance::ParseJson(*root.Read("/var/cache/texts/enu/notification_category"), document);
    return document["All"].isArray() ? std::to_string(document["All"].size()) : "no array";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const KIVO::Test::ApplianceRoot root;
    const std::string content(data, data + size);
    const std::string path = root.Write("/var/cache/texts/enu/mails", content);
    // Old enough to be kept parsed, and another file each time.
    static std::filesystem::file_time_type changed;
    std::filesystem::last_write_time(path, changed -= std::chrono::seconds(1));

    KIVO::NEXNotify::StringList list;
    const int count = list.AddSections(path);
    std::set<std::string> tags;
    for (int index = 0; index < count; ++index) {
        tags.insert(list[index]);
        ExpectEqual("section",
                    std::to_string(content.find('[' + std::string(list[index]) + ']') != content.npos), "1");
    }
    std::set<std::string> candidates = tags;
    for (std::size_t end = content.find(']'); end != std::string::npos; end = content.find(']', end + 1)) {
        candidates.insert(
            content.substr(content.rfind('[', end) + 1, end - content.rfind('[', end) - 1).c_str());
    }

    const KIVO::NEXNotify::File file(std::fopen(path.c_str(), "r"));
    const KIVO::NEXNotify::NotifyString record(KIVONotifyStringNew());
    std::set<std::string> found;
    for (const std::string& tag : candidates) {
        const std::string byPath =
            Found(KIVONotifyStringGetByPath(path.c_str(), tag.c_str(), record.get(), 1), *record);
        ExpectEqual("lookup", byPath,
                    Found(KIVONotifyStringGetByFp(file.get(), tag.c_str(), record.get()), *record));
        if (!byPath.empty()) {
            found.insert(tag);
        }
    }
    ExpectEqual("list", std::to_string(found == tags), "1");
    ExpectEqual("count", std::to_string(found.size()), std::to_string(std::max(count, 0)));
    ExpectEqual("category file", std::to_string(count), CategoryFileSize(root));
    return 0;
}
