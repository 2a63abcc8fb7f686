#include "core/support/ScanDiagnostics.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <mutex>
#include <syslog.h>
#include <thread>
#include <utility>

namespace brimvale::ScanDiagnostics {
namespace {

// The "ScanDiagnostics.stderr" queue: one detached writer thread that serialises all writes
// to standard error. Created on first use and never destroyed, so logging from static
// destructors or from threads still running at exit stays safe.
class StandardErrorQueue {
public:
    static StandardErrorQueue& shared() {
        static StandardErrorQueue* queue = [] {
            auto* created = new StandardErrorQueue();
            std::atexit([] { StandardErrorQueue::shared().waitUntilWritten(); });
            return created;
        }();
        return *queue;
    }

    void enqueue(std::string line) {
        {
            std::lock_guard lock(mutex_);
            lines_.push_back(std::move(line));
            ++enqueued_;
        }
        wake_.notify_all();
    }

    void waitUntilWritten() {
        std::unique_lock lock(mutex_);
        const auto target = enqueued_;
        written_.wait(lock, [&] { return writtenCount_ >= target; });
    }

private:
    StandardErrorQueue() {
        std::thread([this] { writeLoop(); }).detach();
    }

    void writeLoop() {
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return !lines_.empty(); });
            std::string line = std::move(lines_.front());
            lines_.pop_front();
            lock.unlock();
            std::fputs(line.c_str(), stderr);
            std::fflush(stderr);
            lock.lock();
            ++writtenCount_;
            written_.notify_all();
        }
    }

    std::mutex mutex_;                // guards lines_, enqueued_ and writtenCount_
    std::condition_variable wake_;    // a line was queued
    std::condition_variable written_; // a line was written
    std::deque<std::string> lines_;   // lines not yet written, oldest first
    unsigned long long enqueued_ = 0;
    unsigned long long writtenCount_ = 0;
};

struct SharedState {
    std::mutex mutex; // guards subsystem and writer
    std::string subsystem = "BrimvaleProgressiveAppExec";
    SystemLogWriter writer;
    bool syslogOpened = false;
};

SharedState& sharedState() {
    static SharedState* state = new SharedState();
    return *state;
}

void writeToSyslog(std::string_view category, std::string_view line) {
    auto& state = sharedState();
    {
        std::lock_guard lock(state.mutex);
        if (!state.syslogOpened) {
            openlog("brimvale", LOG_PID, LOG_USER);
            state.syslogOpened = true;
        }
    }
    syslog(LOG_NOTICE, "[%.*s] %.*s", static_cast<int>(category.size()), category.data(),
           static_cast<int>(line.size()), line.data());
}

std::string_view baseName(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace

std::string subsystem() {
    auto& state = sharedState();
    std::lock_guard lock(state.mutex);
    return state.subsystem;
}

void setSubsystem(std::string identifier) {
    auto& state = sharedState();
    std::lock_guard lock(state.mutex);
    state.subsystem = std::move(identifier);
}

bool stdoutEnabled() {
    const char* value = std::getenv("BRIMVALE_SCAN_DEBUG");
    return value != nullptr && std::string_view(value) == "1";
}

std::string iso8601UTCNow() {
    // Milliseconds: a cloud scan's phases are told apart by them.
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03ldZ", now.tv_nsec / 1'000'000);
    return text;
}

void log(std::string_view message, SourceLocation where) {
    std::string suffix = " \u2014 ";
    suffix += baseName(where.file);
    suffix += ':';
    suffix += std::to_string(where.line);

    std::string line;
    line.reserve(message.size() + suffix.size());
    line.append(message).append(suffix);

    SystemLogWriter writer;
    {
        auto& state = sharedState();
        std::lock_guard lock(state.mutex);
        writer = state.writer;
    }
    if (writer) {
        writer("Scan", line);
    } else {
        writeToSyslog("Scan", line);
    }

    if (stdoutEnabled()) {
        StandardErrorQueue::shared().enqueue("[Scan] " + iso8601UTCNow() + " " + line + "\n");
    }
}

void waitForPendingWrites() {
    StandardErrorQueue::shared().waitUntilWritten();
}

SystemLogWriter setSystemLogWriter(SystemLogWriter writer) {
    auto& state = sharedState();
    std::lock_guard lock(state.mutex);
    return std::exchange(state.writer, std::move(writer));
}

} // namespace brimvale::ScanDiagnostics
