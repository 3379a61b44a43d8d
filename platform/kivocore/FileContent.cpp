#include "platform/kivocore/FileContent.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Appliance {

namespace {

using namespace std::chrono_literals;

// Twice the longest step of a kernel's clock, and of a file system that keeps no parts of a second.
constexpr std::chrono::nanoseconds kSettlingTime = 20ms;
constexpr std::chrono::nanoseconds kCoarseSettlingTime = 2s;
constexpr std::size_t kChunkSize = std::size_t{64} * 1024;

long long ToNanoseconds(const timespec& time) {
    return std::chrono::nanoseconds(std::chrono::seconds(time.tv_sec)).count() + time.tv_nsec;
}

[[nodiscard]] std::optional<FileIdentity> Identify(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino, status.st_size, ToNanoseconds(status.st_mtim),
                        ToNanoseconds(status.st_ctim)};
}

}  // namespace

std::optional<FileIdentity> IdentifyFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? Identify(status) : std::nullopt;
}

std::optional<FileIdentity> IdentifyFile(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? Identify(status) : std::nullopt;
}

bool IsSettled(const FileIdentity& identity) {
    const std::chrono::nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
    const std::chrono::nanoseconds changed(identity.ctimeNanoseconds);
    return std::chrono::abs(now - changed) > (changed % 1s == 0s ? kCoarseSettlingTime : kSettlingTime);
}

std::optional<std::string> ReadFile(const std::string& path) {
    // Opening a named pipe would wait for its writer before it could be refused.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return file.IsOpen() ? ReadFile(file.Get()) : std::nullopt;
}

std::optional<std::string> ReadFile(int descriptor) {
    const std::optional<FileIdentity> identity = IdentifyFile(descriptor);
    if (!identity) {
        return std::nullopt;
    }
    std::string content;
    content.reserve(static_cast<std::size_t>(identity->size));
    std::array<char, kChunkSize> chunk;
    while (true) {
        const ssize_t length =
            pread(descriptor, chunk.data(), chunk.size(), static_cast<off_t>(content.size()));
        if (length > 0) {
            content.append(chunk.data(), static_cast<std::size_t>(length));
        } else if (length == 0) {
            return content;
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

}  // namespace KIVO::Appliance
