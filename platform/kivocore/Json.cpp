#include "platform/kivocore/Json.h"

#include <glib.h>
#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace KIVO::Appliance {

namespace {

Json::CharReaderBuilder MakeReaderBuilder() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;  // any value may stand alone
    return builder;
}

Json::StreamWriterBuilder MakeWriterBuilder(bool emitUtf8) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = emitUtf8;
    return builder;
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

bool Parse(const std::string& text, Json::Value& value, std::string& error) {
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
    static const Json::StreamWriterBuilder utf8Builder = MakeWriterBuilder(true);
    static const Json::StreamWriterBuilder asciiBuilder = MakeWriterBuilder(false);
    std::string text = Json::writeString(utf8Builder, value);
    // The library copies a string's bytes as they are; only when it escapes does it notice what is not UTF-8.
    if (!IsUtf8(text)) {
        text = Json::writeString(asciiBuilder, value);
    }
    return text;
}

std::optional<int> AsInt(const Json::Value& value) {
    // isInt alone would also take 5.0.
    const bool isWrittenAsInteger = value.type() == Json::intValue || value.type() == Json::uintValue;
    return isWrittenAsInteger && value.isInt() ? std::optional(value.asInt()) : std::nullopt;
}

}  // namespace KIVO::Appliance
