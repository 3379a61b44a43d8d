#include "bench/Requests.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "bench/Memory.h"
#include "platform/kivocore/Users.h"
#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"
#include "webapi/WebAPIUtil.h"

namespace KIVO::Bench {

namespace {

const Host::Module& TheModule() {
    static const Host::Module module(MODULE_FILE);
    return module;
}

/// What the process holds after its first small request.
std::size_t HeldAtFirst() {
    static const std::size_t held = [] {
        const char* const current = std::getenv("KIVO_ROOT");
        const std::string root = current != nullptr ? current : "";
        UseAppliance(500, 100);
        const Request request("KIVO.Core.NEXNotify/1/notify", R"({"action":"load","limit":30})");
        const MemoryUse use = CountMemory([&] { request.Ask(); });
        setenv("KIVO_ROOT", root.c_str(), 1);
        return use.heldBytes;
    }();
    return held;
}

}  // namespace

void UseAppliance(std::int64_t tags, std::int64_t rows) {
    const char* folder = std::getenv("KIVO_BENCH_APPLIANCES");
    if (folder == nullptr) {
        throw std::runtime_error("KIVO_BENCH_APPLIANCES does not name a folder made by bench/appliances.py.");
    }
    const std::string root =
        std::string(folder) + "/" + std::to_string(tags) + "-tags-" + std::to_string(rows) + "-rows";
    setenv("KIVO_ROOT", root.c_str(), 1);
}

Request::Request(const char* address, const std::string& parameters, std::string user, std::string language)
    : m_method(TheModule().Find(address)),
      m_parameters(WebAPIUtil::ParseJson(parameters)),
      m_user(std::move(user)),
      m_language(std::move(language)) {}

std::string Request::Ask() const {
    APIRequest request(m_parameters, m_user, m_language, false);
    std::string answer;
    APIResponse response(&answer);
    const Appliance::UsersSnapshot users;  // as in the host
    if (m_method.check(&request, &response)) {
        m_method.row->handler(&request, &response);
    }
    if (response.GetState() != APIResponse::State::Success) {
        throw std::runtime_error(m_method.row->api + (" answered with an error: " + answer));
    }
    return answer;
}

void Measure(benchmark::State& state, std::int64_t itemCount, const std::function<void()>& request,
             const std::function<void()>& prepare) {
    const auto prepareIfNeeded = [&] {
        if (prepare) {
            prepare();
        }
    };
    const std::size_t heldAtFirst = HeldAtFirst();
    prepareIfNeeded();
    request();
    prepareIfNeeded();
    const MemoryUse use = CountMemory(request);
    for ([[maybe_unused]] auto _ : state) {
        if (prepare) {
            state.PauseTiming();
            prepare();
            state.ResumeTiming();
        }
        request();
    }
    state.SetItemsProcessed(state.iterations() * itemCount);
    state.counters["allocations"] = static_cast<double>(use.allocations);
    state.counters["peak_bytes"] = static_cast<double>(use.peakBytes);
    state.counters["kept_bytes"] = static_cast<double>(use.heldBytes) - static_cast<double>(heldAtFirst);
}

}  // namespace KIVO::Bench
