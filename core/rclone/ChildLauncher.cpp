#include "core/rclone/ChildLauncher.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace brimvale {
namespace {

// Where close_range is missing, descriptors are closed one by one up to this number.
constexpr int kHighestDescriptorClosedByHand = 65535;

// Writes why the child failed for the parent to read, and ends the child.
[[noreturn]] void failChild(int reportTo, int error) {
    while (::write(reportTo, &error, sizeof error) < 0 && errno == EINTR) {
    }
    ::_exit(127);
}

// `fd` moved to a number above the standard three, close-on-exec; -1 stays -1.
int movedAboveStandardDescriptors(int fd, int reportTo) {
    if (fd < 0) {
        return -1;
    }
    const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (moved < 0) {
        failChild(reportTo, errno);
    }
    return moved;
}

void becomeStandardDescriptor(int fd, int target, int reportTo) {
    if (::dup2(fd, target) < 0) {
        failChild(reportTo, errno);
    }
}

int openNullDevice(int flags, int reportTo) {
    const int fd = ::open("/dev/null", flags | O_CLOEXEC);
    if (fd < 0) {
        failChild(reportTo, errno);
    }
    if (fd > STDERR_FILENO) {
        return fd;
    }
    // A standard descriptor that was free: it is about to be replaced.
    const int moved = movedAboveStandardDescriptors(fd, reportTo);
    ::close(fd);
    return moved;
}

void closeDescriptorsFrom(unsigned first, unsigned last) {
    if (first > last) {
        return;
    }
#ifdef SYS_close_range
    if (::syscall(SYS_close_range, first, last, 0) == 0) {
        return;
    }
#endif
    const unsigned highest = std::min(last, static_cast<unsigned>(kHighestDescriptorClosedByHand));
    for (unsigned fd = first; fd <= highest; ++fd) {
        ::close(static_cast<int>(fd));
    }
}

// The forked child: only calls that are safe after fork in a threaded process, then exec.
[[noreturn]] void becomeChild(const ChildLaunchPlan& plan, pid_t parent, int reportTo) {
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&defaultAction.sa_mask);
    for (int signal = 1; signal < NSIG; ++signal) {
        ::sigaction(signal, &defaultAction, nullptr); // refused for SIGKILL, SIGSTOP: fine
    }
    if (::prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) {
        failChild(reportTo, errno);
    }
    // The parent may have died before the request above was made: nobody would signal us.
    if (::getppid() != parent) {
        ::_exit(127);
    }

    // A descriptor to hand over may itself be 0, 1 or 2 (this process may run with one of them
    // closed): everything is moved out of the way first.
    reportTo = movedAboveStandardDescriptors(reportTo, reportTo);
    int input = movedAboveStandardDescriptors(plan.standardInput, reportTo);
    int output = movedAboveStandardDescriptors(plan.standardOutput, reportTo);
    int error = movedAboveStandardDescriptors(plan.standardError, reportTo);
    if (plan.standardInputFromNullDevice) {
        input = openNullDevice(O_RDONLY, reportTo);
    }
    if (plan.outputsToNullDevice) {
        output = openNullDevice(O_WRONLY, reportTo);
        error = output;
    }
    if (input >= 0) {
        becomeStandardDescriptor(input, STDIN_FILENO, reportTo);
    }
    if (output >= 0) {
        becomeStandardDescriptor(output, STDOUT_FILENO, reportTo);
    }
    if (error >= 0) {
        becomeStandardDescriptor(error, STDERR_FILENO, reportTo);
    }
    // Descriptors some library opened without close-on-exec stay out of the child too.
    const auto kept = static_cast<unsigned>(reportTo);
    closeDescriptorsFrom(STDERR_FILENO + 1, kept - 1);
    closeDescriptorsFrom(kept + 1, UINT_MAX);

    sigset_t noSignals;
    sigemptyset(&noSignals);
    ::sigprocmask(SIG_SETMASK, &noSignals, nullptr);
    ::execve(plan.executable, plan.arguments, plan.environment);
    failChild(reportTo, errno);
}

// The one thread that forks every child, alive as long as the process. It blocks every
// signal, so the process's signals go to threads that handle them, and its children start
// with everything blocked until just before exec.
class SpawningThread {
public:
    static SpawningThread& instance() {
        // Never destroyed: it may be needed until the very end, by any thread.
        static SpawningThread* const thread = new SpawningThread;
        return *thread;
    }

    // Forks a child that runs `plan`, reporting a failed exec on `reportTo`; returns its id.
    pid_t fork(const ChildLaunchPlan& plan, int reportTo) {
        Request request{&plan, reportTo};
        std::unique_lock lock(mutex_);
        requests_.push_back(&request);
        changed_.notify_all();
        changed_.wait(lock, [&] { return request.done; });
        if (request.pid < 0) {
            throw std::system_error(request.error, std::generic_category(),
                                    std::string("could not start ") + plan.executable);
        }
        return request.pid;
    }

private:
    struct Request {
        const ChildLaunchPlan* plan;
        int reportTo;
        pid_t pid = -1;
        int error = 0;
        bool done = false;
    };

    SpawningThread() {
        sigset_t allSignals;
        sigfillset(&allSignals);
        sigset_t previous;
        // The new thread starts with the mask of the thread that makes it.
        ::pthread_sigmask(SIG_SETMASK, &allSignals, &previous);
        try {
            std::thread([this] { run(); }).detach();
        } catch (...) {
            ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
            throw;
        }
        ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }

    [[noreturn]] void run() {
        const pid_t self = ::getpid();
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return !requests_.empty(); });
            Request* request = requests_.front();
            requests_.pop_front();
            lock.unlock();
            const pid_t pid = ::fork();
            if (pid == 0) {
                becomeChild(*request->plan, self, request->reportTo);
            }
            const int error = errno;
            lock.lock();
            request->pid = pid;
            request->error = error;
            request->done = true;
            changed_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Request*> requests_;
};

} // namespace

pid_t launchChild(const ChildLaunchPlan& plan) {
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "could not create a pipe");
    }
    pid_t pid = -1;
    try {
        pid = SpawningThread::instance().fork(plan, report[1]);
    } catch (...) {
        ::close(report[0]);
        ::close(report[1]);
        throw;
    }
    ::close(report[1]);
    // End of file: the exec succeeded and closed the child's end. Otherwise the child's errno.
    int error = 0;
    ssize_t count = 0;
    while ((count = ::read(report[0], &error, sizeof error)) < 0 && errno == EINTR) {
    }
    ::close(report[0]);
    if (count == 0) {
        return pid;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    throw std::system_error(count == sizeof error ? error : EIO, std::generic_category(),
                            std::string("could not start ") + plan.executable);
}

} // namespace brimvale
