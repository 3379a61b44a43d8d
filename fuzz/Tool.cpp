// Any arguments to the notification tool, each ended by a NUL byte or the end. Without success it says why on
// one line and has changed nothing; and where the arguments are in the usual order, what comes of them is
// plain.

#include <filesystem>
#include <utility>

#include "fuzz/Support.h"
#include "platform/notification_utils/Tool.h"

namespace {

constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";

/// What is stored, and the category file; nothing of either afterwards.
std::string TakeChanges() {
    const KIVO::Test::ApplianceRoot& root = KIVO::Fuzz::Root();
    std::string changes;
    for (const auto& row : root.Query("SELECT uid || json_remove(message_content, '$.time') FROM nexnotify "
                                      "JOIN message USING(message_id)")) {
        changes += row[0].value_or("NULL");
    }
    root.Query("DELETE FROM nexnotify");
    root.Query("DELETE FROM message");
    changes += root.Read(kCategoryFile).value_or("");
    std::filesystem::remove(root.Path(kCategoryFile));
    return changes;
}

/// What should come of arguments that are an option and its values alone; nothing when something is wrong
/// with them.
std::string PlainChanges(const std::vector<std::string>& arguments) {
    if (arguments[0] == "--gen_category_file") {
        return arguments.size() == 2 && arguments[1] == "enu" ? "{\"All\":[{\"name\":\"Known\"}]}\n" : "";
    }
    if (arguments.size() < 3 || arguments[1] != "alice" ||
        (arguments[2] != "Known" && arguments[2].find(':') == std::string::npos)) {
        return "";
    }
    Json::Value values(Json::objectValue);
    for (std::size_t i = 3; i < arguments.size(); ++i) {
        const std::size_t equals = arguments[i].find('=');
        if (equals == 0 || equals == std::string::npos) {
            return "";
        }
        values[arguments[i].substr(0, equals)] = arguments[i].substr(equals + 1);
    }
    Json::Value content;
    content["title"] = arguments[2];
    content["msg"].append(KIVO::Appliance::WriteJson(values));
    return "1026" + KIVO::Appliance::WriteJson(content);
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    Root();
    const auto arguments = SplitTexts(input);
    std::vector<const char*> pointers = {"notification_utils"};
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    char* texts[2] = {};
    std::size_t sizes[2] = {};
    std::FILE* const standardOutput = std::exchange(stdout, open_memstream(&texts[0], &sizes[0]));
    std::FILE* const standardError = std::exchange(stderr, open_memstream(&texts[1], &sizes[1]));
    const int status = RunTool(static_cast<int>(pointers.size()), pointers.data());
    std::fclose(std::exchange(stdout, standardOutput));
    std::fclose(std::exchange(stderr, standardError));
    const auto lines = std::count(texts[1], texts[1] + sizes[1], '\n');
    std::free(texts[0]);
    std::free(texts[1]);
    const std::string changes = TakeChanges();

    Expect("status", status == 0 || status == 1 || status == 2);
    Expect("one line without success", lines == (status != 0 ? 1 : 0));
    Expect("success with an effect", (status == 0) == (!changes.empty() || sizes[0] > 0));
    const auto isOption = [](const std::string& argument) { return argument.starts_with('-'); };
    if (!arguments.empty() && (arguments[0] == "--notify" || arguments[0] == "--gen_category_file") &&
        std::ranges::count_if(arguments, isOption) == 1) {
        ExpectEqual("change", PlainChanges(arguments), changes);
    }
}
