#include "sysnotify/rights.h"

#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/Users.h"

int KIVOSysNotifyIsAllow(const char* userName, const char* tag) try {
    if (userName == nullptr || tag == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    const auto users = KIVO::Appliance::LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        SET_LAST_ERROR(UserNotFound);
        return -1;
    }
    return user->second.hiddenTags.contains(tag) ? 0 : 1;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
