#pragma once

#include "core/rclone/RcloneRunner.h"

#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// One of the values rclone proposes for an option.
struct RcloneOptionExample {
    std::string value;
    std::string help;
    std::string provider; // the providers it is for, as RcloneBackendOption::provider

    friend bool operator==(const RcloneOptionExample&, const RcloneOptionExample&) = default;
};

// One configuration option of a backend, as `rclone config providers` describes it.
struct RcloneBackendOption {
    std::string name;
    std::string help;
    std::string type;        // "string", "bool", "int", "SizeSuffix", "Duration", …
    std::string defaultText; // "DefaultStr"
    // The values of the backend's "provider" option this option is for: "" for all, a
    // comma-separated list, or one starting with "!" for all but those.
    std::string provider;
    std::vector<RcloneOptionExample> examples;
    bool required = false;
    bool isPassword = false; // stored obscured; a secret
    bool advanced = false;
    bool exclusive = false; // the value must be one of the examples
    bool hiddenFromConfiguration = false;

    friend bool operator==(const RcloneBackendOption&, const RcloneBackendOption&) = default;
};

// A storage system rclone can reach: its type ("Prefix", what a remote's `type` holds), name
// and description, and its options in rclone's order.
struct RcloneBackend {
    std::string type;
    std::string name;
    std::string description;
    std::vector<RcloneBackendOption> options;

    const RcloneBackendOption* option(std::string_view optionName) const;

    friend bool operator==(const RcloneBackend&, const RcloneBackend&) = default;
};

using RcloneBackendList = std::vector<RcloneBackend>;

namespace RcloneBackends {

// Decodes the output of `rclone config providers`. Throws BrimvaleError::scanFailed
// ("rclone backends", "Invalid backend list: …") for text that is not that list.
// Pure: any thread.
RcloneBackendList parse(std::string_view json);

// Whether an option (or an example) whose provider field is `provider` applies when the
// backend's "provider" option is `chosenProvider`: rclone's rule (empty means every provider,
// a list names them, a leading "!" excludes them).
bool appliesToProvider(std::string_view provider, std::string_view chosenProvider);

// The backends of the rclone that `runner` finds, asked once per rclone program and kept for
// the life of the process (the list changes only with rclone). Blocking: call from a
// background thread. Throws like RcloneRunner::runRcloneCollectingStdout and parse.
std::shared_ptr<const RcloneBackendList> load(const RcloneRunner& runner,
                                              std::stop_token stopToken = {});

} // namespace RcloneBackends

} // namespace brimvale
