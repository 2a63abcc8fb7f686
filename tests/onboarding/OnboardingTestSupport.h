#pragma once

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneConfigDump.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <exception>
#include <optional>
#include <string>

namespace brimvale::testing {

// The exception `run` ends with, or null when it succeeds.
template <class Run> std::exception_ptr failureOf(Run&& run) {
    try {
        run();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

// The ScanFailed detail inside `failure`, or a description of what it held instead.
std::string scanFailedDetailOf(const std::exception_ptr& failure);
// Whether `failure` holds a CancellationError.
bool isCancellation(const std::exception_ptr& failure);

// One HTTP/1.1 exchange with 127.0.0.1:`port` (Connection: close), with an Authorization
// header when one is given; nothing when the port refuses the connection.
struct HttpReply {
    int status = 0;
    std::string body;
};
std::optional<HttpReply> httpRequest(int port, const std::string& method, const std::string& target,
                                     const std::string& body = {},
                                     const std::string& authorization = {});

// The configuration as rclone reads it, and a value revealed from its obscured form.
RcloneConfigDump configDump(const RcloneSandbox& sandbox);
std::string revealed(const RcloneSandbox& sandbox, const std::string& obscuredValue);

// Held while a test runs rclone's OAuth step: rclone's local sign-in server always takes port
// 53682, so test programs running side by side take turns (a lock file).
class OAuthPortLock {
public:
    OAuthPortLock();
    ~OAuthPortLock();
    OAuthPortLock(const OAuthPortLock&) = delete;
    OAuthPortLock& operator=(const OAuthPortLock&) = delete;

private:
    int fd_ = -1;
};

} // namespace brimvale::testing
