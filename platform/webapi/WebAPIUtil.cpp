#include "webapi/WebAPIUtil.h"

#include "platform/kivocore/Json.h"

namespace KIVO {

Json::Value WebAPIUtil::ParseJson(const std::string& text) {
    Json::Value value;
    Appliance::ParseJson(text, value);
    return value;
}

}  // namespace KIVO
