#pragma once

#include "core/support/MainQueue.h"

#include <memory>
#include <thread>

namespace brimvale {

// The main queue on the Qt event loop of the thread that creates it (the GUI thread): a posted
// job runs as a queued call on that loop, after every job posted before it, also inside the
// nested loops of modal dialogs. Background tasks hop here to publish and, for cloud merges,
// wait here (runOnMainAndWait), so the GUI thread must never block waiting for a task.
//
// Thread safety: post() and isCurrent() from any thread. A job posted after the queue is gone
// (a detached task ending during exit) is dropped, never run.
class QtMainQueue final : public MainQueue {
public:
    QtMainQueue();
    ~QtMainQueue() override;
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    void post(Job job) override;
    bool isCurrent() const override;
    // Drops every job queued or posted from now on. For the end of the program: detached
    // background tasks may still post while they end, so the application closes its queue and
    // keeps the object itself alive rather than destroying it under them. GUI thread only.
    void close();

private:
    struct Target;
    std::shared_ptr<Target> target_;
    std::thread::id mainThread_;
};

} // namespace brimvale
