// The notification tool: generates the category files and stores notifications.

#include "platform/notification_utils/Tool.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/notification_utils/GenerateCategoryFile.h"
#include "platform/notification_utils/StoredNotification.h"

namespace {

// More than a command line holds. To the library's own "any number" belongs a notation of lists, "[A=1,B=2]",
// which would change or swallow values.
constexpr int kMostValues = 1 << 20;

enum ExitStatus { kSuccess = 0, kFailure = 1, kWrongUsage = 2 };

/// Says the sentence on one line, whatever the arguments that it quotes hold.
ExitStatus Report(std::string sentence, ExitStatus status) {
    std::ranges::replace_if(
        sentence, [](unsigned char byte) { return std::iscntrl(byte) != 0; }, '?');
    std::fprintf(stderr, "notification_utils: %s\n", sentence.c_str());
    return status;
}

int Run(int argumentCount, const char* const* arguments) {
    CLI::App tool("Generates the category file of a language, or stores a notification for a user.",
                  "notification_utils");
    std::string language;
    std::vector<std::string> notification;
    const CLI::Option* generate =
        tool.add_option("--gen_category_file", language, "Write the category file of the language")
            ->option_text("LANGUAGE");
    tool.add_option("--notify", notification,
                    "Store a notification of the tag; the values fill the placeholders of its texts")
        ->expected(2, kMostValues)
        ->allow_extra_args(false)
        ->option_text("USER TAG [NAME=VALUE...]");
    tool.set_version_flag("--version", "notification_utils " KIVO_VERSION, "Print the version and exit");
    tool.require_option(1);
    try {
        tool.parse(argumentCount, arguments);
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
        GenerateCategoryFile(language);
    } else {
        StoreNotification(notification[0], notification[1], {notification.begin() + 2, notification.end()});
    }
    return kSuccess;
}

}  // namespace

int RunTool(int argumentCount, const char* const* arguments) {
    try {
        return Run(argumentCount, arguments);
    } catch (const std::exception& error) {
        return Report(error.what(), kFailure);
    }
}
