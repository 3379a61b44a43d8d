#include "kivocore/exec.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "platform/kivocore/ErrorState.h"
#include "platform/kivocore/FileDescriptor.h"

namespace {

using KIVO::Appliance::FileDescriptor;

constexpr int kNotStarted = 127;

/// For its lifetime SIGCHLD has its default action, so that ignoring it cannot discard the exit status, and
/// is blocked, so that the caller's handler cannot take the status away. Every other signal is blocked until
/// WatchSignals.
class SignalScope {
public:
    SignalScope() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_mask);
        sigaction(SIGCHLD, nullptr, &m_childAction);
        if (m_childAction.sa_handler != SIG_DFL || DiscardsStatus()) {
            struct sigaction defaultAction {};
            defaultAction.sa_handler = SIG_DFL;
            sigaction(SIGCHLD, &defaultAction, nullptr);
        }
    }
    ~SignalScope() {
        // Setting the default action again would discard a signal that the caller waits for.
        if (m_childAction.sa_handler != SIG_DFL || DiscardsStatus()) {
            sigaction(SIGCHLD, &m_childAction, nullptr);
            while (DiscardsStatus() && waitpid(-1, nullptr, WNOHANG) > 0) {
                // Another child that ended meanwhile, which nobody would wait for.
            }
            // The handler may have missed another child's end.
            kill(getpid(), SIGCHLD);
        }
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    }
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

    /// Lets the caller's signals through again, so that a server can still be told to stop while the program
    /// runs.
    void WatchSignals() const {
        sigset_t mask = m_mask;
        sigaddset(&mask, SIGCHLD);
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    }

private:
    /// Whether children of the caller's end without being waited for.
    bool DiscardsStatus() const {
        return m_childAction.sa_handler == SIG_IGN || (m_childAction.sa_flags & SA_NOCLDWAIT) != 0;
    }

    sigset_t m_mask{};
    struct sigaction m_childAction {};
};

/// What the program finds in its environment: it may run with more rights than whoever set the caller's.
std::vector<std::string> MakeEnvironment() {
    std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
    for (const char* const name : {"LANG", "TZ", "KIVO_ROOT"}) {
        if (const char* const value = secure_getenv(name)) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    return environment;
}

/// Lets the program inherit no descriptor but the standard streams.
[[nodiscard]] bool CloseOthersAtStart() {
    if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        return true;
    }
    rlimit limit{};
    if (errno != ENOSYS || getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return false;
    }
    for (int descriptor = STDERR_FILENO + 1; static_cast<rlim_t>(descriptor) < limit.rlim_cur; ++descriptor) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
    return true;
}

/// Turns the forked copy of the caller into the program; returns when that fails. Only calls that are safe
/// after a fork of a process with threads; the ids by system call because the C library's functions would set
/// them for all its threads.
void Become(const char* path, const char* const* arguments, char* const* environment) {
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        sigaction(signal, &defaultAction, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);

    const long gid = syscall(SYS_getegid);
    const long uid = syscall(SYS_geteuid);
    if (syscall(SYS_setresgid, gid, gid, gid) != 0 || syscall(SYS_setresuid, uid, uid, uid) != 0 ||
        !CloseOthersAtStart()) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // Nobody waits for it any more when the caller is gone.
    execve(path, const_cast<char* const*>(arguments), environment);
}

/// True when nothing comes through the pipe before its end: starting the program closed its other side.
bool IsEmpty(const FileDescriptor& pipe) {
    char byte = 0;
    ssize_t length = 0;
    do {
        length = read(pipe.Get(), &byte, sizeof byte);
    } while (length < 0 && errno == EINTR);
    return length == 0;
}

/// The exit status of the process, or -1 when it was killed.
[[nodiscard]] int WaitFor(pid_t process) {
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(process, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended == process && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int KLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4) try {
    if (path == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    const char* const arguments[] = {path, arg1, arg2, arg3, arg4, nullptr};
    std::vector<std::string> texts = MakeEnvironment();
    std::vector<char*> environment;
    environment.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        environment.push_back(text.data());
    }
    environment.push_back(nullptr);

    // The action of SIGCHLD belongs to the whole process: two scopes at a time would restore each other's.
    static std::mutex mutex;
    const std::scoped_lock lock(mutex);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        SET_LAST_ERROR(ProgramFailed);
        return -1;
    }
    const FileDescriptor failureReader(ends[0]);
    FileDescriptor failureWriter(ends[1]);

    const SignalScope signals;
    const pid_t process = fork();
    if (process == 0) {
        Become(path, arguments, environment.data());
        [[maybe_unused]] const ssize_t length = write(failureWriter.Get(), "!", 1);
        _exit(kNotStarted);
    }
    failureWriter.Close();
    signals.WatchSignals();
    if (process < 0) {
        SET_LAST_ERROR(ProgramFailed);
        return -1;
    }
    const bool isStarted = IsEmpty(failureReader);
    const int exitStatus = WaitFor(process);
    if (!isStarted || exitStatus < 0) {
        SET_LAST_ERROR(ProgramFailed);
        return -1;
    }
    return exitStatus;
} catch (...) {
    SET_LAST_ERROR(ProgramFailed);
    return -1;
}
