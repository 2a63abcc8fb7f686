#include "core/local/LiveTreeAssembler.h"

#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"
#include "core/support/ScanDiagnostics.h"

#include <chrono>
#include <cstdio>
#include <unordered_set>

namespace brimvale {

LiveTreeAssembler::LiveTreeAssembler(Settings settings)
    : settings_(std::move(settings)) {}

void LiveTreeAssembler::submit(FolderListing listing) {
    std::lock_guard guard(lock_);
    pending_.push_back(std::move(listing));
}

std::size_t LiveTreeAssembler::applyPending() {
    {
        std::lock_guard guard(lock_);
        applying_.swap(pending_);
    }
    const std::size_t count = applying_.size();
    for (auto& listing : applying_) {
        apply(listing);
    }
    applying_.clear();
    return count;
}

void LiveTreeAssembler::apply(FolderListing& listing) {
    FileNode& folder = *listing.folder;
    for (auto& reused : listing.reused) {
        reused.node->setScanGeneration(settings_.scanSession);
        if (reused.newSize) {
            reused.node->setSize(*reused.newSize);
        }
    }
    // Children of the seed tree that were not seen again go with the old list.
    folder.mutableChildren() = std::move(listing.children);
    const std::int64_t change = listing.childrenTotal - folder.size();
    folder.setSize(listing.childrenTotal);
    if (change != 0) {
        for (FileNode* ancestor = folder.parent(); ancestor != nullptr;
             ancestor = ancestor->parent()) {
            ancestor->setSize(saturatingAdd(ancestor->size(), change));
        }
    }
    touchedSinceFlush_.push_back(std::move(listing.folder));
}

void LiveTreeAssembler::rebalanceTouchedFolders() {
    std::unordered_set<const FileNode*> done;
    for (const auto& touched : touchedSinceFlush_) {
        for (FileNode* folder = touched.get(); folder != nullptr; folder = folder->parent()) {
            if (!done.insert(folder).second) {
                break;
            }
            folder->rebalanceChildren();
        }
    }
}

bool LiveTreeAssembler::flushIfDue() {
    if (settings_.throttle == nullptr || touchedSinceFlush_.empty() ||
        !settings_.throttle->beginFlushIfDue()) {
        return false;
    }
    const auto started = std::chrono::steady_clock::now();
    const std::string lastPath = touchedSinceFlush_.back()->path();
    rebalanceTouchedFolders();
    touchedSinceFlush_.clear();
    if (settings_.partialStructure) {
        settings_.partialStructure(settings_.root);
    }
    settings_.throttle->finishFlush();
    const double milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started)
            .count();
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, "%.1fms", milliseconds);
    ScanDiagnostics::log("flush post-children dir=" + (lastPath.empty() ? "/" : lastPath) +
                         " rootChildren=" + std::to_string(settings_.root->children().size()) +
                         " " + elapsed);
    return true;
}

} // namespace brimvale
