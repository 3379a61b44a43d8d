#include "webapi/APIRequest.h"

#include <cassert>
#include <optional>
#include <utility>

#include "platform/kivocore/Json.h"

namespace KIVO {

namespace {

[[nodiscard]] std::optional<double> AsReal(const Json::Value& value) {
    return value.isNumeric() ? std::optional(value.asDouble()) : std::nullopt;
}

[[nodiscard]] std::optional<bool> AsBool(const Json::Value& value) {
    return value.isBool() ? std::optional(value.asBool()) : std::nullopt;
}

[[nodiscard]] std::optional<std::string> AsString(const Json::Value& value) {
    return value.isString() ? std::optional(value.asString()) : std::nullopt;
}

const Json::Value* Find(const Json::Value& parameters, const std::string& name) {
    return parameters.find(name.data(), name.data() + name.size());
}

template <typename T>
APIParameter<T> GetAndCheck(const Json::Value* value, PARAM_NECESSITY necessity, APIParameterTest test,
                            std::optional<T> (*convert)(const Json::Value&)) {
    if (value == nullptr) {
        return APIParameter<T>::Missing(necessity);
    }
    std::optional<T> converted = convert(*value);
    if (!converted || (test != nullptr && !test(*value))) {
        return APIParameter<T>::Mistyped();
    }
    return APIParameter<T>::Present(*std::move(converted));
}

}  // namespace

APIRequest::APIRequest(Json::Value parameters, std::string loginUserName, std::string uiLanguage,
                       bool isAdmin)
    : m_parameters(std::move(parameters)),
      m_loginUserName(std::move(loginUserName)),
      m_uiLanguage(std::move(uiLanguage)),
      m_isAdmin(isAdmin) {
    assert(m_parameters.isObject());
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& defaultValue) {
    const Json::Value* value = Find(m_parameters, name);
    return value != nullptr ? *value : defaultValue;
}

std::string APIRequest::GetLoginUserName() { return m_loginUserName; }

std::string APIRequest::GetUILanguage() { return m_uiLanguage; }

bool APIRequest::IsAdmin() { return m_isAdmin; }

APIParameter<double> APIRequest::GetAndCheckReal(const std::string& name, PARAM_NECESSITY necessity,
                                                 APIParameterTest test) {
    return GetAndCheck(Find(m_parameters, name), necessity, test, &AsReal);
}

APIParameter<int> APIRequest::GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                             APIParameterTest test) {
    return GetAndCheck(Find(m_parameters, name), necessity, test, &Appliance::AsInt);
}

APIParameter<bool> APIRequest::GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                               APIParameterTest test) {
    return GetAndCheck(Find(m_parameters, name), necessity, test, &AsBool);
}

APIParameter<std::string> APIRequest::GetAndCheckString(const std::string& name, PARAM_NECESSITY necessity,
                                                        APIParameterTest test) {
    return GetAndCheck(Find(m_parameters, name), necessity, test, &AsString);
}

}  // namespace KIVO
