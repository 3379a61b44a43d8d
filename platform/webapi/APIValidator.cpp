#include "webapi/APIValidator.h"

#include <algorithm>

namespace KIVO {

bool APIValidator::IsEqual(const APIParameter<std::string>& parameter, const char* text) {
    return text != nullptr && parameter.Get() == text;
}

bool APIValidator::IsBelong(const APIParameter<std::string>& parameter, const Json::Value& array) {
    return array.isArray() && std::any_of(array.begin(), array.end(), [&](const Json::Value& element) {
               return element.isString() && element.asString() == parameter.Get();
           });
}

}  // namespace KIVO
