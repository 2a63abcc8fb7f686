#include "cli/SavedScanTarget.h"

#include "cli/CommandLine.h"
#include "cli/CoordinatorSession.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/persistence/cache/LocalScanCacheStem.h"

#include <stdexcept>

namespace brimvale::cli {
namespace {

std::optional<std::string> accountInTarget(const std::string& target) {
    const auto colon = target.find(':');
    const auto slash = target.find('/');
    if (colon == std::string::npos || colon == 0 || (slash != std::string::npos && slash < colon)) {
        return std::nullopt;
    }
    if (colon + 1 != target.size()) {
        throw UsageError("'" + target + "' names a folder inside an account; give the account as " +
                         target.substr(0, colon + 1));
    }
    return target.substr(0, colon);
}

// The account id local scans are saved under: the first configured local account, else the
// pinned local row, as scan chooses.
std::optional<std::string> localAccountID(const ScannerViewModel& viewModel) {
    std::optional<std::string> placeholder;
    for (const auto& provider : viewModel.providers()) {
        if (provider->rcloneType() != "local") {
            continue;
        }
        if (viewModel.configuredRemoteNames().contains(provider->remoteID())) {
            return provider->remoteID();
        }
        if (!placeholder) {
            placeholder = provider->remoteID();
        }
    }
    return placeholder;
}

} // namespace

SavedScanTarget resolveSavedScanTarget(const std::string& target, CoordinatorSession& session) {
    if (const auto account = accountInTarget(target)) {
        return SavedScanTarget{.key = *account, .rootName = *account + ":"};
    }
    const std::string location = LocalDiskAdapter::resolveScanLocation(target);
    session.loadAccounts();
    const auto accountID = localAccountID(session.viewModel());
    if (!accountID) {
        throw std::runtime_error("no local account is available");
    }
    return SavedScanTarget{.key = LocalScanCacheStem::stem(*accountID, location),
                           .rootName = location};
}

} // namespace brimvale::cli
