#pragma once

#include <json/value.h>

#include <string>

#include "kivocore/Export.h"

namespace KIVO {

class KIVO_PUBLIC WebAPIUtil {
public:
    /// The JSON value that the text holds, or null when it is not valid JSON. Safe on any thread.
    [[nodiscard]] static Json::Value ParseJson(const std::string& text);
};

}  // namespace KIVO
