// Atomic writes with short temporary names, the cleanup of what a killed write left, and reads
// that refuse anything but a regular file.
#include "core/support/FileBytes.h"

#include "core/support/UniqueFd.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brimvale {
namespace {

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(FileBytes, ATargetNameAtTheFileNameLimitIsWritten) {
    QTemporaryDir temporary;
    const std::string path = temporary.path().toStdString() + "/" + std::string(255, 'n');
    writeFileAtomically(path, std::vector<std::uint8_t>{'o', 'k'});
    EXPECT_EQ(readFileBytes(path).bytes, (std::vector<std::uint8_t>{'o', 'k'}));
    EXPECT_EQ(namesIn(temporary.path().toStdString()),
              (std::vector<std::string>{std::string(255, 'n')}));
}

TEST(FileBytes, OnlyAbandonedTemporaryFilesAreRemoved) {
    QTemporaryDir temporary;
    const std::string folder = temporary.path().toStdString();
    // What a write killed midway leaves, what a live write holds (a real process with the
    // lock), and files that only look alike.
    std::ofstream(folder + "/.brimvale-Ab12Cd.tmp") << "half a scan";
    std::ofstream(folder + "/.brimvale-Zz99Yy.tmp") << "being written";
    std::ofstream(folder + "/.brimvale-notes.tmp.txt") << "not ours";
    std::ofstream(folder + "/brimvale-Ab12Cd.tmp") << "not ours";
    std::ofstream(folder + "/gdrive.cache") << "a saved scan";
    std::filesystem::create_directory(folder + "/.brimvale-Qq11Qq.tmp");

    const std::string held = folder + "/.brimvale-Zz99Yy.tmp";
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        const int file = ::open(held.c_str(), O_WRONLY);
        if (file < 0 || ::flock(file, LOCK_EX) != 0) {
            ::_exit(1);
        }
        (void)!::write(ready[1], "1", 1);
        ::pause();
        ::_exit(0);
    }
    ::close(ready[1]);
    char signal = 0;
    ASSERT_EQ(::read(ready[0], &signal, 1), 1);
    ::close(ready[0]);

    EXPECT_EQ(removeAbandonedTemporaryFiles(folder), 1);
    EXPECT_EQ(namesIn(folder),
              (std::vector<std::string>{".brimvale-Qq11Qq.tmp", ".brimvale-Zz99Yy.tmp",
                                        ".brimvale-notes.tmp.txt", "brimvale-Ab12Cd.tmp",
                                        "gdrive.cache"}));

    // Once its writer is gone (killed), the held file is abandoned too.
    ::kill(writer, SIGKILL);
    int status = 0;
    ::waitpid(writer, &status, 0);
    EXPECT_EQ(removeAbandonedTemporaryFiles(folder), 1);
    EXPECT_FALSE(std::filesystem::exists(folder + "/.brimvale-Zz99Yy.tmp"));
    EXPECT_EQ(removeAbandonedTemporaryFiles(folder + "/missing"), 0);
}

TEST(FileBytes, ReadsRefuseDevicesAndPipesAtOnce) {
    QTemporaryDir temporary;
    const std::string fifo = temporary.path().toStdString() + "/pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {std::string("/dev/zero"), fifo, std::string("/dev/null")}) {
        try {
            (void)readFileBytes(path);
            ADD_FAILURE() << path << " was read";
        } catch (const std::system_error& error) {
            EXPECT_NE(std::string(error.what()).find("is not a regular file"), std::string::npos)
                << error.what();
        }
    }
}

} // namespace
} // namespace brimvale
