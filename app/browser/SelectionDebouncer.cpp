#include "app/browser/SelectionDebouncer.h"

namespace brimvale {

SelectionDebouncer::SelectionDebouncer(std::function<void(FileNodeRef)> publish, QObject* parent)
    : QObject(parent)
    , publish_(std::move(publish)) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(kDelayMilliseconds);
    connect(&timer_, &QTimer::timeout, this, [this] {
        if (currentSelection_ && publish_) {
            publish_(currentSelection_());
        }
    });
}

void SelectionDebouncer::schedulePublish(std::function<FileNodeRef()> currentSelection) {
    currentSelection_ = std::move(currentSelection);
    timer_.start(); // restarts a pending one
}

void SelectionDebouncer::cancel() {
    timer_.stop();
}

} // namespace brimvale
