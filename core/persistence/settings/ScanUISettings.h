#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace brimvale::ScanUISettings {

// Tuning of the live scan display. Process-wide values, held in memory only: read by scan tasks,
// written at start-up (the application entry switches liveTreeDuringScan on).

struct LiveRefreshStep {
    std::int64_t items;
    double interval; // seconds
};

struct CheckpointStep {
    std::int64_t items;
    double seconds;
};

inline std::string appShortName = "Brimvale";
// rclone's --checkers for a recursive cloud listing: how many folders it lists at once.
inline std::atomic<int> cloudListingCheckers{8};
inline std::atomic<bool> liveTreeDuringScan{false};

inline double liveUIRefreshFloor = 0.12;
inline double liveUIRefreshCeiling = 2.0;
inline std::vector<LiveRefreshStep> liveUIRefreshSteps = {
    {25'000, 0.22}, {100'000, 0.45}, {250'000, 0.85}, {600'000, 1.5}};

inline double checkpointMinFloor = 30.0;
inline double checkpointMinCeiling = 120.0;
inline std::vector<CheckpointStep> checkpointSteps = {
    {200'000, 45.0}, {500'000, 75.0}, {1'000'000, 120.0}};

// Minimum seconds between two live refreshes of the tree on screen, given the items (files plus
// folders) scanned so far.
double adaptiveLiveRefreshInterval(std::int64_t itemsScanned);
// Minimum seconds between two intermediate cache checkpoints of a running scan.
double adaptiveCheckpointMinInterval(std::int64_t itemsScanned);

// Applies the diagnostics switch BRIMVALE_CHECKPOINT_SECONDS: when it holds a number of seconds
// (0 or more), every checkpoint interval becomes that number. For tests and for people who
// want checkpoints more often; anything else in the variable is ignored. Called at start-up,
// before any scan.
void applyEnvironmentOverrides();

} // namespace brimvale::ScanUISettings
