#include "core/onboarding/RcloneGuidedSetup.h"

#include "core/rclone/ScanErrorInfo.h"
#include "core/rclone/Utf8Text.h"
#include "core/support/Task.h"
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
using testing::RcloneSandbox;
using testing::scanFailedDetailOf;

const OAuthURLCallback kNoSignInExpected = [](const std::string& url) {
    ADD_FAILURE() << "unexpected sign-in address " << url;
};

// What the fake rclone prints for one command line.
struct FakeReply {
    std::string standardOutput;
    std::string standardError;
    int exitStatus = 0;
};

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

// A fake rclone for protocol turns a real one cannot be made to produce: it answers each
// command line, written as its arguments in brackets ("[config][dump]"), with a fixed reply,
// appends every command line it gets to `log`, and fails with status 9 on any other.
RcloneRunner protocolFake(RcloneSandbox& sandbox, const std::map<std::string, FakeReply>& replies,
                          const std::filesystem::path& log) {
    std::string body = "line=''\nfor a in \"$@\"; do line=\"$line[$a]\"; done\n"
                       "printf '%s\\n' \"$line\" >> " +
                       shellQuoted(log.string()) + "\ncase \"$line\" in\n";
    for (const auto& [commandLine, reply] : replies) {
        body += shellQuoted(commandLine) + ")\n  printf '%s' " + shellQuoted(reply.standardOutput) +
                "\n  printf '%s' " + shellQuoted(reply.standardError) + " >&2\n  exit " +
                std::to_string(reply.exitStatus) + " ;;\n";
    }
    body += "*) echo \"unexpected: $line\" >&2; exit 9 ;;\nesac";
    return sandbox.fakeRunner(body);
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::size_t start = 0;
    while (start < text.size()) {
        const auto end = text.find('\n', start);
        result.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return result;
}

TEST(RcloneGuidedSetup, TypesWithoutSignInAndTypeMismatches) {
    RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    RcloneGuidedProcessBox box;

    // A local remote is complete as soon as the protocol ends; a memory remote is configured
    // too but holds no token, so the web helper is offered.
    EXPECT_EQ(setup.configureIfPossible("disk", "local", box, kNoSignInExpected),
              Outcome::completed);
    EXPECT_EQ(setup.configureIfPossible("mem", "memory", box, kNoSignInExpected),
              Outcome::needsInteractiveWebConfig);
    auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump["disk"]["type"], "local");
    EXPECT_EQ(dump["mem"]["type"], "memory");
    // Again on the existing remotes: `config update`, same outcomes.
    EXPECT_EQ(setup.configureIfPossible("disk", "local", box, kNoSignInExpected),
              Outcome::completed);
    EXPECT_EQ(setup.reconnectRemote("mem", "memory", box, kNoSignInExpected),
              Outcome::needsInteractiveWebConfig);

    EXPECT_EQ(scanFailedDetailOf(failureOf(
                  [&] { setup.configureIfPossible("mem", "local", box, kNoSignInExpected); })),
              "Remote \"mem\" exists with type \"memory\", expected \"local\".");
    EXPECT_EQ(scanFailedDetailOf(failureOf(
                  [&] { setup.reconnectRemote("mem", "drive", box, kNoSignInExpected); })),
              "Account type mismatch for this connection.");
    const auto missing = testing::brimvaleErrorOf(
        failureOf([&] { setup.reconnectRemote("ghost", "memory", box, kNoSignInExpected); }));
    EXPECT_EQ(missing, BrimvaleError::remoteNotConfigured("ghost"));
    EXPECT_EQ(ScanErrorInfo::addAccountFlowMessage(missing),
              "Account \"ghost\" is not set up yet.");
    // Nothing was left running.
    EXPECT_FALSE(box.runningProcessID().has_value());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(RcloneGuidedSetup, QuestionsWithoutADefaultStopTheFlow) {
    RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    RcloneGuidedProcessBox box;
    // Jottacloud asks for its login type (answered with the default, "standard"), then for a
    // personal login token that only the user has.
    EXPECT_EQ(scanFailedDetailOf(failureOf(
                  [&] { setup.configureIfPossible("jc", "jottacloud", box, kNoSignInExpected); })),
              "Missing configuration step.");
    // SugarSync asks for a user name at once.
    EXPECT_EQ(scanFailedDetailOf(failureOf(
                  [&] { setup.configureIfPossible("ss", "sugarsync", box, kNoSignInExpected); })),
              "Missing configuration step.");
    // What rclone wrote stays, for Reconnect to finish.
    const auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump.at("jc").at("type"), "jottacloud");
    // A backend this rclone lacks fails the first step with rclone's own words.
    const auto mega = scanFailedDetailOf(
        failureOf([&] { setup.configureIfPossible("mg", "mega", box, kNoSignInExpected); }));
    EXPECT_NE(mega.find("couldn't find backend for type \"mega\""), std::string::npos) << mega;
}

TEST(RcloneGuidedSetup, WithoutRcloneNothingRunsButLocalNeedsNoCheck) {
    const RcloneGuidedSetup setup(
        RcloneRunner({.searchLocations = {.fixedPaths = {"/nonexistent/rclone"}}}));
    RcloneGuidedProcessBox box;
    const auto notInstalled = BrimvaleError::rcloneNotInstalled();
    EXPECT_EQ(testing::brimvaleErrorOf(failureOf(
                  [&] { setup.configureIfPossible("gd", "drive", box, kNoSignInExpected); })),
              notInstalled);
    EXPECT_EQ(testing::brimvaleErrorOf(
                  failureOf([&] { setup.reconnectRemote("gd", "drive", box, kNoSignInExpected); })),
              notInstalled);
    EXPECT_EQ(testing::brimvaleErrorOf(
                  failureOf([&] { setup.verifyTokenOrNeedsWebUI("gd", "drive", box); })),
              notInstalled);
    // "local" never asks rclone.
    EXPECT_EQ(setup.verifyTokenOrNeedsWebUI("disk", "local", box), Outcome::completed);
}

TEST(RcloneGuidedSetup, AnswersEachQuestionWithTheContinueCommand) {
    RcloneSandbox sandbox;
    const auto log = sandbox.folder() / "calls.log";
    const std::string question1 =
        R"({"State":"s1","Option":{"Name":"flag","Type":"bool","DefaultStr":"true","Help":"Ordinary"}})";
    const std::string question2 =
        R"({"State":"s2","Option":{"Name":"config_fs_advanced","Type":"bool","DefaultStr":"true","Help":"Edit advanced config?"}})";
    const std::string question3 =
        R"({"State":"s 3;'x'","Option":{"Name":"client_secret","Type":"string"}})";
    const std::string update = "[config][update][x][--non-interactive][--continue][--state]";
    const auto runner = protocolFake(
        sandbox,
        {{"[config][dump]", {"{}"}},
         {"[config][paths]", {"Config file: " + sandbox.configPath().string() + "\n"}},
         {"[config][create][x][webdav][--non-interactive]", {question1}},
         {update + "[s1][--result][true]", {question2}},
         {update + "[s2][--result][false]", {question3}},
         {update + "[s 3;'x'][--result][]", {"\n{\"State\":\"\",\"Option\":null}\n\n"}},
         {"[config][show][x]", {"[x]\ntype = webdav\ntoken = {\"a\":1}\n"}}},
        log);
    RcloneGuidedProcessBox box;
    EXPECT_EQ(RcloneGuidedSetup(runner).configureIfPossible("x", "webdav", box, kNoSignInExpected),
              Outcome::completed);
    EXPECT_EQ(
        lines(testing::readFile(log)),
        (std::vector<std::string>{"[config][dump]", "[config][paths]",
                                  "[config][create][x][webdav][--non-interactive]",
                                  update + "[s1][--result][true]", update + "[s2][--result][false]",
                                  update + "[s 3;'x'][--result][]", "[config][show][x]"}));
}

TEST(RcloneGuidedSetup, ProtocolFailuresCarryTheirTexts) {
    RcloneSandbox sandbox;
    const auto log = sandbox.folder() / "calls.log";
    const std::string create = "[config][create][x][webdav][--non-interactive]";
    const auto run = [&](const FakeReply& firstStep, std::map<std::string, FakeReply> more = {}) {
        more["[config][dump]"] = {"{}"};
        more["[config][paths]"] = {"Config file: " + sandbox.configPath().string() + "\n"};
        more[create] = firstStep;
        const RcloneGuidedSetup setup(protocolFake(sandbox, more, log));
        RcloneGuidedProcessBox box;
        return failureOf([&] { setup.configureIfPossible("x", "webdav", box, kNoSignInExpected); });
    };
    EXPECT_EQ(scanFailedDetailOf(run({R"({"State":"s","Error":"bad key \"y\""})"})),
              "bad key \"y\"");
    EXPECT_EQ(scanFailedDetailOf(run({R"({"State":"s1","Option":null})"})),
              "Unexpected configuration response.");
    EXPECT_EQ(scanFailedDetailOf(run({"{\"State\":\"\xC3\x28\"}"})), "config: invalid UTF-8");
    EXPECT_TRUE(scanFailedDetailOf(run({""})).starts_with("Invalid configuration data: "));
    EXPECT_EQ(scanFailedDetailOf(
                  run({R"({"State":"s","Option":{"Name":"client_secret","Required":true}})"})),
              "Missing configuration step.");
    EXPECT_EQ(scanFailedDetailOf(run({"", "", 3})), "exit 3");
    EXPECT_EQ(scanFailedDetailOf(run({"{}", "Error: no such thing\n", 1})),
              "Error: no such thing\n");
    // A later step's failure, and a finished protocol whose remote holds no token.
    EXPECT_EQ(scanFailedDetailOf(run(
                  {R"({"State":"s","Option":{"Name":"n","DefaultStr":"d"}})"},
                  {{"[config][update][x][--non-interactive][--continue][--state][s][--result][d]",
                    {"", "later failure", 2}}})),
              "later failure");
    const RcloneGuidedSetup tokenless(
        protocolFake(sandbox, {{"[config][show][x]", {"[x]\ntype = webdav\ntoken=none\n"}}}, log));
    RcloneGuidedProcessBox box;
    EXPECT_EQ(tokenless.verifyTokenOrNeedsWebUI("x", "webdav", box),
              Outcome::needsInteractiveWebConfig);

    // Without a configuration path nothing is configured.
    const RcloneGuidedSetup noPath(protocolFake(
        sandbox, {{"[config][dump]", {"{}"}}, {"[config][paths]", {"Cache dir: /x\n"}}}, log));
    const auto failure =
        failureOf([&] { noPath.configureIfPossible("x", "webdav", box, kNoSignInExpected); });
    ASSERT_TRUE(failure);
    try {
        std::rethrow_exception(failure);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Could not find rclone config file path.");
        EXPECT_EQ(ScanErrorInfo::addAccountFlowMessage(error), "Could not find config file path.");
    }
}

// A guided Google Drive setup running on its own thread, to be driven from the test.
struct DriveSignIn {
    std::atomic<int> addressCount{0};
    std::promise<std::string> address;
    RcloneGuidedProcessBox box;
    std::stop_source stop;
    std::future<Outcome> outcome;

    // A test that stops early must not wait forever for a sign-in.
    ~DriveSignIn() { box.terminate(); }

    void start(const RcloneGuidedSetup& setup, const std::string& remoteName) {
        outcome = std::async(std::launch::async, [this, &setup, remoteName] {
            return setup.configureIfPossible(
                remoteName, "drive", box,
                [this](const std::string& url) {
                    if (addressCount.fetch_add(1) == 0) {
                        address.set_value(url);
                    }
                },
                stop.get_token());
        });
    }
    // The address rclone printed; empty when none came within a minute.
    std::string waitForAddress() {
        auto future = address.get_future();
        if (future.wait_for(60s) != std::future_status::ready) {
            return {};
        }
        return future.get();
    }
    std::exception_ptr failure() {
        if (outcome.wait_for(60s) != std::future_status::ready) {
            ADD_FAILURE() << "the sign-in step did not end";
            box.terminate();
        }
        return failureOf([&] { outcome.get(); });
    }
};

std::string stateOf(const std::string& url) {
    const auto at = url.find("state=");
    return at == std::string::npos ? std::string() : url.substr(at + 6);
}

TEST(RcloneGuidedSetup, DriveSignInHandsOverTheAddressOnceAndEndsThroughTheBox) {
    const testing::OAuthPortLock portLock;
    RcloneSandbox sandbox;
    // Template keys of the remote go before rclone starts; other sections keep theirs.
    sandbox.addRemote("gd", "drive",
                      {{"config_template", "x"}, {"config_template_file", "/p.html"}});
    sandbox.addRemote("keep", "memory", {{"config_template", "mine"}});
    const RcloneGuidedSetup setup(sandbox.realRunner());
    DriveSignIn signIn;
    signIn.start(setup, "gd");
    const std::string url = signIn.waitForAddress();
    ASSERT_TRUE(url.starts_with("http://127.0.0.1:53682/auth?state=")) << url;
    EXPECT_FALSE(stateOf(url).empty());
    // rclone waits for the browser; the step is in the box until it is ended there.
    ASSERT_TRUE(signIn.box.runningProcessID().has_value());
    EXPECT_TRUE(testing::hasRcloneChildWith("--continue"));
    const auto dump = testing::configDump(sandbox);
    EXPECT_FALSE(dump.at("gd").contains("config_template"));
    EXPECT_FALSE(dump.at("gd").contains("config_template_file"));
    EXPECT_EQ(dump.at("keep").at("config_template"), "mine");

    signIn.box.terminate();
    const auto failure = signIn.failure();
    const auto error = testing::brimvaleErrorOf(failure);
    ASSERT_TRUE(error.is<BrimvaleError::ScanFailed>()) << error.description();
    EXPECT_EQ(error.as<BrimvaleError::ScanFailed>()->accountName, "gd");
    EXPECT_EQ(signIn.addressCount.load(), 1);
    EXPECT_FALSE(signIn.box.runningProcessID().has_value());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());

    // The terminated box starts nothing more: a second run through it is cancelled.
    EXPECT_TRUE(testing::isCancellation(failureOf(
        [&] { setup.configureIfPossible("gd", "drive", signIn.box, kNoSignInExpected); })));
}

TEST(RcloneGuidedSetup, DriveSignInAnsweredWithoutACodeOrWithAFalseOne) {
    const testing::OAuthPortLock portLock;
    RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    {
        // The provider sends the browser back without a code (access not approved).
        DriveSignIn signIn;
        signIn.start(setup, "gd");
        const std::string url = signIn.waitForAddress();
        ASSERT_FALSE(url.empty());
        const auto reply =
            testing::httpRequest(53682, "GET", "/?state=" + stateOf(url) + "&error=access_denied");
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, 400);
        const auto error = testing::brimvaleErrorOf(signIn.failure());
        EXPECT_EQ(ScanErrorInfo::addAccountFlowMessage(error),
                  "The provider did not confirm access\u2014usually the browser tab was closed "
                  "before finishing, or access was not approved. Use Open sign-in page again, "
                  "complete approval in the browser, then Try signing in again if the app still "
                  "doesn\u2019t connect.");
    }
    {
        // A made-up code: rclone accepts it, then cannot trade it for a token.
        DriveSignIn signIn;
        signIn.start(setup, "gd");
        const std::string url = signIn.waitForAddress();
        ASSERT_FALSE(url.empty());
        const auto reply =
            testing::httpRequest(53682, "GET", "/?state=" + stateOf(url) + "&code=made-up");
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, 200);
        const auto error = testing::brimvaleErrorOf(signIn.failure());
        ASSERT_TRUE(error.is<BrimvaleError::ScanFailed>());
        EXPECT_NE(error.description().find("failed to get token"), std::string::npos);
        const std::string message = ScanErrorInfo::addAccountFlowMessage(error);
        EXPECT_EQ(message.find("Usage:"), std::string::npos);
        EXPECT_EQ(Utf8Text::characterCount(message), 258u) << message; // 257 + "…"
        EXPECT_EQ(signIn.addressCount.load(), 1);
    }
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
}

TEST(RcloneGuidedSetup, StoppingTheTokenCancelsTheSignInStep) {
    const testing::OAuthPortLock portLock;
    RcloneSandbox sandbox;
    const RcloneGuidedSetup setup(sandbox.realRunner());
    DriveSignIn signIn;
    signIn.start(setup, "gd");
    ASSERT_FALSE(signIn.waitForAddress().empty());
    signIn.stop.request_stop();
    EXPECT_TRUE(testing::isCancellation(signIn.failure()));
    EXPECT_FALSE(signIn.box.isTerminated());
    EXPECT_TRUE(testing::childProcessesOfThisProcess().empty());
    // A token stopped before the start runs no step at all.
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_TRUE(testing::isCancellation(failureOf([&] {
        setup.configureIfPossible("gd", "drive", signIn.box, kNoSignInExpected,
                                  stopped.get_token());
    })));
}

} // namespace
} // namespace brimvale
