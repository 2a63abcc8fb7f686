#pragma once

#include "core/model/FileNode.h"

#include <QObject>
#include <QTimer>

#include <functional>

namespace brimvale {

// Publishes the browser's selection to the coordinator 80 ms after the last change, so a run
// of arrow keys publishes only where it ends; the columns themselves follow every key at once.
// A new schedule cancels the pending one. The timer runs on the monotonic clock. GUI thread.
class SelectionDebouncer final : public QObject {
    Q_OBJECT
public:
    static constexpr int kDelayMilliseconds = 80;

    // `publish` receives the node to make the coordinator's selection.
    explicit SelectionDebouncer(std::function<void(FileNodeRef)> publish,
                                QObject* parent = nullptr);

    // Publishes what `currentSelection` returns when the delay has passed without another
    // schedule.
    void schedulePublish(std::function<FileNodeRef()> currentSelection);
    void cancel();
    bool isPending() const { return timer_.isActive(); }

private:
    std::function<void(FileNodeRef)> publish_;
    std::function<FileNodeRef()> currentSelection_;
    QTimer timer_;
};

} // namespace brimvale
