#include "core/persistence/cache/ScanCache.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/SavedScanNames.h"
#include "core/persistence/history/ScanHistory.h"
#include "core/support/CorruptDataError.h"
#include "core/support/FileBytes.h"
#include "core/support/UniqueFd.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace brimvale {
namespace {

constexpr std::string_view kCurrentSuffix = ".cache";
constexpr std::string_view kLegacySuffix = ".json";

std::system_error lastError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

void makeDirectories(const std::string& directory) {
    std::string partial;
    std::size_t position = 0;
    while (position != std::string::npos) {
        position = directory.find('/', position + 1);
        partial = directory.substr(0, position);
        if (!partial.empty() && ::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
            throw lastError("cannot create " + partial);
        }
    }
}

Date modificationDate(const struct stat& info) {
    return Date::fromUnixSeconds(static_cast<double>(info.st_mtim.tv_sec) +
                                 static_cast<double>(info.st_mtim.tv_nsec) / 1e9);
}

void appendLine(const std::string& path, std::string_view line) {
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!file.valid()) {
        return;
    }
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::write(file.get(), line.data() + written, line.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;
        }
        written += static_cast<std::size_t>(count);
    }
}

bool isSafeStem(std::string_view stem) {
    return !stem.empty();
}

} // namespace

std::string ScanCache::defaultDirectory() {
    if (const char* cacheHome = std::getenv("XDG_CACHE_HOME"); cacheHome && cacheHome[0] == '/') {
        return std::string(cacheHome) + "/Brimvale";
    }
    if (const char* home = std::getenv("HOME"); home && home[0] != '\0') {
        return std::string(home) + "/.cache/Brimvale";
    }
    return "/tmp/Brimvale-" + std::to_string(::getuid());
}

ScanCache::ScanCache(std::string directory)
    : directory_(std::move(directory)) {
    while (directory_.size() > 1 && directory_.back() == '/') {
        directory_.pop_back();
    }
    try {
        makeDirectories(directory_);
    } catch (const std::system_error&) {
        // Reported by the first write that fails; reading an absent cache simply finds nothing.
        return;
    }
    if (const int removed = removeAbandonedTemporaryFiles(directory_); removed > 0) {
        std::lock_guard lock(mutex_);
        logLocked("Removed " + std::to_string(removed) +
                  (removed == 1 ? " temporary file" : " temporary files") +
                  " left by a save that did not finish");
    }
}

std::string ScanCache::fileNameFor(std::string_view stem) {
    return SavedScanNames::fileStem(stem) + std::string(kCurrentSuffix);
}

std::string ScanCache::pathFor(std::string_view stem, std::string_view suffix) const {
    std::string path = directory_;
    path += '/';
    path += SavedScanNames::fileStem(stem);
    path += suffix;
    return path;
}

std::optional<std::string> ScanCache::write(std::span<const std::uint8_t> data,
                                            std::string_view stem) {
    return write(stem, [&](const FileAppender& append) { append(data); });
}

std::optional<std::string>
ScanCache::write(std::string_view stem, const std::function<void(const FileAppender&)>& produce) {
    std::lock_guard lock(mutex_);
    const std::string fileName = fileNameFor(stem);
    try {
        if (!isSafeStem(stem)) {
            throw std::system_error(EINVAL, std::generic_category(),
                                    "\"" + std::string(stem) + "\" is not a valid cache name");
        }
        makeDirectories(directory_);
        std::uint64_t written = 0;
        writeFileAtomically(pathFor(stem, kCurrentSuffix), 0600, [&](const FileAppender& append) {
            produce([&](std::span<const std::uint8_t> bytes) {
                append(bytes);
                written += bytes.size();
            });
        });
        logLocked("Saved " + std::to_string(written) + " bytes \u2192 " + fileName);
        return std::nullopt;
    } catch (const std::exception& error) {
        logLocked(std::string("Save failed: ") + error.what());
        return error.what();
    }
}

std::optional<ScanCache::LoadedData> ScanCache::loadData(std::string_view stem) {
    std::lock_guard lock(mutex_);
    if (!isSafeStem(stem)) {
        return std::nullopt;
    }
    for (const auto suffix : {kCurrentSuffix, kLegacySuffix}) {
        if (auto loaded = loadFile(pathFor(stem, suffix), stem)) {
            return loaded;
        }
    }
    return std::nullopt;
}

std::optional<ScanCache::LoadedData> ScanCache::loadFile(const std::string& path,
                                                         std::string_view key) {
    FileBytes file;
    try {
        file = readFileBytes(path);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    LoadedData loaded{std::move(file.bytes), Date::fromUnixSeconds(file.modifiedUnixSeconds)};
    if (!SavedScanNames::isHashedStem(SavedScanNames::fileStem(key))) {
        return loaded; // a plain stem is the key itself
    }
    try {
        StoredRecord record = readStoredRecord(loaded.bytes);
        if (record.key != key) {
            logLocked("Ignored " + path.substr(directory_.size() + 1) +
                      ": it is the saved scan of another folder");
            return std::nullopt;
        }
        loaded.bytes = std::move(record.propertyList);
    } catch (const std::exception&) {
        // Damaged (or beyond memory): its key cannot be checked, so it is not trusted either.
        logLocked("Unreadable saved scan " + path.substr(directory_.size() + 1));
        return std::nullopt;
    }
    return loaded;
}

std::optional<Date> ScanCache::cacheDate(std::string_view stem) {
    std::lock_guard lock(mutex_);
    if (!isSafeStem(stem)) {
        return std::nullopt;
    }
    const auto info = savedFileStatus(stem);
    return info ? std::optional<Date>(modificationDate(*info)) : std::nullopt;
}

std::optional<std::string> ScanCache::savedFileIdentity(std::string_view stem) {
    std::lock_guard lock(mutex_);
    if (!isSafeStem(stem)) {
        return std::nullopt;
    }
    const auto info = savedFileStatus(stem);
    if (!info) {
        return std::nullopt;
    }
    return std::to_string(info->st_ino) + ":" + std::to_string(info->st_size) + ":" +
           std::to_string(info->st_mtim.tv_sec) + "." + std::to_string(info->st_mtim.tv_nsec);
}

std::optional<struct stat> ScanCache::savedFileStatus(std::string_view stem) const {
    for (const auto suffix : {kCurrentSuffix, kLegacySuffix}) {
        struct stat info {};
        if (::stat(pathFor(stem, suffix).c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            return info;
        }
    }
    return std::nullopt;
}

void ScanCache::clear(std::string_view stem) {
    std::lock_guard lock(mutex_);
    if (!isSafeStem(stem)) {
        return;
    }
    for (const auto suffix : {kCurrentSuffix, kLegacySuffix}) {
        ::unlink(pathFor(stem, suffix).c_str());
    }
}

std::vector<std::string> ScanCache::clearAccount(std::string_view accountID) {
    std::lock_guard lock(mutex_);
    std::vector<std::string> removed;
    DIR* listing = ::opendir(directory_.c_str());
    if (listing == nullptr) {
        return removed;
    }
    std::vector<std::string> candidates;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        for (const auto suffix : {kCurrentSuffix, kLegacySuffix}) {
            if (name.size() > suffix.size() && name.ends_with(suffix) &&
                SavedScanNames::stemMayBelongToAccount(name.substr(0, name.size() - suffix.size()),
                                                       accountID)) {
                candidates.emplace_back(name);
            }
        }
    }
    ::closedir(listing);
    const std::string ownStem = SavedScanNames::fileStem(SavedScanNames::accountKey(accountID));
    for (const auto& name : candidates) {
        const std::string path = directory_ + "/" + name;
        const std::string_view stem = std::string_view(name).substr(0, name.find_last_of('.'));
        bool ours = stem == ownStem && !SavedScanNames::isHashedStem(stem);
        if (!ours) {
            // A hashed stem says only part of its account's name: the key inside decides.
            // A damaged one whose name begins with the account's goes too.
            try {
                ours = SavedScanNames::keyBelongsToAccount(
                    readStoredRecord(readFileBytes(path).bytes).key, accountID);
            } catch (const CorruptDataError&) {
                ours = true;
            } catch (const std::exception&) {
            }
        }
        if (ours && ::unlink(path.c_str()) == 0) {
            removed.push_back(name);
        }
    }
    for (auto& name : ScanHistory(directory_).removeAccount(accountID)) {
        removed.push_back(std::move(name));
    }
    std::sort(removed.begin(), removed.end());
    return removed;
}

void ScanCache::log(std::string_view message) {
    std::lock_guard lock(mutex_);
    logLocked(message);
}

void ScanCache::logLocked(std::string_view message) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S +0000", &parts);
    std::string line = "[";
    line += stamp;
    line += "] ";
    line += message;
    line += '\n';
    appendLine(logPath(), line);
}

} // namespace brimvale
