#include "core/local/LocalDiskAdapter.h"

#include "core/local/LocalScanRun.h"
#include "core/local/PosixDirectoryReader.h"
#include "core/local/VolumeSpace.h"
#include "core/support/Task.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <system_error>

namespace brimvale {
namespace {

// Collects one folder's entries as nodes, for listDirectory.
class NodeCollector final : public DirEntrySink {
public:
    explicit NodeCollector(SharedTextRef folderPath)
        : folderPath_(std::move(folderPath)) {}

    void addEntry(const DirEntry& entry) override {
        if (entry.name == ".DS_Store" || entry.name == "Thumbs.db") {
            return;
        }
        nodes.push_back(FileNode::makeChild(
            folderPath_, PathJoin::relativeTail,
            FileNodeFields{.name = std::string(entry.name),
                           .isDirectory = entry.isDirectory,
                           .size = entry.allocatedSize,
                           .modifiedDate = Date::fromUnixSeconds(entry.modifiedUnixSeconds)}));
    }

    std::vector<FileNodeRef> nodes;

private:
    SharedTextRef folderPath_;
};

} // namespace

LocalDiskAdapter::LocalDiskAdapter(std::string remoteID, std::string displayName,
                                   LocalScanOptions options)
    : remoteID_(std::move(remoteID))
    , displayName_(std::move(displayName))
    , options_(std::move(options)) {}

bool LocalDiskAdapter::isConfigured(std::stop_token /*stopToken*/) {
    return true;
}

std::string LocalDiskAdapter::resolveScanLocation(const std::string& path) {
    const std::string given = path.empty() ? std::string("/") : path;
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(given.c_str(), nullptr),
                                                         &std::free);
    if (!resolved) {
        throw std::system_error(errno, std::generic_category(), "cannot scan '" + given + "'");
    }
    struct stat status {};
    if (::stat(resolved.get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot scan '" + given + "'");
    }
    if (!S_ISDIR(status.st_mode)) {
        throw std::system_error(ENOTDIR, std::generic_category(), "cannot scan '" + given + "'");
    }
    return resolved.get();
}

std::vector<FileNodeRef> LocalDiskAdapter::listDirectory(const std::string& path,
                                                         std::stop_token stopToken) {
    const std::string location = resolveScanLocation(path);
    auto reader = options_.directoryReader ? options_.directoryReader
                                           : std::make_shared<PosixDirectoryReader>();
    NodeCollector collector(SharedText::make(std::string_view(location).substr(1)));
    const FolderReadOutcome outcome =
        reader->read(FolderReadRequest{.location = location, .stopToken = stopToken}, collector);
    throwIfCancelled(stopToken);
    if (outcome.status == FolderReadStatus::failed) {
        throw std::system_error(outcome.errorNumber, std::generic_category(),
                                "cannot list '" + location + "'");
    }
    return std::move(collector.nodes);
}

FileNodeRef LocalDiskAdapter::scan(const ScanParameters& parameters) {
    throwIfCancelled(parameters.stopToken);
    auto run =
        std::make_shared<LocalScanRun>(resolveScanLocation(parameters.path), parameters, options_);
    return run->run();
}

std::optional<std::string> LocalDiskAdapter::webURL(const FileNode& /*node*/) const {
    return std::nullopt;
}

std::optional<std::int64_t>
LocalDiskAdapter::totalOccupiedBytesForScanPath(const std::string& path,
                                                std::stop_token /*stopToken*/) {
    // A hung mount never answers: the scan goes on without the figure.
    const auto answer =
        volumeSpaceWithin(path.empty() ? std::string("/") : path, std::chrono::seconds(2));
    if (!answer.space) {
        return std::nullopt;
    }
    return answer.space->usedBytes;
}

} // namespace brimvale
