#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <sys/stat.h>

#include <optional>
#include <string>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// Tells whether a file is still the one that was read.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long mtimeNanoseconds = 0;
    /// Of the last change to the inode, which no program can set back.
    long long ctimeNanoseconds = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// The identity of the regular file at the path or behind the descriptor; nothing, with errno set, when there
/// is none (EISDIR and the like for something else than a file).
[[nodiscard]] KIVO_PUBLIC std::optional<FileIdentity> IdentifyFile(const std::string& path);
[[nodiscard]] KIVO_PUBLIC std::optional<FileIdentity> IdentifyFile(int descriptor);

/// False while the file was changed so lately that a further change may leave its identity as it is: the
/// clock of a file's times moves in steps, of a whole second on some file systems. Content read then is not
/// to be kept for later.
KIVO_PUBLIC bool IsSettled(const FileIdentity& identity);

/// The whole content of the regular file at the path or behind the descriptor (whose position neither matters
/// nor moves); nothing, with errno set, when it cannot be read.
[[nodiscard]] KIVO_PUBLIC std::optional<std::string> ReadFile(const std::string& path);
[[nodiscard]] KIVO_PUBLIC std::optional<std::string> ReadFile(int descriptor);

}  // namespace KIVO::Appliance
