#include "host/Supervisor.h"

#include <fcntl.h>
#include <sys/mman.h>
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
#include <new>
#include <stdexcept>
#include <utility>

#include "host/ServiceManager.h"

namespace KIVO::Host {

namespace {

using namespace std::chrono_literals;

constexpr auto kShortLife = 1s;
constexpr std::chrono::steady_clock::duration kFirstPause = 100ms;
constexpr std::chrono::steady_clock::duration kLongestPause = 10s;
/// Longer than a worker takes to answer the requests under way.
constexpr auto kStopTime = 15s;

constexpr unsigned kMostWorkers = 1024;

sigset_t WaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
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

void Supervisor::Unmap::operator()(Activity* activities) const {
    munmap(activities, kMostWorkers * sizeof *activities);
}

Supervisor::Supervisor(unsigned workerCount, Work work, NameCall nameCall)
    : m_work(std::move(work)), m_nameCall(std::move(nameCall)), m_workers(workerCount) {
    assert(workerCount > 0 && workerCount <= kMostWorkers && m_work && m_nameCall);
    // Whatever the starter ignored or blocked: ends of workers are not to be missed, nor a call's time limit.
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGALRM, SIG_DFL);
    const sigset_t signals = WaitedSignals();
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    int ends[2];
    void* const shared = mmap(nullptr, kMostWorkers * sizeof(Activity), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED || pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("The workers cannot be started: no memory or no pipe.");
    }
    m_activities.reset(new (shared) Activity[kMostWorkers]);
    m_lifeline = Appliance::FileDescriptor(ends[0]);
    m_lifelineHeld = Appliance::FileDescriptor(ends[1]);
    StartMissing();
}

void Supervisor::Run() {
    for (;;) {
        const int signal = WaitForSignal(AreAllRunning() ? 1h : m_nextStart - Clock::now());
        if (signal == SIGHUP) {
            syslog(LOG_NOTICE, "SIGHUP: the server ends. There are no settings that it could read anew.");
        }
        if (signal == SIGTERM || signal == SIGINT || signal == SIGHUP) {
            TellServiceManager("STOPPING=1");
            StopAll();
            return;
        }
        Reap();
        if (Clock::now() >= m_nextStart) {
            StartMissing();
        }
    }
}

bool Supervisor::AreAllRunning() const {
    return std::ranges::none_of(m_workers, [](const Worker& worker) { return worker.process == 0; });
}

void Supervisor::StartMissing() {
    for (std::size_t i = 0; i < m_workers.size(); ++i) {
        if (m_workers[i].process != 0) {
            continue;
        }
        Activity& activity = m_activities.get()[i];
        activity = 0;
        const pid_t process = fork();
        if (process == 0) {
            m_lifelineHeld.Close();
            try {
                m_work(m_lifeline.Get(), activity);
            } catch (const std::exception& exception) {
                syslog(LOG_ERR, "%s", exception.what());
                std::exit(EXIT_FAILURE);
            }
            std::exit(EXIT_SUCCESS);
        }
        if (process < 0) {
            syslog(LOG_ERR, "A worker cannot be started: %s.", std::strerror(errno));
            m_nextStart = Clock::now() + kLongestPause;
            return;
        }
        m_workers[i] = {process, Clock::now()};
    }
}

int Supervisor::TakeEnded(int& status) {
    for (pid_t process; (process = waitpid(-1, &status, WNOHANG)) > 0;) {
        // Another child is one that the starter left behind.
        const auto worker = std::ranges::find(m_workers, process, &Worker::process);
        if (worker != m_workers.end()) {
            worker->process = 0;
            return static_cast<int>(worker - m_workers.begin());
        }
    }
    return -1;
}

std::string Supervisor::NameCallOf(std::size_t i) const {
    const int activity = m_activities.get()[i];
    return activity > 0 ? "; it was in the call " + m_nameCall(activity) : "";
}

void Supervisor::Reap() {
    int status = 0;
    const std::vector<Worker> before = m_workers;
    for (int i; (i = TakeEnded(status)) >= 0;) {
        const auto& [process, start] = before[static_cast<std::size_t>(i)];
        const int activity = m_activities.get()[i];
        const bool endedAtStart = activity == 0 && Clock::now() - start < kShortLife;
        m_pause = endedAtStart ? std::clamp(2 * m_pause, kFirstPause, kLongestPause) : 0s;
        m_nextStart = Clock::now() + m_pause;
        const std::string call = NameCallOf(static_cast<std::size_t>(i));
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
            syslog(LOG_ERR, "The worker %d reached the time limit and is replaced%s.", process, call.c_str());
        } else if (WIFSIGNALED(status)) {
            syslog(LOG_ERR, "The worker %d was ended by signal %d and is replaced%s.", process,
                   WTERMSIG(status), call.c_str());
        } else {
            syslog(LOG_WARNING, "The worker %d ended with status %d and is replaced%s.", process,
                   WEXITSTATUS(status), call.c_str());
        }
    }
}

void Supervisor::StopAll() {
    for (const Worker& worker : m_workers) {
        if (worker.process != 0) {
            kill(worker.process, SIGTERM);
        }
    }
    const auto end = Clock::now() + kStopTime;
    const auto areAllGone = [this] {
        return std::ranges::all_of(m_workers, [](const Worker& worker) { return worker.process == 0; });
    };
    for (int status = 0; !areAllGone() && Clock::now() < end;) {
        if (TakeEnded(status) < 0) {
            WaitForSignal(end - Clock::now());
        }
    }
    for (std::size_t i = 0; i < m_workers.size(); ++i) {
        if (const pid_t process = m_workers[i].process; process != 0) {
            syslog(LOG_ERR, "The worker %d did not end in time and is killed%s.", process,
                   NameCallOf(i).c_str());
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
}

}  // namespace KIVO::Host
