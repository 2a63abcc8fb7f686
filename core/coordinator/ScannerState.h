#pragma once

#include "core/model/CloudStorageProvider.h"
#include "core/model/Date.h"
#include "core/model/FileNode.h"
#include "core/model/ScanProgress.h"
#include "core/model/SkippedFolder.h"
#include "core/rclone/ScanErrorInfo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brimvale {

using ProviderRef = std::shared_ptr<CloudStorageProvider>;

// What the detail area shows for one account. A value type; the trees it holds are shared.
class ScannerState {
public:
    // The account exists but has no usable rclone configuration: the view offers setup.
    struct NeedsSetup {
        ProviderRef provider;
    };
    // A saved scan is being read and decoded.
    struct LoadingCache {
        std::string remoteID;
        double fraction = 0.0;
    };
    // A scan is running; the live tree is absent until the first partial tree (or when the
    // live tree is switched off).
    struct Scanning {
        ScanProgress progress;
        FileNodeRef liveRoot;
    };
    // A finished tree, with the date its saved scan was written and the occupied size the
    // volume reports (local accounts only).
    struct Done {
        FileNodeRef root;
        std::optional<Date> savedDate;
        std::optional<std::int64_t> occupiedBytes;
        // Folders this scan could not read (empty for a saved scan that was opened).
        std::vector<SkippedFolder> skippedFolders;
        // The saved tree of a scan that did not finish (stopped, or cut short).
        bool partial = false;
        // Why this tree could not be saved (a full disk, a read-only or missing cache folder):
        // the next start will not find it.
        std::optional<std::string> saveFailure;
    };
    struct Error {
        ScanErrorInfo info;
    };
    struct Idle {};
    // The account's configuration is being checked before a scan starts.
    struct CheckingConfig {};

    enum class Case { needsSetup, loadingCache, scanning, done, error, idle, checkingConfig };

    ScannerState()
        : value_(Idle{}) {}
    template <class Alternative>
    requires std::is_constructible_v<
        std::variant<NeedsSetup, LoadingCache, Scanning, Done, Error, Idle, CheckingConfig>,
        Alternative>
    ScannerState(Alternative alternative) // NOLINT(google-explicit-constructor)
        : value_(std::move(alternative)) {}

    static ScannerState idle() { return Idle{}; }
    static ScannerState checkingConfig() { return CheckingConfig{}; }

    Case kind() const { return static_cast<Case>(value_.index()); }
    template <class Alternative> const Alternative* as() const {
        return std::get_if<Alternative>(&value_);
    }
    template <class Alternative> bool is() const {
        return std::holds_alternative<Alternative>(value_);
    }

    // The tree this state shows: the finished root, or the live root of a scan; else null.
    FileNodeRef shownTree() const;

private:
    std::variant<NeedsSetup, LoadingCache, Scanning, Done, Error, Idle, CheckingConfig> value_;
};

// "idle", "scanning"…: the case's name, for logs and the command line's JSON.
const char* caseName(ScannerState::Case stateCase);

} // namespace brimvale
