#include "core/rclone/ChildProcess.h"

#include "core/rclone/ChildLauncher.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace brimvale {
namespace {

using Clock = std::chrono::steady_clock;

// How often a running child is checked for an overdue forced kill, and, where the system
// gives no exit notification, for having exited while something it started holds its pipes.
constexpr int kCheckPeriodMilliseconds = 100;
constexpr std::size_t kReadBufferBytes = 65536;
// What has been read of an output file is given back to the system in pieces of this size.
constexpr off_t kOutputFileReleaseBytes = 1 << 20;

// An in-memory file for a child's standard output, or -1 where the system has none.
int createOutputFile() {
    return ::memfd_create("child-output", MFD_CLOEXEC);
}

// A descriptor that becomes readable when the child exits, or -1 where there is none.
int openExitNotification(pid_t pid) {
#if defined(__linux__) && defined(SYS_pidfd_open)
    const long fd = ::syscall(SYS_pidfd_open, pid, 0);
    if (fd >= 0) {
        ::fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
        return static_cast<int>(fd);
    }
#else
    (void)pid;
#endif
    return -1;
}

[[noreturn]] void throwSystemError(int code, const std::string& what) {
    throw std::system_error(code, std::generic_category(), what);
}

class FileDescriptorPair {
public:
    FileDescriptorPair() {
        if (::pipe2(fds_, O_CLOEXEC) != 0) {
            throwSystemError(errno, "could not create a pipe");
        }
    }
    ~FileDescriptorPair() {
        closeRead();
        closeWrite();
    }
    int readEnd() const { return fds_[0]; }
    int writeEnd() const { return fds_[1]; }
    int releaseRead() { return std::exchange(fds_[0], -1); }
    void closeRead() {
        if (fds_[0] >= 0) {
            ::close(std::exchange(fds_[0], -1));
        }
    }
    void closeWrite() {
        if (fds_[1] >= 0) {
            ::close(std::exchange(fds_[1], -1));
        }
    }

private:
    int fds_[2] = {-1, -1};
};

std::vector<std::string> childEnvironment(const std::vector<EnvironmentChange>& changes) {
    std::vector<std::string> entries;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        entries.emplace_back(*entry);
    }
    for (const auto& change : changes) {
        const std::string prefix = change.name + "=";
        std::erase_if(entries, [&](const std::string& entry) { return entry.starts_with(prefix); });
        if (change.value) {
            entries.push_back(prefix + *change.value);
        }
    }
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (auto& text : strings) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Reads what the pipe holds now; closes it (and sets `fd` to -1) at its end.
// Reads what the pipe holds now; returns how many bytes that was.
std::size_t readAvailable(int& fd, ChildOutputStream stream, std::string* into,
                          const ChildOutputObserver& observer) {
    char buffer[kReadBufferBytes];
    std::size_t total = 0;
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count > 0) {
            total += static_cast<std::size_t>(count);
            const std::string_view chunk(buffer, static_cast<std::size_t>(count));
            if (observer) {
                observer(stream, chunk);
            }
            if (into != nullptr) {
                into->append(chunk);
            }
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return total;
        }
        ::close(std::exchange(fd, -1));
        return total;
    }
}

} // namespace

// The two ends of the child's input: a stream socket pair rather than a pipe, so that our
// writes can pass MSG_NOSIGNAL instead of raising SIGPIPE when the child has gone.
class InputSocketPair {
public:
    InputSocketPair() {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds_) != 0) {
            throwSystemError(errno, "could not create a socket pair");
        }
        // Our end only writes; the child's only reads.
        ::shutdown(fds_[0], SHUT_RD);
        ::shutdown(fds_[1], SHUT_WR);
    }
    ~InputSocketPair() {
        for (int& fd : fds_) {
            if (fd >= 0) {
                ::close(std::exchange(fd, -1));
            }
        }
    }
    int ours() const { return fds_[0]; }
    int childs() const { return fds_[1]; }
    int releaseOurs() { return std::exchange(fds_[0], -1); }
    void closeChilds() { ::close(std::exchange(fds_[1], -1)); }

private:
    int fds_[2] = {-1, -1};
};

std::unique_ptr<ChildProcess> ChildProcess::spawn(const ChildProcessOptions& options) {
    const bool outputPipes = options.outputs != ChildOutputs::nullDevice;
    std::optional<FileDescriptorPair> standardOutput;
    std::optional<FileDescriptorPair> standardError;
    std::optional<InputSocketPair> standardInput;
    int outputFile = options.outputs == ChildOutputs::memoryFileAndPipe ? createOutputFile() : -1;
    struct OutputFileCloser {
        int& fd;
        ~OutputFileCloser() {
            if (fd >= 0) {
                ::close(fd);
            }
        }
    } outputFileCloser{outputFile};
    if (outputPipes) {
        if (outputFile < 0) {
            standardOutput.emplace(); // also where no in-memory file could be made
        }
        standardError.emplace();
    }
    if (options.standardInput == ChildStandardInput::pipe) {
        standardInput.emplace();
    }

    std::vector<std::string> argumentStrings;
    argumentStrings.reserve(options.arguments.size() + 1);
    argumentStrings.push_back(options.executable);
    argumentStrings.insert(argumentStrings.end(), options.arguments.begin(),
                           options.arguments.end());
    auto argumentPointers = pointersTo(argumentStrings);
    auto environmentStrings = childEnvironment(options.environmentChanges);
    auto environmentPointers = pointersTo(environmentStrings);

    ChildLaunchPlan plan{.executable = options.executable.c_str(),
                         .arguments = argumentPointers.data(),
                         .environment = environmentPointers.data(),
                         .standardInputFromNullDevice =
                             options.standardInput == ChildStandardInput::nullDevice,
                         .outputsToNullDevice = !outputPipes};
    if (standardInput) {
        plan.standardInput = standardInput->childs();
    }
    if (outputPipes) {
        plan.standardOutput = outputFile >= 0 ? outputFile : standardOutput->writeEnd();
        plan.standardError = standardError->writeEnd();
    }
    const pid_t pid = launchChild(plan);
    int outputFd = -1;
    int errorFd = -1;
    if (standardOutput) {
        standardOutput->closeWrite();
        ::fcntl(standardOutput->readEnd(), F_SETFL,
                ::fcntl(standardOutput->readEnd(), F_GETFL) | O_NONBLOCK);
        outputFd = standardOutput->releaseRead();
    }
    if (standardError) {
        standardError->closeWrite();
        ::fcntl(standardError->readEnd(), F_SETFL,
                ::fcntl(standardError->readEnd(), F_GETFL) | O_NONBLOCK);
        errorFd = standardError->releaseRead();
    }
    int inputFd = -1;
    if (standardInput) {
        standardInput->closeChilds();
        inputFd = standardInput->releaseOurs();
    }
    return std::unique_ptr<ChildProcess>(
        new ChildProcess(pid, outputFd, std::exchange(outputFile, -1), errorFd, inputFd,
                         options.killGracePeriod, options.outputFilePollPeriod));
}

ChildProcess::ChildProcess(pid_t pid, int standardOutput, int standardOutputFile, int standardError,
                           int standardInput, std::chrono::milliseconds killGracePeriod,
                           std::chrono::milliseconds outputFilePollPeriod)
    : pid_(pid)
    , standardOutput_(standardOutput)
    , standardOutputFile_(standardOutputFile)
    , standardError_(standardError)
    , exitNotification_(openExitNotification(pid))
    , standardInput_(standardInput)
    , killGracePeriod_(killGracePeriod)
    , outputFilePollPeriod_(outputFilePollPeriod) {}

ChildProcess::~ChildProcess() {
    for (int* fd : {&standardOutput_, &standardOutputFile_, &standardError_, &exitNotification_,
                    &standardInput_}) {
        if (*fd >= 0) {
            ::close(std::exchange(*fd, -1));
        }
    }
    std::lock_guard lock(mutex_);
    if (!reaped_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        reaped_ = true;
    }
}

void ChildProcess::terminate() noexcept {
    std::lock_guard lock(mutex_);
    if (reaped_ || terminateRequestedAt_) {
        return;
    }
    ::kill(pid_, SIGTERM);
    terminateRequestedAt_ = Clock::now();
}

void ChildProcess::killIfGracePeriodOver() {
    std::lock_guard lock(mutex_);
    if (!reaped_ && terminateRequestedAt_ &&
        Clock::now() - *terminateRequestedAt_ >= killGracePeriod_) {
        ::kill(pid_, SIGKILL);
    }
}

bool ChildProcess::isRunning() const {
    std::lock_guard lock(mutex_);
    return !reaped_ && !childHasExited();
}

bool ChildProcess::writeStandardInput(std::string_view bytes) {
    std::lock_guard lock(inputMutex_);
    while (standardInput_ >= 0 && !bytes.empty()) {
        const ssize_t count = ::send(standardInput_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false; // EPIPE: the child closed its end or has exited
        }
    }
    return standardInput_ >= 0;
}

void ChildProcess::closeStandardInput() {
    std::lock_guard lock(inputMutex_);
    if (standardInput_ >= 0) {
        ::close(std::exchange(standardInput_, -1));
    }
}

bool ChildProcess::childHasExited() const {
    siginfo_t info{};
    // WNOWAIT leaves the child a zombie, so its id cannot be reused before reap().
    return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid_;
}

int ChildProcess::reap() {
    std::lock_guard lock(mutex_);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    return status;
}

void ChildProcess::readStandardOutputFile(std::string* into, const ChildOutputObserver& observer) {
    char buffer[kReadBufferBytes];
    for (;;) {
        const ssize_t count = ::pread(standardOutputFile_, buffer, sizeof buffer, outputFileRead_);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        outputFileRead_ += count;
        const std::string_view chunk(buffer, static_cast<std::size_t>(count));
        if (observer) {
            observer(ChildOutputStream::standardOutput, chunk);
        }
        if (into != nullptr) {
            into->append(chunk);
        }
    }
    // The file keeps its length (the child writes on at its end), but the pages already read
    // are freed, so a long listing never sits in memory whole.
    if (outputFileRead_ - outputFileReleased_ >= kOutputFileReleaseBytes) {
        const off_t upTo = outputFileRead_ / kOutputFileReleaseBytes * kOutputFileReleaseBytes;
        if (::fallocate(standardOutputFile_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                        outputFileReleased_, upTo - outputFileReleased_) == 0) {
            outputFileReleased_ = upTo;
        }
    }
}

ChildProcessResult ChildProcess::collectOutputAndWait(const ChildOutputObserver& observer,
                                                      bool keepStandardOutput) {
    ChildProcessResult result;
    {
        std::lock_guard lock(mutex_);
        if (reaped_) {
            return result; // a second call after the first one finished
        }
    }
    bool exited = false;
    while (!exited) {
        killIfGracePeriodOver();
        pollfd fds[3];
        nfds_t count = 0;
        for (const int fd : {standardOutput_, standardError_, exitNotification_}) {
            if (fd >= 0) {
                fds[count++] = pollfd{.fd = fd, .events = POLLIN, .revents = 0};
            }
        }
        // Without an exit notification the child is looked at every few milliseconds once
        // its pipes are closed, and every check period while they are open. An output file
        // gives no notice of new bytes, so it is looked at every poll period.
        const bool pipesOpen = standardOutput_ >= 0 || standardError_ >= 0;
        int timeout = exitNotification_ >= 0 || pipesOpen ? kCheckPeriodMilliseconds : 5;
        if (standardOutputFile_ >= 0) {
            timeout = static_cast<int>(outputFilePollPeriod_.count());
        }
        const int ready = ::poll(count == 0 ? nullptr : fds, count, timeout);
        if (ready < 0 && errno != EINTR) {
            throwSystemError(errno, "could not wait for the output of a child process");
        }
        std::string* const outputInto = keepStandardOutput ? &result.standardOutput : nullptr;
        if (standardOutput_ >= 0) {
            readAvailable(standardOutput_, ChildOutputStream::standardOutput, outputInto, observer);
        }
        if (standardOutputFile_ >= 0) {
            readStandardOutputFile(outputInto, observer);
        }
        if (standardError_ >= 0) {
            readAvailable(standardError_, ChildOutputStream::standardError, &result.standardError,
                          observer);
        }
        exited = childHasExited();
        if (!exited && (pipesOpen || standardOutputFile_ >= 0)) {
            continue;
        }
        if (exited) {
            if (standardOutputFile_ >= 0) {
                readStandardOutputFile(outputInto, observer);
                ::close(std::exchange(standardOutputFile_, -1));
            }
            // Whatever the child wrote before it exited is in the pipes now; anything later
            // would come from a process it left behind holding them.
            struct Stream {
                int* fd;
                ChildOutputStream stream;
                std::string* into;
            };
            for (const Stream& stream :
                 {Stream{&standardOutput_, ChildOutputStream::standardOutput,
                         keepStandardOutput ? &result.standardOutput : nullptr},
                  Stream{&standardError_, ChildOutputStream::standardError,
                         &result.standardError}}) {
                int* fd = stream.fd;
                if (*fd >= 0) {
                    readAvailable(*fd, stream.stream, stream.into, observer);
                }
                if (*fd >= 0) {
                    ::close(std::exchange(*fd, -1));
                }
            }
        }
    }
    const int status = reap();
    if (WIFSIGNALED(status)) {
        result.terminatingSignal = WTERMSIG(status);
        result.exitStatus = 128 + WTERMSIG(status);
    } else {
        result.exitStatus = WEXITSTATUS(status);
    }
    return result;
}

} // namespace brimvale
