#pragma once

#include "kivocore/Export.h"

extern "C" {

// Safe on any thread.

/// Non-zero when the user is a member of the administrators group. `flags` is reserved and 0.
[[nodiscard]] KIVO_PUBLIC int KLIBGroupIsAdminGroupMem(const char* userName, int flags);

/// Non-zero when the user may use the application `appId`. `address` is the address from which the user asks,
/// or "ignore" to leave that out of account.
[[nodiscard]] KIVO_PUBLIC int KLIBAppPrivUserHas(const char* userName, const char* appId,
                                                 const char* address);

}  // extern "C"
