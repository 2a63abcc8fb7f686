#include "core/rclone/RcloneRemoteControl.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/LoopbackAddress.h"
#include "core/support/Task.h"
#include "core/support/UniqueFd.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

namespace brimvale {
namespace {

// A port taken between our check and rclone's bind is tried again this many times.
constexpr int kStartAttempts = 3;
// How often a wait looks at the stop token.
constexpr int kWaitSliceMilliseconds = 100;
// How long rclone may take to say it listens.
constexpr std::chrono::seconds kStartTimeout{60};
// A reply larger than this is not rclone's.
constexpr std::size_t kMaximumReplyBytes = 16 << 20;

struct Listening {};

void throwIfStopped(const std::stop_token& stopToken) {
    if (stopToken.stop_requested()) {
        throw CancellationError();
    }
}

// Waits until `fd` is ready for `events`, looking at the stop token now and then.
void waitFor(int fd, short events, const std::stop_token& stopToken) {
    for (;;) {
        throwIfStopped(stopToken);
        pollfd entry{.fd = fd, .events = events, .revents = 0};
        const int ready = ::poll(&entry, 1, kWaitSliceMilliseconds);
        if (ready > 0) {
            return;
        }
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "could not wait for rclone");
        }
    }
}

// One HTTP/1.0 exchange (the server closes the connection after its reply, which is never
// chunked); the whole response.
std::string exchange(int port, const std::string& request, const std::stop_token& stopToken) {
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.valid()) {
        throw std::system_error(errno, std::generic_category(), "could not make a socket");
    }
    const sockaddr_in address = loopbackAddress(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS) {
        throw std::system_error(errno, std::generic_category(), "could not reach rclone");
    }
    waitFor(socket.get(), POLLOUT, stopToken);
    int connectError = 0;
    socklen_t length = sizeof connectError;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &connectError, &length);
    if (connectError != 0) {
        throw std::system_error(connectError, std::generic_category(), "could not reach rclone");
    }
    std::string_view unsent = request;
    while (!unsent.empty()) {
        const ssize_t count = ::send(socket.get(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            unsent.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitFor(socket.get(), POLLOUT, stopToken);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "could not talk to rclone");
        }
    }
    std::string response;
    char buffer[16384];
    for (;;) {
        const ssize_t count = ::recv(socket.get(), buffer, sizeof buffer, 0);
        if (count > 0) {
            response.append(buffer, static_cast<std::size_t>(count));
            if (response.size() > kMaximumReplyBytes) {
                throw std::system_error(EMSGSIZE, std::generic_category(),
                                        "rclone's reply is too large");
            }
        } else if (count == 0) {
            return response;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitFor(socket.get(), POLLIN, stopToken);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "could not talk to rclone");
        }
    }
}

std::string withSecretsHidden(std::string text, const std::vector<std::string>& secrets) {
    for (const auto& secret : secrets) {
        if (secret.empty()) {
            continue;
        }
        for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 3)) {
            text.replace(at, secret.size(), "***");
        }
    }
    return text;
}

// The last line rclone wrote, for an error.
std::string lastLineOf(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    const auto newline = text.rfind('\n');
    return Utf8Text::decodeLossy(newline == text.npos ? text : text.substr(newline + 1));
}

} // namespace

std::optional<int> freeLoopbackPort() {
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

RcloneRemoteControl::RcloneRemoteControl(const RcloneRunner& runner,
                                         std::string remoteLabelForErrors,
                                         std::stop_token stopToken)
    : label_(std::move(remoteLabelForErrors))
    , access_(RcloneRemoteControlAccess::random()) {
    const auto program = runner.resolveRclonePath();
    if (!program) {
        throw BrimvaleError::rcloneNotInstalled();
    }
    std::string failure;
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        if (startOnce(*program, runner, stopToken, failure)) {
            return;
        }
    }
    throw BrimvaleError::scanFailed(label_, "rclone's remote control did not start: " + failure);
}

bool RcloneRemoteControl::startOnce(const std::string& program, const RcloneRunner& runner,
                                    std::stop_token stopToken, std::string& failure) {
    throwIfStopped(stopToken);
    const auto port = freeLoopbackPort();
    if (!port) {
        failure = "no free port on 127.0.0.1";
        return false;
    }
    std::vector<EnvironmentChange> environment = runner.options().environmentChanges;
    const auto access = access_.environmentChanges();
    environment.insert(environment.end(), access.begin(), access.end());
    const std::vector<std::string> arguments{"rcd", "--log-level", "NOTICE", "--rc-addr",
                                             "127.0.0.1:" + std::to_string(*port)};
    RcloneProcessLog::debug("rclone remote control spawn args=" + argumentsForLog(arguments));
    auto process = ChildProcess::spawn({.executable = program,
                                        .arguments = arguments,
                                        .environmentChanges = environment,
                                        .killGracePeriod = std::chrono::seconds(3),
                                        .standardInput = ChildStandardInput::nullDevice});
    std::optional<std::stop_callback<std::function<void()>>> onStop;
    onStop.emplace(stopToken, [&process] { process->terminate(); });
    // A server that never says it listens (a stuck configuration file) is ended.
    std::atomic<bool> timedOut = false;
    std::jthread watchdog([&](std::stop_token watching) {
        std::mutex mutex;
        std::condition_variable_any woken;
        std::unique_lock lock(mutex);
        if (!woken.wait_for(lock, watching, kStartTimeout, [] { return false; })) {
            if (!watching.stop_requested()) {
                timedOut = true;
                process->terminate();
            }
        }
    });
    // rclone says it is serving only once it holds the port: until then a request could reach
    // whoever took the port first.
    std::string said;
    try {
        const auto result =
            process->collectOutputAndWait([&](ChildOutputStream stream, std::string_view chunk) {
                if (stream != ChildOutputStream::standardError) {
                    return;
                }
                said.append(chunk);
                for (std::size_t end = said.find('\n'); end != std::string::npos;
                     end = said.find('\n')) {
                    const bool serving = RcloneRemoteControlNotice::saysServing(
                        std::string_view(said).substr(0, end));
                    if (serving) {
                        throw Listening{};
                    }
                    failure = lastLineOf(said.substr(0, end));
                    said.erase(0, end + 1);
                }
            });
        throwIfStopped(stopToken);
        if (timedOut) {
            throw BrimvaleError::scanFailed(
                label_, "rclone's remote control did not start: no answer within " +
                            std::to_string(kStartTimeout.count()) + " s");
        }
        if (!said.empty()) {
            failure = lastLineOf(said);
        }
        if (failure.empty()) {
            failure = "exit " + std::to_string(result.exitStatus);
        }
        return false;
    } catch (const Listening&) {
    }
    // Neither may touch the process once it is handed over.
    watchdog.request_stop();
    watchdog.join();
    onStop.reset();
    throwIfStopped(stopToken);
    process_ = std::move(process);
    port_ = *port;
    return true;
}

RcloneRemoteControl::~RcloneRemoteControl() {
    if (!process_) {
        return;
    }
    process_->terminate();
    try {
        process_->collectOutputAndWait();
    } catch (const std::exception&) {
        // The child's own destructor kills and reaps it.
    }
}

std::string RcloneRemoteControl::call(std::string_view method, const std::string& body,
                                      const std::vector<std::string>& secrets,
                                      std::stop_token stopToken) {
    RcloneProcessLog::debug("rclone remote control call " + std::string(method));
    const std::string request =
        "POST /" + std::string(method) + " HTTP/1.0\r\nHost: 127.0.0.1:" + std::to_string(port_) +
        "\r\nAuthorization: " + access_.basicAuthorization() +
        "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
    const std::string response = exchange(port_, request, stopToken);
    const auto headerEnd = response.find("\r\n\r\n");
    int status = 0;
    if (response.starts_with("HTTP/1.") && response.size() >= 12) {
        status = std::atoi(response.substr(9, 3).c_str());
    }
    if (headerEnd == std::string::npos || status == 0) {
        throw BrimvaleError::scanFailed(label_, "rclone's remote control gave no answer");
    }
    std::string reply = response.substr(headerEnd + 4);
    if (status == 200) {
        return reply;
    }
    // The reply repeats the request (with its secrets) under "input": only "error" is read.
    std::string explanation =
        "rclone refused " + std::string(method) + " (HTTP " + std::to_string(status) + ")";
    const auto document = nlohmann::json::parse(reply, nullptr, false);
    if (document.is_object() && document.contains("error") && document["error"].is_string()) {
        explanation = Utf8Text::decodeLossy(document["error"].get<std::string>());
    }
    throw BrimvaleError::scanFailed(label_, withSecretsHidden(explanation, secrets));
}

} // namespace brimvale
