#include "platform/kivocore/Json.h"

#include <glib.h>
#include <json/reader.h>
#include <json/writer.h>
#include <simdjson.h>

#include <memory>
#include <string_view>

namespace KIVO::Appliance {

namespace {

// Looked for at the first use, when memory must not be short: so no later than now.
[[maybe_unused]] const bool kHasImplementation = !simdjson::get_active_implementation()->name().empty();

Json::CharReaderBuilder MakeReaderBuilder() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;  // any value may stand alone
    return builder;
}

/// As JSON allows them, with no character escaped that need not be.
void AppendQuoted(std::string& text, std::string_view value) {
    constexpr std::string_view kEscaped = "\b\f\n\r\t";
    constexpr std::string_view kLetters = "bfnrt";
    text += '"';
    std::size_t written = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char character = value[i];
        const bool isControl = static_cast<unsigned char>(character) < ' ';
        if (!isControl && character != '"' && character != '\\') {
            continue;
        }
        text += value.substr(written, i - written);
        written = i + 1;
        text += '\\';
        if (!isControl) {
            text += character;
        } else if (const std::size_t kind = kEscaped.find(character); kind != kEscaped.npos) {
            text += kLetters[kind];
        } else {
            text += {'u', '0', '0', character < 0x10 ? '0' : '1', "0123456789abcdef"[character & 0xf]};
        }
    }
    text += value.substr(written);
    text += '"';
}

/// The library's own writers copy every member's name, and write through a stream: they take thrice as long.
void Append(std::string& text, const Json::Value& value) {
    switch (value.type()) {
        case Json::nullValue:
            text += "null";
            break;
        case Json::booleanValue:
            text += value.asBool() ? "true" : "false";
            break;
        case Json::intValue:
            text += std::to_string(value.asLargestInt());
            break;
        case Json::uintValue:
            text += std::to_string(value.asLargestUInt());
            break;
        case Json::realValue:
            text += Json::valueToString(value.asDouble());
            break;
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            value.getString(&begin, &end);
            AppendQuoted(text, {begin, end});
            break;
        }
        case Json::arrayValue:
            text += '[';
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
                text += i > 0 ? "," : "";
                Append(text, value[i]);
            }
            text += ']';
            break;
        case Json::objectValue:
            text += '{';
            for (auto member = value.begin(); member != value.end(); ++member) {
                text += member != value.begin() ? "," : "";
                const char* end = nullptr;
                const char* begin = member.memberName(&end);
                AppendQuoted(text, {begin, end});
                text += ':';
                Append(text, *member);
            }
            text += '}';
            break;
    }
}

/// The first finding of the library's report, "* Line 1, Column 2\n  Missing …\n…", on one line.
std::string FirstFinding(const std::string& report) {
    const std::size_t placeEnd = report.find('\n');
    if (!report.starts_with("* ") || placeEnd == std::string::npos) {
        return report;
    }
    const std::size_t textStart = report.find_first_not_of(' ', placeEnd + 1);
    const std::string text = textStart != std::string::npos
                                 ? report.substr(textStart, report.find('\n', textStart) - textStart)
                                 : "";
    return report.substr(2, placeEnd - 2) + ": " + text;
}

bool IsUtf8(const std::string& text) {
    return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE;
}

/// The text with each byte that is not UTF-8 replaced by U+FFFD.
std::string MakeUtf8(std::string_view text) {
    std::string valid;
    const char* end = nullptr;
    while (g_utf8_validate_len(text.data(), text.size(), &end) == FALSE) {
        valid.append(text.data(), end).append("\xef\xbf\xbd");
        text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    }
    return valid.append(text);
}

[[nodiscard]] bool Parse(const std::string& text, Json::Value& value, std::string& error) {
    static const Json::CharReaderBuilder builder = MakeReaderBuilder();
    if (!IsUtf8(text)) {
        error = "The text is not UTF-8.";
        return false;
    }
    try {
        const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        Json::Value parsed;
        std::string report;
        if (reader->parse(text.data(), text.data() + text.size(), &parsed, &report)) {
            value = std::move(parsed);
            return true;
        }
        error = FirstFinding(report);
    } catch (const Json::RuntimeError& exception) {
        // The library throws when a text is nested too deep, and also when memory is short.
        error = exception.what();
        if (error.find("stackLimit") == std::string::npos) {
            throw;
        }
    }
    return false;
}

}  // namespace

bool ParseJson(const std::string& text, Json::Value& value, std::string* error) {
    std::string sentence;
    const bool isParsed = Parse(text, value, sentence);
    if (!isParsed && error != nullptr) {
        *error = std::move(sentence);
    }
    return isParsed;
}

std::string WriteJson(const Json::Value& value) {
    std::string text;
    Append(text, value);
    if (!simdjson::validate_utf8(text)) {
        text = MakeUtf8(text);
    }
    return text;
}

std::optional<int> AsInt(const Json::Value& value) {
    // isInt alone would also take 5.0.
    const bool isWrittenAsInteger = value.type() == Json::intValue || value.type() == Json::uintValue;
    return isWrittenAsInteger && value.isInt() ? std::optional(value.asInt()) : std::nullopt;
}

}  // namespace KIVO::Appliance
