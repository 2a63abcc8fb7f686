// Secrets typed into a form, or handed to brimvale-cli through the environment, reach
// rclone.conf without ever being on a command line that another local user could read.
#include "core/onboarding/NativeCredentialConfiguration.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/support/InMemorySettingsStore.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

namespace brimvale {
namespace {

namespace fs = std::filesystem;

// Reads the command line of every process on the system, over and over, until stopped, and
// keeps each one that holds a secret.
class CommandLineWatch {
public:
    explicit CommandLineWatch(std::vector<std::string> secrets)
        : secrets_(std::move(secrets))
        , thread_([this](std::stop_token stop) { watch(stop); }) {}

    // Stops watching; the command lines that gave a secret away.
    std::vector<std::string> finish() {
        thread_.request_stop();
        thread_.join();
        return leaks_;
    }
    // How many rclone processes were seen at work (a watch that saw none proves nothing).
    int rcloneProcessesSeen() const { return rcloneSeen_; }

private:
    void watch(const std::stop_token& stop) {
        std::set<std::string> counted;
        while (!stop.stop_requested()) {
            std::error_code error;
            for (const auto& entry : fs::directory_iterator("/proc", error)) {
                std::string commandLine;
                try {
                    commandLine = testing::readFile(entry.path() / "cmdline");
                } catch (const std::exception&) {
                    continue; // not a process, or it has just ended
                }
                if (commandLine.find("rclone") != std::string::npos &&
                    counted.insert(entry.path().filename().string()).second) {
                    ++rcloneSeen_;
                }
                for (const auto& secret : secrets_) {
                    if (commandLine.find(secret) != std::string::npos) {
                        std::replace(commandLine.begin(), commandLine.end(), '\0', ' ');
                        leaks_.push_back(commandLine);
                    }
                }
            }
        }
    }

    const std::vector<std::string> secrets_;
    std::vector<std::string> leaks_;
    std::atomic<int> rcloneSeen_ = 0;
    std::jthread thread_;
};

TEST(AccountSecrets, FormSecretsReachTheConfigurationObscuredAndNeverACommandLine) {
    testing::RcloneSandbox sandbox;
    const GenericRcloneAdapter adapter("", "", "configuration", {.runner = sandbox.realRunner()});
    InMemorySettingsStore settings;
    // Values that begin with "-", hold spaces, or read like keys; names that are key names.
    const std::string sftpPassword = "-p SftpSecret'\"1";
    const std::string awsSecret = "AwsSecret+/2";
    const std::string ftpPassword = "--FtpSecret3";
    CommandLineWatch watch({"SftpSecret", "AwsSecret", "FtpSecret", "RefusedSecret"});

    NativeCredentialConfiguration::applySFTPConfiguration(
        adapter, "token", SFTPCredentialFields{"127.0.0.1", "2222", "key", sftpPassword, ""});
    NativeCredentialConfiguration::applyS3AwsConfiguration(
        adapter, "pass", S3AwsCredentialFields{"eu-west-1", "AKID", awsSecret, "bucket"}, settings);
    // An existing remote of another type is retyped and updated.
    NativeCredentialConfiguration::applyFTPConfiguration(
        adapter, "token", FTPCredentialFields{"ftp.example", "", "key", ftpPassword});

    // A remote rclone refuses leaves nothing behind, and its error quotes no secret.
    try {
        adapter.writeRemoteSettings("refused", "nosuchbackend", {{"pass", "RefusedSecret"}},
                                    {"RefusedSecret"});
        ADD_FAILURE() << "an unknown backend was accepted";
    } catch (const BrimvaleError& error) {
        EXPECT_NE(error.description().find("nosuchbackend"), std::string::npos)
            << error.description();
        EXPECT_EQ(error.description().find("RefusedSecret"), std::string::npos);
    }

    EXPECT_EQ(watch.finish(), std::vector<std::string>{});
    EXPECT_GT(watch.rcloneProcessesSeen(), 0);

    const auto dump = testing::configDump(sandbox);
    EXPECT_FALSE(dump.contains("refused"));
    const auto& token = dump.at("token");
    EXPECT_EQ(token.at("type"), "ftp");
    EXPECT_EQ(token.at("user"), "key");
    EXPECT_EQ(testing::revealed(sandbox, token.at("pass")), ftpPassword);
    EXPECT_EQ(dump.at("pass").at("secret_access_key"), awsSecret);
    EXPECT_EQ(dump.at("pass").at("provider"), "AWS");
    const std::string config = testing::readFile(sandbox.configPath());
    EXPECT_EQ(config.find("FtpSecret"), std::string::npos) << "passwords are stored obscured";
}

TEST(AccountSecrets, ThePasswordOfAnAccountAddedWithTheCommandLineProgramStaysInItsEnvironment) {
    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder home;
    const testing::CliProgram cli(sandbox, home.path());
    CommandLineWatch watch({"CliSecret"});
    const auto added =
        cli.run({"accounts", "add", "sftp", "--name", "key", "--field", "host=127.0.0.1", "--field",
                 "user=pass", "--field-from-env", "pass=ACCOUNT_PASSWORD"},
                {{"ACCOUNT_PASSWORD", "-CliSecret"}});
    EXPECT_EQ(watch.finish(), std::vector<std::string>{});
    EXPECT_GT(watch.rcloneProcessesSeen(), 0);
    ASSERT_EQ(added.exitStatus, 0) << added.standardError;
    const auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump.at("key").at("user"), "pass");
    EXPECT_EQ(testing::revealed(sandbox, dump.at("key").at("pass")), "-CliSecret");
}

} // namespace
} // namespace brimvale
