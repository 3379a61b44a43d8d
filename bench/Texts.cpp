// The services Strings and MailContent, beside an answer made of what is in memory already, and one pass over
// the text catalogue.

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "bench/Requests.h"
#include "module/File.h"
#include "notify/NotifyString.h"
#include "notify/StringList.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Json.h"
#include "webapi/WebAPIUtil.h"

namespace KIVO::Bench {

namespace {

struct Text {
    std::string tag;
    std::string message;
    std::string level;
    std::string title;
};

std::vector<Text> ReadTexts(const std::string& answer) {
    const Json::Value parsed = WebAPIUtil::ParseJson(answer);
    std::vector<Text> texts;
    for (auto entry = parsed.begin(); entry != parsed.end(); ++entry) {
        texts.push_back({entry.name(), (*entry)["msg"].asString(), (*entry)["level"].asString(),
                         (*entry)["title"].asString()});
    }
    return texts;
}

std::string WriteTexts(const std::vector<Text>& texts, const std::unordered_set<std::string>& asked) {
    Json::Value answer(Json::objectValue);
    for (const Text& text : texts) {
        if (!asked.empty() && !asked.contains(text.tag)) {
            continue;
        }
        Json::Value entry(Json::objectValue);
        entry["msg"] = text.message;
        entry["level"] = text.level;
        entry["title"] = text.title;
        answer[text.tag] = std::move(entry);
    }
    return Appliance::WriteJson(answer);
}

Request MakeStringsRequest(const benchmark::State& state, bool ofPackage) {
    UseAppliance(state.range(0), 0);
    return {"KIVO.Core.NEXNotify.Strings/1/get", ofPackage ? R"({"pkgName":"Backup"})" : "{}"};
}

void Strings(benchmark::State& state) {
    const Request request = MakeStringsRequest(state, state.range(1) != 0);
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(request.Ask()); });
}

void StringsFloor(benchmark::State& state) {
    const std::string answer = MakeStringsRequest(state, state.range(1) != 0).Ask();
    const std::vector<Text> texts = ReadTexts(MakeStringsRequest(state, false).Ask());
    std::unordered_set<std::string> asked;
    if (state.range(1) != 0) {
        for (const Text& text : ReadTexts(answer)) {
            asked.insert(text.tag);
        }
    }
    if (WriteTexts(texts, asked) != answer) {
        throw std::runtime_error("The floor of Strings is not the same answer.");
    }
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(WriteTexts(texts, asked)); });
}

void CataloguePass(benchmark::State& state) {
    UseAppliance(state.range(0), 0);
    const std::string path = Appliance::Rooted("/var/cache/texts/enu/mails");
    NEXNotify::StringList tags;
    const int count = tags.AddSections(path).value_or(0);
    Measure(state, state.range(0), [&] {
        const NEXNotify::File catalogue(std::fopen(path.c_str(), "r"));
        const NEXNotify::NotifyString record(KIVONotifyStringNew());
        for (int i = 0; i < count; ++i) {
            benchmark::DoNotOptimize(KIVONotifyStringGetByFp(catalogue.get(), tags[i], record.get()));
        }
    });
}

void MailContent(benchmark::State& state) {
    UseAppliance(state.range(0), 0);
    const Request request("KIVO.Core.NEXNotify.MailContent/1/get", R"({"title":"Event00042"})");
    Measure(state, 1, [&] { benchmark::DoNotOptimize(request.Ask()); });
}

}  // namespace

void RegisterTexts() {
    for (const std::int64_t tags : {50, 500, 5'000}) {
        benchmark::RegisterBenchmark("catalogue", CataloguePass)->ArgName("tags")->Arg(tags);
        for (const std::int64_t package : {0, 1}) {
            benchmark::RegisterBenchmark("Strings_floor", StringsFloor)
                ->ArgNames({"tags", "package"})
                ->Args({tags, package});
            benchmark::RegisterBenchmark("Strings", Strings)
                ->ArgNames({"tags", "package"})
                ->Args({tags, package});
        }
        benchmark::RegisterBenchmark("MailContent", MailContent)->ArgName("tags")->Arg(tags);
    }
}

}  // namespace KIVO::Bench
