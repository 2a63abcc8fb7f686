#include "tests/onboarding/OnboardingTestSupport.h"

#include "core/rclone/GenericRcloneAdapter.h"
#include "core/support/Task.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace brimvale::testing {

std::string scanFailedDetailOf(const std::exception_ptr& failure) {
    const BrimvaleError error = brimvaleErrorOf(failure);
    if (const auto* scanFailed = error.as<BrimvaleError::ScanFailed>()) {
        return scanFailed->detail;
    }
    return "(not scanFailed: " + error.description() + ")";
}

bool isCancellation(const std::exception_ptr& failure) {
    try {
        if (failure) {
            std::rethrow_exception(failure);
        }
    } catch (const CancellationError&) {
        return true;
    } catch (...) {
    }
    return false;
}

std::optional<HttpReply> httpRequest(int port, const std::string& method, const std::string& target,
                                     const std::string& body, const std::string& authorization) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return std::nullopt;
    }
    const timeval timeout{.tv_sec = 20, .tv_usec = 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    const std::string request =
        method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
        (authorization.empty() ? "" : "\r\nAuthorization: " + authorization) +
        "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\nConnection: close\r\n\r\n" + body;
    ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    std::string response;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(fd, buffer, sizeof buffer, 0);
        if (count > 0) {
            response.append(buffer, static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    ::close(fd);
    HttpReply reply;
    if (response.starts_with("HTTP/1.1 ") && response.size() >= 12) {
        reply.status = std::stoi(response.substr(9, 3));
    }
    const auto headerEnd = response.find("\r\n\r\n");
    if (headerEnd != std::string::npos) {
        reply.body = response.substr(headerEnd + 4);
    }
    return reply;
}

RcloneConfigDump configDump(const RcloneSandbox& sandbox) {
    const GenericRcloneAdapter configuration("", "", "configuration",
                                             {.runner = sandbox.realRunner()});
    return configuration.configDumpDictionary();
}

std::string revealed(const RcloneSandbox& sandbox, const std::string& obscuredValue) {
    std::string output = sandbox.realRunner().runRclone({"reveal", obscuredValue}, "reveal");
    while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) {
        output.pop_back();
    }
    return output;
}

OAuthPortLock::OAuthPortLock()
    : fd_(::open("/tmp/brimvale-tests-rclone-oauth-port.lock", O_RDWR | O_CREAT | O_CLOEXEC,
                 0666)) {
    if (fd_ >= 0) {
        while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
}

OAuthPortLock::~OAuthPortLock() {
    if (fd_ >= 0) {
        ::close(fd_); // releases the lock
    }
}

} // namespace brimvale::testing
