#include "host/Module.h"

#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "host/Refusal.h"

namespace KIVO::Host {

namespace {

/// The rows of the table that the module's accessor returns, without the zero row that ends it.
template <typename Row>
std::span<const Row> ReadTable(void* library, const std::string& file, const char* accessor) {
    void* const symbol = dlsym(library, accessor);
    if (!symbol) {
        throw std::runtime_error("The module " + file + " does not export " + accessor + ".");
    }
    const Row* const first = reinterpret_cast<const Row* (*)()>(symbol)();
    const Row* end = first;
    while (end->api) {
        ++end;
    }
    return {first, end};
}

std::uint64_t ParseVersion(std::string_view text) {
    std::uint64_t version = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), version);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Refusal(404, "The version is not a decimal number.");
    }
    return version;
}

}  // namespace

void Module::Unload::operator()(void* library) const { dlclose(library); }

Module::Module(const std::string& file) : m_library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (!m_library) {
        throw std::runtime_error(std::string("The module cannot be loaded: ") + dlerror() + ".");
    }
    m_rows = ReadTable<APITableRow>(m_library.get(), file, "GetAPITable");
    m_checkRows = ReadTable<APICheckTableRow>(m_library.get(), file, "GetAPICheckTable");
    for (const APITableRow& row : m_rows) {
        if (!FindCheck(row)) {
            throw std::runtime_error("The module " + file + " has no check function for " + row.api + "/" +
                                     row.method + ".");
        }
    }
}

Method Module::Find(std::string_view address) const {
    const std::size_t firstSlash = address.find('/');
    const std::size_t lastSlash = address.rfind('/');
    if (firstSlash == lastSlash) {
        throw Refusal(404, "A method is addressed as API/VERSION/METHOD.");
    }
    const std::string_view api = address.substr(0, firstSlash);
    const std::string_view method = address.substr(lastSlash + 1);
    const std::uint64_t version = ParseVersion(address.substr(firstSlash + 1, lastSlash - firstSlash - 1));

    bool hasApi = false;
    bool hasVersion = false;
    for (const APITableRow& row : m_rows) {
        const bool isApi = row.api == api;
        const bool isVersion = isApi && row.version == version;
        if (isVersion && row.method == method) {
            return {&row, FindCheck(row)};
        }
        hasApi |= isApi;
        hasVersion |= isVersion;
    }
    throw Refusal(404, !hasApi       ? "There is no API of this name."
                       : !hasVersion ? "The API has no such version."
                                     : "The API has no such method in this version.");
}

APICheckFunction Module::FindCheck(const APITableRow& row) const {
    const auto check = std::ranges::find_if(m_checkRows, [&row](const APICheckTableRow& candidate) {
        return std::string_view(candidate.api) == row.api && candidate.version == row.version &&
               std::string_view(candidate.method) == row.method;
    });
    return check == m_checkRows.end() ? nullptr : check->check;
}

}  // namespace KIVO::Host
