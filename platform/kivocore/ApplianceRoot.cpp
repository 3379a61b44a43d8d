#include "platform/kivocore/ApplianceRoot.h"

#include <stdlib.h>

#include <algorithm>
#include <cassert>

namespace KIVO::Appliance {

namespace {

constexpr std::size_t kLanguageLength = 3;

}  // namespace

std::string Root() {
    // A program that runs with more rights than its caller must not take its files from where the caller
    // says.
    const char* variable = secure_getenv("KIVO_ROOT");
    std::string root = variable != nullptr ? variable : KIVO_DEFAULT_ROOT;
    root.resize(root.find_last_not_of('/') + 1);
    return root;
}

std::string Rooted(std::string_view absolutePath) {
    assert(absolutePath.starts_with('/'));
    return Root().append(absolutePath);
}

bool IsLanguage(std::string_view code) {
    return code.size() == kLanguageLength &&
           std::all_of(code.begin(), code.end(), [](char letter) { return letter >= 'a' && letter <= 'z'; });
}

bool IsPlainName(std::string_view name) {
    constexpr std::string_view kForbidden("/\0", 2);
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(kForbidden) == std::string_view::npos;
}

}  // namespace KIVO::Appliance
