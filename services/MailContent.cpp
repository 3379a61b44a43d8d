#include <optional>
#include <string>

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "module/NEXNotifyAPI.h"
#include "module/Paths.h"
#include "notify/NotifyString.h"
#include "notify/StringList.h"

namespace KIVO::NEXNotify {

namespace {

/// What a tag is cut to.
constexpr size_t kMaxTagBytes = 1023;

/// The parameter as a C string. One that is no string is like an empty tag, which no catalogue has.
std::string ReadTag(const Json::Value& title) {
    std::string tag = title.isString() ? title.asCString() : "";
    if (tag.size() > kMaxTagBytes) {
        tag.resize(kMaxTagBytes);
    }
    return tag;
}

/// The tag's mail body from the mail templates, where they have the tag, or from the UI language's catalogue;
/// nothing when it cannot be had or is empty.
[[nodiscard]] std::optional<std::string> MailContentOf(APIRequest& request) {
    const NotifyString record(KIVONotifyStringNew());
    StringList templates;
    if (!templates) {
        LOG_CORE_FAILURE("KLIBCSzListAlloc(BUFSIZ) failed.");
        return std::nullopt;
    }
    const std::string tag = ReadTag(request.GetParam("title", Json::Value()));
    std::string path = Paths::MailTemplates();
    if (!templates.AddSections(path) || !templates.Contains(tag)) {
        path = Paths::MailsCatalogue(request.GetUILanguage());
    }
    if (KIVONotifyStringGetByPath(path.c_str(), tag.c_str(), record.get(), 1) != 0) {
        LOG_CORE_FAILURE("Get NString failed.");
        return std::nullopt;
    }
    const char* mail = record->mailText;
    return mail != nullptr && *mail != '\0' ? std::optional(mail) : std::nullopt;
}

}  // namespace

void MailContent_1_get(APIRequest* request, APIResponse* response) {
    const auto mail = MailContentOf(*request);
    if (!mail) {
        response->SetError(kErrorSystem, Json::Value());
        return;
    }
    Json::Value result(Json::objectValue);
    result["mailContent"] = *mail;
    response->SetSuccess(result);
}

}  // namespace KIVO::NEXNotify
