#include "kivocore/exec.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "kivocore/Export.h"
#include "kivocore/error.h"
#include "tests/support/ApplianceRoot.h"

namespace {

bool kernelKnowsCloseRange = true;

}  // namespace

extern "C" KIVO_PUBLIC int close_range(unsigned first, unsigned last, int flags) noexcept {
    if (!kernelKnowsCloseRange) {
        errno = ENOSYS;
        return -1;
    }
    return static_cast<int>(syscall(SYS_close_range, first, last, flags));
}

namespace {

int RunShell(const char* command) { return KLIBCExec("/bin/sh", "-c", command, nullptr, nullptr); }

TEST(Exec, ReportsHowTheProgramEnded) {
    for (const auto& [command, status] : {std::pair("exit 0", 0), {"exit 127", 127}, {"kill -9 $$", -1}}) {
        EXPECT_EQ(RunShell(command), status) << command;
    }
    EXPECT_EQ(KLIBCExec("/bin/sh", "-c", "test \"$0\" = '$HOME *' && exit $#", "$HOME *", "one"), 1);
    EXPECT_EQ(KLIBCExec("/bin/sh", "-c", "exit $#", nullptr, "not passed"), 0);
    for (const char* path : {"/no/such/program", "/", "/etc/passwd", ""}) {
        EXPECT_EQ(KLIBCExec(path, nullptr, nullptr, nullptr, nullptr), -1) << path;
        EXPECT_EQ(KLIBCErrGet(), 0x2900);
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left behind";
}

TEST(Exec, TheProgramInheritsTheStandardStreamsAndLittleOfTheEnvironment) {
    ASSERT_EQ(dup2(STDIN_FILENO, 57), 57);
    for (const bool isKnown : {true, false}) {
        kernelKnowsCloseRange = isKnown;
        EXPECT_EQ(RunShell("test -e /proc/self/fd/1 && test ! -e /proc/self/fd/57"), 0) << isKnown;
        EXPECT_EQ(fcntl(57, F_GETFD), 0) << "the caller's own descriptor has changed";
    }
    close(57);
    kernelKnowsCloseRange = true;

    const KIVO::Test::ApplianceRoot root;
    setenv("TZ", "UTC", 1);
    setenv("LD_BIND_NOW", "1", 1);
    const std::string check =
        "test \"$KIVO_ROOT$TZ$LD_BIND_NOW\" = " + root.Folder().string() + "UTC && command -v env";
    EXPECT_EQ(RunShell((check + " >/dev/null").c_str()), 0);
    unsetenv("LD_BIND_NOW");
    unsetenv("TZ");
}

TEST(Exec, TheProgramEndsWithItsCaller) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        dup2(ends[1], STDOUT_FILENO);
        _exit(RunShell("echo; exec sleep 60"));
    }
    close(ends[1]);
    char letter = 0;
    EXPECT_EQ(read(ends[0], &letter, 1), 1) << "The program has begun.";
    kill(caller, SIGKILL);
    EXPECT_EQ(read(ends[0], &letter, 1), 0) << "Its standard output is closed.";
    close(ends[0]);
    waitpid(caller, nullptr, 0);
}

volatile sig_atomic_t reapedChildren = 0;

void ReapEveryChild(int signal) {
    const int savedError = errno;
    while (signal == SIGCHLD && waitpid(-1, nullptr, WNOHANG) > 0) {
        reapedChildren = reapedChildren + 1;
    }
    errno = savedError;
}

TEST(Exec, KeepsTheExitStatusAndTheCallersSignalState) {
    for (const auto& [handler, flags] : std::vector<std::pair<void (*)(int), int>>{
             {SIG_DFL, 0}, {SIG_IGN, 0}, {SIG_DFL, SA_NOCLDWAIT}, {&ReapEveryChild, SA_RESTART}}) {
        struct sigaction action {
        }, after{};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(SIGCHLD, &action, nullptr);
        sigset_t mask, maskAfter;
        sigemptyset(&mask);
        sigaddset(&mask, SIGUSR2);
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
        signal(SIGPIPE, SIG_IGN);
        signal(SIGUSR1, &ReapEveryChild);

        // Not through the shell, which would clear its mask.
        for (const char* pattern : {"^SigBlk:[[:space:]]*0*$", "^SigIgn:[[:space:]]*0*$"}) {
            EXPECT_EQ(KLIBCExec("/bin/grep", "-q", pattern, "/proc/self/status", nullptr), 0) << pattern;
        }
        EXPECT_EQ(RunShell("kill -USR1 $PPID; exit 3"), 3) << "a signal to the caller interrupted the wait";
        EXPECT_EQ(KLIBCExec("/no/such/program", nullptr, nullptr, nullptr, nullptr), -1);

        signal(SIGUSR1, SIG_DFL);
        signal(SIGPIPE, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &mask, &maskAfter);
        for (int number = 1; number < NSIG; ++number) {
            EXPECT_EQ(sigismember(&maskAfter, number), sigismember(&mask, number)) << number;
        }
        sigaction(SIGCHLD, nullptr, &after);
        signal(SIGCHLD, SIG_DFL);
        EXPECT_EQ(after.sa_handler, handler);
        EXPECT_EQ(after.sa_flags & (SA_NOCLDWAIT | SA_RESTART), flags);
    }
}

TEST(Exec, TheCallerStillLearnsOfTheEndOfItsOtherChildren) {
    signal(SIGCHLD, &ReapEveryChild);
    reapedChildren = 0;
    const pid_t other = fork();
    if (other == 0) {
        pause();
    }
    // The program sees to it that the other child has ended before it does.
    const std::string end = "kill -9 " + std::to_string(other) + "; while grep -q '^State:.[^Z]' /proc/" +
                            std::to_string(other) + "/status; do :; done";
    EXPECT_EQ(RunShell(end.c_str()), 0);
    EXPECT_EQ(reapedChildren, 1);

    // Where nobody wants to know, they leave nothing behind.
    signal(SIGCHLD, SIG_IGN);
    if (fork() == 0) {
        _exit(0);
    }
    EXPECT_EQ(RunShell("sleep 0.1"), 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    signal(SIGCHLD, SIG_DFL);

    // Who waits for the signal gets it.
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    const pid_t awaited = fork();
    if (awaited == 0) {
        _exit(0);
    }
    EXPECT_EQ(RunShell("sleep 0.1"), 0);
    siginfo_t info{};
    const timespec noTime{};
    EXPECT_EQ(sigtimedwait(&mask, &info, &noTime), SIGCHLD);
    EXPECT_EQ(info.si_pid, awaited);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    EXPECT_EQ(waitpid(awaited, nullptr, 0), awaited);
}

TEST(Exec, TheProgramRunsAsTheEffectiveUser) {
    if (!KIVO::Test::CanTakeOnIds()) {
        GTEST_SKIP() << "Only the superuser can take on another account's ids.";
    }
    ASSERT_EQ(setegid(65534) + seteuid(65534), 0);
    const int status = RunShell(
        "test \"$(grep -E '^[UG]id:' /proc/self/status | tr -dc '[:digit:]')\" = "
        "6553465534655346553465534655346553465534");
    ASSERT_EQ(seteuid(0) + setegid(0), 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
