#include "platform/notification_utils/Prune.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>

#include "platform/notification_utils/Database.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How long a step should have the database to itself, and how many messages it looks at to that end.
constexpr std::chrono::milliseconds kStepTime(20);
constexpr std::chrono::milliseconds kShortestPause(5);
constexpr long long kSmallestStep = 50;
constexpr long long kLargestStep = 50'000;

/// Of each user who has so many, the oldest one that is kept: a table of this connection alone. The messages
/// are gone through once and in their order: user by user, each would read most of the file again.
void ListOldestKept(NotificationDatabase& database, int kept) {
    database.Run(
        SqlText("PRAGMA temp_store = MEMORY;"
                "DROP TABLE IF EXISTS temp.oldest_kept;"
                "CREATE TEMP TABLE oldest_kept(uid INTEGER PRIMARY KEY, timestamp, message_id);"
                "INSERT INTO oldest_kept SELECT uid, timestamp, message_id FROM"
                " (SELECT uid, timestamp, message_id, row_number() OVER"
                "  (PARTITION BY uid ORDER BY timestamp DESC, message_id DESC) AS place"
                "  FROM message CROSS JOIN nexnotify USING(message_id)) WHERE place = %d;",
                kept));
}

/// Shows on a terminal how far it is, and nothing any more when it goes.
class ProgressLine {
public:
    ProgressLine() = default;
    ~ProgressLine() { End(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void End() {
        if (m_isShown) {
            std::fputs("\r\033[K", stderr);
            m_isShown = false;
        }
    }
    void Show(double part) {
        if (isatty(STDERR_FILENO) != 0 && Clock::now() - m_last > kInterval) {
            std::fprintf(stderr, "\r%3.0f %%", 100 * part);
            m_last = Clock::now();
            m_isShown = true;
        }
    }

private:
    static constexpr std::chrono::milliseconds kInterval{200};
    Clock::time_point m_last = Clock::now();
    bool m_isShown = false;
};

}  // namespace

// The file keeps its size, for the pages that become free are those that the next notifications take. To give
// them back, an incremental vacuum after each step costs a third more processor time and twice the writing,
// wants a database that was made for it, and with a prune a day takes away what comes back by the next.
void PruneNotifications(std::chrono::seconds age, int kept) {
    const long long end = std::time(nullptr) - age.count();
    NotificationDatabase database;
    std::string isOlder;
    if (kept > 0) {
        ListOldestKept(database, kept);
        NotificationDatabase::WaitAnew();
        isOlder =
            " AND EXISTS(SELECT 1 FROM temp.oldest_kept JOIN message ON message.message_id = "
            "nexnotify.message_id"
            " WHERE oldest_kept.uid = nexnotify.uid AND (message.timestamp, message.message_id)"
            " < (oldest_kept.timestamp, oldest_kept.message_id))";
    }

    ProgressLine progress;
    const long long first = database.ReadNumber("SELECT min(message_id) FROM message");
    const long long last = database.ReadNumber("SELECT max(message_id) FROM message");
    long long links = 0;
    long long messages = 0;
    long long size = kSmallestStep;
    for (long long from = first;;) {
        const auto start = Clock::now();
        NotificationDatabase::WaitAnew();
        // The last id of the step, or of all.
        const long long to = database.ReadNumber(
            SqlText("SELECT coalesce((SELECT message_id FROM message WHERE message_id >= %lld"
                    " ORDER BY message_id LIMIT 1 OFFSET %lld), %lld)",
                    from, size - 1, last));
        const std::string old =
            SqlText("message_id BETWEEN %lld AND %lld AND timestamp < %lld", from, to, end);
        database.Run("BEGIN IMMEDIATE");
        links +=
            database.Run("DELETE FROM nexnotify WHERE message_id IN (SELECT message_id FROM message WHERE " +
                         old + ")" + isOlder);
        messages += database.Run("DELETE FROM message WHERE " + old +
                                 " AND NOT EXISTS(SELECT 1 FROM nexnotify"
                                 " WHERE nexnotify.message_id = message.message_id)");
        database.Run("COMMIT");
        if (to >= last) {
            break;
        }
        const auto taken = Clock::now() - start;
        size = taken < kStepTime ? std::min(2 * size, kLargestStep) : std::max(size / 2, kSmallestStep);
        progress.Show((static_cast<double>(to) - static_cast<double>(first)) /
                      (static_cast<double>(last) - static_cast<double>(first)));
        from = to + 1;
        // Others take as long for what they have to write, or look for their turn at longer intervals.
        std::this_thread::sleep_for(std::max<Clock::duration>(taken, kShortestPause));
    }
    progress.End();
    std::printf("Removed %lld links and %lld messages.\n", links, messages);
}
