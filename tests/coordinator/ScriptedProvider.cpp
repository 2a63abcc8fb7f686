#include "tests/coordinator/ScriptedProvider.h"

#include "core/support/MainQueue.h"
#include "core/support/Task.h"

namespace brimvale::testing {

bool ScriptedProvider::isConfigured(std::stop_token) {
    return configured;
}

FileNodeRef ScriptedProvider::scan(const ScanParameters& parameters) {
    {
        std::lock_guard lock(mutex_);
        paths_.push_back(parameters.path);
        seeds_.push_back(parameters.seedRoot);
    }
    changed_.notify_all();
    for (;;) {
        Step step;
        {
            std::unique_lock lock(mutex_);
            while (steps_.empty()) {
                if (parameters.stopToken.stop_requested()) {
                    throw CancellationError();
                }
                changed_.wait_for(lock, std::chrono::milliseconds(5));
            }
            step = std::move(steps_.front());
            steps_.pop_front();
            playing_ = true;
        }
        struct Played {
            ScriptedProvider* self;
            ~Played() {
                {
                    std::lock_guard lock(self->mutex_);
                    self->playing_ = false;
                }
                self->changed_.notify_all();
            }
        } played{this};
        if (const auto* progress = std::get_if<Progress>(&step)) {
            parameters.progress(progress->progress);
        } else if (const auto* partial = std::get_if<PartialTree>(&step)) {
            runOnMainAndWait(*parameters.mainQueue,
                             [&] { parameters.partialStructure(partial->root); });
        } else if (const auto* finish = std::get_if<Finish>(&step)) {
            return finish->root;
        } else if (const auto* fail = std::get_if<Fail>(&step)) {
            std::rethrow_exception(fail->error);
        }
    }
}

void ScriptedProvider::push(Step step) {
    {
        std::lock_guard lock(mutex_);
        steps_.push_back(std::move(step));
    }
    changed_.notify_all();
}

int ScriptedProvider::scansStarted() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(paths_.size());
}

std::vector<std::string> ScriptedProvider::scannedPaths() const {
    std::lock_guard lock(mutex_);
    return paths_;
}

std::vector<FileNodeRef> ScriptedProvider::seeds() const {
    std::lock_guard lock(mutex_);
    return seeds_;
}

bool ScriptedProvider::waitForScans(int count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout,
                             [&] { return static_cast<int>(paths_.size()) >= count; });
}

bool ScriptedProvider::waitUntilDrained(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return steps_.empty() && !playing_; });
}

} // namespace brimvale::testing
