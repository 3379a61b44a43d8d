#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <sys/types.h>

#include <string>
#include <string_view>

#include "kivocore/Export.h"
#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Appliance {

/// The file that takes a path's place in the end; removed unless it does. Its folder is locked meanwhile, so
/// that there is one at a time: what is read from the path under the lock is what is replaced, and what a
/// process left that was killed is in nobody's way for longer than until the next. Each operation throws
/// std::runtime_error with one sentence when it fails.
class KIVO_PUBLIC Replacement {
public:
    /// Waits up to five seconds for the lock.
    explicit Replacement(std::string path);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void Write(std::string_view content);

    /// Where it is until then, for what writes to a path.
    const std::string& TemporaryPath() const { return m_temporaryPath; }

    /// Gives it to another owner and group; until then it is this process's.
    void SetOwner(uid_t uid, gid_t gid);

    /// Takes the path's place, durably as far as the system lets it. Until then nobody else may read it.
    void Commit(mode_t mode);

private:
    std::string m_path;
    std::string m_temporaryPath;
    FileDescriptor m_folder;
    FileDescriptor m_file{-1};
    bool m_isInPlace = false;
};

}  // namespace KIVO::Appliance
