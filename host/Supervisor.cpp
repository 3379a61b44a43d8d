#include "host/Supervisor.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

namespace KIVO::Host {

namespace {

using namespace std::chrono_literals;

constexpr auto kShortLife = 1s;
constexpr std::chrono::steady_clock::duration kFirstPause = 100ms;
constexpr std::chrono::steady_clock::duration kLongestPause = 10s;
/// Longer than a worker takes to answer the requests under way.
constexpr auto kStopTime = 15s;

sigset_t WaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

/// The next of the waited signals, or -1 when none came within the time.
int WaitForSignal(std::chrono::nanoseconds time) {
    const sigset_t signals = WaitedSignals();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(std::max(time, 0ns));
    const timespec timeout = {seconds.count(), (std::max(time, 0ns) - seconds).count()};
    return sigtimedwait(&signals, nullptr, &timeout);
}

}  // namespace

Supervisor::Supervisor(unsigned workerCount, Work work)
    : m_workerCount(workerCount), m_work(std::move(work)) {
    assert(m_workerCount > 0 && m_work);
    const sigset_t signals = WaitedSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("The workers cannot be started: no pipe.");
    }
    m_lifeline = Appliance::FileDescriptor(ends[0]);
    m_lifelineHeld = Appliance::FileDescriptor(ends[1]);
    StartMissing();
}

void Supervisor::Run() {
    for (;;) {
        const bool complete = m_workers.size() == m_workerCount;
        const int signal = WaitForSignal(complete ? 1h : m_nextStart - Clock::now());
        if (signal == SIGTERM || signal == SIGINT) {
            StopAll();
            return;
        }
        Reap();
        if (Clock::now() >= m_nextStart) {
            StartMissing();
        }
    }
}

void Supervisor::StartMissing() {
    while (m_workers.size() < m_workerCount) {
        const pid_t worker = fork();
        if (worker == 0) {
            m_lifelineHeld.Close();
            try {
                m_work(m_lifeline.Get());
            } catch (const std::exception& exception) {
                syslog(LOG_ERR, "%s", exception.what());
                std::exit(EXIT_FAILURE);
            }
            std::exit(EXIT_SUCCESS);
        }
        if (worker < 0) {
            syslog(LOG_ERR, "A worker cannot be started: %s.", std::strerror(errno));
            m_nextStart = Clock::now() + kLongestPause;
            return;
        }
        m_workers[worker] = Clock::now();
    }
}

void Supervisor::Reap() {
    int status = 0;
    for (pid_t worker; (worker = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto lifeTime = Clock::now() - m_workers[worker];
        m_workers.erase(worker);
        m_pause = lifeTime < kShortLife ? std::clamp(2 * m_pause, kFirstPause, kLongestPause) : 0s;
        m_nextStart = Clock::now() + m_pause;
        if (WIFSIGNALED(status)) {
            syslog(LOG_ERR, "The worker %d was ended by signal %d and is replaced.", worker,
                   WTERMSIG(status));
        } else {
            syslog(LOG_WARNING, "The worker %d ended with status %d and is replaced.", worker,
                   WEXITSTATUS(status));
        }
    }
}

void Supervisor::StopAll() {
    const auto signalAll = [this](int signal) {
        for (const auto& [worker, startTime] : m_workers) {
            kill(worker, signal);
        }
    };
    signalAll(SIGTERM);
    const auto end = Clock::now() + kStopTime;
    while (!m_workers.empty() && Clock::now() < end) {
        WaitForSignal(end - Clock::now());
        for (pid_t worker; (worker = waitpid(-1, nullptr, WNOHANG)) > 0;) {
            m_workers.erase(worker);
        }
    }
    signalAll(SIGKILL);
    while (wait(nullptr) > 0) {
    }
}

}  // namespace KIVO::Host
