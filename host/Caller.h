#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace KIVO::Host {

/// On whose behalf a request is answered, and in which language.
struct Caller {
    std::string userName;
    std::string language;
    bool isAdmin;
};

/// The user of that name, with the user's own language; nothing for an unknown one.
[[nodiscard]] std::optional<Caller> FindCaller(const std::string& userName);

/// The user whom the token signs in, found in a time that tells nothing about the stored tokens. Nothing when
/// no user has it, or more than one.
[[nodiscard]] std::optional<Caller> FindCallerByToken(std::string_view token);

/// True for a well-formed code with a folder below the text cache.
[[nodiscard]] bool HasLanguage(const std::string& language);

}  // namespace KIVO::Host
