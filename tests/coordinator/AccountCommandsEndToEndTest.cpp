// brimvale-cli accounts add|remove|reconnect and web-config as a person uses them: the real
// program and rclone, an SFTP server and an FTP server on 127.0.0.1, signals for Ctrl-C.
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/ChildProcess.h"
#include "core/rclone/RcloneAdapter.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/onboarding/OnboardingTestSupport.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace brimvale::testing {
namespace {

class AccountCommandsEndToEnd : public ::testing::Test {
protected:
    std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments,
                                        std::vector<EnvironmentChange> extra = {}) const {
        return cli.start(std::move(arguments), std::move(extra));
    }
    ChildProcessResult run(std::vector<std::string> arguments,
                           std::vector<EnvironmentChange> extra = {}) const {
        return cli.run(std::move(arguments), std::move(extra));
    }

    std::string config() const { return readFile(sandbox.configPath()); }

    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};
};

TEST_F(AccountCommandsEndToEnd, AnSftpAccountAddedFromTheFormScansAndIsRemovedWithItsSavedScan) {
    TemporaryTree served;
    served.file("backups/disk.img", 70'000);
    served.file("readme.txt", 100);
    const auto server = startSftpServer(sandbox, served.root());

    // Validation first: nothing is written for a refused form.
    auto noHost =
        run({"accounts", "add", "sftp", "--field", "port=" + std::to_string(server.port)});
    EXPECT_EQ(noHost.exitStatus, 1);
    EXPECT_NE(noHost.standardError.find("accounts add: "), std::string::npos)
        << noHost.standardError;
    EXPECT_EQ(config().find("[sftp]"), std::string::npos);
    auto typo = run({"accounts", "add", "sftp", "--field", "hots=127.0.0.1"});
    EXPECT_EQ(typo.exitStatus, 2);
    EXPECT_NE(typo.standardError.find("its fields are host, port, user, pass, key_file"),
              std::string::npos);

    // The password comes from the environment, so it is in no command line.
    auto added = run({"accounts", "add", "sftp", "--name", "backup", "--field", "host=127.0.0.1",
                      "--field", "port=" + std::to_string(server.port), "--field", "user=u",
                      "--field-from-env", "pass=BACKUP_PASSWORD"},
                     {{"BACKUP_PASSWORD", "p"}});
    ASSERT_EQ(added.exitStatus, 0) << added.standardError;
    EXPECT_NE(added.standardOutput.find("Added SFTP account backup"), std::string::npos);
    EXPECT_NE(config().find("[backup]"), std::string::npos);
    EXPECT_EQ(config().find("pass = p\n"), std::string::npos) << "the password is obscured";

    auto taken = run({"accounts", "add", "sftp", "--name", "backup", "--field", "host=h"});
    EXPECT_EQ(taken.exitStatus, 1);
    EXPECT_NE(taken.standardError.find("already exists"), std::string::npos);

    auto scan = run({"scan", "backup:"});
    ASSERT_EQ(scan.exitStatus, 0) << scan.standardError;
    EXPECT_NE(scan.standardOutput.find("backups/"), std::string::npos) << scan.standardOutput;
    EXPECT_TRUE(std::filesystem::exists(home / "cache" / "Brimvale" / "backup.cache"));

    auto listed = run({"accounts", "--json"});
    EXPECT_NE(listed.standardOutput.find("\"id\": \"backup\""), std::string::npos);

    auto unconfirmed = run({"accounts", "remove", "backup"});
    EXPECT_EQ(unconfirmed.exitStatus, 2) << "no terminal to ask: --yes is needed";
    auto removed = run({"accounts", "remove", "backup", "--yes"});
    ASSERT_EQ(removed.exitStatus, 0) << removed.standardError;
    EXPECT_EQ(config().find("[backup]"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(home / "cache" / "Brimvale" / "backup.cache"));
    auto again = run({"accounts", "remove", "backup", "--yes"});
    EXPECT_EQ(again.exitStatus, 1);
}

TEST_F(AccountCommandsEndToEnd, AnFtpAccountReadsItsPasswordFromStandardInput) {
    TemporaryTree served;
    served.file("pub/file.bin", 4'000);
    const auto server = startFtpServer(sandbox, served.root());
    auto process = start({"accounts", "add", "ftp", "--field", "host=127.0.0.1", "--field",
                          "port=" + std::to_string(server.port), "--field", "user=u",
                          "--field-from-stdin", "pass"});
    // Standard input is the null device here: no line, a clear refusal.
    const auto refused = process->collectOutputAndWait();
    EXPECT_EQ(refused.exitStatus, 2);
    EXPECT_NE(refused.standardError.find("no value for pass on standard input"), std::string::npos)
        << refused.standardError;

    auto added = run({"accounts", "add", "ftp", "--field", "host=127.0.0.1", "--field",
                      "port=" + std::to_string(server.port), "--field", "user=u",
                      "--field-from-env", "pass=FTP_PASSWORD"},
                     {{"FTP_PASSWORD", "p"}});
    ASSERT_EQ(added.exitStatus, 0) << added.standardError;
    auto scan = run({"scan", "ftp:"});
    ASSERT_EQ(scan.exitStatus, 0) << scan.standardError;
    EXPECT_NE(scan.standardOutput.find("pub/"), std::string::npos);
}

TEST_F(AccountCommandsEndToEnd, GuidedAccountsSignInOrCompleteAndACancelledSignInLeavesNothing) {
    auto memory = run({"accounts", "add", "memory", "--name", "scratch"});
    ASSERT_EQ(memory.exitStatus, 0) << memory.standardError;
    EXPECT_NE(config().find("[scratch]\ntype = memory"), std::string::npos) << config();

    // Google Drive needs a browser: the address is printed, Ctrl-C cancels, and the half-made
    // remote is deleted again.
    const OAuthPortLock oauthPort;
    auto drive = start({"accounts", "add", "gdrive"});
    ASSERT_TRUE(waitUntil([&] { return config().find("[gdrive]") != std::string::npos; }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ::kill(drive->pid(), SIGINT);
    const auto cancelled = drive->collectOutputAndWait();
    EXPECT_EQ(cancelled.exitStatus, 130) << cancelled.standardError;
    EXPECT_TRUE(std::regex_search(cancelled.standardError,
                                  std::regex("Sign in through your browser: "
                                             "http://127\\.0\\.0\\.1:53682/auth\\?state=")))
        << cancelled.standardError;
    EXPECT_EQ(config().find("[gdrive]"), std::string::npos) << config();

    auto missing = run({"accounts", "reconnect", "nosuch"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_NE(missing.standardError.find("there is no account named 'nosuch'"), std::string::npos);
}

TEST_F(AccountCommandsEndToEnd, TheWebHelperAnswersOnLoopbackUntilCtrlC) {
    auto helper = start({"web-config"});
    // The address is printed once rclone runs; rclone's API answers shortly after.
    std::string address;
    ASSERT_TRUE(waitUntil([&] {
        // The helper's rclone child, found by its parent and command line.
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::error_code ignored;
            const std::string stat = std::filesystem::exists(entry.path() / "stat", ignored)
                                         ? readFile(entry.path() / "stat")
                                         : std::string();
            const auto close = stat.rfind(')');
            if (close == std::string::npos) {
                continue;
            }
            std::istringstream fields(stat.substr(close + 2));
            char state = 0;
            pid_t parent = 0;
            fields >> state >> parent;
            if (parent != helper->pid()) {
                continue;
            }
            std::string text = readFile(entry.path() / "cmdline");
            std::replace(text.begin(), text.end(), '\0', ' ');
            std::smatch match;
            if (std::regex_search(text, match,
                                  std::regex("rcd --rc-web-gui --log-level NOTICE --rc-addr "
                                             "127\\.0\\.0\\.1:([0-9]+)"))) {
                address = match[1];
                return true;
            }
        }
        return false;
    }));
    const int port = std::stoi(address);
    const auto answers = [port] {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in where{};
        where.sin_family = AF_INET;
        where.sin_port = htons(static_cast<std::uint16_t>(port));
        where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool connected =
            ::connect(fd, reinterpret_cast<const sockaddr*>(&where), sizeof where) == 0;
        ::close(fd);
        return connected;
    };
    EXPECT_TRUE(waitUntil(answers));
    // The login address, with the helper's own user and password, printed once rclone says it.
    struct Printed {};
    std::string printed;
    try {
        helper->collectOutputAndWait([&](ChildOutputStream stream, std::string_view chunk) {
            if (stream == ChildOutputStream::standardOutput) {
                printed.append(chunk);
                if (printed.find("\n(on this computer only") != std::string::npos) {
                    throw Printed{};
                }
            }
        });
    } catch (const Printed&) {
    }
    EXPECT_NE(printed.find("@127.0.0.1:" + address + "/?login_token="), std::string::npos)
        << printed;
    ::kill(helper->pid(), SIGINT);
    const auto stopped = helper->collectOutputAndWait();
    EXPECT_EQ(stopped.exitStatus, 0) << stopped.standardError;
    EXPECT_TRUE(waitUntil([&] { return !answers(); })) << "the helper must not outlive its use";
}

TEST_F(AccountCommandsEndToEnd, AnS3AccountScansTheBucketStoredForIt) {
    const std::filesystem::path s3rver =
        std::filesystem::path(BRIMVALE_SOURCE_DIR) / ".tools/node_modules/.bin/s3rver";
    if (!std::filesystem::exists(s3rver)) {
        GTEST_SKIP() << "the S3 test server is installed by scripts/bootstrap";
    }
    const auto port = RcloneWebConfigServer::findFreePort();
    ASSERT_TRUE(port.has_value());
    TemporaryFolder storage;
    ServerProcess server({s3rver.string(), "--directory", storage.path().string(), "--port",
                          std::to_string(*port), "--address", "127.0.0.1", "--configure-bucket",
                          "media", "--configure-bucket", "other"},
                         sandbox.environment(), home / "s3rver.log");
    server.waitForLog("(listening on)");

    auto added = run({"accounts", "add", "s3", "--name", "media", "--field", "region=us-east-1",
                      "--field", "access_key_id=S3RVER", "--field-from-env",
                      "secret_access_key=SECRET", "--field", "bucket=media"},
                     {{"SECRET", "S3RVER"}});
    ASSERT_EQ(added.exitStatus, 0) << added.standardError;
    // Pointed at the local server instead of AWS.
    RcloneAdapter adapter("media", "media", {.runner = sandbox.realRunner()});
    adapter.rclone({"config", "update", "media", "provider", "Other", "endpoint",
                    "http://127.0.0.1:" + std::to_string(*port), "force_path_style", "true"});
    TemporaryTree upload;
    upload.file("photos/a.jpg", 40'000);
    upload.file("photos/2024/b.jpg", 60'000);
    upload.file("notes.txt", 500);
    adapter.rclone({"copy", upload.root(), "media:media"});
    adapter.rclone({"copy", upload.location("notes.txt"), "media:other"});

    auto scan = run({"scan", "media:", "--depth", "2"}, {{"BRIMVALE_SCAN_DEBUG", "1"}});
    ASSERT_EQ(scan.exitStatus, 0) << scan.standardError;
    // One listing of the whole bucket in one go, without a metadata request per object.
    EXPECT_NE(scan.standardError.find("rclone spawn args=lsjson -R --fast-list --no-mimetype "
                                      "--use-server-modtime --checkers 8 -- media:media"),
              std::string::npos)
        << scan.standardError;
    std::size_t listings = 0;
    for (auto at = scan.standardError.find("spawn args=lsjson"); at != std::string::npos;
         at = scan.standardError.find("spawn args=lsjson", at + 1)) {
        ++listings;
    }
    EXPECT_EQ(listings, 1u);
    EXPECT_NE(scan.standardOutput.find("(3 files, 3 folders)"), std::string::npos)
        << scan.standardOutput;
    EXPECT_NE(scan.standardOutput.find("photos/"), std::string::npos);
    EXPECT_NE(scan.standardOutput.find("2024/"), std::string::npos);
}

} // namespace
} // namespace brimvale::testing
