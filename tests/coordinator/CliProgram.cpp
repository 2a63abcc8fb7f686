#include "tests/coordinator/CliProgram.h"

namespace brimvale::testing {

std::vector<EnvironmentChange> CliProgram::environment() const {
    auto changes = sandbox_.environment();
    changes.push_back({"XDG_CACHE_HOME", (home_ / "cache").string()});
    changes.push_back({"XDG_CONFIG_HOME", (home_ / "config").string()});
    changes.push_back({"DISPLAY", std::nullopt});
    changes.push_back({"WAYLAND_DISPLAY", std::nullopt});
    return changes;
}

std::unique_ptr<ChildProcess> CliProgram::start(std::vector<std::string> arguments,
                                                std::vector<EnvironmentChange> extra) const {
    auto changes = environment();
    changes.insert(changes.end(), extra.begin(), extra.end());
    return ChildProcess::spawn(ChildProcessOptions{.executable = BRIMVALE_CLI_PROGRAM,
                                                   .arguments = std::move(arguments),
                                                   .environmentChanges = std::move(changes)});
}

ChildProcessResult CliProgram::run(std::vector<std::string> arguments,
                                   std::vector<EnvironmentChange> extra) const {
    return start(std::move(arguments), std::move(extra))->collectOutputAndWait();
}

std::filesystem::path CliProgram::cacheFile(const std::string& stem) const {
    return cacheDirectory() / (stem + ".cache");
}

} // namespace brimvale::testing
