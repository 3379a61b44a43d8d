#include "sdk/eventlog.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/ErrorState.h"
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

/// All of the line or nothing of it: on a disk that fills up, the half of a line would spoil the next one
/// too. Under a lock, so that nothing but that half is cut off.
bool AppendLine(const std::string& path, const std::string& line) {
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kLogMode));
    struct stat before {};
    if (!file.IsOpen() || flock(file.Get(), LOCK_EX) != 0 || fstat(file.Get(), &before) != 0) {
        return false;
    }
    ssize_t length = 0;
    do {
        length = write(file.Get(), line.data(), line.size());
    } while (length < 0 && errno == EINTR);
    if (length == static_cast<ssize_t>(line.size())) {
        return true;
    }
    [[maybe_unused]] const int cut = ftruncate(file.Get(), before.st_size);
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
    if (!AppendLine(Rooted("/var/log/kivo/events.jsonl"), WriteJson(entry) + '\n')) {
        SET_LAST_ERROR(FileNotWritable);
        return -1;
    }
    return 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
