#include "app/insights/TreemapView.h"

#include "core/model/SizeFormatter.h"

#include <QFontInfo>
#include <QKeyEvent>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QToolTip>

namespace brimvale {

struct TreemapView::Drawn {
    std::uint64_t generation = 0;
    TreemapLayout layout;
    QImage image;
};

TreemapView::TreemapView(QWidget* parent)
    : QWidget(parent) {
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(120, 80);
    setAccessibleName(tr("Map of the folder"));
    schedule_.setSingleShot(true);
    schedule_.setInterval(30);
    connect(&schedule_, &QTimer::timeout, this, &TreemapView::startDrawing);
}

TreemapView::~TreemapView() {
    // The task may still post its image; it finds this object gone (queued calls to a deleted
    // receiver are dropped).
    drawing_ = Task();
}

void TreemapView::setRoot(FileNodeRef root) {
    if (root != root_) {
        root_ = root;
        shown_ = root;
        hovered_ = -1;
    } else if (shown_ && shown_ != root_ && shown_->parent() == nullptr) {
        shown_ = root_; // the folder shown left the tree (a refresh replaced it)
    }
    scheduleDrawing();
}

void TreemapView::showFolder(FileNodeRef folder) {
    if (!folder || folder == shown_) {
        return;
    }
    shown_ = std::move(folder);
    hovered_ = -1;
    startDrawing();
}

void TreemapView::setCushions(bool cushions) {
    if (cushions != cushions_) {
        cushions_ = cushions;
        scheduleDrawing();
    }
}

void TreemapView::setHighlighted(FileNodeRef node) {
    highlighted_ = std::move(node);
    const int cell = highlighted_ ? layout_.cellShowing(highlighted_.get()) : -1;
    if (cell != highlightedCell_) {
        highlightedCell_ = cell;
        update();
    }
}

void TreemapView::scheduleDrawing() {
    if (!schedule_.isActive()) {
        schedule_.start();
    }
}

void TreemapView::startDrawing() {
    if (inFlight_) {
        pending_ = true;
        return;
    }
    pending_ = false;
    if (!shown_ || !isVisible()) {
        if (!shown_) {
            layout_ = TreemapLayout();
            image_ = QImage();
            update();
        }
        return;
    }
    const QFontMetrics metrics(font());
    const TreemapOptions options{.padding = 2,
                                 .headerHeight = static_cast<double>(metrics.height() + 2),
                                 .minimumCellArea = 3,
                                 .minimumFolderSide = 10};
    auto drawn = std::make_shared<Drawn>();
    drawn->generation = ++generation_;
    drawn->layout = TreemapLayout::take(shown_, width(), height(), options);
    // In pixels: the image has no screen, so a size in points would depend on its own DPI.
    QFont pixelFont = font();
    pixelFont.setPixelSize(QFontInfo(font()).pixelSize());
    TreemapLook look = TreemapLook::standard(pixelFont);
    look.cushions = cushions_;
    const qreal ratio = devicePixelRatioF();
    const double w = width();
    const double h = height();
    inFlight_ = true;
    drawing_ = Task::start("TreemapView.draw",
                           [drawn, look, ratio, w, h, receiver = QPointer(this)](std::stop_token) {
                               drawn->layout.layOut(w, h);
                               drawn->image = drawTreemap(drawn->layout, look, ratio);
                               QMetaObject::invokeMethod(
                                   receiver.data(),
                                   [receiver, drawn] {
                                       if (receiver) {
                                           receiver->drawingFinished(drawn);
                                       }
                                   },
                                   Qt::QueuedConnection);
                           });
}

void TreemapView::drawingFinished(std::shared_ptr<Drawn> drawn) {
    // Taken here, so the nodes the cells hold are let go on this thread, never on the task's.
    TreemapLayout layout = std::move(drawn->layout);
    drawing_.wait();
    drawing_ = Task();
    inFlight_ = false;
    if (drawn->generation == generation_) {
        layout_ = std::move(layout);
        image_ = std::move(drawn->image);
        hovered_ = -1;
        highlightedCell_ = highlighted_ ? layout_.cellShowing(highlighted_.get()) : -1;
        update();
    }
    if (pending_ || (drawn->generation == generation_ &&
                     (layout_.width() != width() || layout_.height() != height()))) {
        startDrawing();
    }
}

void TreemapView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (image_.isNull()) {
        painter.fillRect(rect(), palette().window());
        return;
    }
    // A stretched image stands in until the one of the new size is drawn.
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(rect()), image_);
    const double scaleX = layout_.width() > 0 ? width() / layout_.width() : 1;
    const double scaleY = layout_.height() > 0 ? height() / layout_.height() : 1;
    const auto outline = [&](int index, const QColor& color, qreal penWidth) {
        if (index < 0 || static_cast<std::size_t>(index) >= layout_.cells().size()) {
            return;
        }
        const TreemapRect& r = layout_.cells()[static_cast<std::size_t>(index)].rect;
        painter.setPen(QPen(color, penWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(QRectF(r.x * scaleX, r.y * scaleY, r.width * scaleX, r.height * scaleY)
                             .adjusted(penWidth / 2, penWidth / 2, -penWidth / 2, -penWidth / 2));
    };
    outline(hovered_, QColor(255, 255, 255, 200), 1);
    outline(highlightedCell_, palette().highlight().color(), 3);
    outline(highlightedCell_, Qt::white, 1);
}

void TreemapView::resizeEvent(QResizeEvent*) {
    scheduleDrawing();
}

void TreemapView::showEvent(QShowEvent*) {
    scheduleDrawing();
}

void TreemapView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange) {
        scheduleDrawing();
    }
    QWidget::changeEvent(event);
}

QString TreemapView::describe(const TreemapCell& cell) const {
    const QString size = QString::fromStdString(formatBytes(cell.size));
    if (!cell.node) {
        return tr("%1 smaller items, %2")
            .arg(QLocale().toString(static_cast<qlonglong>(cell.restCount)), size);
    }
    const std::string path = cell.node->path();
    return QString::fromUtf8(path.data(), static_cast<qsizetype>(path.size())) +
           QStringLiteral("\n") + size;
}

int TreemapView::cellUnder(QPointF position) const {
    // The image on screen may be stretched while the next size is drawn.
    const double scaleX = width() > 0 ? layout_.width() / width() : 1;
    const double scaleY = height() > 0 ? layout_.height() / height() : 1;
    return layout_.cellAt(position.x() * scaleX, position.y() * scaleY);
}

void TreemapView::mouseMoveEvent(QMouseEvent* event) {
    const int cell = cellUnder(event->position());
    if (cell != hovered_) {
        hovered_ = cell;
        update();
        if (cell >= 0) {
            QToolTip::showText(event->globalPosition().toPoint(),
                               describe(layout_.cells()[static_cast<std::size_t>(cell)]), this);
        } else {
            QToolTip::hideText();
        }
    }
}

void TreemapView::leaveEvent(QEvent*) {
    if (hovered_ >= 0) {
        hovered_ = -1;
        update();
    }
}

void TreemapView::mousePressEvent(QMouseEvent* event) {
    const int index = cellUnder(event->position());
    if (event->button() != Qt::LeftButton || index < 0) {
        return;
    }
    const TreemapCell& cell = layout_.cells()[static_cast<std::size_t>(index)];
    if (cell.node && cell.node != shown_) {
        emit itemPicked(cell.node);
    }
}

void TreemapView::mouseDoubleClickEvent(QMouseEvent* event) {
    const int index = cellUnder(event->position());
    if (event->button() != Qt::LeftButton || index < 0) {
        return;
    }
    const TreemapCell& cell = layout_.cells()[static_cast<std::size_t>(index)];
    // A file opens the folder it is in; a folder opens itself.
    FileNodeRef folder = cell.node;
    if (folder && !folder->isDirectory() && folder->parent() != nullptr) {
        folder = FileNodeRef(folder->parent());
    }
    if (folder && folder->isDirectory() && !folder->children().empty()) {
        showFolder(folder);
    }
}

void TreemapView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Backspace && shown_ && shown_ != root_ &&
        shown_->parent() != nullptr) {
        showFolder(FileNodeRef(shown_->parent()));
        return;
    }
    QWidget::keyPressEvent(event);
}

} // namespace brimvale
