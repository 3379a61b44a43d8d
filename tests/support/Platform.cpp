#include "tests/support/Platform.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <stdexcept>

#include "kivocore/exec.h"
#include "kivocore/file.h"
#include "kivocore/rights.h"
#include "sdk/eventlog.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/nstring.h"
#include "sysnotify/rights.h"
#include "tests/support/Allocations.h"
#include "webapi/APIRequest.h"

namespace KIVO::Test {

namespace {

/// Notes one call, with memory even when the code under test has none.
void Count(const char* operation, const char* argument = "") {
    const AllocationLimit noLimit(-1);
    ++ThePlatform().calls[std::string(operation) + argument];
}

/// Counts the call. True when it is to fail.
bool Fails(const char* operation) {
    Count(operation);
    return ThePlatform().fails && ThePlatform().fails(operation);
}

template <typename Function>
Function* Real(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

/// Counts what the module now has to release, if it is anything.
template <typename Resource>
Resource* Held(Resource* resource) {
    ThePlatform().held += resource != nullptr;
    return resource;
}

/// Sets a user's or a group's id; what shall stay is -1, and is noted so.
int SetEffectiveId(const char* function, unsigned real, unsigned effective, unsigned saved, unsigned& current,
                   bool isAllowed) {
    const AllocationLimit noLimit(-1);
    Identity& identity = ProcessIdentity();
    const auto text = [](unsigned id) { return std::to_string(static_cast<int>(id)); };
    identity.calls.push_back(function +
                             ("(" + text(real) + ", " + text(effective) + ", " + text(saved) + ")"));
    if (!isAllowed || identity.calls.size() == identity.refusedCall) {
        errno = EPERM;
        return -1;
    }
    current = effective;
    return 0;
}

}  // namespace

Identity& ProcessIdentity() {
    static Identity identity;
    return identity;
}

Platform& ThePlatform() {
    static Platform platform;
    return platform;
}

}  // namespace KIVO::Test

using namespace KIVO::Test;

#define REAL(name) Real<decltype(name)>(#name)
#define FORWARD(type, name, failure, parameters, arguments) \
    type name parameters { return Fails(#name) ? (failure) : REAL(name) arguments; }
// Null is for those to release that say that they accept it.
#define RELEASE(name, type, acceptsNull)                    \
    void name(type* resource) {                             \
        Fails(resource != nullptr ? #name : #name ":null"); \
        EXPECT_TRUE(resource != nullptr || acceptsNull);    \
        ThePlatform().held -= resource != nullptr;          \
        REAL(name)(resource);                               \
    }

// What SQLite asks the system for, which does so on other threads than the test's, too: not counted.
#define SYSTEM_CALL(type, name, parameters, arguments)                     \
    __attribute__((visibility("default"))) type name parameters {          \
        if (ThePlatform().fails && ThePlatform().fails("system:" #name)) { \
            errno = EIO;                                                   \
            return type(-1);                                               \
        }                                                                  \
        static auto* const real = REAL(name);                              \
        return real arguments;                                             \
    }

extern "C" {

SYSTEM_CALL(int, open64, (const char* path, int flags, ...), (path, flags, 0600))
SYSTEM_CALL(int, fstat64, (int file, struct stat64* status) noexcept, (file, status))
SYSTEM_CALL(int, ftruncate64, (int file, off64_t size) noexcept, (file, size))
SYSTEM_CALL(int, fdatasync, (int file), (file))
SYSTEM_CALL(int, unlink, (const char* path) noexcept, (path))
SYSTEM_CALL(ssize_t, pread64, (int file, void* to, size_t size, off64_t at), (file, to, size, at))
SYSTEM_CALL(ssize_t, pwrite64, (int file, const void* from, size_t size, off64_t at), (file, from, size, at))

uid_t geteuid() noexcept { return ProcessIdentity().euid; }

gid_t getegid() noexcept { return ProcessIdentity().egid; }

int setresuid(uid_t real, uid_t effective, uid_t saved) noexcept {
    Identity& identity = ProcessIdentity();
    return SetEffectiveId("setresuid", real, effective, saved, identity.euid,
                          identity.euid == 0 || identity.mayRaise);
}

int setresgid(gid_t real, gid_t effective, gid_t saved) noexcept {
    Identity& identity = ProcessIdentity();
    return SetEffectiveId("setresgid", real, effective, saved, identity.egid, identity.euid == 0);
}

int getpwnam_r(const char* name, passwd* entry, char*, size_t size, passwd** result) {
    Identity& identity = ProcessIdentity();
    identity.givenBufferSize = size;
    const bool isKnown = !Fails("getpwnam_r") && identity.accounts.contains(name);
    entry->pw_uid = 0;
    entry->pw_gid = 0;
    *result = isKnown ? entry : nullptr;
    return isKnown ? 0 : identity.lookupError;
}

long __sysconf(int name) noexcept;  // NOLINT(readability-redundant-declaration)

long sysconf(int name) noexcept {
    if (name != _SC_GETPW_R_SIZE_MAX) {
        return __sysconf(name);
    }
    return Fails("sysconf") ? -1 : ProcessIdentity().lookupBufferSize;
}

FORWARD(int, KLIBCFileExist, 0, (const char* path), (path))
FORWARD(int, KLIBCFileEnumSection, -1, (const char* path, KLIBCSzList** list), (path, list))
FORWARD(const char*, KLIBCSzListGet, nullptr, (const KLIBCSzList* list, int index), (list, index))
FORWARD(int, KLIBCSzListFind, -1, (const KLIBCSzList* list, const char* text), (list, text))
FORWARD(int, KLIBCExec, -1, (const char* path, const char* a, const char* b, const char* c, const char* d),
        (path, a, b, c, d))
FORWARD(int, KLIBGroupIsAdminGroupMem, 0, (const char* user, int flags), (user, flags))
FORWARD(int, KIVOUserGetUGID, -1, (const char* user, int* uid, int* gid), (user, uid, gid))
FORWARD(int, KIVONotifyStringGetByFp, -1, (FILE * file, const char* tag, NString* record),
        (file, tag, record))
RELEASE(KLIBCSzListFree, KLIBCSzList, false)
RELEASE(KIVONotifyStringFree, NString, false)
RELEASE(nexnotifyDbClose, sqlite3, true)
RELEASE(sqlite3_free, void, true)

int KIVOLogSet1(int category, int level, unsigned code, const char* a, const char* b, const char* c,
                const char* d) {
    const bool fails = Fails("KIVOLogSet1") || REAL(KIVOLogSet1)(category, level, code, a, b, c, d) != 0;
    if (fails) {
        Count("KIVOLogSet1:", "failed");
    }
    return fails ? -1 : 0;
}

FILE* fopen(const char* path, const char* mode) {
    Count("fopen:", path);
    return Fails("fopen") ? nullptr : REAL(fopen)(path, mode);
}

int KLIBAppPrivUserHas(const char* user, const char* appId, const char* address) {
    EXPECT_STREQ(address, "ignore");
    Count("KLIBAppPrivUserHas:", appId);
    return Fails("KLIBAppPrivUserHas") ? 0 : REAL(KLIBAppPrivUserHas)(user, appId, address);
}

int KIVONotifyStringGetByPath(const char* path, const char* tag, NString* record, int flag) {
    EXPECT_EQ(flag, 1);
    return Fails("KIVONotifyStringGetByPath") ? -1 : REAL(KIVONotifyStringGetByPath)(path, tag, record, flag);
}

int KIVOSysNotifyIsAllow(const char* user, const char* tag) {
    Count("KIVOSysNotifyIsAllow:", tag);
    return Fails("KIVOSysNotifyIsAllow") ? -1 : REAL(KIVOSysNotifyIsAllow)(user, tag);
}

KLIBCSzList* KLIBCSzListAlloc(int capacity) {
    EXPECT_EQ(capacity, 1024);
    return Held(Fails("KLIBCSzListAlloc") ? nullptr : REAL(KLIBCSzListAlloc)(capacity));
}

NString* KIVONotifyStringNew() {
    return Held(Fails("KIVONotifyStringNew") ? nullptr : REAL(KIVONotifyStringNew)());
}

int nexnotifyDbOpen(sqlite3** db) {
    const int result = Fails("nexnotifyDbOpen") ? -1 : REAL(nexnotifyDbOpen)(db);
    Held(result == 0 ? *db : nullptr);
    return result;
}

int nexnotifyDbRunSql(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg) {
    Count("nexnotifyDbRunSql:", sql);
    return Fails("nexnotifyDbRunSql") ? -1 : REAL(nexnotifyDbRunSql)(db, sql, callback, arg);
}

char* sqlite3_mprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* text = Fails("sqlite3_mprintf") ? nullptr : sqlite3_vmprintf(format, arguments);
    va_end(arguments);
    return Held(text);
}

}  // extern "C"

// The framework reports failure by throwing. Its members are found by their symbols.
using TextOfRequest = std::string(KIVO::APIRequest*);

std::string KIVO::APIRequest::GetLoginUserName() {
    return Fails("GetLoginUserName")
               ? throw std::runtime_error("from the framework")
               : Real<TextOfRequest>("_ZN4KIVO10APIRequest16GetLoginUserNameB5cxx11Ev")(this);
}

std::string KIVO::APIRequest::GetUILanguage() {
    return Fails("GetUILanguage") ? throw std::runtime_error("from the framework")
                                  : Real<TextOfRequest>("_ZN4KIVO10APIRequest13GetUILanguageB5cxx11Ev")(this);
}

Json::Value KIVO::APIRequest::GetParam(const std::string& name, const Json::Value& defaultValue) {
    using Function = Json::Value(APIRequest*, const std::string&, const Json::Value&);
    return Fails("GetParam")
               ? throw std::runtime_error("from the framework")
               : Real<Function>(
                     "_ZN4KIVO10APIRequest8GetParamERKNSt7__cxx1112basic_stringIcSt11char_traitsIcE"
                     "SaIcEEERKN4Json5ValueE")(this, name, defaultValue);
}

bool KIVO::APIRequest::IsAdmin() {
    return !Fails("IsAdmin") && Real<bool(APIRequest*)>("_ZN4KIVO10APIRequest7IsAdminEv")(this);
}

bool KivoSettings::getGrpJsonSettingMtime(const char* group, unsigned long long& mtime) {
    return !Fails("getGrpJsonSettingMtime") &&
           Real<bool(KivoSettings*, const char*, unsigned long long&)>(
               "_ZN12KivoSettings22getGrpJsonSettingMtimeEPKcRy")(this, group, mtime);
}

bool KivoSettings::loadUserJsonSettings(Json::Value& settings) {
    return !Fails("loadUserJsonSettings") &&
           Real<bool(KivoSettings*, Json::Value&)>("_ZN12KivoSettings20loadUserJsonSettingsERN4Json5ValueE")(
               this, settings);
}
