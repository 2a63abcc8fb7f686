#include "core/onboarding/RcloneWebConfigServer.h"

#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::RcloneSandbox;

int portOf(const std::string& url) {
    const std::string prefix = "http://127.0.0.1:";
    EXPECT_TRUE(url.starts_with(prefix) && url.ends_with("/")) << url;
    return std::stoi(url.substr(prefix.size()));
}

std::vector<std::vector<std::string>> rcdCommandLines() {
    std::vector<std::vector<std::string>> result;
    for (const auto& child : testing::childProcessesOfThisProcess()) {
        if (child.state != 'Z' &&
            std::ranges::find(child.commandLine, "rcd") != child.commandLine.end()) {
            result.push_back(child.commandLine);
        }
    }
    return result;
}

bool answersNoop(int port) {
    const auto reply = testing::httpRequest(port, "POST", "/rc/noop", "{}");
    return reply && reply->status == 200 && reply->body.find("{}") != std::string::npos;
}

TEST(RcloneWebConfigServer, OneServerOnLoopbackAtATimeUntilStopped) {
    RcloneSandbox sandbox;
    RcloneWebConfigServer server(sandbox.realRunner());
    EXPECT_FALSE(server.isRunning());

    const int first = portOf(server.startWebConfig());
    ASSERT_TRUE(server.waitUntilAnswering(20s));
    EXPECT_EQ(server.port(), first);
    // Offline the interface cannot be downloaded, but the remote-control API answers.
    EXPECT_TRUE(answersNoop(first));
    const auto commandLines = rcdCommandLines();
    ASSERT_EQ(commandLines.size(), 1u);
    EXPECT_EQ(std::vector<std::string>(commandLines[0].begin() + 1, commandLines[0].end()),
              (std::vector<std::string>{"rcd", "--rc-web-gui", "--rc-no-auth", "--rc-addr",
                                        "127.0.0.1:" + std::to_string(first),
                                        "--rc-web-gui-no-open-browser"}));

    // A second start replaces the first server.
    const int second = portOf(server.startWebConfig());
    ASSERT_TRUE(server.waitUntilAnswering(20s));
    EXPECT_TRUE(answersNoop(second));
    EXPECT_EQ(rcdCommandLines().size(), 1u);
    if (second != first) {
        EXPECT_FALSE(testing::httpRequest(first, "POST", "/rc/noop", "{}").has_value());
    }

    server.stop();
    EXPECT_FALSE(server.isRunning());
    EXPECT_FALSE(server.port().has_value());
    EXPECT_FALSE(testing::httpRequest(second, "POST", "/rc/noop", "{}").has_value());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
    EXPECT_FALSE(server.waitUntilAnswering(1s));
    server.stop(); // stopping twice is harmless

    // The destructor stops a running server.
    int third = 0;
    {
        RcloneWebConfigServer scoped(sandbox.realRunner());
        third = portOf(scoped.startWebConfig());
        ASSERT_TRUE(scoped.waitUntilAnswering(20s));
    }
    EXPECT_FALSE(testing::httpRequest(third, "POST", "/rc/noop", "{}").has_value());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(RcloneWebConfigServer, PortsAndFailures) {
    // A free port is one that can be bound right afterwards.
    const auto port = RcloneWebConfigServer::findFreePort();
    ASSERT_TRUE(port.has_value());
    EXPECT_GT(*port, 0);
    EXPECT_LT(*port, 65536);

    RcloneSandbox sandbox;
    // Without a port from the system the helper's fixed port is used.
    RcloneWebConfigServer fixed({.runner = sandbox.realRunner(), .portFinder = [] {
                                     return std::optional<int>();
                                 }});
    EXPECT_EQ(fixed.startWebConfig(), "http://127.0.0.1:5572/");
    fixed.stop();

    // A server that cannot bind its port exits; it is not reported as running.
    RcloneWebConfigServer blocker(sandbox.realRunner());
    const int taken = portOf(blocker.startWebConfig());
    ASSERT_TRUE(blocker.waitUntilAnswering(20s));
    RcloneWebConfigServer clash({.runner = sandbox.realRunner(), .portFinder = [taken] {
                                     return std::optional<int>(taken);
                                 }});
    clash.startWebConfig();
    EXPECT_TRUE(testing::waitUntil([&] { return !clash.isRunning(); }));

    RcloneWebConfigServer missing(
        RcloneRunner({.searchLocations = {.fixedPaths = {"/nonexistent/rclone"}}}));
    EXPECT_EQ(testing::brimvaleErrorOf(testing::failureOf([&] { missing.startWebConfig(); })),
              BrimvaleError::rcloneNotInstalled());
    EXPECT_FALSE(missing.isRunning());
}

} // namespace
} // namespace brimvale
