// Actions "load" and "apply", each beside the database's share of it.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "bench/Requests.h"
#include "sysnotify/database.h"

namespace KIVO::Bench {

namespace {

constexpr std::int64_t kTags = 500;

// What the actions run. alice's notifications are loaded; those of bob, who has none until he is linked to
// hers, are deleted.
constexpr char kReadSql[] =
    "SELECT message_content FROM 'nexnotify' INNER JOIN 'message' "
    "ON nexnotify.message_id = message.message_id WHERE uid = '1026' ORDER BY message.timestamp ASC ;";
constexpr char kDeleteSql[] = "DELETE FROM 'nexnotify' WHERE uid = '1027';";
constexpr char kLinkSql[] = "INSERT INTO nexnotify SELECT 1027, message_id FROM message;";

int DoNothing(void* /*argument*/, int /*count*/, char** /*texts*/, char** /*names*/) { return 0; }

/// Runs the text on a handle of its own, as the actions do.
void RunSql(const char* sql) {
    sqlite3* database = nullptr;
    const bool succeeded =
        nexnotifyDbOpen(&database) == 0 && nexnotifyDbRunSql(database, sql, &DoNothing, nullptr) == 0;
    nexnotifyDbClose(database);
    if (!succeeded) {
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

void LoadFloor(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    Measure(state, state.range(0), [] { RunSql(kReadSql); });
}

void MeasureDeletion(benchmark::State& state, const std::function<void()>& deletion) {
    Measure(state, state.range(0), deletion, [] {
        RunSql(kDeleteSql);
        RunSql(kLinkSql);
    });
}

void Apply(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    const Request request("KIVO.Core.NEXNotify/1/notify", R"({"action":"apply","clean":"all"})", "bob");
    MeasureDeletion(state, [&] { benchmark::DoNotOptimize(request.Ask()); });
}

void ApplyFloor(benchmark::State& state) {
    UseAppliance(kTags, state.range(0));
    MeasureDeletion(state, [] { RunSql(kDeleteSql); });
}

}  // namespace

void RegisterNotifications() {
    for (const std::int64_t rows : {100, 1'000, 10'000, 100'000}) {
        benchmark::RegisterBenchmark("load_floor", LoadFloor)->ArgName("rows")->Arg(rows);
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
