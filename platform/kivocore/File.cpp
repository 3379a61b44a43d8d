#include "kivocore/file.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/ErrorState.h"

int KLIBCFileExist(const char* path) {
    // Not access(2): that would ask for the real user, and callers act as the effective one.
    struct stat status {};
    if (path == nullptr) {
        return 0;
    }
    if (stat(path, &status) == 0) {
        return 1;
    }
    // What the caller may not look at is not known to be missing, and not to be made anew.
    return errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != ENAMETOOLONG ? 1 : 0;
}

int KLIBCFileEnumSection(const char* path, KLIBCSzList** list) try {
    if (path == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    const auto catalogue = KIVO::Appliance::LoadCatalogue(path);
    if (!catalogue) {
        SET_LAST_ERROR(FileNotReadable);
        return -1;
    }
    for (const char* tag : catalogue->tags) {
        if (KLIBCSzListPush(list, tag) != 0) {
            return -1;
        }
    }
    return static_cast<int>(catalogue->tags.size());
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
