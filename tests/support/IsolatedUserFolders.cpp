// Every test of this program runs with its own settings, cache and rclone configuration, so
// that no test reads or changes the files of the person running it (brimvale-cli commands
// use the user's own).
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

struct IsolatedUserFolders {
    IsolatedUserFolders() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "brimvale-tests-home-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        root = pattern;
        ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (root / "cache").c_str(), 1);
        ::setenv("RCLONE_CONFIG", (root / "rclone.conf").c_str(), 1);
    }
    ~IsolatedUserFolders() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    std::filesystem::path root;
};

const IsolatedUserFolders isolatedUserFolders;

} // namespace
