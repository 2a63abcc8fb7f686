#include "core/onboarding/RcloneWebConfigServer.h"

#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

int portOf(const std::string& url) {
    EXPECT_TRUE(url.starts_with("http://127.0.0.1:") && url.ends_with("/")) << url;
    return std::stoi(url.substr(std::string_view("http://127.0.0.1:").size()));
}

std::vector<std::vector<std::string>> rcdCommandLines() {
    std::vector<std::vector<std::string>> result;
    for (auto& child : testing::childProcessesOfThisProcess()) {
        if (child.state != 'Z' && std::ranges::count(child.commandLine, "rcd") == 1) {
            result.emplace_back(child.commandLine.begin() + 1, child.commandLine.end());
        }
    }
    return result;
}

bool answers(int port) {
    const auto reply = testing::httpRequest(port, "POST", "/rc/noop", "{}");
    return reply && reply->status == 200 && reply->body == "{}\n";
}

TEST(RcloneWebConfigServer, OneServerOnLoopbackUntilStopped) {
    testing::RcloneSandbox sandbox;
    RcloneWebConfigServer server(sandbox.realRunner());
    const int first = portOf(server.startWebConfig());
    ASSERT_TRUE(server.waitUntilAnswering(20s));
    // Offline the interface cannot be downloaded, but the remote-control API answers.
    EXPECT_TRUE(answers(first));
    EXPECT_EQ(rcdCommandLines(),
              (std::vector<std::vector<std::string>>{
                  {"rcd", "--rc-web-gui", "--rc-no-auth", "--rc-addr",
                   "127.0.0.1:" + std::to_string(first), "--rc-web-gui-no-open-browser"}}));

    const int second = portOf(server.startWebConfig()); // replaces the first
    ASSERT_TRUE(server.waitUntilAnswering(20s));
    EXPECT_TRUE(answers(second));
    EXPECT_EQ(rcdCommandLines().size(), 1u);
    EXPECT_TRUE(second == first || !testing::httpRequest(first, "POST", "/rc/noop"));

    server.stop();
    EXPECT_FALSE(server.port().has_value());
    EXPECT_FALSE(testing::httpRequest(second, "POST", "/rc/noop").has_value());
    EXPECT_FALSE(server.waitUntilAnswering(1s));
    int third = 0;
    {
        RcloneWebConfigServer scoped(sandbox.realRunner());
        third = portOf(scoped.startWebConfig());
        ASSERT_TRUE(scoped.waitUntilAnswering(20s));
    }
    EXPECT_FALSE(testing::httpRequest(third, "POST", "/rc/noop").has_value());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(RcloneWebConfigServer, PortChoiceAndFailures) {
    testing::RcloneSandbox sandbox;
    // Without a port from the system the fixed port is used.
    RcloneWebConfigServer fixed({.runner = sandbox.realRunner(), .portFinder = [] {
                                     return std::optional<int>();
                                 }});
    EXPECT_EQ(fixed.startWebConfig(), "http://127.0.0.1:5572/");
    fixed.stop();
    // A server whose port is taken exits and is not reported as running.
    RcloneWebConfigServer holder(sandbox.realRunner());
    const int taken = portOf(holder.startWebConfig());
    ASSERT_TRUE(holder.waitUntilAnswering(20s));
    RcloneWebConfigServer clash({.runner = sandbox.realRunner(), .portFinder = [=] {
                                     return std::optional(taken);
                                 }});
    clash.startWebConfig();
    EXPECT_TRUE(testing::waitUntil([&] { return !clash.isRunning(); }));

    RcloneWebConfigServer missing(RcloneRunner({.searchLocations = {.fixedPaths = {"/none"}}}));
    EXPECT_EQ(testing::brimvaleErrorOf(testing::failureOf([&] { missing.startWebConfig(); })),
              BrimvaleError::rcloneNotInstalled());
}

} // namespace
} // namespace brimvale
