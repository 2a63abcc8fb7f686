#include "cli/SavedScanTarget.h"

#include "cli/CommandLine.h"
#include "cli/CoordinatorSession.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/persistence/cache/LocalScanCacheStem.h"

#include <stdexcept>

namespace brimvale::cli {

std::optional<std::string> accountInTarget(const std::string& target, std::string_view advice) {
    const auto colon = target.find(':');
    const auto slash = target.find('/');
    if (colon == std::string::npos || colon == 0 || (slash != std::string::npos && slash < colon)) {
        return std::nullopt;
    }
    if (colon + 1 != target.size()) {
        throw UsageError("'" + target + "' names a folder inside an account; give the account as " +
                         target.substr(0, colon + 1) + std::string(advice));
    }
    return target.substr(0, colon);
}

ProviderRef localAccount(const ScannerViewModel& viewModel) {
    return viewModel.localDiskAccount();
}

SavedScanTarget resolveSavedScanTarget(const std::string& target, CoordinatorSession& session) {
    if (const auto account = accountInTarget(target, "")) {
        return SavedScanTarget{.key = *account, .rootName = *account + ":"};
    }
    const std::string location = LocalDiskAdapter::resolveScanLocation(target);
    ProviderRef account = session.viewModel().localDiskAccountKnownFromLastList();
    if (!account) {
        session.loadAccounts();
        account = localAccount(session.viewModel());
    }
    if (!account) {
        throw std::runtime_error("no local account is available");
    }
    return SavedScanTarget{.key = LocalScanCacheStem::stem(account->remoteID(), location),
                           .rootName = location};
}

} // namespace brimvale::cli
