#include "platform/kivocore/Users.h"

#include <json/value.h>
#include <syslog.h>
#include <unistd.h>

#include <cassert>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/Json.h"

namespace KIVO::Appliance {

namespace {

constexpr char kDefaultLanguage[] = "enu";

/// How long what the file last was is trusted while it is no users file: it may be on its way to its next
/// state.
constexpr std::chrono::seconds kRewritingTime(3);

/// The strings of an array; none for a missing one, nothing for any other value.
[[nodiscard]] std::optional<std::unordered_set<std::string>> ReadStrings(const Json::Value& value) {
    if (!value.isNull() && !value.isArray()) {
        return std::nullopt;
    }
    std::unordered_set<std::string> strings;
    for (const Json::Value& element : value) {
        if (!element.isString()) {
            return std::nullopt;
        }
        strings.insert(element.asString());
    }
    return strings;
}

/// "" for a missing string, nothing for any other value.
[[nodiscard]] std::optional<std::string> ReadString(const Json::Value& value) {
    if (value.isNull()) {
        return "";
    }
    return value.isString() ? std::optional(value.asString()) : std::nullopt;
}

[[nodiscard]] std::optional<User> ReadUser(const Json::Value& entry) {
    if (!entry.isObject()) {
        return std::nullopt;
    }
    const std::optional<int> uid = AsInt(entry["uid"]);
    const std::optional<int> gid = AsInt(entry["gid"]);
    const auto language = ReadString(entry["language"]);
    auto groups = ReadStrings(entry["groups"]);
    auto apps = ReadStrings(entry["apps"]);
    auto hiddenTags = ReadStrings(entry["hiddenTags"]);
    auto token = ReadString(entry["token"]);
    if (!uid || *uid < 0 || !gid || *gid < 0 || !language || !groups || !apps || !hiddenTags || !token) {
        return std::nullopt;
    }
    return User{
        .uid = *uid,
        .gid = *gid,
        .language = IsLanguage(*language) ? *language : kDefaultLanguage,
        .groups = *std::move(groups),
        .apps = *std::move(apps),
        .hiddenTags = *std::move(hiddenTags),
        .token = *std::move(token),
    };
}

/// The document's users; null when it is no users file.
[[nodiscard]] std::shared_ptr<const Users> ReadUsers(const Json::Value& document, const std::string& path,
                                                     bool shouldLog) {
    if (!document.isObject() || !document["users"].isObject()) {
        return nullptr;
    }
    auto users = std::make_shared<Users>();
    const Json::Value& entries = document["users"];
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        const std::string name = entry.name();
        std::optional<User> user = IsPlainName(name) ? ReadUser(*entry) : std::nullopt;
        if (user) {
            users->emplace(name, *std::move(user));
        } else if (shouldLog) {
            syslog(LOG_ERR, "%s: the entry of user \"%s\" is malformed and left out", path.c_str(),
                   name.c_str());
        }
    }
    return users;
}

class UsersCache {
    using Clock = std::chrono::steady_clock;

public:
    std::shared_ptr<const Users> Load() {
        const std::string path = Rooted(kUsersPath);
        const std::scoped_lock lock(m_mutex);
        const std::optional<FileIdentity> identity = IdentifyFile(path);
        // On the other side of a fork too it starts with nothing: a token that was known before may have been
        // taken away since.
        if (path != m_path || !identity || m_process != getpid()) {
            Forget();
            m_path = path;
            m_process = getpid();
        }
        const auto now = Clock::now();
        if (!identity || (m_isCurrent && identity == m_identity)) {
            m_lastGood = now;
            return m_users;
        }

        const bool isSettled = IsSettled(*identity);
        // Once for one state of the file, however often it is read.
        const bool isNew = identity != m_identity;
        const std::optional<std::string> content = ReadFile(path);
        Json::Value document;
        std::shared_ptr<const Users> users;
        if (content && ParseJson(*content, document)) {
            users = ReadUsers(document, path, isNew);
        }
        const bool isUsersFile = users != nullptr;
        if (isUsersFile) {
            m_users = std::move(users);
            m_lastGood = now;
        } else {
            KeepForAWhile(now, isNew, content ? "is no users file" : "cannot be read");
        }
        m_identity = identity;
        m_isCurrent =
            content && isSettled && (isUsersFile || m_users->empty()) && IdentifyFile(path) == identity;
        return m_users;
    }

private:
    void Forget() {
        m_users = std::make_shared<const Users>();
        m_identity.reset();
        m_isCurrent = false;
    }

    /// Keeps the users while the file may be on its way to its next state, and then none. The time counts
    /// from when they were seen to be right: what was changed since is not known.
    void KeepForAWhile(Clock::time_point now, bool isNew, const char* what) {
        const bool wasKept = !m_users->empty();
        const bool isKept = wasKept && now - m_lastGood < kRewritingTime;
        if (!isKept) {
            m_users = std::make_shared<const Users>();
        }
        if (isNew || wasKept != isKept) {
            syslog(
                LOG_ERR, "%s %s; %s", m_path.c_str(), what,
                isKept ? "the users stay as they were for a moment" : "there are no users until it changes");
        }
    }

    std::mutex m_mutex;
    std::string m_path;
    pid_t m_process = getpid();
    /// The file as it was read last.
    std::optional<FileIdentity> m_identity;
    /// Whether that read need not be repeated while the file stays the same.
    bool m_isCurrent = false;
    std::shared_ptr<const Users> m_users = std::make_shared<const Users>();
    /// When the users were last those of the file.
    Clock::time_point m_lastGood;
};

thread_local std::shared_ptr<const Users> t_snapshot;

}  // namespace

std::shared_ptr<const Users> LoadUsers() {
    static UsersCache cache;
    return t_snapshot ? t_snapshot : cache.Load();
}

UsersSnapshot::UsersSnapshot() {
    assert(!t_snapshot);
    t_snapshot = LoadUsers();
}

UsersSnapshot::~UsersSnapshot() { t_snapshot.reset(); }

}  // namespace KIVO::Appliance
