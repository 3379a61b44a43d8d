#include "host/RequestLog.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace KIVO::Host {

namespace {

/// As a word of the line, cut off where it would be longer.
struct Word {
    explicit Word(std::string_view text) {
        const std::size_t size = std::min(text.size(), sizeof letters - 1);
        std::ranges::transform(text.substr(0, size), letters, [](unsigned char letter) {
            return std::iscntrl(letter) != 0 || letter == ' ' ? '?' : static_cast<char>(letter);
        });
        if (text.empty()) {
            letters[0] = '-';
        }
    }

    char letters[128] = {};
};

}  // namespace

void LogRequest(const HttpRequest& request, const HttpAnswer& answer,
                std::chrono::duration<double, std::milli> time) noexcept {
    constexpr std::string_view kMethods[] = {"GET", "HEAD", "POST"};
    const bool isKnown = std::ranges::find(kMethods, request.method) != std::end(kMethods);
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc = {};
    gmtime_r(&now.tv_sec, &utc);
    char when[sizeof "2026-01-01T00:00:00"] = {};
    std::strftime(when, sizeof when, "%FT%T", &utc);
    char line[512];
    const int size =
        std::snprintf(line, sizeof line, "%s.%03ldZ %s %s %s %u %.1f\n", when, now.tv_nsec / 1'000'000,
                      Word(answer.user).letters, Word(isKnown ? request.method : "").letters,
                      Word(answer.target).letters, answer.status, time.count());
    // The journal is a socket, a file or a pipe is none.
    const auto length = static_cast<std::size_t>(size);
    if (send(STDOUT_FILENO, line, length, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno == ENOTSOCK) {
        [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line, length);
    }
}

}  // namespace KIVO::Host
