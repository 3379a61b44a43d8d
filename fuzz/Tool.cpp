// Any arguments to the notification tool. Without success it says why on one line and has changed nothing;
// and where the arguments are in the usual order, what comes of them is plain.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <utility>

#include "fuzz/Support.h"
#include "platform/notification_utils/Tool.h"

namespace {

constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";

/// What is written to a stream while it lives.
class Captured {
public:
    explicit Captured(std::FILE*& stream)
        : m_stream(stream), m_original(std::exchange(stream, open_memstream(&m_text, &m_size))) {}

    /// All of it; once.
    std::string End() {
        std::fclose(std::exchange(m_stream, m_original));
        return {std::unique_ptr<char, decltype(&std::free)>(m_text, &std::free).get(), m_size};
    }

private:
    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::FILE*& m_stream;
    std::FILE* m_original;
};

/// What is stored, and the category file; nothing of either afterwards.
std::string TakeChanges() {
    const KIVO::Test::ApplianceRoot& root = KIVO::Fuzz::Root();
    std::string changes = root.Read(kCategoryFile).value_or("");
    for (const auto& row : root.Query("SELECT uid || json_remove(message_content, '$.time') FROM nexnotify "
                                      "JOIN message USING(message_id)")) {
        changes += row[0].value_or("NULL");
    }
    root.Query("DELETE FROM nexnotify; DELETE FROM message");
    std::filesystem::remove(root.Path(kCategoryFile));
    return changes;
}

/// What should come of arguments that are an option and its values alone; nothing when one is wrong.
std::string PlainChanges(const std::vector<std::string>& arguments) {
    const std::string known = R"({"name":"Known"},{"name":"Hidden"},{"name":"5"},{"name":"true"})";
    if (arguments[0] == "--gen_category_file") {
        return arguments.size() == 2 && arguments[1] == "enu" ? "{\"All\":[" + known + "]}\n" : "";
    }
    const std::set<std::string> recipients = {"alice", "member", "admin", "@users", "@administrators"};
    if (arguments.size() < 3 || !recipients.contains(arguments[1]) ||
        (known.find('"' + arguments[2] + "\"}") == known.npos && arguments[2].find(':') == known.npos)) {
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
    std::vector<const char*> pointers(arguments.size() + 1, "notification_utils");
    std::ranges::transform(arguments, pointers.begin() + 1,
                           [](const std::string& text) { return text.c_str(); });
    Captured output(stdout);
    Captured errors(stderr);
    const int status = RunTool(static_cast<int>(pointers.size()), pointers.data());
    const std::string complaint = errors.End();
    const std::string said = output.End();
    const std::string changes = TakeChanges();

    Expect("status", status == 0 || status == 1 || status == 2);
    const bool isComplaint =
        complaint.starts_with("notification_utils: ") && complaint.find('\n') == complaint.size() - 1;
    Expect("one line without success", isComplaint == (status != 0));
    Expect("success with an effect", status != 0 ? changes.empty() : !changes.empty() || !said.empty());
    const auto isOption = [](const std::string& argument) { return argument.starts_with('-'); };
    if (!arguments.empty() && (arguments[0] == "--notify" || arguments[0] == "--gen_category_file") &&
        std::ranges::count_if(arguments, isOption) == 1) {
        ExpectEqual("change", PlainChanges(arguments), changes);
    }
}
