#include <fcntl.h>
#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

#include "host/Account.h"
#include "host/Caller.h"
#include "host/Dispatch.h"
#include "host/Memory.h"
#include "host/Module.h"
#include "host/Refusal.h"
#include "host/Router.h"
#include "host/Serve.h"
#include "host/ServiceManager.h"
#include "host/commands/Check.h"
#include "host/commands/Init.h"
#include "host/commands/Layout.h"
#include "host/commands/Users.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Users.h"
#include "webapi/WebAPIUtil.h"

namespace {

using namespace KIVO::Host;

constexpr char kOwnAccount[] = "nexnotify";
constexpr int kErrorAnswer = 1;
constexpr int kWrongUsage = 2;

template <typename Row>
void PrintRows(const char* title, std::span<const Row> rows) {
    std::cout << title << '\n';
    for (const Row& row : rows) {
        std::cout << "  " << row.api << '/' << row.version << '/' << row.method << '\n';
    }
}

/// Answers one request and prints the envelope. The program's exit status.
[[nodiscard]] int Call(const Module& module, const Caller& caller, const std::string& address,
                       const std::string& parameters) {
    std::string answer;
    try {
        answer = Dispatch(module.Find(address), caller, parameters);
    } catch (const Refusal& refusal) {
        answer =
            ErrorEnvelope(static_cast<int>(refusal.Status()), KIVO::Appliance::WriteJson(refusal.what()));
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    writer["emitUTF8"] = true;
    const Json::Value envelope = KIVO::WebAPIUtil::ParseJson(answer);
    std::cout << Json::writeString(writer, envelope) << std::endl;
    return envelope["success"].asBool() ? EXIT_SUCCESS : kErrorAnswer;
}

/// Makes the folder for an appliance to be. The machine's own root has to be asked for by name.
void MakeRoot(const std::string& root, bool isNamed) {
    if (!isNamed && root == "/") {
        throw WrongUse("Where to? Name the folder of the appliance with --root.");
    }
    std::error_code error;
    std::filesystem::create_directories(root, error);
    if (error) {
        throw std::runtime_error("The folder " + root + " cannot be made: " + error.message() + ".");
    }
}

/// Does what the command line says. The program's exit status.
[[nodiscard]] int Run(int argc, char* argv[]) {
    CLI::App app("Serves a web-API module of the appliance on this machine.", "webapi-host");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_help_all_flag("--help-all", "Print the help of all commands and exit");
    app.footer("The exit status is 0, 1 when it failed or found something, and 2 on wrong usage.");
    app.get_formatter()->column_width(32);

    app.set_version_flag("--version", "webapi-host " KIVO_VERSION, "Print the version and exit");

    std::string root = KIVO::Appliance::Rooted("/");
    const CLI::Option* const rootOption =
        app.add_option("--root", root, "The folder below which the appliance's files lie")
            ->envname("KIVO_ROOT")
            ->option_text("DIR=" + root + " (Env:KIVO_ROOT)");
    std::string file = InstallPrefix() / "lib/dev/KIVO.Core.NEXNotify.so";
    app.add_option("--module", file, "The module")->type_name("FILE")->capture_default_str();
    // Other services may have nobody's rights too.
    std::string accountName = FindAccount(kOwnAccount) ? kOwnAccount : "nobody";
    app.add_option("--account", accountName, "The account with whose rights the module is called")
        ->type_name("NAME")
        ->capture_default_str();

    CLI::App& serve =
        *app.add_subcommand("serve", "Serves the methods and the notification centre over HTTP");
    ServeOptions options;
    serve.add_option("--address", options.address, "The loopback address to listen on")
        ->check([](const std::string& text) {
            return IsLoopback(text) ? ""
                                    : text +
                                          " is not a loopback address (127.0.0.0/8), and tokens must not "
                                          "cross a network unencrypted.";
        })
        ->type_name("ADDR")
        ->capture_default_str();
    serve.add_option("--port", options.port, "The port; 0 for a free one")
        ->type_name("N")
        ->capture_default_str();
    serve
        .add_option("--host-name", options.router.hostNames,
                    "A further name that clients may call it by; may be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false);
    serve
        .add_option("--call-timeout", options.router.callTimeout,
                    "After how many seconds a call is ended with its process")
        ->check(CLI::Range(1, 86400))
        ->type_name("N")
        ->capture_default_str();
    // Without the number that it has here: the manual page is for other machines too.
    serve
        .add_option("--workers", options.workerCount,
                    "How many processes answer requests; one a core when absent")
        ->check(CLI::Range(1, 256))
        ->type_name("N");

    serve.add_flag("--log-requests", options.shouldLogRequests,
                   "Write a line a request: time, user, HTTP method, path, status, milliseconds");
    serve.footer(
        "A service manager may pass one listening socket (LISTEN_FDS), in place of --address and "
        "--port, and is told when requests are answered (NOTIFY_SOCKET).");

    CLI::App& call = *app.add_subcommand("call", "Answers one request and prints the answer");
    call.footer("The exit status is 0 on success, 1 on an error answer and 2 on wrong usage.");
    std::string userName;
    call.add_option("--user", userName, "On whose behalf the request is sent")->type_name("NAME")->required();
    std::string language;
    call.add_option("--language", language, "The language of the desktop; the user's own when absent")
        ->type_name("LLL");
    std::string method;
    call.add_option("method", method, "The method, as API/VERSION/METHOD")->type_name("")->required();
    std::string parameters = "{}";
    call.add_option("parameters", parameters, "The parameters, as a JSON object")
        ->type_name("")
        ->capture_default_str();

    CLI::App& signIn = *app.add_subcommand("sign-in", "Prints a link that signs a user in to the page");
    signIn.footer("The link is good for " + std::to_string(kSignInTime.count()) + " minutes.");
    signIn.add_option("user", userName, "The user")->type_name("")->required();
    std::string url = "http://127.0.0.1:8095";
    signIn.add_option("--url", url, "Where the page is served; behind a proxy it may have a path")
        ->check([](const std::string& text) {
            return text.starts_with("http://") || text.starts_with("https://")
                       ? ""
                       : text + " does not begin with http:// or https://.";
        })
        ->type_name("URL")
        ->capture_default_str();

    const CLI::App& list = *app.add_subcommand("list", "Lists the methods that the module serves and checks");

    const Command init = AddInitCommand(app, accountName);
    const Command commands[] = {init, AddUsersCommand(app), AddCheckCommand(app, accountName)};

    try {
        app.parse(argc, argv);
        if (serve.parsed()) {
            TuneAllocation(argv);
        }
        if (init.subcommand->parsed()) {
            MakeRoot(root, rootOption->count() > 0);
        }
        if (!std::filesystem::is_directory(root)) {
            throw CLI::ValidationError("--root", "There is no folder " + root + ".");
        }
        setenv("KIVO_ROOT", std::filesystem::canonical(root).c_str(), 1);
        for (const Command& command : commands) {
            if (command.subcommand->parsed()) {
                return command.run();
            }
        }
        if (signIn.parsed()) {
            const auto expiry = std::chrono::system_clock::now() + kSignInTime;
            const auto code = MakeSignInCode(userName, std::chrono::system_clock::to_time_t(expiry));
            if (!code) {
                throw CLI::ValidationError(
                    "user", "The appliance has no user " + userName + " with a token of its own.");
            }
            url.resize(url.find_last_not_of('/') + 1);
            std::cout << url << "/#code=" << *code << std::endl;
            return EXIT_SUCCESS;
        }
        const Module module(std::filesystem::absolute(file));
        if (list.parsed()) {
            PrintRows("Served:", module.Rows());
            PrintRows("Checked:", module.CheckRows());
            return EXIT_SUCCESS;
        }

        const std::optional<Account> account = FindAccount(accountName);
        if (!account) {
            throw CLI::ValidationError("--account",
                                       "There is no account " + accountName + " on this machine.");
        }
        if (serve.parsed()) {
            options.account = *account;
            options.pageFolder = InstallPrefix() / "share/notification-centre";
            Serve(module, options);
            return EXIT_SUCCESS;
        }

        Become(*account);
        const KIVO::Appliance::UsersSnapshot users;
        std::optional<Caller> caller = FindCaller(userName);
        if (!caller) {
            throw CLI::ValidationError("--user", "The appliance has no user " + userName + ".");
        }
        if (!language.empty()) {
            if (!HasLanguage(language)) {
                throw CLI::ValidationError("--language", "The appliance has no language " + language + ".");
            }
            caller->language = language;
        }
        return Call(module, *caller, method, parameters);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kWrongUsage;
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    // A standard stream that the starter left closed would become another file, with log lines in it.
    int descriptor = -1;
    while ((descriptor = open("/dev/null", O_RDWR)) >= 0 && descriptor <= STDERR_FILENO) {
    }
    close(descriptor);
    // What the journal gets by way of standard error it would have twice.
    openlog("webapi-host", LOG_PID | (IsStandardErrorTheJournal() ? 0 : LOG_PERROR), LOG_DAEMON);
    try {
        return Run(argc, argv);
    } catch (const WrongUse& error) {
        std::cerr << "webapi-host: " << error.what() << std::endl;
        return kWrongUsage;
    } catch (const std::filesystem::filesystem_error& error) {
        std::cerr << "webapi-host: " << error.path1().string() << ": " << error.code().message() << '.'
                  << std::endl;
        return EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::cerr << "webapi-host: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
