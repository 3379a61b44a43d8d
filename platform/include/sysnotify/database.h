#pragma once

#include "kivocore/Export.h"

struct sqlite3;

extern "C" {

/// Opens the notification database, which must exist, and stores its handle in `*db`: null when it fails. The
/// caller hands the handle to nexnotifyDbClose in either case. Statements wait up to 5 s for another writer.
/// 0 on success.
KIVO_PUBLIC int nexnotifyDbOpen(sqlite3** db);

/// Runs the SQL text and calls `callback`, unless null, once a result row with `arg`, the column count, the
/// column texts (a null pointer for NULL) and the column names. A non-zero return of the callback stops the
/// run, which then fails. No exception may leave the callback. 0 on success.
KIVO_PUBLIC int nexnotifyDbRunSql(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**),
                                  void* arg);

/// Closes the handle. Accepts null.
KIVO_PUBLIC void nexnotifyDbClose(sqlite3* db);

}  // extern "C"
