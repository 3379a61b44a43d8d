#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
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

/// The longest token that signs in: one is compared with every user's, to its end.
inline constexpr std::size_t kLongestToken = 256;

/// The user whom the token signs in, found in a time that tells nothing about the stored tokens. Nothing when
/// no user has it, or more than one, or it is too long.
[[nodiscard]] std::optional<Caller> FindCallerByToken(std::string_view token);

/// How long a sign-in code is good for.
inline constexpr std::chrono::minutes kSignInTime{15};

/// A code that signs the user in until the time, in seconds since 1970: name, time, and a hash of both that
/// is keyed with the user's token. So nothing is stored, and a new token makes every code worthless. Its
/// letters need no escape in an address. Nothing for a user whose token signs nobody in.
[[nodiscard]] std::optional<std::string> MakeSignInCode(const std::string& userName, std::int64_t expiry);

/// The token of the user whom the code signs in. Throws a Refusal 401 that says whether the code has expired
/// or is none.
[[nodiscard]] std::string ExchangeSignInCode(const std::string& code);

/// True for a well-formed code with a folder below the text cache.
[[nodiscard]] bool HasLanguage(const std::string& language);

}  // namespace KIVO::Host
