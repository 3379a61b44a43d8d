-- The notification database, var/lib/kivo/nexnotify.db. Its rows are ordered by a user's messages' timestamps and
-- deleted by user; the primary key serves both look-ups, the index the way back from a message to its users.
PRAGMA journal_mode = WAL;

CREATE TABLE message(
    message_id INTEGER PRIMARY KEY,
    message_content TEXT,      -- the notification: a JSON object
    timestamp INTEGER          -- seconds since 1970
);

CREATE TABLE nexnotify(
    uid INTEGER,
    message_id INTEGER,
    PRIMARY KEY(uid, message_id)
) WITHOUT ROWID;

CREATE INDEX nexnotify_message ON nexnotify(message_id);
