// Action "loadHaveNtAppList", beside an answer made of what is in memory already.

#include <json/value.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/Requests.h"
#include "platform/kivocore/Json.h"
#include "webapi/WebAPIUtil.h"

namespace KIVO::Bench {

namespace {

struct Category {
    std::string title;
    std::string englishTitle;
    std::string app;
    std::string choice;
};

std::vector<Category> ReadCategories(const std::string& answer) {
    const Json::Value parsed = WebAPIUtil::ParseJson(answer);
    std::vector<Category> categories;
    for (const Json::Value& row : parsed["items"]) {
        categories.push_back({row["category"].asString(), row["category_enu"].asString(),
                              row["app"].asString(), row["nexnotify"].asString()});
    }
    return categories;
}

std::string WriteCategories(const std::vector<Category>& categories) {
    Json::Value items(Json::arrayValue);
    for (const Category& category : categories) {
        Json::Value row(Json::objectValue);
        row["category"] = category.title;
        row["category_enu"] = category.englishTitle;
        row["app"] = category.app;
        row["appids"] = Json::Value(Json::arrayValue);
        if (!category.app.empty()) {
            row["appids"].append(category.app);
        }
        row["nexnotify"] = category.choice;
        items.append(std::move(row));
    }
    Json::Value answer(Json::objectValue);
    answer["total"] = items.size();
    answer["items"] = std::move(items);
    return Appliance::WriteJson(answer);
}

Request MakeRequest(const benchmark::State& state) {
    UseAppliance(state.range(0), 0);
    return {"KIVO.Core.NEXNotify/1/notify", R"({"action":"loadHaveNtAppList"})", "alice",
            state.range(1) != 0 ? "ger" : "enu"};
}

void LoadCategories(benchmark::State& state) {
    const Request request = MakeRequest(state);
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(request.Ask()); });
}

void LoadCategoriesFloor(benchmark::State& state) {
    const std::string answer = MakeRequest(state).Ask();
    const std::vector<Category> categories = ReadCategories(answer);
    if (WriteCategories(categories) != answer) {
        throw std::runtime_error("The floor of loadHaveNtAppList is not the same answer.");
    }
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(WriteCategories(categories)); });
}

}  // namespace

void RegisterCategories() {
    for (const std::int64_t events : {50, 500, 5'000}) {
        for (const std::int64_t translated : {0, 1}) {
            benchmark::RegisterBenchmark("loadHaveNtAppList_floor", LoadCategoriesFloor)
                ->ArgNames({"events", "translated"})
                ->Args({events, translated});
            benchmark::RegisterBenchmark("loadHaveNtAppList", LoadCategories)
                ->ArgNames({"events", "translated"})
                ->Args({events, translated});
        }
    }
}

}  // namespace KIVO::Bench
