#include "tests/coordinator/ScriptedProvider.h"

#include "core/support/MainQueue.h"
#include "core/support/Task.h"

#include <algorithm>

namespace brimvale::testing {

bool ScriptedProvider::isConfigured(std::stop_token) {
    return configured;
}

FileNodeRef ScriptedProvider::scan(const ScanParameters& parameters) {
    int index = 0;
    {
        std::lock_guard lock(mutex_);
        index = static_cast<int>(paths_.size());
        paths_.push_back(parameters.path);
        seeds_.push_back(parameters.seedRoot);
        running_.emplace(index, parameters.stopToken);
    }
    changed_.notify_all();
    struct Unplayed {
        ScriptedProvider* self;
        int index;
        ~Unplayed() {
            {
                std::lock_guard lock(self->mutex_);
                self->pendingSteps_ -= static_cast<int>(self->steps_[index].size());
                self->steps_.erase(index);
                self->running_.erase(index);
            }
            self->changed_.notify_all();
        }
    } unplayed{this, index};
    for (;;) {
        Step step;
        {
            std::unique_lock lock(mutex_);
            auto& mine = steps_[index];
            while (mine.empty()) {
                if (parameters.stopToken.stop_requested() && !ignoresStop) {
                    throw CancellationError();
                }
                changed_.wait_for(lock, std::chrono::milliseconds(5));
            }
            step = std::move(mine.front());
            mine.pop_front();
            --pendingSteps_;
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
            runOnMainAndWait(*parameters.mainQueue, parameters.stopToken,
                             [&] { parameters.partialStructure(partial->root); });
        } else if (const auto* finish = std::get_if<Finish>(&step)) {
            return finish->root;
        } else if (const auto* fail = std::get_if<Fail>(&step)) {
            std::rethrow_exception(fail->error);
        }
    }
}

void ScriptedProvider::push(Step step) {
    int newest = 0;
    {
        std::lock_guard lock(mutex_);
        newest = std::max(0, static_cast<int>(paths_.size()) - 1);
    }
    pushTo(newest, std::move(step));
}

void ScriptedProvider::pushTo(int scanIndex, Step step) {
    {
        std::lock_guard lock(mutex_);
        steps_[scanIndex].push_back(std::move(step));
        ++pendingSteps_;
    }
    changed_.notify_all();
}

int ScriptedProvider::runningUnstopped() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(running_.begin(), running_.end(), [](const auto& scan) {
        return !scan.second.stop_requested();
    }));
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
    return changed_.wait_for(lock, timeout, [&] { return pendingSteps_ == 0 && !playing_; });
}

} // namespace brimvale::testing
