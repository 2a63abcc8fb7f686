#pragma once

#include "app/insights/TreemapImage.h"
#include "core/insights/TreemapLayout.h"
#include "core/model/FileNode.h"
#include "core/support/Task.h"

#include <QImage>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace brimvale {

// The map of a tree: nested rectangles of the folder shown, sized by bytes and coloured by
// kind of file. The cells are taken on the GUI thread (bounded by the pixels, see
// TreemapLayout), laid out and drawn into an image on a task; painting draws that image, so
// resizing and hovering cost nothing, and the previous image, stretched, stands in while the
// next is made. Hover names the item under the pointer; a click picks it; a double click
// opens a folder in the whole map and Backspace goes back out. GUI thread only.
class TreemapView final : public QWidget {
    Q_OBJECT
public:
    explicit TreemapView(QWidget* parent = nullptr);
    ~TreemapView() override;

    // The tree to map: a new one shows from its root; the same root after it changed in place
    // (a live scan) is drawn again where the user was.
    void setRoot(FileNodeRef root);
    // The item the rest of the window has selected: outlined in the map (or the nearest folder
    // around it that is shown).
    void setHighlighted(FileNodeRef node);
    // The folder the map shows (the root, or one the user opened).
    const FileNodeRef& shownFolder() const { return shown_; }
    void showFolder(FileNodeRef folder);
    // Cushion shading (the default) or flat colours.
    void setCushions(bool cushions);
    bool cushions() const { return cushions_; }

    // For tests and screenshots: the placed cells of the image on screen, and whether one is
    // being made.
    const TreemapLayout& layout() const { return layout_; }
    bool isDrawing() const { return schedule_.isActive() || inFlight_ || pending_; }
    const QImage& image() const { return image_; }

signals:
    // The user clicked an item of the map.
    void itemPicked(FileNodeRef node);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    struct Drawn;
    void scheduleDrawing();
    void startDrawing();
    void drawingFinished(std::shared_ptr<Drawn> drawn);
    QString describe(const TreemapCell& cell) const;
    // The cell under a point of the widget; -1 for none.
    int cellUnder(QPointF position) const;

    FileNodeRef root_;
    FileNodeRef shown_;
    FileNodeRef highlighted_;
    TreemapLayout layout_; // the cells of image_
    QImage image_;
    int hovered_ = -1;
    int highlightedCell_ = -1;
    // Coalesces requests (a resize, a live tree's refresh) into one drawing at a time.
    QTimer schedule_;
    Task drawing_;
    bool pending_ = false;  // asked for while a drawing runs
    bool inFlight_ = false; // a drawing started and its image not yet taken
    std::uint64_t generation_ = 0;
    bool cushions_ = true;
};

} // namespace brimvale
