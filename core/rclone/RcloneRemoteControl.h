#pragma once

#include "core/rclone/ChildProcess.h"
#include "core/rclone/RcloneRemoteControlAccess.h"
#include "core/rclone/RcloneRunner.h"

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// A short-lived rclone remote-control server (`rclone rcd`, no web interface) on 127.0.0.1,
// with credentials of its own, for requests whose parameters must stay off every command line
// (a password typed into a form): they travel in the body of an HTTP request instead. The
// server runs from construction to destruction.
//
// Thread safety: one thread at a time.
class RcloneRemoteControl {
public:
    // Starts the server and waits until it listens. Throws BrimvaleError::rcloneNotInstalled,
    // std::system_error when it cannot be started, BrimvaleError::scanFailed (for
    // `remoteLabelForErrors`) when it exits instead, CancellationError when `stopToken` is
    // stopped.
    RcloneRemoteControl(const RcloneRunner& runner, std::string remoteLabelForErrors,
                        std::stop_token stopToken = {});
    ~RcloneRemoteControl();
    RcloneRemoteControl(const RcloneRemoteControl&) = delete;
    RcloneRemoteControl& operator=(const RcloneRemoteControl&) = delete;

    // POSTs the JSON object `body` to `method` ("config/create") and returns the JSON reply.
    // A refusal throws BrimvaleError::scanFailed with rclone's explanation, in which every
    // text of `secrets` is replaced by "***" (the reply's copy of the request is never used);
    // CancellationError when `stopToken` is stopped.
    std::string call(std::string_view method, const std::string& body,
                     const std::vector<std::string>& secrets, std::stop_token stopToken = {});

    int port() const { return port_; }
    const RcloneRemoteControlAccess& access() const { return access_; }

private:
    bool startOnce(const std::string& program, const RcloneRunner& runner,
                   std::stop_token stopToken, std::string& failure);

    std::string label_;
    RcloneRemoteControlAccess access_;
    std::unique_ptr<ChildProcess> process_;
    int port_ = 0;
};

// A port on 127.0.0.1 that was free a moment ago (bound with port 0, read back, released), or
// nothing when no socket could be made or bound.
std::optional<int> freeLoopbackPort();

} // namespace brimvale
