#include "platform/notification_utils/GenerateCategoryFile.h"

#include <json/value.h>
#include <sys/types.h>

#include <stdexcept>
#include <utility>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Replacement.h"

namespace {

using namespace KIVO::Appliance;

constexpr mode_t kCategoryFileMode = 0644;

Json::Value ListEvents(const Catalogue& catalogue) {
    Json::Value events(Json::arrayValue);
    for (const char* tag : catalogue.tags) {
        const CatalogueEntry& entry = catalogue.entries.at(tag);
        Json::Value event;
        event["name"] = tag;
        if (entry.group != nullptr) {
            event["group"] = entry.group;
        }
        if (entry.appId != nullptr) {
            event["appid"] = entry.appId;
        }
        events.append(std::move(event));
    }
    return events;
}

}  // namespace

void GenerateCategoryFile(const std::string& language) {
    if (!IsLanguage(language)) {
        throw std::runtime_error("\"" + language +
                                 "\" is no language; a language is three lower-case letters.");
    }
    const std::string path = CataloguePath(language);
    const auto catalogue = LoadCatalogue(path);
    if (!catalogue) {
        throw std::runtime_error("There is no readable text catalogue " + path + ".");
    }
    Json::Value document;
    document["All"] = ListEvents(*catalogue);

    Replacement file(Rooted("/var/cache/texts/" + language + "/notification_category"));
    file.Write(WriteJson(document) + '\n');
    file.Commit(kCategoryFileMode);
}
