// Actions "load" and "apply", each beside the database's share of it.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/Requests.h"
#include "notify/NotificationStore.h"
#include "sysnotify/database.h"

namespace KIVO::Bench {

namespace {

constexpr std::int64_t kTags = 500;

// alice's notifications are loaded; those of bob, who has none until he is linked to hers, are deleted.
constexpr int kAlice = 1026;
constexpr int kBob = 1027;

using Database = std::unique_ptr<sqlite3, decltype(&nexnotifyDbClose)>;

Database Open() {
    sqlite3* database = nullptr;
    if (nexnotifyDbOpen(&database) != 0) {
        throw std::runtime_error("The database does not open.");
    }
    return {database, &nexnotifyDbClose};
}

int DoNothing(void* /*argument*/, int /*count*/, char** /*texts*/, char** /*names*/) { return 0; }

void RunSql(const Database& database, const char* sql) {
    if (nexnotifyDbRunSql(database.get(), sql, &DoNothing, nullptr) != 0) {
        throw std::runtime_error(std::string("The database does not run: ") + sql);
    }
}

void Load(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const Request request("KIVO.Core.NEXNotify/1/notify",
                          R"({"action":"load","limit":30,"all":)" +
                              std::string(state.range(1) != 0 ? "true" : "false") + R"(,"offset":)" +
                              std::to_string(state.range(2)) + "}");
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(request.Ask()); });
}

/// What a page asks again and again.
void LookForNews(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const Request request("KIVO.Core.NEXNotify/1/notify", R"({"action":"load","limit":1})");
    Measure(state, state.range(0), [&] { benchmark::DoNotOptimize(request.Ask()); });
}

/// On a connection that stays open.
void LoadFloor(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const Database database = Open();
    const NEXNotify::SqlText sql = NEXNotify::ReadNotificationsSql(kAlice);
    Measure(state, state.range(0), [&] { RunSql(database, sql.get()); });
}

void MeasureDeletion(benchmark::State& state, const std::function<void()>& deletion) {
    const std::string link =
        "INSERT INTO nexnotify SELECT " + std::to_string(kBob) + ", message_id FROM message";
    Measure(state, state.range(0), deletion, [&] {
        RunSql(Open(), NEXNotify::DeleteNotificationsSql(kBob).get());
        RunSql(Open(), link.c_str());
    });
}

void Apply(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const Request request("KIVO.Core.NEXNotify/1/notify", R"({"action":"apply","clean":"all"})", "bob");
    MeasureDeletion(state, [&] { benchmark::DoNotOptimize(request.Ask()); });
}

void ApplyFloor(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const NEXNotify::SqlText sql = NEXNotify::DeleteNotificationsSql(kBob);
    MeasureDeletion(state, [&] { RunSql(Open(), sql.get()); });
}

}  // namespace

void RegisterNotifications() {
    for (const std::int64_t rows : {100, 1'000, 10'000, 100'000}) {
        benchmark::RegisterBenchmark("load_floor", LoadFloor)->ArgName("rows")->Arg(rows);
        benchmark::RegisterBenchmark("news", LookForNews)->ArgName("rows")->Arg(rows);
        benchmark::RegisterBenchmark("load", Load)
            ->ArgNames({"rows", "all", "offset"})
            ->ArgsProduct({{rows}, {0, 1}, {0, rows / 2}});
    }
    // They wait for the disk, which is part of what they cost.
    for (const std::int64_t rows : {1'000, 10'000}) {
        benchmark::RegisterBenchmark("apply_floor", ApplyFloor)->UseRealTime()->ArgName("rows")->Arg(rows);
        benchmark::RegisterBenchmark("apply", Apply)->UseRealTime()->ArgName("rows")->Arg(rows);
    }
}

}  // namespace KIVO::Bench
