#include "kivocore/rights.h"

#include <cassert>

#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/Users.h"

using KIVO::Appliance::LoadUsers;

int KLIBGroupIsAdminGroupMem(const char* userName, [[maybe_unused]] int flags) try {
    assert(flags == 0);
    if (userName == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return 0;
    }
    const auto users = LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        SET_LAST_ERROR(UserNotFound);
        return 0;
    }
    return user->second.IsAdmin() ? 1 : 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return 0;
}

int KLIBAppPrivUserHas(const char* userName, const char* appId, const char* /*address*/) try {
    if (userName == nullptr || appId == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return 0;
    }
    const auto users = LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        SET_LAST_ERROR(UserNotFound);
        return 0;
    }
    return user->second.apps.contains(appId) ? 1 : 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return 0;
}
