#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Host {

/// What a worker is about, in memory that it shares with the supervisor, which so learns of what it ended.
/// 0 until its first call; the number of a call, from 1 on, while it answers one; negative afterwards.
using Activity = std::atomic<int>;

/// Keeps a number of worker processes running and replaces those that end.
class Supervisor {
public:
    /// What a worker process does until it ends. SIGTERM, SIGINT, SIGHUP and SIGCHLD are blocked in it;
    /// `lifeline` is closed at its other end as soon as the supervisor is gone, however it ended.
    using Work = std::function<void(int lifeline, Activity& activity)>;
    /// The name of the call of that number, which is not to be trusted.
    using NameCall = std::function<std::string(int call)>;

    /// Blocks the signals that Run waits for and starts the workers. Throws std::runtime_error when it
    /// cannot.
    Supervisor(unsigned workerCount, Work work, NameCall nameCall);

    /// Returns when SIGTERM, SIGINT or SIGHUP came and every worker has ended, which SIGTERM asks them to do
    /// and SIGKILL makes them do after a while.
    void Run();

private:
    using Clock = std::chrono::steady_clock;

    struct Worker {
        /// 0 while there is none.
        pid_t process = 0;
        Clock::time_point start;
    };
    struct Unmap {
        void operator()(Activity* activities) const;
    };

    bool AreAllRunning() const;
    void StartMissing();
    /// The number of a worker that has ended, which is then missing, with its status; -1 when there is none.
    int TakeEnded(int& status);
    /// The end of a log line; "" when the worker of that number was in no call.
    std::string NameCallOf(std::size_t i) const;
    void Reap();
    void StopAll();

    const Work m_work;
    const NameCall m_nameCall;
    /// A pipe whose writing end only the supervisor has.
    Appliance::FileDescriptor m_lifeline{-1};
    Appliance::FileDescriptor m_lifelineHeld{-1};
    std::vector<Worker> m_workers;
    /// One for each worker.
    std::unique_ptr<Activity, Unmap> m_activities;
    /// Grows while workers end soon after their start and before any call, so that a fault at every start
    /// cannot keep the machine busy.
    Clock::duration m_pause{0};
    Clock::time_point m_nextStart;
};

}  // namespace KIVO::Host
