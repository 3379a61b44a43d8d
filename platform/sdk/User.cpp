#include "sdk/user.h"

#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/Users.h"

int KIVOUserGetUGID(const char* userName, int* uid, int* gid) try {
    if (userName == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    const auto users = KIVO::Appliance::LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        SET_LAST_ERROR(UserNotFound);
        return -1;
    }
    if (uid != nullptr) {
        *uid = user->second.uid;
    }
    if (gid != nullptr) {
        *gid = user->second.gid;
    }
    return 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
