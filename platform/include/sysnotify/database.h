#pragma once

#include "kivocore/Export.h"

struct sqlite3;

extern "C" {

/// Opens the notification database that is at its path now, which must exist, and stores its handle in `*db`:
/// null when it fails. The caller hands the handle to nexnotifyDbClose in either case, in the same process.
/// Statements wait up to 5 s for another writer; but 200 ms while another process waits, or when this one has
/// just waited in vain. 0 on success. Safe on any thread, as is nexnotifyDbClose; a handle is for one thread
/// at a time.
[[nodiscard]] KIVO_PUBLIC int nexnotifyDbOpen(sqlite3** db);

/// Runs the SQL text and calls `callback`, unless null, once a result row with `arg`, the column count, the
/// column texts (a null pointer for NULL) and the column names. A non-zero return of the callback stops the
/// run, which then fails. No exception may leave the callback. 0 on success.
[[nodiscard]] KIVO_PUBLIC int nexnotifyDbRunSql(sqlite3* db, const char* sql,
                                                int (*callback)(void*, int, char**, char**), void* arg);

/// Closes the handle, which rolls back what is not committed. A sound connection stays open for the process's
/// next nexnotifyDbOpen, with the database's -wal and -shm files; what it has written is in the database's
/// own file then, unless another is reading. It ends with the process and before a fork. Accepts null.
KIVO_PUBLIC void nexnotifyDbClose(sqlite3* db);

}  // extern "C"
