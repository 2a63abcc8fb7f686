// brimvale-cli scan when its saved scan cannot be written: a full file system, a read-only one
// and a cache folder that cannot be made. The program says why and fails, and a partial
// checkpoint left from before is never passed off as the finished scan.
#include "core/rclone/ChildProcess.h"
#include "tests/coordinator/CliProgram.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <unistd.h>

namespace brimvale::testing {
namespace {

bool runs(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

// Fills the file system holding `folder` until a write fails with ENOSPC.
void fillUp(const std::filesystem::path& folder) {
    const std::string path = (folder / "filler").string();
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    const std::string block(4096, 'x');
    while (::write(file, block.data(), block.size()) > 0) {
    }
    const int error = errno;
    // tmpfs may still take a few bytes at the end of a page; take them too.
    while (::write(file, "x", 1) > 0) {
    }
    ::close(file);
    EXPECT_EQ(error, ENOSPC);
}

class FailedSaveEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "mounting a small file system to fill up needs root";
        }
        for (int i = 0; i < 40; ++i) {
            slowTree.file("d" + std::to_string(i) + "/f.bin", 1000 + i);
        }
        server = startSftpServer(sandbox, slowTree.root());
        sandbox.addRemote("slow", "sftp",
                          {{"host", "127.0.0.1"},
                           {"port", std::to_string(server.port)},
                           {"user", "u"},
                           {"pass", sandbox.obscured("p")}});
        std::filesystem::create_directories(cacheMount());
        ASSERT_TRUE(runs("mount -t tmpfs -o size=512k,mode=0700 tmpfs " + cacheMount().string()));
        mounted = true;
    }
    void TearDown() override {
        if (mounted) {
            runs("umount -l " + cacheMount().string());
        }
    }

    std::filesystem::path cacheMount() const { return home.path() / "cache"; }
    static inline const EnvironmentChange kSlowListing{"RCLONE_TPSLIMIT", "10"};

    RcloneSandbox sandbox;
    TemporaryFolder home;
    CliProgram cli{sandbox, home.path()};
    TemporaryTree slowTree;
    RunningServer server;
    bool mounted = false;
};

TEST_F(FailedSaveEndToEnd, AScanThatCannotBeSavedIsReportedAndAnOldCheckpointStaysPartial) {
    // The disk is full from the start: the scan is listed, then reported as not saved.
    std::filesystem::create_directories(cacheMount() / "Brimvale");
    fillUp(cacheMount());
    auto full = cli.run({"scan", "slow:", "--quiet"});
    EXPECT_NE(full.exitStatus, 0);
    EXPECT_NE(full.standardOutput.find("(40 files"), std::string::npos) << full.standardOutput;
    EXPECT_NE(full.standardError.find("the scan could not be saved"), std::string::npos)
        << full.standardError;
    EXPECT_NE(full.standardError.find("No space left on device"), std::string::npos)
        << full.standardError;
    std::filesystem::remove(cacheMount() / "filler");

    // The folder turns read-only half-way (rclone may ask ten times a second): a checkpoint
    // was written, the finished scan is not.
    auto halfWay = cli.start({"scan", "slow:", "--rescan", "--quiet"},
                             {{"BRIMVALE_CHECKPOINT_SECONDS", "0"}, kSlowListing});
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(cli.cacheFile("slow")); }));
    // A remount waits out a write in progress.
    ASSERT_TRUE(waitUntil([&] { return runs("mount -o remount,ro " + cacheMount().string()); }));
    const auto readOnly = halfWay->collectOutputAndWait();
    EXPECT_NE(readOnly.exitStatus, 0);
    EXPECT_NE(readOnly.standardOutput.find("(40 files"), std::string::npos)
        << readOnly.standardOutput;
    EXPECT_NE(readOnly.standardError.find("Read-only file system"), std::string::npos)
        << readOnly.standardError;

    // The next run shows the checkpoint for what it is.
    auto next = cli.run({"scan", "slow:"});
    ASSERT_EQ(next.exitStatus, 0) << next.standardError;
    EXPECT_EQ(next.standardOutput.find("(40 files"), std::string::npos) << next.standardOutput;
    EXPECT_NE(next.standardOutput.find("partial: the scan did not finish"), std::string::npos)
        << next.standardOutput;

    // Stopped with Ctrl-C: stopped, and why nothing was kept.
    auto stopped = cli.start({"scan", "slow:", "--rescan"}, {kSlowListing});
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ::kill(stopped->pid(), SIGINT);
    const auto stoppedResult = stopped->collectOutputAndWait();
    EXPECT_EQ(stoppedResult.exitStatus, 130) << stoppedResult.standardError;
    EXPECT_NE(stoppedResult.standardError.find("could not be saved: "), std::string::npos)
        << stoppedResult.standardError;

    // A cache folder that cannot be made (its parent is a file): a local scan says so too.
    writeFile(home.path() / "not-a-folder", "");
    auto missing = cli.run({"scan", slowTree.root(), "--quiet"},
                           {{"XDG_CACHE_HOME", (home.path() / "not-a-folder" / "cache").string()}});
    EXPECT_NE(missing.exitStatus, 0);
    EXPECT_NE(missing.standardError.find("the scan could not be saved"), std::string::npos)
        << missing.standardError;
    EXPECT_NE(missing.standardError.find("Not a directory"), std::string::npos)
        << missing.standardError;
}

} // namespace
} // namespace brimvale::testing
