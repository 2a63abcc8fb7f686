// Deleting items of cloud saved scans through the real brimvale-cli and rclone, against real
// servers on 127.0.0.1: rclone serve sftp, rclone serve webdav and s3rver.
#include "core/cleanup/CloudDeletion.h"

#include "core/cleanup/DeletionTexts.h"
#include "core/cleanup/ItemDeletion.h"
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/RcloneAdapter.h"
#include "tests/cleanup/CleanupTestSupport.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace brimvale::testing {
namespace {

struct CloudAccount {
    std::string name;
    std::string folder; // where the test's items are, below the account's root
};

TEST(CloudDeletion, FilesAndFoldersGoFromSftpWebdavAndS3AndFromTheSavedScan) {
    RcloneSandbox sandbox;
    TemporaryFolder home;
    TemporaryFolder served;
    TemporaryFolder storage;
    CliProgram cli{sandbox, home.path()};
    const auto sftp = startSftpServer(sandbox, served.path());
    const auto webdav = startWebdavServer(sandbox, served.path());
    sandbox.addRemote("sf", "sftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(sftp.port)},
                       {"user", "u"},
                       {"pass", sandbox.obscured("p")}});
    sandbox.addRemote("dav", "webdav",
                      {{"url", "http://127.0.0.1:" + std::to_string(webdav.port) + "/"}});
    std::vector<CloudAccount> accounts{{"sf", "sftp"}, {"dav", "webdav"}};
    std::unique_ptr<ServerProcess> s3;
    const std::filesystem::path s3rver =
        std::filesystem::path(BRIMVALE_SOURCE_DIR) / ".tools/node_modules/.bin/s3rver";
    if (std::filesystem::exists(s3rver)) {
        const auto port = RcloneWebConfigServer::findFreePort();
        ASSERT_TRUE(port.has_value());
        s3 = std::make_unique<ServerProcess>(
            std::vector<std::string>{s3rver.string(), "--directory", storage.path().string(),
                                     "--port", std::to_string(*port), "--address", "127.0.0.1",
                                     "--configure-bucket", "media"},
            sandbox.environment(), home / "s3rver.log");
        s3->waitForLog("(listening on)");
        sandbox.addRemote("s3", "s3",
                          {{"provider", "Other"},
                           {"endpoint", "http://127.0.0.1:" + std::to_string(*port)},
                           {"access_key_id", "S3RVER"},
                           {"secret_access_key", "S3RVER"},
                           {"region", "us-east-1"},
                           {"force_path_style", "true"}});
        accounts.push_back({"s3", "media"});
    }
    TemporaryTree upload;
    upload.file("photos/2024/a.jpg", 40'000);
    upload.file("photos/b.jpg", 60'000);
    upload.file("notes.txt", 500);
    upload.file("keep.txt", 700);
    for (const auto& account : accounts) {
        SCOPED_TRACE(account.name);
        RcloneAdapter adapter(account.name, account.name, {.runner = sandbox.realRunner()});
        adapter.rclone({"copy", upload.root(), account.name + ":" + account.folder});
        const std::string target = account.name + ":";
        ASSERT_EQ(cli.run({"scan", target}).exitStatus, 0);
        const std::int64_t before = savedTree(home.path(), account.name)->size();

        auto question = cli.run({"rm", target, account.folder + "/photos"});
        EXPECT_EQ(question.exitStatus, 1);
        auto dry = cli.run({"rm", target, account.folder + "/photos", "--dry-run"});
        EXPECT_NE(dry.standardOutput.find("Would delete: \u201Cphotos\u201D (100 KB, 4 items)"),
                  std::string::npos)
            << dry.standardOutput;
        EXPECT_NE(dry.standardOutput.find(target + account.folder + "/photos"), std::string::npos);

        auto folder = cli.run({"rm", target, account.folder + "/photos", "--yes"});
        ASSERT_EQ(folder.exitStatus, 0) << folder.standardError;
        auto file = cli.run({"rm", target, "/" + account.folder + "/notes.txt", "--yes"});
        ASSERT_EQ(file.exitStatus, 0) << file.standardError;
        auto missing = cli.run({"rm", target, account.folder + "/photos", "--yes"});
        EXPECT_EQ(missing.exitStatus, 1);
        EXPECT_NE(missing.standardError.find("is not in the saved scan"), std::string::npos);

        const std::string left =
            adapter.rclone({"lsf", "-R", "--", account.name + ":" + account.folder});
        EXPECT_EQ(left, "keep.txt\n");
        const auto root = savedTree(home.path(), account.name);
        ASSERT_TRUE(root);
        const FileNode* items = childNamed(*root, account.folder);
        ASSERT_NE(items, nullptr);
        ASSERT_EQ(items->children().size(), 1u);
        EXPECT_EQ(items->children()[0]->name(), "keep.txt");
        EXPECT_EQ(root->size(), before - 100'500);
        expectRolledUpAndSorted(*root);
    }
}

TEST(CloudDeletion, AStoppedPurgeEndsRcloneAndReportsTheFolderAsNotDeleted) {
    RcloneSandbox sandbox;
    TemporaryFolder served;
    writeFileOfSize(served / "big/one", 1'000);
    writeFileOfSize(served / "big/two", 1'000);
    const auto sftp = startSftpServer(sandbox, served.path());
    sandbox.addRemote("sf", "sftp",
                      {{"host", "127.0.0.1"},
                       {"port", std::to_string(sftp.port)},
                       {"user", "u"},
                       {"pass", sandbox.obscured("p")}});
    // A server that never answers: the purge waits until it is stopped.
    sftp.process->pause();
    const DeletionRequest request{
        .method = DeletionMethod::deleteFromCloud,
        .accountLabel = "sf",
        .items = {{.treePath = "/big", .location = "sf:big", .isDirectory = true, .size = 2'000},
                  {.treePath = "/other", .location = "sf:other", .size = 1}},
        .runner = sandbox.realRunner()};
    std::stop_source stop;
    DeletionReport report;
    std::thread deleting([&] { report = runDeletion(request, stop.get_token()); });
    const auto purging = [] {
        for (const auto& child : childProcessesOfThisProcess()) {
            if (std::find(child.commandLine.begin(), child.commandLine.end(), "purge") !=
                    child.commandLine.end() &&
                child.state != 'Z') {
                return true;
            }
        }
        return false;
    };
    const bool started = waitUntil(purging);
    stop.request_stop();
    deleting.join();
    sftp.process->resume();
    ASSERT_TRUE(started);
    EXPECT_TRUE(report.stopped);
    EXPECT_TRUE(report.deleted.empty());
    EXPECT_EQ(report.partlyDeleted, std::vector<std::string>{"/big"});
    ASSERT_EQ(report.failures.size(), 2u);
    EXPECT_EQ(report.failures[1].reason, "not reached: stopped");
    EXPECT_TRUE(std::filesystem::exists(served / "big/one"));
    EXPECT_FALSE(purging()) << "rclone ended with the deletion";
}

TEST(CloudDeletion, ConfirmationsSayWhetherTheProviderKeepsATrash) {
    const std::vector<DeletionItem> items{
        {.treePath = "/a", .location = "gd:a", .isDirectory = true, .size = 1'250, .itemCount = 3}};
    EXPECT_EQ(deletionQuestion(DeletionMethod::deleteFromCloud, items, "Work Drive", "drive"),
              "Delete \u201C"
              "a\u201D (1.2 KB, 3 items) from the account \u201CWork Drive\u201D?\n"
              "  gd:a (folder)\nGoogle Drive keeps deleted items in its trash.");
    for (const auto& [type, words] :
         std::vector<std::pair<std::string, std::string>>{{"dropbox", "for a while"},
                                                          {"s3", "keeps no trash"},
                                                          {"b2", "unless the bucket keeps"},
                                                          {"alias", "may not keep a trash"},
                                                          {"", "may not keep a trash"}}) {
        EXPECT_NE(providerTrashSentence(type).find(words), std::string::npos) << type;
    }
    // rclone's log of a purge that deleted only part of a folder.
    const auto failures = failuresInDeletionLog(
        "2024/05/01 10:00:00 ERROR : a/b.txt: Couldn't delete: permission denied\n"
        "2024/05/01 10:00:00 ERROR : a/b.txt: Couldn't delete: permission denied\n"
        "2024/05/01 10:00:00 ERROR : Attempt 1/3 failed with 2 errors and: permission denied\n"
        "2024/05/01 10:00:01 Failed to purge: permission denied\n");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].location, "a/b.txt");
    EXPECT_EQ(failures[0].reason, "Couldn't delete: permission denied");
}

} // namespace
} // namespace brimvale::testing
