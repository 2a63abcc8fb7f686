#pragma once

#include "core/coordinator/AccountOnboarding.h"
#include "core/coordinator/CoordinatorInternals.h"

#include <functional>

namespace brimvale {

// Sets a published field of the onboarding and tells the coordinator's observers, when the
// value changes.
template <class Value>
void AccountOnboarding::publish(Value& field, Value value, PublishedField name) {
    if (field == value) {
        return;
    }
    field = std::move(value);
    coordinator_.notify(name);
}

inline void reportFinished(const std::function<void(bool)>& onFinished, bool succeeded) {
    if (onFinished) {
        onFinished(succeeded);
    }
}

} // namespace brimvale
