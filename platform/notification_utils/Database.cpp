#include "platform/notification_utils/Database.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/FileContent.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait(7);
constexpr std::chrono::milliseconds kPause(1);

// When the waiting ends, however many locks there are to wait for.
Clock::time_point g_end;

/// Called by SQLite at each try. A connection's own handler lets one process at a time wait for long, for the
/// sake of those that serve several users; here each has one thing to do, and would lose it.
int WaitForLock(void*, int) {
    std::this_thread::sleep_for(kPause);
    return Clock::now() < g_end ? 1 : 0;
}

/// SQLite's reason. To it, a full disk that leaves no room for its own files is an input or output error.
std::string Reason(int result, const char* text, const std::string& path) {
    struct statvfs disk {};
    const bool isFull = result == SQLITE_IOERR && statvfs(path.c_str(), &disk) == 0 && disk.f_bavail == 0;
    return isFull ? sqlite3_errstr(SQLITE_FULL) : text;
}

}  // namespace

NotificationDatabase::NotificationDatabase()
    : m_path(KIVO::Appliance::Rooted(KIVO::Appliance::kDatabasePath)) {
    if (!KIVO::Appliance::IdentifyFile(m_path)) {
        throw std::runtime_error("There is no notification database " + m_path + ": " +
                                 std::generic_category().message(errno) + ".");
    }
    WaitAnew();
    int result = SQLITE_OK;
    do {
        sqlite3* handle = nullptr;
        result = nexnotifyDbOpen(&handle);
        m_handle.reset(handle);
    } while (result == SQLITE_BUSY && Clock::now() < g_end);
    if (result != SQLITE_OK) {
        throw std::runtime_error("Cannot open the notification database " + m_path + ": " +
                                 Reason(result, sqlite3_errstr(result), m_path) + ".");
    }
    sqlite3_busy_handler(m_handle.get(), &WaitForLock, nullptr);
}

void NotificationDatabase::WaitAnew() { g_end = Clock::now() + kLongestWait; }

long long NotificationDatabase::Run(const std::string& statements) {
    Check(nexnotifyDbRunSql(m_handle.get(), statements.c_str(), nullptr, nullptr), "write to");
    return sqlite3_changes64(m_handle.get());
}

long long NotificationDatabase::ReadNumber(const std::string& query) {
    long long number = 0;
    const auto onRow = [](void* to, int, char** texts, char**) {
        *static_cast<long long*>(to) = texts[0] != nullptr ? std::atoll(texts[0]) : 0;
        return 0;
    };
    Check(nexnotifyDbRunSql(m_handle.get(), query.c_str(), onRow, &number), "read");
    return number;
}

void NotificationDatabase::Check(int result, const char* purpose) const {
    if (result != SQLITE_OK) {
        throw std::runtime_error("Cannot " + std::string(purpose) + " the notification database " + m_path +
                                 ": " + Reason(result, sqlite3_errmsg(m_handle.get()), m_path) + ".");
    }
}

std::string SqlText(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::unique_ptr<char, decltype(&sqlite3_free)> text(sqlite3_vmprintf(format, arguments),
                                                              &sqlite3_free);
    va_end(arguments);
    if (!text) {
        throw std::bad_alloc();
    }
    return text.get();
}
