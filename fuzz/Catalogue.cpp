// Any file as a text catalogue: the sections that are listed must be its own, and the tags that lookups find,
// by path and in the open file alike, and those of the category file that the notification tool makes of it.

#include <chrono>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "fuzz/Support.h"
#include "module/File.h"
#include "notify/NotifyString.h"
#include "notify/StringList.h"
#include "platform/notification_utils/GenerateCategoryFile.h"
#include "webapi/WebAPIUtil.h"

namespace {

using namespace KIVO::Fuzz;

/// What a lookup found, "" when nothing.
std::string Found(int result, const NString& record) {
    std::string found;
    for (const char* text :
         {record.category, record.level, record.messageText, record.altMessageText, record.mailText}) {
        found += text != nullptr ? std::string("|") + text : "-";
    }
    ExpectEqual("text of a failed lookup", result == 0 ? found : "-----", found);
    return result == 0 ? found : "";
}

/// The category file's number of events, -1 without the file.
int CategoryFileSize() try {
    GenerateCategoryFile("enu");
    const Json::Value document =
        KIVO::WebAPIUtil::ParseJson(*Root().Read("/var/cache/texts/enu/notification_category"));
    Expect("array of events", document["All"].isArray());
    return static_cast<int>(document["All"].size());
} catch (const std::runtime_error&) {
    return -1;
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    const std::string path = Root().Write("/var/cache/texts/enu/mails", input);
    // Old enough to be kept parsed, and another file each time.
    static std::filesystem::file_time_type changed;
    std::filesystem::last_write_time(path, changed -= std::chrono::seconds(1));

    NEXNotify::StringList list;
    const int count = list.AddSections(path).value_or(-1);
    std::set<std::string> tags;
    for (int index = 0; index < count; ++index) {
        tags.insert(list[index]);
        Expect("section in the file", input.find('[' + std::string(list[index]) + ']') != input.npos);
    }
    std::set<std::string> candidates = tags;
    for (std::size_t end = input.find(']'); end != input.npos; end = input.find(']', end + 1)) {
        const std::size_t begin = input.rfind('[', end) + 1;
        candidates.insert(input.substr(begin, end - begin).c_str());
    }

    const NEXNotify::File file(std::fopen(path.c_str(), "r"));
    const NEXNotify::NotifyString record(KIVONotifyStringNew());
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
    Expect("same tags listed and found", found == tags);
    ExpectEqual("count", std::to_string(found.size()), std::to_string(std::max(count, 0)));
    ExpectEqual("category file", std::to_string(count), std::to_string(CategoryFileSize()));
}
