#pragma once

#include <benchmark/benchmark.h>
#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "host/Module.h"

namespace KIVO::Bench {

/// Makes the generated appliance with so many tags and stored notifications the process's own.
void UseAppliance(std::int64_t tags, std::int64_t rows);

/// A request to the module, which is loaded as the web-API server loads it.
class Request {
public:
    /// `address` is API/VERSION/METHOD, `parameters` a JSON object.
    Request(const char* address, const std::string& parameters, std::string user = "alice",
            std::string language = "enu");

    /// Answers it: check function, then handler, then the answer's text, which is returned. Throws when the
    /// answer is an error.
    std::string Ask() const;

private:
    Host::Method m_method;
    Json::Value m_parameters;
    std::string m_user;
    std::string m_language;
};

/// Runs `request` in the benchmark's loop, which reports the time of one and the items a second, and counts
/// what one allocates, and how much more the process keeps after it than after its first small one. It runs
/// before, too, so that what is kept between requests is there. `prepare`, unless
/// null, goes before each and is neither timed nor counted.
void Measure(benchmark::State& state, std::int64_t itemCount, const std::function<void()>& request,
             const std::function<void()>& prepare = nullptr);

// Each registers the benchmarks of its file, every one next to what it is compared with.
void RegisterNotifications();
void RegisterCategories();
void RegisterTexts();

}  // namespace KIVO::Bench
