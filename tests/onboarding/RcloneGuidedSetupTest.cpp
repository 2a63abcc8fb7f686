#include "core/onboarding/RcloneGuidedSetup.h"

#include "core/rclone/ScanErrorInfo.h"
#include "core/rclone/Utf8Text.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <map>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using Outcome = RcloneGuidedSetupOutcome;
using testing::failureOf;
using testing::scanFailedDetailOf;

const OAuthURLCallback kNoSignIn = [](const std::string& url) {
    ADD_FAILURE() << url;
};

// Shell commands that print what a fake rclone prints for one command line.
std::string prints(const std::string& output, const std::string& error = {}, int status = 0) {
    const auto quoted = [](const std::string& text) {
        std::string result = "'";
        for (const char c : text) {
            result += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return result + "'";
    };
    return "printf '%s' " + quoted(output) + "; printf '%s' " + quoted(error) + " >&2; exit " +
           std::to_string(status);
}

// A fake rclone for protocol turns a real one cannot be made to produce on demand. It knows
// `config dump` (no remotes) and `config paths`, runs the commands given for each command line
// (its arguments in brackets: "[config][show][x]"), logs every command line and fails
// otherwise.
RcloneGuidedSetup fakeSetup(testing::RcloneSandbox& sandbox,
                            std::map<std::string, std::string> replies) {
    replies.try_emplace("[config][dump]", prints("{}"));
    replies.try_emplace("[config][paths]", prints("Config file: " + sandbox.configPath().string()));
    std::string body = "line=''; for a in \"$@\"; do line=\"$line[$a]\"; done\n"
                       "echo \"$line\" >> \"$RCLONE_CONFIG.calls\"\ncase \"$line\" in\n";
    for (const auto& [commandLine, commands] : replies) {
        body += "'" + commandLine + "') " + commands + " ;;\n";
    }
    return RcloneGuidedSetup(sandbox.fakeRunner(body + "*) exit 9 ;;\nesac"));
}

const std::string kCreate = "[config][create][--non-interactive][--][x][webdav]";
const std::string kContinue = "[config][update][--non-interactive][--continue][--state=";

TEST(RcloneGuidedSetup, RealRcloneWithoutSignIn) {
    testing::RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    RcloneGuidedProcessBox box;
    // A local remote is complete when the protocol ends; a memory remote is written too but
    // holds no token, so the web helper is offered. Again: `config update`, same outcomes.
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(setup.configureIfPossible("disk", "local", box, kNoSignIn), Outcome::completed);
        EXPECT_EQ(setup.configureIfPossible("mem", "memory", box, kNoSignIn),
                  Outcome::needsInteractiveWebConfig);
    }
    EXPECT_EQ(setup.reconnectRemote("mem", "memory", box, kNoSignIn),
              Outcome::needsInteractiveWebConfig);
    EXPECT_EQ(testing::configDump(sandbox).at("mem").at("type"), "memory");

    const auto detail = [&](auto run) {
        return scanFailedDetailOf(failureOf(run));
    };
    EXPECT_EQ(detail([&] { setup.configureIfPossible("mem", "local", box, kNoSignIn); }),
              "Remote \"mem\" exists with type \"memory\", expected \"local\".");
    EXPECT_EQ(detail([&] { setup.reconnectRemote("mem", "drive", box, kNoSignIn); }),
              "Account type mismatch for this connection.");
    EXPECT_EQ(testing::brimvaleErrorOf(
                  failureOf([&] { setup.reconnectRemote("ghost", "memory", box, kNoSignIn); })),
              BrimvaleError::remoteNotConfigured("ghost"));
    // Jottacloud's login type is answered with its default, then it wants a personal token.
    EXPECT_EQ(detail([&] { setup.configureIfPossible("jc", "jottacloud", box, kNoSignIn); }),
              "Missing configuration step.");
    EXPECT_EQ(testing::configDump(sandbox).at("jc").at("type"), "jottacloud"); // left for Reconnect
    EXPECT_NE(detail([&] {
                  setup.configureIfPossible("mg", "mega", box, kNoSignIn);
              }).find("couldn't find backend"),
              std::string::npos);
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());

    const RcloneGuidedSetup missing(RcloneRunner({.searchLocations = {.fixedPaths = {"/none"}}}));
    EXPECT_EQ(testing::brimvaleErrorOf(
                  failureOf([&] { missing.configureIfPossible("gd", "drive", box, kNoSignIn); })),
              BrimvaleError::rcloneNotInstalled());
    EXPECT_EQ(missing.verifyTokenOrNeedsWebUI("disk", "local", box), Outcome::completed);
}

TEST(RcloneGuidedSetup, ProtocolTurnsAndFailures) {
    testing::RcloneSandbox sandbox;
    RcloneGuidedProcessBox box;
    // Each question is answered with the nine-argument continue command; the end is checked
    // textually for a token.
    const auto answered = fakeSetup(
        sandbox,
        {{kCreate,
          prints(R"({"State":"s1","Option":{"Name":"f","Type":"bool","DefaultStr":"true"}})")},
         {kContinue + "s1][--result=true][--][x]",
          prints(R"({"State":"s 2;'","Option":{"Name":"client_secret","Type":"string"}})")},
         {kContinue + "s 2;'\\''][--result=][--][x]",
          prints("\n{\"State\":\"\",\"Option\":null}\n")},
         {"[config][show][x]", prints("[x]\ntype = webdav\ntoken = {}\n")}});
    EXPECT_EQ(answered.configureIfPossible("x", "webdav", box, kNoSignIn), Outcome::completed);
    EXPECT_EQ(testing::readFile(sandbox.configPath().string() + ".calls"),
              "[config][dump]\n[config][paths]\n" + kCreate + "\n" + kContinue +
                  "s1][--result=true][--][x]\n" + kContinue +
                  "s 2;'][--result=][--][x]\n[config][show][x]\n");

    const auto failing = [&](const std::string& firstStep,
                             std::map<std::string, std::string> more = {}) {
        more[kCreate] = firstStep;
        return scanFailedDetailOf(failureOf(
            [&] { fakeSetup(sandbox, more).configureIfPossible("x", "webdav", box, kNoSignIn); }));
    };
    EXPECT_EQ(failing(prints(R"({"State":"s","Error":"bad \"y\""})")), "bad \"y\"");
    EXPECT_EQ(failing(prints(R"({"State":"s1","Option":null})")),
              "Unexpected configuration response.");
    EXPECT_EQ(failing(prints("{\"State\":\"\xC3\x28\"}")), "config: invalid UTF-8");
    EXPECT_EQ(failing(prints(R"({"State":"s","Option":{"Name":"client_id","Required":true}})")),
              "Missing configuration step.");
    EXPECT_EQ(failing(prints("", "", 3)), "exit 3");
    EXPECT_EQ(failing(prints(R"({"State":"s","Option":{"Name":"n","DefaultStr":"d"}})"),
                      {{kContinue + "s][--result=d][--][x]", prints("", "later failure\n", 2)}}),
              "later failure\n");
    EXPECT_EQ(fakeSetup(sandbox, {{"[config][show][x]", prints("token=x")}})
                  .verifyTokenOrNeedsWebUI("x", "webdav", box),
              Outcome::needsInteractiveWebConfig);
    EXPECT_THROW(fakeSetup(sandbox, {{"[config][paths]", prints("Cache dir: /c\n")}})
                     .configureIfPossible("x", "webdav", box, kNoSignIn),
                 std::runtime_error);

    // A sign-in callback that throws ends the waiting OAuth step with it.
    const auto throwing = fakeSetup(
        sandbox,
        {{kCreate, prints(R"({"State":"o","Option":{"Name":"config_is_local","Type":"bool"}})")},
         {kContinue + "o][--result=true][--][x]",
          "echo 'go to http://localhost:53682/auth?state=abc' >&2; exec sleep 60"}});
    EXPECT_THROW(throwing.configureIfPossible(
                     "x", "webdav", box, [](const std::string&) { throw std::logic_error("no"); }),
                 std::logic_error);
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

// A Google Drive setup on a thread of its own, driven by the test.
struct DriveSignIn {
    std::atomic<int> addressCount{0};
    std::promise<std::string> address;
    RcloneGuidedProcessBox box;
    std::stop_source stop;
    std::future<Outcome> outcome;

    explicit DriveSignIn(const RcloneGuidedSetup& setup) {
        outcome = std::async(std::launch::async, [this, &setup] {
            return setup.configureIfPossible(
                "gd", "drive", box,
                [this](const std::string& url) {
                    if (addressCount.fetch_add(1) == 0) {
                        address.set_value(url);
                    }
                },
                stop.get_token());
        });
    }
    ~DriveSignIn() { box.terminate(); } // a test that stops early must not wait for a sign-in

    // The address rclone printed, and its state.
    std::pair<std::string, std::string> waitForAddress() {
        auto future = address.get_future();
        if (future.wait_for(60s) != std::future_status::ready) {
            return {};
        }
        const std::string url = future.get();
        return {url, url.substr(url.find("state=") + 6)};
    }
    std::exception_ptr failure() {
        return failureOf([&] { outcome.get(); });
    }
};

TEST(RcloneGuidedSetup, DriveSignInEndedThroughTheBoxOrTheStopToken) {
    const testing::OAuthPortLock portLock;
    testing::RcloneSandbox sandbox;
    // The remote's template keys go before rclone starts; other sections keep theirs.
    sandbox.addRemote("gd", "drive", {{"config_template", "x"}, {"config_template_file", "/p"}});
    sandbox.addRemote("keep", "memory", {{"config_template", "mine"}});
    const RcloneGuidedSetup setup(sandbox.realRunner());
    {
        DriveSignIn signIn(setup);
        const auto [url, state] = signIn.waitForAddress();
        ASSERT_TRUE(url.starts_with("http://127.0.0.1:53682/auth?state=")) << url;
        ASSERT_TRUE(signIn.box.runningProcessID().has_value()); // waiting for the browser
        const auto dump = testing::configDump(sandbox);
        EXPECT_EQ(dump.at("gd"), (RemoteConfigSection{{"type", "drive"}}));
        EXPECT_EQ(dump.at("keep").at("config_template"), "mine");

        signIn.box.terminate();
        const auto error = testing::brimvaleErrorOf(signIn.failure());
        EXPECT_EQ(error.as<BrimvaleError::ScanFailed>()->accountName, "gd");
        EXPECT_EQ(signIn.addressCount.load(), 1);
        EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
        // The terminated box starts nothing more.
        EXPECT_TRUE(testing::isCancellation(
            failureOf([&] { setup.configureIfPossible("gd", "drive", signIn.box, kNoSignIn); })));
    }
    DriveSignIn signIn(setup);
    ASSERT_FALSE(signIn.waitForAddress().first.empty());
    signIn.stop.request_stop();
    EXPECT_TRUE(testing::isCancellation(signIn.failure()));
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(RcloneGuidedSetup, DriveSignInAnsweredAtTheLocalAddress) {
    const testing::OAuthPortLock portLock;
    testing::RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    // The browser comes back without a code (access refused), or with a made-up one that
    // rclone cannot trade for a token.
    for (const std::string answer : {"&error=access_denied", "&code=made-up"}) {
        DriveSignIn signIn(setup);
        const auto [url, state] = signIn.waitForAddress();
        ASSERT_FALSE(url.empty());
        ASSERT_TRUE(testing::httpRequest(53682, "GET", "/?state=" + state + answer).has_value());
        const auto error = testing::brimvaleErrorOf(signIn.failure());
        const std::string message = ScanErrorInfo::addAccountFlowMessage(error);
        if (answer.starts_with("&error")) {
            EXPECT_TRUE(message.starts_with("The provider did not confirm access\u2014"))
                << message;
        } else {
            EXPECT_NE(error.description().find("failed to get token"), std::string::npos);
            EXPECT_EQ(message.find("Usage:"), std::string::npos);
            EXPECT_LE(Utf8Text::characterCount(message), 258u) << message;
        }
        EXPECT_EQ(signIn.addressCount.load(), 1);
    }
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

} // namespace
} // namespace brimvale
