#include "host/Memory.h"

#include <fcntl.h>
#include <malloc.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace KIVO::Host {

namespace {

// What is larger, the lists of tens of thousands of rows that SQLite sorts, goes back at once.
constexpr int kLargestKeptBlock = 6 << 20;
constexpr int kMostKeptMemory = 64 << 20;
constexpr char kTunables[] =
    "glibc.malloc.tcache_count=1000:glibc.malloc.tcache_max=128:glibc.malloc.hugetlb=1";
constexpr rlim_t kMostMemory = rlim_t{2} << 30;
constexpr std::size_t kMostGrowth = 16 << 20;

/// The pages that the process has mapped and those of them that are in memory; zeros when they cannot be
/// read.
struct Pages {
    std::size_t mapped = 0;
    std::size_t resident = 0;
};

Pages ReadPages(int status) {
    char text[128] = {};
    Pages pages;
    if (pread(status, text, sizeof text - 1, 0) > 0) {
        std::sscanf(text, "%zu %zu", &pages.mapped, &pages.resident);
    }
    return pages;
}

Appliance::FileDescriptor OpenStatus() {
    return Appliance::FileDescriptor(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
}

std::size_t PageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

}  // namespace

void TuneAllocation(char* const arguments[]) {
    std::error_code failure;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", failure);
    if (std::getenv("GLIBC_TUNABLES") == nullptr && setenv("GLIBC_TUNABLES", kTunables, 1) == 0) {
        execv(program.c_str(), arguments);
    }
}

void KeepFreedMemory() {
    mallopt(M_MMAP_THRESHOLD, kLargestKeptBlock);
    mallopt(M_TRIM_THRESHOLD, kMostKeptMemory);
}

void LimitMemory() {
    const rlim_t most = ReadPages(OpenStatus().Get()).mapped * PageSize() + kMostMemory;
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = std::min(most, limit.rlim_max);
    setrlimit(RLIMIT_AS, &limit);
}

void LimitDescriptors(rlim_t count) {
    const rlimit wanted = {count, count};
    if (setrlimit(RLIMIT_NOFILE, &wanted) != 0) {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        syslog(LOG_WARNING, "A worker can open %llu files only and will have fewer connections.",
               static_cast<unsigned long long>(limit.rlim_cur));
    }
}

MemoryTrimmer::MemoryTrimmer() : m_status(OpenStatus()), m_pagesKept(ReadPages(m_status.Get()).resident) {}

void MemoryTrimmer::Trim() {
    if (ReadPages(m_status.Get()).resident > m_pagesKept + kMostGrowth / PageSize()) {
        malloc_trim(0);
        // What cannot be given back is in use, and is not tried again each time.
        const std::size_t left = ReadPages(m_status.Get()).resident;
        if (left > m_pagesKept + kMostGrowth / PageSize()) {
            m_pagesKept = left;
        }
    }
}

}  // namespace KIVO::Host
