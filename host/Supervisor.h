#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>

#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Host {

/// Keeps a number of worker processes running and replaces those that end.
class Supervisor {
public:
    /// What a worker process does until it ends. SIGTERM, SIGINT and SIGCHLD are blocked in it; `lifeline` is
    /// closed at its other end as soon as the supervisor is gone, however it ended.
    using Work = std::function<void(int lifeline)>;

    /// Blocks the signals that Run waits for and starts the workers. Throws std::runtime_error when it
    /// cannot.
    Supervisor(unsigned workerCount, Work work);

    /// Returns when SIGTERM or SIGINT came and every worker has ended, which SIGTERM asks them to do and
    /// SIGKILL makes them do after a while.
    void Run();

private:
    using Clock = std::chrono::steady_clock;

    void StartMissing();
    void Reap();
    void StopAll();

    const unsigned m_workerCount;
    const Work m_work;
    /// A pipe whose writing end only the supervisor has.
    Appliance::FileDescriptor m_lifeline{-1};
    Appliance::FileDescriptor m_lifelineHeld{-1};
    /// When each running worker was started.
    std::map<pid_t, Clock::time_point> m_workers;
    /// Grows while workers end soon after their start, so that a fault at every start cannot keep the machine
    /// busy.
    Clock::duration m_pause{0};
    Clock::time_point m_nextStart;
};

}  // namespace KIVO::Host
