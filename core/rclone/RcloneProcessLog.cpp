#include "core/rclone/RcloneProcessLog.h"

#include "core/support/ScanDiagnostics.h"

#include <mutex>
#include <syslog.h>
#include <utility>

namespace brimvale::RcloneProcessLog {
namespace {

struct SharedState {
    std::mutex mutex; // guards writer
    Writer writer;
};

SharedState& sharedState() {
    static auto* state = new SharedState(); // never destroyed: logging at exit stays safe
    return *state;
}

} // namespace

void debug(std::string_view line) {
    Writer writer;
    {
        auto& state = sharedState();
        std::lock_guard lock(state.mutex);
        writer = state.writer;
    }
    if (writer) {
        writer(line);
        return;
    }
    if (ScanDiagnostics::stdoutEnabled()) {
        // With the scan debug switch on, runs show on standard error among the scan's lines.
        ScanDiagnostics::log(line);
        return;
    }
    // LOG_PID|LOG_USER with ident "brimvale", as the scan log opens it; openlog is idempotent.
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("brimvale", LOG_PID, LOG_USER); });
    syslog(LOG_DEBUG, "[RcloneProcess] %.*s", static_cast<int>(line.size()), line.data());
}

Writer setWriter(Writer writer) {
    auto& state = sharedState();
    std::lock_guard lock(state.mutex);
    return std::exchange(state.writer, std::move(writer));
}

} // namespace brimvale::RcloneProcessLog
