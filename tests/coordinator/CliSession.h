#pragma once

#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace brimvale::testing {

// brimvale-cli in a home and rclone configuration of its own, run with an expected exit status.
struct CliSession {
    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};

    ChildProcessResult run(std::vector<std::string> arguments, int status) const {
        auto result = cli.run(std::move(arguments));
        EXPECT_EQ(result.exitStatus, status) << result.standardOutput << result.standardError;
        return result;
    }
    // The command's --json output, the command having succeeded.
    nlohmann::json json(std::vector<std::string> arguments) const {
        arguments.push_back("--json");
        return nlohmann::json::parse(run(std::move(arguments), 0).standardOutput);
    }
};

} // namespace brimvale::testing
