#include "cli/SavedTree.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/SavedScanTarget.h"
#include "core/model/TreePath.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"

#include <algorithm>
#include <ostream>
#include <vector>

namespace brimvale::cli {

std::optional<SavedTree> readSavedTree(const std::string& target, const char* command,
                                       CommandStreams streams) {
    CoordinatorSession session;
    SavedScanTarget resolved;
    try {
        resolved = resolveSavedScanTarget(target, session);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception& error) {
        streams.err << "brimvale-cli " << command << ": " << displayText(error.what()) << '\n';
        return std::nullopt;
    }
    const auto saved = session.viewModel().cache().loadData(resolved.key);
    if (!saved) {
        streams.err << "brimvale-cli " << command << ": there is no saved scan of "
                    << displayText(target) << " (brimvale-cli scan " << displayText(target)
                    << " makes one)\n";
        return std::nullopt;
    }
    auto root = decodeCacheNode(saved->bytes);
    if (!root) {
        streams.err << "brimvale-cli " << command << ": the saved scan of " << displayText(target)
                    << " is damaged; scan it again with brimvale-cli scan --rescan\n";
        return std::nullopt;
    }
    return SavedTree{std::move(*root), resolved.rootName};
}

std::string pathBelow(const FileNode& node, const FileNode& root) {
    return brimvale::pathBelow(node, &root);
}

void keepUntilExit(FileNodeRef root) {
    static auto* kept = new std::vector<FileNodeRef>();
    kept->push_back(std::move(root));
}

} // namespace brimvale::cli
