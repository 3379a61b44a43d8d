// The notification tool: generates the category files, stores notifications and removes old ones.

#include "platform/notification_utils/Tool.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/notification_utils/GenerateCategoryFile.h"
#include "platform/notification_utils/Notification.h"
#include "platform/notification_utils/Prune.h"

namespace {

// More than a command line holds. To the library's own "any number" belongs a notation of lists, "[A=1,B=2]",
// which would change or swallow values.
constexpr int kMostValues = 1 << 20;

// Whoever reports an event has other things to do than to wait: with what ends the program, ten seconds.
constexpr unsigned kLongestSeconds = 9;

enum ExitStatus { kSuccess = 0, kFailure = 1, kWrongUsage = 2 };

/// Says the sentence on one line, whatever the arguments that it quotes hold.
[[nodiscard]] ExitStatus Report(std::string sentence, ExitStatus status) {
    std::ranges::replace_if(
        sentence, [](unsigned char byte) { return std::iscntrl(byte) != 0; }, '?');
    std::fprintf(stderr, "notification_utils: %s\n", sentence.c_str());
    return status;
}

/// Ends the program when it takes longer than a caller is to wait: for a disk, or for whoever should read
/// what it says. Locks are given up before, but for those of a database that several wait to open.
class TimeLimit {
public:
    TimeLimit() {
        struct sigaction action {};
        action.sa_handler = [](int) {
            constexpr std::string_view kSentence =
                "notification_utils: It took too long; what was asked for may not be done.\n";
            pollfd output{STDERR_FILENO, POLLOUT, 0};
            if (poll(&output, 1, 0) == 1) {
                [[maybe_unused]] const ssize_t length =
                    write(STDERR_FILENO, kSentence.data(), kSentence.size());
            }
            _exit(kFailure);
        };
        sigaction(SIGALRM, &action, nullptr);
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGALRM);
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        alarm(kLongestSeconds);
    }
    ~TimeLimit() { Lift(); }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

    /// For what takes as long as it takes.
    void Lift() { alarm(0); }
};

/// The age that a text such as "90d" means; nothing when it is none, or that of what is stored just now.
[[nodiscard]] std::optional<std::chrono::seconds> ReadAge(std::string_view text) {
    unsigned count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const std::string_view unit(end, text.data() + text.size());
    if (error != std::errc{} || count == 0) {
        return std::nullopt;
    }
    const std::chrono::hours hours(count);
    return unit == "h"   ? std::optional(hours)
           : unit == "d" ? std::optional(hours * 24)
           : unit == "w" ? std::optional(hours * 24 * 7)
                         : std::nullopt;
}

[[nodiscard]] int Run(int argumentCount, const char* const* arguments, TimeLimit& limit) {
    CLI::App tool(
        "Generates the category file of a language, stores a notification for users, or removes old ones.",
        "notification_utils");
    std::string language;
    std::vector<std::string> notification;
    // Not a group of options: for an empty argument before an unknown option it would be asked without end.
    CLI::Option* generate =
        tool.add_option("--gen_category_file", language, "Write the category file of the language")
            ->option_text("LANGUAGE");
    CLI::Option* notify =
        tool.add_option("--notify", notification,
                        "Store a notification of the tag for a user, or for each of a group such as "
                        "@administrators; the values fill the placeholders of its texts")
            ->expected(2, kMostValues)
            ->allow_extra_args(false)
            ->excludes(generate)
            ->option_text("USER|@GROUP TAG [NAME=VALUE...]");
    bool isPruning = false;
    CLI::Option* prune =
        tool.add_flag("--prune", isPruning,
                      "Remove old notifications: users' links to them, and messages that nobody has any more")
            ->excludes(generate)
            ->excludes(notify)
            ->option_text(" ");
    std::string age;
    prune->needs(tool.add_option("--older-than", age, "How old: hours, days or weeks, as in 36h, 90d or 12w")
                     ->check([](const std::string& text) {
                         return ReadAge(text)
                                    ? ""
                                    : '"' + text +
                                          "\" is no age; an age is a number and h, d or w, as in 90d";
                     })
                     ->needs(prune)
                     ->option_text("AGE"));
    int kept = 0;
    tool.add_option("--keep", kept, "Keep each user's newest N, however old")
        ->check(CLI::Range(std::numeric_limits<int>::max()))
        ->needs(prune)
        ->option_text("N");
    bool isDryRun = false;
    tool.add_flag("--dry-run", isDryRun,
                  "Store nothing; show what the page would, and say which values are missing")
        ->needs(notify);
    tool.set_version_flag("--version", "notification_utils " KIVO_VERSION, "Print the version and exit");
    try {
        tool.parse(argumentCount, arguments);
        if (!*generate && !*notify && !isPruning) {
            throw CLI::RequiredError("One of --gen_category_file, --notify and --prune");
        }
    } catch (const CLI::CallForHelp&) {
        std::fputs(tool.help().c_str(), stdout);
        return kSuccess;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        return Report(std::string(error.what()) + "; see --help.", kWrongUsage);
    }

    if (*generate) {
        limit.Lift();
        GenerateCategoryFile(language);
    } else if (isPruning) {
        limit.Lift();
        PruneNotifications(*ReadAge(age), kept);
    } else {
        (isDryRun ? ShowNotification : StoreNotification)(ReadNotification(notification));
    }
    return kSuccess;
}

}  // namespace

int RunTool(int argumentCount, const char* const* arguments) {
    TimeLimit limit;
    try {
        return Run(argumentCount, arguments, limit);
    } catch (const std::exception& error) {
        return Report(error.what(), kFailure);
    }
}
