#include "app/bridge/QtMainQueue.h"

#include <QMetaObject>
#include <QObject>

#include <mutex>

namespace brimvale {

// The object whose thread runs the jobs, cleared under the lock when the queue goes so that a
// late post never touches a deleted object.
struct QtMainQueue::Target {
    std::mutex mutex; // guards receiver
    QObject* receiver = nullptr;
};

QtMainQueue::QtMainQueue()
    : target_(std::make_shared<Target>())
    , mainThread_(std::this_thread::get_id()) {
    target_->receiver = new QObject();
}

QtMainQueue::~QtMainQueue() {
    close();
}

void QtMainQueue::close() {
    QObject* receiver = nullptr;
    {
        const std::lock_guard lock(target_->mutex);
        receiver = target_->receiver;
        target_->receiver = nullptr;
    }
    // Jobs still queued for it are destroyed unrun with it (a task waiting for one of them
    // sees a broken promise and ends).
    delete receiver;
}

void QtMainQueue::post(Job job) {
    const std::lock_guard lock(target_->mutex);
    if (target_->receiver == nullptr) {
        return;
    }
    QMetaObject::invokeMethod(target_->receiver, std::move(job), Qt::QueuedConnection);
}

bool QtMainQueue::isCurrent() const {
    return std::this_thread::get_id() == mainThread_;
}

} // namespace brimvale
