#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace brimvale {

// One change to the environment a child inherits.
struct EnvironmentChange {
    std::string name;
    std::optional<std::string> value; // absent: the variable is removed
};

// Where a child's standard input comes from.
enum class ChildStandardInput {
    inherited,  // this process's standard input
    nullDevice, // /dev/null: a read gets end of file at once (nothing can wait on a terminal)
    pipe,       // written by writeStandardInput(), ended by closeStandardInput()
};

// Where a child's standard output and standard error go.
enum class ChildOutputs {
    pipes, // collected by collectOutputAndWait()
    // Standard output into an anonymous in-memory file, read as it grows and emptied behind
    // the reader; standard error on a pipe. For a child that writes many small pieces (rclone
    // writes one listing entry per write): it never waits for us and we are not woken for
    // each piece, which a pipe costs both sides (measured: a tenth of a listing's time).
    memoryFileAndPipe,
    nullDevice, // /dev/null: for servers whose log nobody reads
};

// Which of the child's output streams a chunk came from.
enum class ChildOutputStream { standardOutput, standardError };

struct ChildProcessOptions {
    // The program to run, by absolute path (the PATH variable is never searched).
    std::string executable;
    // The arguments after the program name, passed as they are (no shell).
    std::vector<std::string> arguments;
    // Applied on top of this process's environment, in order.
    std::vector<EnvironmentChange> environmentChanges;
    // After terminate(), how long the child may take to exit before it is killed outright.
    std::chrono::milliseconds killGracePeriod{10'000};
    ChildStandardInput standardInput = ChildStandardInput::inherited;
    ChildOutputs outputs = ChildOutputs::pipes;
    // With ChildOutputs::memoryFileAndPipe, how often the file is read for what is new.
    std::chrono::milliseconds outputFilePollPeriod{4};
};

struct ChildProcessResult {
    // The exit status, or 128 + the signal number for a child ended by a signal (the
    // shell's convention).
    int exitStatus = 0;
    std::optional<int> terminatingSignal;
    std::string standardOutput;
    std::string standardError;
};

// Sees each chunk of output as it arrives, before it is added to the result.
using ChildOutputObserver = std::function<void(ChildOutputStream stream, std::string_view chunk)>;

// A child process (started by launchChild: it dies with this process, whichever thread
// started it), its standard output and standard error each on a
// pipe (or the null device), the working directory inherited, standard input inherited, the
// null device or a pipe of ours. Reading drains both pipes together with poll, so neither can
// fill up and block the child. The child never inherits another run's pipes (every descriptor
// is close-on-exec).
//
// Thread safety: terminate() and isRunning() may be called from any thread at any time, also
// concurrently with collectOutputAndWait(); so may writeStandardInput() and
// closeStandardInput(), which serialise among themselves. Everything else is used by one
// thread at a time (any thread: the child is this process's, not the spawning thread's).
class ChildProcess {
public:
    // Starts the child; throws std::system_error when it cannot be started (the program is
    // missing or not executable, no more processes or descriptors).
    static std::unique_ptr<ChildProcess> spawn(const ChildProcessOptions& options);

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // A child still running is killed and reaped: no zombie outlives its object.
    ~ChildProcess();

    pid_t pid() const { return pid_; }

    // Sends SIGTERM (once), and SIGKILL if the child is still running a grace period later.
    // Does nothing once the child has been reaped, so a reused process id is never signalled.
    void terminate() noexcept;

    // Whether the child has not exited yet (an exited child that is not reaped yet counts as
    // ended).
    bool isRunning() const;

    // Writes all of `bytes` to the child's standard input (a pipe, see ChildStandardInput),
    // blocking while the child does not read. False when the child closed its end or exited,
    // or there is no input pipe; never raises SIGPIPE.
    bool writeStandardInput(std::string_view bytes);
    // Ends the child's standard input (it reads end of file). Later writes return false.
    void closeStandardInput();

    // Reads both pipes to their end, waits for the child to exit, reaps it and returns what it
    // wrote. Called once. If the child exits while something it started still holds the
    // pipes open, what was written so far is returned without waiting for that. `observer`,
    // when given, sees every chunk on this thread as soon as it is read; an exception it
    // throws ends this call, and a second call then finishes the collection (what the first
    // call read is not returned again; after a finished collection it returns nothing), or
    // the destructor kills the child. Without `keepStandardOutput`, standard output goes to
    // the observer only (a streamed listing never holds the whole of it).
    ChildProcessResult collectOutputAndWait(const ChildOutputObserver& observer = {},
                                            bool keepStandardOutput = true);

private:
    ChildProcess(pid_t pid, int standardOutput, int standardOutputFile, int standardError,
                 int standardInput, std::chrono::milliseconds killGracePeriod,
                 std::chrono::milliseconds outputFilePollPeriod);

    void readStandardOutputFile(std::string* into, const ChildOutputObserver& observer);

    bool childHasExited() const;
    void killIfGracePeriodOver();
    int reap();

    const pid_t pid_;
    int standardOutput_;           // read end, non-blocking; -1 once closed
    int standardOutputFile_;       // the in-memory file standard output goes to; -1 if none
    off_t outputFileRead_ = 0;     // how much of it has been read
    off_t outputFileReleased_ = 0; // how much of it has been given back to the system
    int standardError_;            // read end, non-blocking; -1 once closed
    int exitNotification_;  // readable once the child has exited (pidfd); -1 where unsupported
    std::mutex inputMutex_; // serialises writes to and the closing of standardInput_
    int standardInput_;     // write end (a socket, so writes can refuse SIGPIPE); -1 if none
    const std::chrono::milliseconds killGracePeriod_;
    const std::chrono::milliseconds outputFilePollPeriod_;

    mutable std::mutex mutex_; // guards reaped_ and terminateRequestedAt_
    bool reaped_ = false;      // the process id may belong to someone else from now on
    std::optional<std::chrono::steady_clock::time_point> terminateRequestedAt_;
};

} // namespace brimvale
