#include "host/Caller.h"

#include <filesystem>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

/// Compares without stopping at the first difference. A user without a token is equal to nothing.
bool EqualsToken(const std::string& token, std::string_view given) {
    if (token.empty()) {
        return false;
    }
    bool differs = token.size() != given.size();
    for (std::size_t i = 0; i < given.size(); ++i) {
        differs |= token[i % token.size()] != given[i];
    }
    return !differs;
}

Caller ToCaller(const Appliance::Users::value_type& user) {
    return {user.first, user.second.language, user.second.isAdmin};
}

}  // namespace

std::optional<Caller> FindCaller(const std::string& userName) {
    const auto users = Appliance::LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        return std::nullopt;
    }
    return ToCaller(*user);
}

std::optional<Caller> FindCallerByToken(std::string_view token) {
    const auto users = Appliance::LoadUsers();
    const Appliance::Users::value_type* found = nullptr;
    int matches = 0;
    for (const auto& user : *users) {
        if (EqualsToken(user.second.token, token)) {
            found = &user;
            ++matches;
        }
    }
    if (matches != 1) {
        return std::nullopt;
    }
    return ToCaller(*found);
}

bool HasLanguage(const std::string& language) {
    std::error_code ignored;
    return Appliance::IsLanguage(language) &&
           std::filesystem::is_directory(Appliance::Rooted("/var/cache/texts/" + language), ignored);
}

}  // namespace KIVO::Host
