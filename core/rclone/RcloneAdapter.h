#pragma once

#include "core/model/CloudStorageProvider.h"
#include "core/rclone/RcloneConfigDump.h"
#include "core/rclone/RcloneEntry.h"
#include "core/rclone/RcloneRunner.h"
#include "core/rclone/RemoteWebURL.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brimvale {

class SettingsStore;

struct RcloneAdapterOptions {
    // Finds and runs rclone; tests point it at their own configuration.
    RcloneRunner runner;
    // Where object-storage scan roots are kept (for web links), and what the backend answered
    // about recursive listings; may be null (then it is asked at every scan).
    std::shared_ptr<SettingsStore> settings;
    // The account's settings from the configuration dump, when the caller has them (for web
    // links: whether an S3 remote is AWS).
    std::optional<RemoteConfigSection> configSection;
};

// An rclone remote as a cloud account: a scan is one recursive `rclone lsjson -R` run, read as
// it streams (or, on request, one `rclone lsjson` run per folder), and account configuration
// goes through `rclone config`. The base of every cloud adapter; subclasses change the type,
// the listing flags and the web links.
//
// Thread safety: an adapter holds no mutable state; every operation may be called from any
// background thread (all of them block on rclone), never from the main thread.
class RcloneAdapter : public CloudStorageProvider {
public:
    RcloneAdapter(std::string remoteID, std::string displayName, RcloneAdapterOptions options = {});

    std::string remoteID() const override { return remoteID_; }
    std::string displayName() const override { return displayName_; }
    std::string rcloneType() const override { return {}; }

    // Listing flags after "lsjson" and before the target.
    virtual std::vector<std::string> extraLsjsonFlags() const { return {}; }
    // Whether one-folder listings ask for "--fast-list" (no adapter does; the hook is kept).
    // Recursive listings ask for it whenever the backend can list a tree in one go.
    virtual bool useFastListForRecursiveScan() const { return false; }

    // Whether the configuration has a section for this remote. An adapter made from the
    // account list knows without asking rclone again; a remote deleted since then makes the
    // listing fail with remoteNotConfigured.
    bool isConfigured(std::stop_token stopToken) override;
    std::vector<FileNodeRef> listDirectory(const std::string& path,
                                           std::stop_token stopToken) override;
    FileNodeRef scan(const ScanParameters& parameters) override;
    std::optional<std::string> webURL(const FileNode& node) const override;
    std::optional<std::int64_t> totalOccupiedBytesForScanPath(const std::string& path,
                                                              std::stop_token stopToken) override;

    // The command line of one listing of `target` ("remote:path"), without the program.
    std::vector<std::string> lsjsonArguments(const std::string& target) const;
    // The command line of the recursive listing of `target`: "lsjson", "-R", "--fast-list"
    // when the backend lists trees in one go, the extra flags, "--checkers" N, "--", target.
    std::vector<std::string> recursiveLsjsonArguments(const std::string& target,
                                                      bool fastList) const;
    // Whether the backend lists a whole tree in one request (rclone's ListR feature): asked
    // with `rclone backend features` once and kept in the settings. False when it cannot be
    // asked.
    bool backendListsRecursively(std::stop_token stopToken) const;
    // One listing run, decoded.
    std::vector<RcloneEntry> listEntries(const std::string& target,
                                         std::stop_token stopToken) const;

    // Configuration operations, each one or more runs of rclone.
    // A query of the adapter's own, with the display name in errors; output as UTF-8 text.
    std::string rclone(const std::vector<std::string>& arguments,
                       std::stop_token stopToken = {}) const;
    std::vector<ConfiguredRemote> remotesFromConfig(std::stop_token stopToken = {}) const;
    RcloneConfigDump configDumpDictionary(std::stop_token stopToken = {}) const;
    // Afterwards the remote exists with type `rcloneType`: created when missing (without
    // asking anything), retyped when it has another type.
    void ensureRemoteStubExists(const std::string& remoteName, const std::string& rcloneType,
                                std::stop_token stopToken = {}) const;
    // Writes `settings` into the remote in one request to rclone's remote control (config/create
    // when it is missing, config/update otherwise, with "type" when it has another type), so no
    // value ever appears on a command line. Passwords are stored obscured. A remote that this
    // call created and rclone then refused is deleted again: a failed add leaves nothing in the
    // configuration. Errors never quote a value of `secrets`. Throws like rclone(). Returns
    // rclone's reply: the first question of the backend's own configuration when it asks one
    // (RcloneGuidedSetup::continueConfiguration goes on from there).
    std::string
    writeRemoteSettings(const std::string& remoteName, const std::string& rcloneType,
                        const std::vector<std::pair<std::string, std::string>>& settings,
                        const std::vector<std::string>& secrets,
                        std::stop_token stopToken = {}) const;
    void deleteRemote(const std::string& remoteName, std::stop_token stopToken = {}) const;
    // Deletes every remote whose name begins with `prefix`; returns their names.
    std::vector<std::string> deleteRemotesWithNamePrefix(const std::string& prefix,
                                                         std::stop_token stopToken = {}) const;

    const RcloneRunner& runner() const { return options_.runner; }

protected:
    // What web links need to know about this account.
    RemoteWebContext webContext() const;

private:
    std::string remoteID_;
    std::string displayName_;
    RcloneAdapterOptions options_;
};

// Whether `rclone backend features` output says the backend lists a tree in one go
// ("Features": {"ListR": true}); false for anything else. Pure.
bool parseBackendListsRecursively(std::string_view featuresJSON);

} // namespace brimvale
