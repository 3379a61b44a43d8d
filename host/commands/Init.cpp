#include "host/commands/Init.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "Schema.h"
#include "host/Account.h"
#include "host/commands/Layout.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/Replacement.h"

namespace KIVO::Host {

namespace {

namespace fs = std::filesystem;
using Appliance::Replacement;
using Appliance::Rooted;

constexpr mode_t kPublicMode = 0644;
constexpr mode_t kUsersMode = 0640;
constexpr mode_t kDatabaseMode = 0600;

struct Options {
    fs::path catalogues = InstallPrefix() / "share/catalogues";
    bool shouldLink = false;
};

/// Whether something is at the path, be it a link that leads nowhere.
[[nodiscard]] bool IsThere(const fs::path& path) {
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

void Report(const std::string& path) { std::cout << "Made " << path << '\n'; }

[[noreturn]] void ThrowFailure(const std::string& path, const std::string& why) {
    throw std::runtime_error(path + " cannot be made: " + why + ".");
}

void MakeFolder(const std::string& path) {
    std::error_code error;
    if (fs::create_directories(path, error)) {
        Report(path);
    } else if (error || !fs::is_directory(path)) {
        ThrowFailure(path, error ? error.message() : "something else is there");
    }
}

void MakeLink(const fs::path& target, const std::string& path) {
    if (!IsThere(path)) {
        fs::create_symlink(target, path);
        Report(path);
    }
}

/// Makes the file, unless it is there, out of what `write` does with its replacement.
template <typename Write>
void MakeFile(const std::string& path, mode_t mode, Write write) {
    if (IsThere(path)) {
        return;
    }
    Replacement file(path);
    if (!IsThere(path)) {  // nor has another made it meanwhile
        write(file);
        file.Commit(mode);
        Report(path);
    }
}

void MakeCatalogues(const Options& options) {
    std::vector<std::string> languages;
    std::error_code error;
    for (fs::directory_iterator entry(options.catalogues, error), end; entry != end; entry.increment(error)) {
        const std::string language = entry->path().filename();
        if (Appliance::IsLanguage(language) && fs::exists(entry->path() / "mails")) {
            languages.push_back(language);
        }
    }
    if (languages.empty()) {
        throw WrongUse("There are no text catalogues, LANGUAGE/mails, in " + options.catalogues.string() +
                       ".");
    }
    for (const std::string& language : languages) {
        const fs::path source = fs::absolute(options.catalogues / language / "mails");
        const std::string folder = Rooted("/var/cache/texts/" + language);
        MakeFolder(folder);
        if (options.shouldLink) {
            MakeLink(source, folder + "/mails");
            continue;
        }
        MakeFile(folder + "/mails", kPublicMode, [&](Replacement& file) {
            const auto content = Appliance::ReadFile(source);
            if (!content) {
                throw std::system_error(errno, std::generic_category(), source);
            }
            file.Write(*content);
        });
    }
}

void MakeDatabase() {
    const std::string path = Rooted(Appliance::kDatabasePath);
    MakeFile(path, kDatabaseMode, [&](const Replacement& file) {
        sqlite3* handle = nullptr;
        sqlite3_open_v2(file.TemporaryPath().c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
        const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(handle, &sqlite3_close);
        if (sqlite3_exec(handle, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
            ThrowFailure(path, sqlite3_errmsg(handle));
        }
    });
}

[[nodiscard]] int Init(const Options& options, const std::string& accountName) {
    const std::optional<Account> account = FindAccount(accountName);
    if (!account) {
        throw WrongUse("There is no account " + accountName + " on this machine.");
    }
    umask(S_IWGRP | S_IWOTH);
    for (const std::string_view folder : kFolders) {
        MakeFolder(Rooted(folder));
    }
    MakeCatalogues(options);
    MakeDatabase();
    MakeFile(Rooted(Appliance::kUsersPath), kUsersMode, [&](Replacement& file) {
        if (geteuid() == 0) {
            file.SetOwner(0, account->gid);
        }
        file.Write("{\n    \"users\": {}\n}\n");
    });
    MakeLink(InstallPrefix() / "bin/notification_utils", Rooted(kToolPath));
    return EXIT_SUCCESS;
}

}  // namespace

Command AddInitCommand(CLI::App& app, const std::string& accountName) {
    CLI::App& init = *app.add_subcommand("init", "Makes an empty appliance; what is there stays as it is");
    init.footer(
        "The users file can be read by the group of --account. Run it again after an update of the "
        "program: it adds what is missing.");
    const auto options = std::make_shared<Options>();
    init.add_option("--catalogues", options->catalogues, "A folder with a text catalogue LANGUAGE/mails each")
        ->type_name("DIR")
        ->capture_default_str();
    init.add_flag("--link", options->shouldLink,
                  "Link the catalogues in place of copying them, so that later ones are there by themselves");
    return {&init, [=, &accountName] { return Init(*options, accountName); }};
}

}  // namespace KIVO::Host
