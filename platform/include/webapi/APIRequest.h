#pragma once

#include <json/value.h>

#include <string>

#include "kivocore/Export.h"
#include "webapi/APIParameter.h"

namespace KIVO {

/// A further test of a parameter's value, besides its type; null for none. False makes the parameter invalid.
using APIParameterTest = bool (*)(const Json::Value& value);

/// One request to an API method: its parameters and on whose behalf it was sent. Lives for that request, on
/// one thread.
class KIVO_PUBLIC APIRequest {
public:
    /// `parameters` is a JSON object, one member a parameter.
    APIRequest(Json::Value parameters, std::string loginUserName, std::string uiLanguage, bool isAdmin);

    /// The parameter of that name, or a copy of `defaultValue` when the request does not carry it.
    Json::Value GetParam(const std::string& name, const Json::Value& defaultValue);

    /// The logged-in user on whose behalf the request was sent.
    std::string GetLoginUserName();
    /// The code of the language of the user's desktop, such as "enu".
    std::string GetUILanguage();
    /// True when the user is an administrator.
    bool IsAdmin();

    /// The typed reads take JSON's own types and convert nothing: a real takes any JSON number, an integer a
    /// number written as an integer that fits an int, a boolean `true` or `false`, a string a JSON string.
    APIParameter<double> GetAndCheckReal(const std::string& name, PARAM_NECESSITY necessity,
                                         APIParameterTest test);
    APIParameter<int> GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                     APIParameterTest test);
    APIParameter<bool> GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                       APIParameterTest test);
    APIParameter<std::string> GetAndCheckString(const std::string& name, PARAM_NECESSITY necessity,
                                                APIParameterTest test);

private:
    Json::Value m_parameters;
    std::string m_loginUserName;
    std::string m_uiLanguage;
    bool m_isAdmin;
};

}  // namespace KIVO
