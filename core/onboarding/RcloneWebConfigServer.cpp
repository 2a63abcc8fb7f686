#include "core/onboarding/RcloneWebConfigServer.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/RcloneRemoteControl.h"
#include "core/rclone/RcloneRemoteControlAccess.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/LoopbackAddress.h"
#include "core/support/UniqueFd.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

constexpr int kFallbackPort = 5572;
// A line of rclone's longer than this is not one we look for.
constexpr std::size_t kLongestKeptLine = 65536;

bool acceptsConnections(int port) {
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.valid()) {
        return false;
    }
    const sockaddr_in address = loopbackAddress(port);
    int result = 0;
    do {
        result =
            ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

} // namespace

RcloneWebConfigServer::RcloneWebConfigServer(RcloneWebConfigServerOptions options)
    : options_(std::move(options)) {}

RcloneWebConfigServer::RcloneWebConfigServer(RcloneRunner runner)
    : RcloneWebConfigServer(RcloneWebConfigServerOptions{.runner = std::move(runner)}) {}

RcloneWebConfigServer::~RcloneWebConfigServer() {
    try {
        stop();
    } catch (const std::exception&) {
        // Waiting failed (poll itself); the child's own destructor still kills and reaps it.
    }
}

std::optional<int> RcloneWebConfigServer::findFreePort() {
    return freeLoopbackPort();
}

std::string RcloneWebConfigServer::startWebConfig() {
    const auto program = options_.runner.resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    std::unique_lock lock(mutex_);
    stopLocked();
    const auto found = options_.portFinder ? options_.portFinder() : findFreePort();
    const int port = found.value_or(kFallbackPort);
    const std::vector<std::string> arguments{"rcd",
                                             "--rc-web-gui",
                                             "--log-level",
                                             "NOTICE",
                                             "--rc-addr",
                                             "127.0.0.1:" + std::to_string(port),
                                             "--rc-web-gui-no-open-browser"};
    std::vector<EnvironmentChange> environment = options_.runner.options().environmentChanges;
    const auto access = RcloneRemoteControlAccess::random().environmentChanges();
    environment.insert(environment.end(), access.begin(), access.end());
    RcloneProcessLog::debug("rclone web config spawn args=" + argumentsForLog(arguments));
    process_ = ChildProcess::spawn({.executable = *program,
                                    .arguments = arguments,
                                    .environmentChanges = environment,
                                    .killGracePeriod = options_.stopGracePeriod,
                                    .standardInput = ChildStandardInput::nullDevice});
    port_ = port;
    notices_ = std::make_shared<Notices>();
    reader_ = std::thread([process = process_.get(), notices = notices_] {
        std::string pending;
        const auto onOutput = [&](ChildOutputStream stream, std::string_view chunk) {
            if (stream != ChildOutputStream::standardError) {
                return;
            }
            pending.append(chunk);
            for (auto end = pending.find('\n'); end != std::string::npos;
                 end = pending.find('\n')) {
                const std::string line = pending.substr(0, end);
                pending.erase(0, end + 1);
                const std::lock_guard noticesLock(notices->mutex);
                if (!notices->loginAddress) {
                    notices->loginAddress = RcloneRemoteControlNotice::loginAddress(line);
                    notices->lastLine = line;
                    notices->changed.notify_all();
                }
            }
            if (pending.size() > kLongestKeptLine) {
                pending.clear();
            }
        };
        try {
            process->collectOutputAndWait(onOutput, false);
        } catch (const std::exception& error) {
            RcloneProcessLog::debug(std::string("rclone web config output lost: ") + error.what());
        }
        const std::lock_guard noticesLock(notices->mutex);
        notices->ended = true;
        notices->changed.notify_all();
    });

    std::unique_lock noticesLock(notices_->mutex);
    notices_->changed.wait_for(noticesLock, options_.startTimeout, [&] {
        return notices_->loginAddress.has_value() || notices_->ended;
    });
    if (notices_->loginAddress) {
        return *notices_->loginAddress;
    }
    const std::string said = Utf8Text::decodeLossy(notices_->lastLine);
    noticesLock.unlock();
    stopLocked();
    throw BrimvaleError::scanFailed("rclone", "the configuration helper did not start" +
                                                  (said.empty() ? "" : ": " + said));
}

bool RcloneWebConfigServer::waitUntilAnswering(std::chrono::milliseconds timeout,
                                               std::stop_token stopToken) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto running = port();
        if (!running) {
            return false;
        }
        if (acceptsConnections(*running)) {
            return true;
        }
        if (stopToken.stop_requested() || std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void RcloneWebConfigServer::stop() {
    std::lock_guard lock(mutex_);
    stopLocked();
}

void RcloneWebConfigServer::stopLocked() {
    if (!process_) {
        return;
    }
    process_->terminate();
    // The reader waits for the exit (SIGKILL after the grace period) and reaps the child.
    if (reader_.joinable()) {
        reader_.join();
    } else {
        process_->collectOutputAndWait();
    }
    RcloneProcessLog::debug("rclone web config stopped");
    process_.reset();
    notices_.reset();
    port_ = 0;
}

std::optional<int> RcloneWebConfigServer::port() const {
    std::lock_guard lock(mutex_);
    if (process_ && process_->isRunning()) {
        return port_;
    }
    return std::nullopt;
}

bool RcloneWebConfigServer::isRunning() const {
    return port().has_value();
}

} // namespace brimvale
