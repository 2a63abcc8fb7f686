#pragma once

#include "core/rclone/ChildProcess.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace brimvale::testing {

// The real brimvale-cli as a person runs it, with the sandbox's rclone configuration and its
// own settings and cache folders under `home`; never a browser (no display).
class CliProgram {
public:
    CliProgram(const RcloneSandbox& sandbox, std::filesystem::path home)
        : sandbox_(sandbox)
        , home_(std::move(home)) {}

    std::vector<EnvironmentChange> environment() const;
    std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments,
                                        std::vector<EnvironmentChange> extra = {}) const;
    ChildProcessResult run(std::vector<std::string> arguments,
                           std::vector<EnvironmentChange> extra = {}) const;
    // Where the program keeps the saved scan of `stem`.
    std::filesystem::path cacheFile(const std::string& stem) const;
    std::filesystem::path cacheDirectory() const { return home_ / "cache" / "Brimvale"; }

private:
    const RcloneSandbox& sandbox_;
    std::filesystem::path home_;
};

} // namespace brimvale::testing
