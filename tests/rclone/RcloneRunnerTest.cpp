#include "core/rclone/RcloneRunner.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneLogMasking.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/rclone/RcloneRunQueue.h"
#include "core/support/Task.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <future>
#include <mutex>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::brimvaleErrorOf;
using testing::RcloneSandbox;

// The exception a run ends with, or nothing when it succeeded.
template <class Run> std::exception_ptr failureOf(Run&& run) {
    try {
        run();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

// The children of this process (only the runs under test start any).
std::vector<testing::ChildProcessInfo> rcloneChildren() {
    return testing::childProcessesOfThisProcess();
}

// Collects the runner's log lines while alive.
class CapturedProcessLog {
public:
    CapturedProcessLog() {
        previous_ = RcloneProcessLog::setWriter([this](std::string_view line) {
            std::lock_guard lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~CapturedProcessLog() { RcloneProcessLog::setWriter(previous_); }
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    RcloneProcessLog::Writer previous_;
    std::mutex mutex_; // guards lines_
    std::vector<std::string> lines_;
};

TEST(RcloneRunner, RealRcloneOutputAndFailures) {
    RcloneSandbox sandbox;
    testing::writeFileOfSize(sandbox.folder() / "tree" / "a.bin", 5);
    sandbox.addRemote("here", "alias", {{"remote", (sandbox.folder() / "tree").string()}});
    const RcloneRunner runner = sandbox.realRunner();

    const std::string listing = runner.runRcloneCollectingStdout({"lsjson", "here:"}, "Here");
    EXPECT_NE(listing.find("\"Name\":\"a.bin\""), std::string::npos) << listing;

    // A missing folder: rclone exits 3 and says why on standard error.
    const auto failure = failureOf([&] { runner.runRclone({"lsjson", "here:missing"}, "Here"); });
    ASSERT_TRUE(failure);
    const auto error = brimvaleErrorOf(failure);
    const auto* scanFailed = error.as<BrimvaleError::ScanFailed>();
    ASSERT_NE(scanFailed, nullptr);
    EXPECT_EQ(scanFailed->accountName, "Here");
    EXPECT_NE(scanFailed->detail.find("directory not found"), std::string::npos);
    EXPECT_TRUE(error.description().starts_with("Could not read \"Here\": "));

    // An unknown remote fails the same way, not with a crash or an empty result.
    const auto unknown = brimvaleErrorOf(failureOf([&] {
        runner.runRclone({"lsjson", "nope:"}, "Nope");
    }));
    ASSERT_TRUE(unknown.is<BrimvaleError::ScanFailed>());
    EXPECT_NE(unknown.description().find("didn't find section in config file"), std::string::npos);
}

TEST(RcloneRunner, ExitStatusAndStandardErrorDecideTheOutcome) {
    RcloneSandbox sandbox;
    // Status 1 and nothing on standard error: the detail is the status.
    const auto silent =
        brimvaleErrorOf(failureOf([&] { sandbox.fakeRunner("exit 1").runRclone({"x"}, "Acct"); }));
    EXPECT_EQ(silent, BrimvaleError::scanFailed("Acct", "exit 1"));

    // Status 0 with standard error: the output counts, the noise does not.
    EXPECT_EQ(sandbox.fakeRunner("echo warning >&2; printf 'out'").runRclone({"x"}, "Acct"), "out");

    // Arguments arrive one by one, untouched by any shell.
    const auto echo = sandbox.fakeRunner(R"(for a in "$@"; do printf '[%s]' "$a"; done)");
    EXPECT_EQ(echo.runRclone({"a b", "$HOME", "'q'", "*", ""}, "Acct"), "[a b][$HOME]['q'][*][]");

    // Ill-formed UTF-8 in the output becomes U+FFFD, never an error.
    EXPECT_EQ(sandbox.fakeRunner(R"(printf 'a\377b')").runRclone({}, "Acct"), "a\xEF\xBF\xBD"
                                                                              "b");

    // A child ended by a signal reports 128 + the signal.
    const auto killed =
        brimvaleErrorOf(failureOf([&] { sandbox.fakeRunner("kill -9 $$").runRclone({}, "Acct"); }));
    EXPECT_EQ(killed, BrimvaleError::scanFailed("Acct", "exit 137"));
}

TEST(RcloneRunner, NoProgramMeansNotInstalledBeforeAnythingIsQueued) {
    RcloneRunQueue queue("test", 1);
    const RcloneRunner runner(
        {.searchLocations = RcloneSearchLocations{.bundledCopies = {"/nonexistent/share/rclone"},
                                                  .executableFolder = "/nonexistent",
                                                  .fixedPaths = {"/nonexistent/bin/rclone"}},
         .runQueue = &queue});
    // The one slot is taken: a run that queued would wait forever.
    const auto slot = queue.acquire({});
    const auto error = brimvaleErrorOf(failureOf([&] { runner.runRclone({"version"}, "A"); }));
    EXPECT_TRUE(error.is<BrimvaleError::RcloneNotInstalled>());
    EXPECT_EQ(queue.waitingCount(), 0);

    // A file that is there but cannot be started is a launch error, passed on as it is.
    RcloneSandbox sandbox;
    const auto notExecutable = sandbox.folder() / "rclone";
    testing::writeFile(notExecutable, "not a program");
    RcloneRunQueue open("test", 1);
    const RcloneRunner broken(
        {.searchLocations = {.fixedPaths = {notExecutable.string()}}, .runQueue = &open});
    const auto launch = failureOf([&] { broken.runRclone({}, "A"); });
    EXPECT_THROW(std::rethrow_exception(launch), std::system_error);
    EXPECT_EQ(open.runningCount(), 0);
}

TEST(RcloneRunner, BothPipesBeyondTheirCapacityDoNotDeadlock) {
    RcloneSandbox sandbox;
    // Standard error is filled first: a reader that waited for standard output alone would
    // leave the child blocked on a full standard-error pipe.
    const std::string flood = "head -c 300000 /dev/zero | tr '\\0' e >&2; "
                              "head -c 400000 /dev/zero | tr '\\0' o; "
                              "head -c 300000 /dev/zero | tr '\\0' e >&2; ";
    const std::string output =
        sandbox.fakeRunner(flood + "exit 0").runRcloneCollectingStdout({}, "A");
    EXPECT_EQ(output, std::string(400000, 'o'));

    const auto error = brimvaleErrorOf(
        failureOf([&] { sandbox.fakeRunner(flood + "exit 2").runRclone({}, "A"); }));
    const auto* failed = error.as<BrimvaleError::ScanFailed>();
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->detail, std::string(600000, 'e'));
}

TEST(RcloneRunner, CancellationTerminatesTheChildAndAlwaysReportsCancellation) {
    RcloneSandbox sandbox;
    const auto marker = sandbox.folder() / "started";
    // A child that runs until it is told to stop, announcing itself first.
    const RcloneRunner hanging =
        sandbox.fakeRunner("touch '" + marker.string() + "'; exec sleep 600");
    std::stop_source stop;
    auto run = std::async(std::launch::async, [&] {
        return failureOf([&] { hanging.runRclone({"lsjson", "slow:"}, "Slow", stop.get_token()); });
    });
    ASSERT_TRUE(testing::waitUntil([&] { return std::filesystem::exists(marker); }));
    ASSERT_EQ(rcloneChildren().size(), 1u);

    CapturedProcessLog log;
    stop.request_stop();
    const auto failure = run.get();
    ASSERT_TRUE(failure);
    EXPECT_THROW(std::rethrow_exception(failure), CancellationError);
    // SIGTERM ended the child (status 143), yet the outcome is cancellation, and the child
    // was reaped: no zombie is left.
    EXPECT_TRUE(rcloneChildren().empty());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("rclone stopped by cancel exit=143 ms=")) << lines[0];
    EXPECT_NE(lines[0].find(" stderrChars=0"), std::string::npos);

    // A run cancelled before it starts never starts a child.
    std::stop_source early;
    early.request_stop();
    EXPECT_THROW(hanging.runRclone({}, "Slow", early.get_token()), CancellationError);
    EXPECT_TRUE(rcloneChildren().empty());
}

TEST(RcloneRunner, AChildThatIgnoresTerminationIsKilledAfterTheGracePeriod) {
    RcloneSandbox sandbox;
    const auto marker = sandbox.folder() / "started";
    const RcloneRunner stubborn =
        sandbox.fakeRunner("trap '' TERM; touch '" + marker.string() + "'; exec sleep 600", 200ms);
    std::stop_source stop;
    auto run = std::async(std::launch::async, [&] {
        return failureOf([&] { stubborn.runRclone({}, "A", stop.get_token()); });
    });
    ASSERT_TRUE(testing::waitUntil([&] { return std::filesystem::exists(marker); }));
    stop.request_stop();
    ASSERT_EQ(run.wait_for(20s), std::future_status::ready);
    EXPECT_THROW(std::rethrow_exception(run.get()), CancellationError);
    EXPECT_TRUE(rcloneChildren().empty());
}

TEST(RcloneRunner, AnEleventhRunWaitsUntilOneOfTenFinishes) {
    RcloneSandbox sandbox;
    const auto gate = sandbox.folder() / "gate";
    ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
    const auto started = sandbox.folder() / "started";
    std::filesystem::create_directories(started);
    // Each child records itself, then blocks opening the FIFO until the test opens it for
    // writing, and ends when the test closes it.
    const RcloneRunner blocked =
        sandbox.fakeRunner("touch '" + started.string() + "'/$$; exec cat '" + gate.string() + "'");
    const auto startedCount = [&] {
        return std::distance(std::filesystem::directory_iterator(started),
                             std::filesystem::directory_iterator());
    };
    const auto& queue = RcloneRunQueue::shared();
    ASSERT_EQ(queue.maxConcurrentRuns(), 10);

    constexpr int kRuns = 12;
    std::vector<std::future<std::exception_ptr>> runs;
    for (int i = 0; i < kRuns; ++i) {
        runs.push_back(std::async(std::launch::async,
                                  [&] { return failureOf([&] { blocked.runRclone({}, "A"); }); }));
    }
    ASSERT_TRUE(
        testing::waitUntil([&] { return startedCount() == 10 && queue.waitingCount() == 2; }));
    // Still ten: the two others wait in the queue without a child.
    EXPECT_EQ(rcloneChildren().size(), 10u);
    EXPECT_EQ(startedCount(), 10);

    // Release whoever is blocked on the FIFO, until every run has finished; never more than
    // ten children at once.
    std::size_t mostChildren = 0;
    const bool finished = testing::waitUntil([&] {
        mostChildren = std::max(mostChildren, rcloneChildren().size());
        const int fd = ::open(gate.c_str(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0) {
            ::close(fd);
        }
        return std::all_of(runs.begin(), runs.end(),
                           [](auto& run) { return run.wait_for(0s) == std::future_status::ready; });
    });
    ASSERT_TRUE(finished);
    EXPECT_LE(mostChildren, 10u);
    EXPECT_EQ(startedCount(), kRuns);
    for (auto& run : runs) {
        EXPECT_FALSE(run.get());
    }
    EXPECT_EQ(queue.runningCount(), 0);
}

TEST(RcloneRunner, TheLogNeverShowsSecrets) {
    RcloneSandbox sandbox;
    sandbox.addRemote("box", "sftp", {{"host", "127.0.0.1"}, {"user", "u"}});
    CapturedProcessLog log;
    sandbox.realRunner().runRclone(
        {"config", "update", "box", "pass", "hunter2-secret", "key_pem", "PEM-secret", "--obscure"},
        "box");
    EXPECT_NE(testing::readFile(sandbox.configPath()).find("pass = "), std::string::npos);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "rclone spawn args=config update box pass *** key_pem *** --obscure");
    EXPECT_TRUE(lines[1].starts_with("rclone exit=0 stdoutBytes=")) << lines[1];

    // Every form rclone takes a secret in.
    const struct {
        std::vector<std::string> arguments;
        std::string logged;
    } cases[] = {
        {{"config", "create", "s3x", "s3", "secret_access_key", "S3CRET", "access_key_id", "AK"},
         "config create s3x s3 secret_access_key *** access_key_id AK"},
        {{"config", "create", "g", "drive", "token={\"access_token\":\"T1\",\"refresh\":\"T2\"}",
          "client_secret=CS"},
         "config create g drive token=*** client_secret=***"},
        {{"config", "update", "g", "--continue", "--state", "abc", "--result", "R3SULT"},
         "config update g --continue --state abc --result ***"},
        {{"config", "update", "g", "--result=R3SULT"}, "config update g --result=***"},
        {{"lsjson", "--sftp-pass", "PW", "--s3-secret-access-key=SK", "--sftp-key-file", "/k"},
         "lsjson --sftp-pass *** --s3-secret-access-key=*** --sftp-key-file /k"},
        {{"lsjson", ":sftp,host=h,pass=PW,user=u:dir/sub"},
         "lsjson :sftp,host=h,pass=***,user=u:dir/sub"},
        {{"lsjson", ":azureblob,sas_url='https://x/?sig=a,b':c"},
         "lsjson :azureblob,sas_url=***:c"},
        {{"config", "create", "az", "azureblob", "connection_string", "CS", "sas_url", "SU",
          "service_account_credentials", "{}", "Key", "K"},
         "config create az azureblob connection_string *** sas_url *** "
         "service_account_credentials *** Key ***"},
        {{"lsjson", "remote:pass=folder"}, "lsjson remote:pass=folder"},
        // Keys are known by their place: remotes, types and values that read like keys.
        {{"config", "update", "--obscure", "--", "key", "pass", "SECRET1"},
         "config update --obscure -- key pass ***"},
        {{"config", "update", "--", "pass", "user", "pass", "pass", "SECRET2"},
         "config update -- pass user pass pass ***"},
        {{"config", "create", "--non-interactive", "--", "token", "sftp", "host", "token", "pass",
          "key"},
         "config create --non-interactive -- token sftp host token pass ***"},
        {{"config", "create", "--", "token", "key", "key", "SECRET3", "pass=SECRET4"},
         "config create -- token key key *** pass=***"},
        {{"config", "update", "--state", "pass", "--", "b", "pass", "-SECRET5"},
         "config update --state pass -- b pass ***"},
        {{"config", "update", "b", "user", "key", "pass", "--obscure", "SECRET6"},
         "config update b user key pass --obscure ***"},
    };
    for (const auto& example : cases) {
        EXPECT_EQ(argumentsForLog(example.arguments), example.logged);
    }
}

} // namespace
} // namespace brimvale
