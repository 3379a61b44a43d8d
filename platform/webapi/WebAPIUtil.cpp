#include "webapi/WebAPIUtil.h"

#include "platform/kivocore/Json.h"

namespace KIVO {

Json::Value WebAPIUtil::ParseJson(const std::string& text) {
    Json::Value value;
    return Appliance::ParseJson(text, value) ? value : Json::Value();
}

}  // namespace KIVO
