#include "core/coordinator/ScannerState.h"

namespace brimvale {

FileNodeRef ScannerState::shownTree() const {
    if (const auto* done = as<Done>()) {
        return done->root;
    }
    if (const auto* scanning = as<Scanning>()) {
        return scanning->liveRoot;
    }
    return nullptr;
}

const char* caseName(ScannerState::Case stateCase) {
    switch (stateCase) {
    case ScannerState::Case::needsSetup:
        return "needsSetup";
    case ScannerState::Case::loadingCache:
        return "loadingCache";
    case ScannerState::Case::scanning:
        return "scanning";
    case ScannerState::Case::done:
        return "done";
    case ScannerState::Case::error:
        return "error";
    case ScannerState::Case::idle:
        return "idle";
    case ScannerState::Case::checkingConfig:
        return "checkingConfig";
    }
    return "idle";
}

} // namespace brimvale
