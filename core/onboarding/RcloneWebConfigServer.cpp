#include "core/onboarding/RcloneWebConfigServer.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
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

sockaddr_in loopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

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
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.valid()) {
        return std::nullopt;
    }
    sockaddr_in address = loopbackAddress(0);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return std::nullopt;
    }
    socklen_t length = sizeof address;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return std::nullopt;
    }
    return ntohs(address.sin_port);
}

std::string RcloneWebConfigServer::startWebConfig() {
    const auto program = options_.runner.resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    std::lock_guard lock(mutex_);
    stopLocked();
    const auto found = options_.portFinder ? options_.portFinder() : findFreePort();
    const int port = found.value_or(kFallbackPort);
    const std::vector<std::string> arguments{"rcd",
                                             "--rc-web-gui",
                                             "--rc-no-auth",
                                             "--rc-addr",
                                             "127.0.0.1:" + std::to_string(port),
                                             "--rc-web-gui-no-open-browser"};
    RcloneProcessLog::debug("rclone web config spawn args=" + argumentsForLog(arguments));
    process_ =
        ChildProcess::spawn({.executable = *program,
                             .arguments = arguments,
                             .environmentChanges = options_.runner.options().environmentChanges,
                             .killGracePeriod = options_.stopGracePeriod,
                             .standardInput = ChildStandardInput::nullDevice,
                             .outputs = ChildOutputs::nullDevice});
    port_ = port;
    return "http://127.0.0.1:" + std::to_string(port) + "/";
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
    // Waits for the exit (SIGKILL after the grace period) and reaps the child.
    const ChildProcessResult result = process_->collectOutputAndWait();
    RcloneProcessLog::debug("rclone web config stopped exit=" + std::to_string(result.exitStatus));
    process_.reset();
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
