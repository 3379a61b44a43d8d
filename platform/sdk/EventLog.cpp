#include "sdk/eventlog.h"

#include <fcntl.h>
#include <json/value.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Json.h"

using namespace KIVO::Appliance;

namespace {

constexpr mode_t kLogMode = 0640;

std::string HexCode(unsigned int code) {
    std::array<char, sizeof "0x00000000"> text;
    snprintf(text.data(), text.size(), "0x%08X", code);
    return text.data();
}

/// Whoever holds the lock longer is no writer of this log.
constexpr std::chrono::milliseconds kLockTime(500);

/// All of the line or nothing of it, with errno set: on a disk that fills up, the half of a line would spoil
/// the next one too. Under a lock, so that nothing but that half is cut off. Neither waits for a reader of a
/// named pipe nor writes where a link points.
[[nodiscard]] bool AppendLine(const std::string& path, const std::string& line) {
    const FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, kLogMode));
    if (!file.IsOpen() || !IdentifyFile(file.Get()) || !LockWithin(file, kLockTime)) {
        return false;
    }
    const auto before = IdentifyFile(file.Get());
    ssize_t length = 0;
    do {
        length = write(file.Get(), line.data(), line.size());
    } while (length < 0 && errno == EINTR);
    if (length == static_cast<ssize_t>(line.size())) {
        return true;
    }
    const int error = length < 0 ? errno : ENOSPC;
    [[maybe_unused]] const int cut = before ? ftruncate(file.Get(), before->size) : -1;
    errno = error;
    return false;
}

}  // namespace

int KIVOLogSet1(int category, int level, unsigned int eventCode, const char* a1, const char* a2,
                const char* a3, const char* a4) try {
    Json::Value entry;
    entry["time"] = static_cast<Json::Int64>(std::time(nullptr));
    entry["category"] = category;
    entry["level"] = level;
    entry["event"] = HexCode(eventCode);
    for (const char* argument : {a1, a2, a3, a4}) {
        entry["args"].append(argument != nullptr ? argument : "");
    }
    const std::string path = Rooted("/var/log/kivo/events.jsonl");
    const std::string line = WriteJson(entry);
    if (!AppendLine(path, line + '\n')) {
        syslog(LOG_ERR, "The event %s cannot be noted in %s: %s.", line.c_str(), path.c_str(),
               strerror(errno));
        SET_LAST_ERROR(FileNotWritable);
        return -1;
    }
    return 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
