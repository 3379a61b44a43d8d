#include "platform/kivocore/FileDescriptor.h"

#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace KIVO::Appliance {

bool LockWithin(const FileDescriptor& file, std::chrono::milliseconds longest) {
    constexpr std::chrono::milliseconds kPause(5);
    const auto end = std::chrono::steady_clock::now() + longest;
    while (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace KIVO::Appliance
