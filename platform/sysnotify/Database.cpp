#include "sysnotify/database.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/FileDescriptor.h"

namespace {

using namespace std::chrono_literals;
using KIVO::Appliance::FileDescriptor;
using KIVO::Appliance::FileIdentity;
using KIVO::Appliance::IdentifyFile;

constexpr std::chrono::milliseconds kBusyTimeout = 5s;
/// How long one waits whose turn it is not. Beside a writer of short transactions that is long.
constexpr std::chrono::milliseconds kShortWait = 200ms;
constexpr std::chrono::milliseconds kBusyPause = 1ms;

/// What a connection keeps between two requests, in KiB: the pages of small lists.
constexpr char kCacheSize[] = "PRAGMA cache_size = -5120";
/// Of that many pages of 4 KiB SQLite sorts in memory, 50,000 rows of more than one KiB, and the rest by way
/// of files.
constexpr unsigned kSortedInMemory = 16 * 1024;

/// The wait for a lock that another has. Of all processes one at a time waits for long, so that one writer
/// does not keep everybody from reading, which needs no lock.
class Wait {
public:
    using Clock = std::chrono::steady_clock;

    /// Called by SQLite at each try. Its own handler soon asks ten times a second only, and beside a writer
    /// that commits row after row it may miss every moment between two rows until the time is up.
    [[nodiscard]] bool GoOn(bool isFirst) {
        const auto now = Clock::now();
        if (isFirst) {
            m_start = now;
        }
        if (now - m_start > kBusyTimeout) {
            m_lastFailure = now;
            return false;
        }
        if (now - m_start > kShortWait && !TakeTurn(now)) {
            return false;
        }
        std::this_thread::sleep_for(kBusyPause);
        return true;
    }

    void End() { m_turn.Close(); }

private:
    /// Nobody has two turns in a row when the first was in vain: others ask this process for other things.
    [[nodiscard]] bool TakeTurn(Clock::time_point now) {
        if (m_turn.IsOpen()) {
            return true;
        }
        if (m_lastFailure && now - *m_lastFailure < kBusyTimeout) {
            return false;
        }
        const std::string path = KIVO::Appliance::Rooted(KIVO::Appliance::kDatabasePath);
        FileDescriptor folder(
            open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (flock(folder.Get(), LOCK_EX | LOCK_NB) != 0) {
            return false;
        }
        m_turn = std::move(folder);
        return true;
    }

    Clock::time_point m_start;
    std::optional<Clock::time_point> m_lastFailure;
    FileDescriptor m_turn{-1};  // the database's folder, locked
};

thread_local Wait t_wait;

int WaitForLock(void*, int tries) try { return t_wait.GoOn(tries == 0) ? 1 : 0; } catch (...) {
    return 0;
}

[[nodiscard]] int Execute(sqlite3* handle, const char* sql) {
    return sqlite3_exec(handle, sql, nullptr, nullptr, nullptr);
}

/// Whether the database is in WAL mode. It has been read.
bool HasWal(sqlite3* handle) {
    bool hasWal = false;
    const auto onRow = [](void* result, int, char** texts, char**) {
        *static_cast<bool*>(result) = texts[0] != nullptr && std::string_view(texts[0]) == "wal";
        return 0;
    };
    return sqlite3_exec(handle, "PRAGMA journal_mode", onRow, &hasWal, nullptr) == SQLITE_OK && hasWal;
}

bool IsSameFile(const std::optional<FileIdentity>& one, const std::optional<FileIdentity>& other) {
    return one && other && one->device == other->device && one->inode == other->inode;
}

/// How far the WAL's frames have been copied into the database, from the index that all connections share: it
/// is the only thing by which a change of the database's file is known for SQLite's own.
struct CopyProgress {
    std::array<std::uint32_t, 2> salts;  // of the WAL: others after each new beginning
    std::uint32_t copied;
    std::uint32_t attempted;

    bool operator==(const CopyProgress&) const = default;
};

/// The index of a connection to a database in WAL mode, which has been read: it is mapped already.
[[nodiscard]] const volatile std::uint32_t* MappedIndex(sqlite3_file& file) {
    constexpr int kRegionSize = 32 * 1024;
    volatile void* region = nullptr;
    const bool isMapped = file.pMethods->xShmMap(&file, 0, kRegionSize, 0, &region) == SQLITE_OK;
    return isMapped ? static_cast<const volatile std::uint32_t*>(region) : nullptr;
}

[[nodiscard]] std::optional<CopyProgress> ReadProgress(sqlite3_file& file) {
    const volatile std::uint32_t* index = MappedIndex(file);
    return index != nullptr ? std::optional(CopyProgress{{index[8], index[9]}, index[24], index[32]})
                            : std::nullopt;
}

/// Whether a connection is copying right now, by the lock that it has on the index.
bool IsCopying(sqlite3_file& file) {
    constexpr int kCopyLock = 1;
    if (file.pMethods->xShmLock(&file, kCopyLock, 1, SQLITE_SHM_LOCK | SQLITE_SHM_SHARED) != SQLITE_OK) {
        return true;
    }
    file.pMethods->xShmLock(&file, kCopyLock, 1, SQLITE_SHM_UNLOCK | SQLITE_SHM_SHARED);
    return false;
}

[[nodiscard]] int OpenNew(const std::string& path, sqlite3** handle) {
    int result = sqlite3_open_v2(path.c_str(), handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_busy_handler(*handle, &WaitForLock, nullptr);
        // SQLite reads nothing before the first statement. A file that is no database is to fail here, where
        // the caller says so, and not to pass for a user without notifications.
        result = Execute(*handle, "PRAGMA schema_version");
    }
    if (result == SQLITE_OK) {
        result = Execute(*handle, kCacheSize);
    }
    t_wait.End();
    if (result != SQLITE_OK) {
        sqlite3_close(std::exchange(*handle, nullptr));
    }
    return result;
}

/// Copies what the WAL holds into the database and empties it, as far as that can be done at once: a WAL that
/// holds something would be taken for that of any file that is put in the database's place.
void EmptyWal(sqlite3* handle) {
    sqlite3_busy_handler(handle, nullptr, nullptr);
    sqlite3_wal_checkpoint_v2(handle, "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_handler(handle, &WaitForLock, nullptr);
}

/// A connection, with what tells whether its database is still the one at the path.
class Connection {
public:
    /// Of a handle that has been opened and can write.
    Connection(std::string path, sqlite3* handle)
        : m_path(std::move(path)), m_handle(handle), m_hasWal(HasWal(handle)) {
        if (m_hasWal) {
            m_walPath = sqlite3_filename_wal(sqlite3_db_filename(handle, "main"));
            m_indexPath = m_walPath.substr(0, m_walPath.size() - std::string_view("wal").size()) + "shm";
            m_wal = IdentifyFile(m_walPath);
        }
        sqlite3_file_control(handle, "main", SQLITE_FCNTL_FILE_POINTER, &m_file);
        m_isWatched = inotify_add_watch(m_writes.Get(), m_path.c_str(), IN_MODIFY) >= 0;
        Note();
    }

    sqlite3* Handle() const { return m_handle; }
    const std::string& Path() const { return m_path; }

    /// Whether all is known that will be asked for.
    bool CanBeKept() const {
        int hasMoved = 1;
        return m_identity && m_isWatched && (!m_hasWal || (m_wal && m_progress)) &&
               sqlite3_file_control(m_handle, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved) == SQLITE_OK &&
               hasMoved == 0;
    }

    enum class State {
        Current,
        Changed,   // in a way that a new connection notices
        Replaced,  // by another database, or by nothing
    };

    State Look() {
        const auto progress = m_hasWal ? ReadProgress(*m_file) : std::nullopt;
        const auto identity = IdentifyFile(m_path);
        if (!IsSameFile(identity, m_identity) || (m_hasWal && !IsSameFile(IdentifyFile(m_walPath), m_wal))) {
            return State::Replaced;
        }
        if (identity == m_identity) {
            m_progress = progress;
            return State::Current;
        }
        if (!m_hasWal) {
            return State::Changed;
        }
        if (IsCopying(*m_file)) {
            return State::Current;
        }
        if (ReadProgress(*m_file) != m_progress) {
            Note();
            return State::Current;
        }
        // Nothing has been copied, so another has written to the file, if anyone has; unless a copy was cut
        // short.
        pollfd writes = {m_writes.Get(), POLLIN, 0};
        return poll(&writes, 1, 0) > 0 && progress && progress->copied == progress->attempted
                   ? State::Replaced
                   : State::Changed;
    }

    /// Whether it works as a new one would, whatever was done with it.
    bool IsHealthy() const {
        switch (sqlite3_errcode(m_handle) & 0xFF) {
            case SQLITE_IOERR:
            case SQLITE_CORRUPT:
            case SQLITE_NOTADB:
            case SQLITE_CANTOPEN:
            case SQLITE_PROTOCOL:
            case SQLITE_NOMEM:
                return false;
            default:
                return sqlite3_get_autocommit(m_handle) != 0;
        }
    }

    /// Closes it for good.
    void Close() {
        if (Look() == State::Replaced) {
            // What the WAL holds belongs to no file at the path, and would be taken for the new one's.
            sqlite3_db_config(m_handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
            if (m_hasWal && IsSameFile(IdentifyFile(m_walPath), m_wal)) {
                unlink(m_walPath.c_str());
                unlink(m_indexPath.c_str());
            }
        } else if (m_hasWal) {
            EmptyWal(m_handle);
        }
        sqlite3_close(m_handle);
    }

private:
    /// The progress first: what is copied after that makes the file another one, too.
    void Note() {
        m_progress = m_hasWal ? ReadProgress(*m_file) : std::nullopt;
        std::array<char, 4096> seen;
        while (read(m_writes.Get(), seen.data(), seen.size()) > 0) {
        }
        m_identity = IdentifyFile(m_path);
    }

    std::string m_path;
    std::string m_walPath;
    std::string m_indexPath;  // of the WAL
    sqlite3* m_handle;
    sqlite3_file* m_file = nullptr;
    bool m_hasWal;
    /// Readable when the database's file has been written to, which a new time alone does not tell.
    FileDescriptor m_writes{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    bool m_isWatched = false;
    std::optional<FileIdentity> m_wal;
    std::optional<CopyProgress> m_progress;
    std::optional<FileIdentity> m_identity;
};

/// The process's connection, which the next one who opens the database gets. One at a time has it; the others
/// get connections of their own.
class KeptConnection {
public:
    KeptConnection();
    ~KeptConnection() {
        if (m_connection) {
            // Its files are removed with the rights with which they were made.
            [[maybe_unused]] const int result = seteuid(m_owner);
            m_connection->Close();
        }
    }
    KeptConnection(const KeptConnection&) = delete;
    KeptConnection& operator=(const KeptConnection&) = delete;

    [[nodiscard]] int Open(const std::string& path, sqlite3** db) {
        const std::scoped_lock lock(m_mutex);
        if (m_connection && !m_isLent) {
            if (path == m_connection->Path() && m_connection->Look() == Connection::State::Current) {
                Lend(db);
                return SQLITE_OK;
            }
            m_connection->Close();
            m_connection.reset();
        }
        const int result = OpenNew(path, db);
        if (result != SQLITE_OK || m_connection || sqlite3_db_readonly(*db, "main") != 0) {
            return result;
        }
        m_connection.emplace(path, *db);
        if (m_connection->CanBeKept()) {
            m_owner = geteuid();
            Lend(db);
        } else {
            m_connection.reset();
        }
        return SQLITE_OK;
    }

    void Close(sqlite3* db) {
        const std::scoped_lock lock(m_mutex);
        if (!m_connection || m_connection->Handle() != db) {
            sqlite3_close(db);
            return;
        }
        m_isLent = false;
        if (!m_connection->IsHealthy() ||
            (m_isReadOnly && Execute(db, "PRAGMA query_only = 0") != SQLITE_OK)) {
            m_connection->Close();
            m_connection.reset();
            return;
        }
        if (sqlite3_total_changes64(db) != m_changes) {
            EmptyWal(db);
        }
    }

    /// SQLite's connections do no good on the other side of a fork, where even closing one does harm.
    void PrepareFork() {
        m_mutex.lock();
        if (m_connection && !m_isLent) {
            m_connection->Close();
            m_connection.reset();
        }
    }
    void AfterFork(bool isChild) {
        if (isChild && m_isLent) {
            m_connection.reset();
            m_isLent = false;
        }
        m_mutex.unlock();
    }

private:
    void Lend(sqlite3** db) {
        *db = m_connection->Handle();
        m_isLent = true;
        m_changes = sqlite3_total_changes64(*db);
        // A file system that has become read-only leaves files that are open as they are.
        m_isReadOnly = faccessat(AT_FDCWD, m_connection->Path().c_str(), W_OK, AT_EACCESS) != 0 &&
                       Execute(*db, "PRAGMA query_only = 1") == SQLITE_OK;
    }

    std::mutex m_mutex;
    std::optional<Connection> m_connection;
    uid_t m_owner = 0;
    bool m_isLent = false;
    bool m_isReadOnly = false;
    sqlite3_int64 m_changes = 0;
};

KeptConnection g_kept;

KeptConnection::KeptConnection() {
    sqlite3_config(SQLITE_CONFIG_PMASZ, kSortedInMemory);
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);  // a lock at each allocation
    pthread_atfork([] { g_kept.PrepareFork(); }, [] { g_kept.AfterFork(false); },
                   [] { g_kept.AfterFork(true); });
}

}  // namespace

int nexnotifyDbOpen(sqlite3** db) try {
    *db = nullptr;
    const int result = g_kept.Open(KIVO::Appliance::Rooted(KIVO::Appliance::kDatabasePath), db);
    if (result != SQLITE_OK) {
        SET_LAST_ERROR(FileNotReadable);
    }
    return result;
} catch (...) {
    sqlite3_close(std::exchange(*db, nullptr));
    SET_LAST_ERROR(OutOfMemory);
    return SQLITE_NOMEM;
}

int nexnotifyDbRunSql(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg) {
    const int result = sqlite3_exec(db, sql, callback, arg, nullptr);
    t_wait.End();
    return result;
}

void nexnotifyDbClose(sqlite3* db) {
    if (db != nullptr) {
        g_kept.Close(db);
    }
}
