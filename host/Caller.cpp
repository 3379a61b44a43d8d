#include "host/Caller.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <memory>

#include "host/Refusal.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

/// Compares without stopping at the first difference. The secret "" is equal to nothing.
bool EqualsSecret(const std::string& secret, std::string_view given) {
    if (secret.empty()) {
        return false;
    }
    bool differs = secret.size() != given.size();
    for (std::size_t i = 0; i < given.size(); ++i) {
        differs |= secret[i % secret.size()] != given[i];
    }
    return !differs;
}

Caller ToCaller(const Appliance::Users::value_type& user) {
    return {user.first, user.second.language, user.second.IsAdmin()};
}

std::string ToHex(const std::string& text) {
    std::string hex;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        hex += "0123456789abcdef"[byte / 16];
        hex += "0123456789abcdef"[byte % 16];
    }
    return hex;
}

std::string MakeCode(const std::string& userName, std::int64_t expiry, const std::string& token) {
    const std::string signedPart = ToHex(userName) + "." + std::to_string(expiry);
    const std::unique_ptr<char, decltype(&g_free)> hash(
        g_compute_hmac_for_string(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(token.data()),
                                  token.size(), signedPart.data(), static_cast<gssize>(signedPart.size())),
        &g_free);
    return signedPart + "." + hash.get();
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
    if (token.size() > kLongestToken) {
        return std::nullopt;
    }
    const auto users = Appliance::LoadUsers();
    const Appliance::Users::value_type* found = nullptr;
    int matches = 0;
    for (const auto& user : *users) {
        if (EqualsSecret(user.second.token, token)) {
            found = &user;
            ++matches;
        }
    }
    if (matches != 1) {
        return std::nullopt;
    }
    return ToCaller(*found);
}

std::optional<std::string> MakeSignInCode(const std::string& userName, std::int64_t expiry) {
    const auto users = Appliance::LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end() || !FindCallerByToken(user->second.token)) {
        return std::nullopt;
    }
    return MakeCode(userName, expiry, user->second.token);
}

std::string ExchangeSignInCode(const std::string& code) {
    constexpr char kAnother[] = " For another, run: webapi-host sign-in USER";
    const std::size_t dot = code.find('.');
    std::int64_t expiry = 0;
    if (dot != std::string::npos) {
        std::from_chars(code.data() + dot + 1, code.data() + code.size(), expiry);
    }
    const auto users = Appliance::LoadUsers();
    const auto user = std::ranges::find_if(
        *users, [&](const auto& candidate) { return ToHex(candidate.first) == code.substr(0, dot); });
    if (user != users->end() && !user->second.token.empty() &&
        EqualsSecret(MakeCode(user->first, expiry, user->second.token), code)) {
        if (expiry > std::time(nullptr)) {
            return user->second.token;
        }
        throw Refusal(401, std::string("The sign-in link has expired.") + kAnother);
    }
    throw Refusal(401, std::string("The sign-in link is not valid.") + kAnother);
}

bool HasLanguage(const std::string& language) {
    std::error_code ignored;
    return Appliance::IsLanguage(language) &&
           std::filesystem::is_directory(Appliance::Rooted("/var/cache/texts/" + language), ignored);
}

}  // namespace KIVO::Host
