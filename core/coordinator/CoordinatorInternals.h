#pragma once

#include "core/coordinator/ScannerViewModel.h"

#include <condition_variable>
#include <mutex>

namespace brimvale {

// Held strongly by the coordinator only; background work holds it weakly and publishes nothing
// once it is gone.
class ScannerViewModel::Liveness {};

// Sets a published field and tells the observers, when the value changes.
template <class Value>
void ScannerViewModel::publish(Value& field, Value value, PublishedField name) {
    if (field == value) {
        return;
    }
    field = std::move(value);
    notify(name);
}

inline bool isLocalProvider(const CloudStorageProvider& provider) {
    return provider.rcloneType() == "local";
}

} // namespace brimvale
