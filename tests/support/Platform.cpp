#include "tests/support/Platform.h"

#include <dlfcn.h>
#include <sqlite3.h>

#include <string>

#include "kivocore/exec.h"
#include "kivocore/list.h"
#include "kivocore/rights.h"
#include "sdk/eventlog.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/nstring.h"
#include "sysnotify/rights.h"
#include "tests/support/Allocations.h"

namespace KIVO::Test {

namespace {

/// Notes one call, with memory even when the code under test has none.
void Count(const char* operation, const char* argument = nullptr) {
    const AllocationLimit noLimit(-1);
    ++ThePlatform().calls[argument != nullptr ? operation + std::string(":") + argument : operation];
}

/// Counts the call. True when it is to fail.
bool Fails(const char* operation) {
    Count(operation);
    return ThePlatform().fails && ThePlatform().fails(operation);
}

/// The operation in the real library.
template <typename Function>
Function* Real(Function*, const char* operation) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, operation));
}

}  // namespace

#define REAL(operation) Real(&operation, #operation)

Platform& ThePlatform() {
    static Platform platform;
    return platform;
}

}  // namespace KIVO::Test

using namespace KIVO::Test;

extern "C" {

KLIBCSzList* KLIBCSzListAlloc(int capacity) {
    return Fails("KLIBCSzListAlloc") ? nullptr : REAL(KLIBCSzListAlloc)(capacity);
}

int KLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    return Fails("KLIBCExec") ? -1 : REAL(KLIBCExec)(path, arg1, arg2, arg3, arg4);
}

int KLIBAppPrivUserHas(const char* userName, const char* appId, const char* address) {
    Count("KLIBAppPrivUserHas", appId);
    return Fails("KLIBAppPrivUserHas") ? 0 : REAL(KLIBAppPrivUserHas)(userName, appId, address);
}

int KIVOSysNotifyIsAllow(const char* userName, const char* tag) {
    Count("KIVOSysNotifyIsAllow", tag);
    return Fails("KIVOSysNotifyIsAllow") ? -1 : REAL(KIVOSysNotifyIsAllow)(userName, tag);
}

int KIVOUserGetUGID(const char* userName, int* uid, int* gid) {
    return Fails("KIVOUserGetUGID") ? -1 : REAL(KIVOUserGetUGID)(userName, uid, gid);
}

int KIVOLogSet1(int category, int level, unsigned int eventCode, const char* a1, const char* a2,
                const char* a3, const char* a4) {
    return Fails("KIVOLogSet1") ? -1 : REAL(KIVOLogSet1)(category, level, eventCode, a1, a2, a3, a4);
}

int nexnotifyDbOpen(sqlite3** db) { return Fails("nexnotifyDbOpen") ? -1 : REAL(nexnotifyDbOpen)(db); }

int nexnotifyDbRunSql(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg) {
    return Fails("nexnotifyDbRunSql") ? -1 : REAL(nexnotifyDbRunSql)(db, sql, callback, arg);
}

void nexnotifyDbClose(sqlite3* db) {
    Fails(db != nullptr ? "nexnotifyDbClose" : "nexnotifyDbClose:null");
    REAL(nexnotifyDbClose)(db);
}

void sqlite3_free(void* memory) {
    if (memory != nullptr) {
        Count("sqlite3_free");
    }
    REAL(sqlite3_free)(memory);
}

NString* KIVONotifyStringNew() {
    return Fails("KIVONotifyStringNew") ? nullptr : REAL(KIVONotifyStringNew)();
}

void KIVONotifyStringFree(NString* record) {
    Fails("KIVONotifyStringFree");
    REAL(KIVONotifyStringFree)(record);
}

}  // extern "C"
