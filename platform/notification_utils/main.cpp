// The notification tool: generates the category files and stores notifications.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/notification_utils/CategoryFile.h"
#include "platform/notification_utils/StoredNotification.h"

namespace {

enum ExitStatus { kSuccess = 0, kFailure = 1, kWrongUsage = 2 };

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
        ->expected(2, CLI::detail::expected_max_vector_size)
        ->option_text("USER TAG [NAME=VALUE...]");
    tool.require_option(1);
    try {
        tool.parse(argumentCount, arguments);
    } catch (const CLI::CallForHelp&) {
        std::fputs(tool.help().c_str(), stdout);
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "notification_utils: %s; see --help.\n", error.what());
        return kWrongUsage;
    }

    if (*generate) {
        WriteCategoryFile(language);
    } else {
        StoreNotification(notification[0], notification[1], {notification.begin() + 2, notification.end()});
    }
    return kSuccess;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        return Run(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "notification_utils: %s\n", error.what());
        return kFailure;
    }
}
