#pragma once

#include <json/value.h>

#include <string>

#include "kivocore/Export.h"
#include "webapi/APIParameter.h"

namespace KIVO {

/// Tests of a fetched parameter's value.
class KIVO_PUBLIC APIValidator {
public:
    /// True when the value equals the text exactly.
    static bool IsEqual(const APIParameter<std::string>& parameter, const char* text);
    /// True when the value equals one of the strings of the JSON array.
    static bool IsBelong(const APIParameter<std::string>& parameter, const Json::Value& array);
};

}  // namespace KIVO
