#include "platform/kivocore/Replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace KIVO::Appliance {

namespace {

constexpr std::chrono::seconds kLongestWait(5);

[[noreturn]] void ThrowWriteError(const std::string& path) {
    throw std::runtime_error("Cannot write " + path + ": " + std::generic_category().message(errno) + ".");
}

}  // namespace

Replacement::Replacement(std::string path)
    : m_path(std::move(path)),
      m_temporaryPath(m_path + ".new"),
      m_folder(open(m_path.substr(0, m_path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!m_folder.IsOpen() || !LockWithin(m_folder, kLongestWait)) {
        ThrowWriteError(m_path);
    }
    unlink(m_temporaryPath.c_str());
    m_file = FileDescriptor(
        open(m_temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!m_file.IsOpen()) {
        ThrowWriteError(m_path);
    }
}

Replacement::~Replacement() {
    if (!m_isInPlace) {
        unlink(m_temporaryPath.c_str());
    }
}

void Replacement::Write(std::string_view content) {
    while (!content.empty()) {
        const ssize_t length = write(m_file.Get(), content.data(), content.size());
        if (length >= 0) {
            content.remove_prefix(static_cast<std::size_t>(length));
        } else if (errno != EINTR) {
            ThrowWriteError(m_path);
        }
    }
}

void Replacement::SetOwner(uid_t uid, gid_t gid) {
    if (fchown(m_file.Get(), uid, gid) != 0) {
        ThrowWriteError(m_path);
    }
}

void Replacement::Commit(mode_t mode) {
    if (fchmod(m_file.Get(), mode) != 0 || fsync(m_file.Get()) != 0 ||
        rename(m_temporaryPath.c_str(), m_path.c_str()) != 0) {
        ThrowWriteError(m_path);
    }
    m_isInPlace = true;
    // Where that fails, the earlier file may be back after a power failure.
    fsync(m_folder.Get());
}

}  // namespace KIVO::Appliance
