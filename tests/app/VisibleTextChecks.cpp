#include "tests/app/VisibleTextChecks.h"

#include "app/support/ReadableSecondaryText.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractScrollArea>
#include <QLabel>
#include <QRegularExpression>
#include <QTextDocument>

namespace brimvale::testing {
namespace {

bool shown(const QWidget& widget) {
    return widget.isVisible() && widget.width() > 0 && widget.height() > 0;
}

// The room the label's text needs when laid out in `width` pixels.
QSize neededSize(const QLabel& label, int width) {
    if (label.textFormat() == Qt::RichText ||
        (label.textFormat() == Qt::AutoText && Qt::mightBeRichText(label.text()))) {
        QTextDocument document;
        document.setDefaultFont(label.font());
        document.setDocumentMargin(0);
        document.setHtml(label.text());
        if (label.wordWrap()) {
            document.setTextWidth(width);
        }
        return {static_cast<int>(document.idealWidth()),
                static_cast<int>(document.size().height())};
    }
    const QFontMetrics metrics = label.fontMetrics();
    const int flags = label.alignment() | (label.wordWrap() ? Qt::TextWordWrap : 0);
    const QSize bounds = metrics
                             .boundingRect(QRect(0, 0, label.wordWrap() ? width : 100000, 100000),
                                           flags, label.text())
                             .size();
    if (label.wordWrap()) {
        return bounds;
    }
    // Lines that are not wrapped take their font's height each, which the bounding rectangle
    // can exceed by a pixel of rounding (a small font's 13 px line measured as 14).
    const int lines = static_cast<int>(label.text().count(QLatin1Char('\n'))) + 1;
    return {bounds.width(), metrics.height() + (lines - 1) * metrics.lineSpacing()};
}

// Whether `tip` says nothing that `text` does not: every word of it is already shown.
bool repeats(const QString& tip, const QString& text) {
    if (tip.isEmpty() || text.isEmpty()) {
        return false;
    }
    static const QRegularExpression notWord(QStringLiteral("[^\\w]+"));
    const QStringList shownWords = text.split(notWord, Qt::SkipEmptyParts);
    for (const QString& word : tip.split(notWord, Qt::SkipEmptyParts)) {
        if (!shownWords.contains(word, Qt::CaseInsensitive)) {
            return false;
        }
    }
    return true;
}

} // namespace

QStringList clippedLabels(const QWidget& root) {
    QStringList clipped;
    for (const QLabel* label : root.findChildren<QLabel*>()) {
        if (!shown(*label) || label->text().isEmpty() || !label->isVisibleTo(&root)) {
            continue;
        }
        const QRect room = label->contentsRect().marginsRemoved(
            QMargins(label->margin(), label->margin(), label->margin(), label->margin()));
        const QSize needed = neededSize(*label, room.width());
        if (needed.width() > room.width() || needed.height() > room.height()) {
            clipped << QStringLiteral("%1 (needs %2x%3, has %4x%5)")
                           .arg(label->text())
                           .arg(needed.width())
                           .arg(needed.height())
                           .arg(room.width())
                           .arg(room.height());
        }
    }
    return clipped;
}

int visibleTextsContaining(const QWidget& root, const QString& text) {
    int count = 0;
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        if (!shown(*widget) || !widget->isVisibleTo(&root)) {
            continue;
        }
        if (const auto* label = qobject_cast<const QLabel*>(widget)) {
            count += label->text().contains(text) ? 1 : 0;
        } else if (const auto* button = qobject_cast<const QAbstractButton*>(widget)) {
            count += button->text().contains(text) ? 1 : 0;
        }
    }
    return count;
}

QStringList repeatedToolTips(const QWidget& root) {
    QStringList repeated;
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(&root)) {
            continue;
        }
        QString text;
        if (const auto* label = qobject_cast<const QLabel*>(widget)) {
            text = label->text();
        } else if (const auto* button = qobject_cast<const QAbstractButton*>(widget)) {
            text = button->text();
        }
        if (const QString tip = widget->toolTip(); repeats(tip, text)) {
            repeated << tip;
        }
        if (const auto* view = qobject_cast<const QAbstractItemView*>(widget);
            view != nullptr && view->model() != nullptr) {
            const QAbstractItemModel& model = *view->model();
            for (int row = 0; row < std::min(model.rowCount(view->rootIndex()), 50); ++row) {
                const QModelIndex index = model.index(row, 0, view->rootIndex());
                const QString rowTip = index.data(Qt::ToolTipRole).toString();
                const QString rowText = index.data(Qt::DisplayRole).toString();
                if (repeats(rowTip, rowText)) {
                    repeated << rowTip;
                }
            }
        }
    }
    return repeated;
}

QStringList widgetsOutside(const QWidget& root) {
    const auto scrolled = [&root](const QWidget* widget) {
        for (const QWidget* up = widget->parentWidget(); up != nullptr && up != &root;
             up = up->parentWidget()) {
            const auto* area = qobject_cast<const QAbstractScrollArea*>(up->parentWidget());
            if (area != nullptr && area->viewport() == up) {
                return true;
            }
        }
        return false;
    };
    QStringList outside;
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        if (widget->isWindow() || !shown(*widget) || !widget->isVisibleTo(&root) ||
            scrolled(widget)) {
            continue;
        }
        const QRect placed(widget->mapTo(&root, QPoint(0, 0)), widget->size());
        if (!root.rect().contains(placed)) {
            outside << QStringLiteral("%1 %2 at %3,%4 %5x%6")
                           .arg(QString::fromLatin1(widget->metaObject()->className()),
                                widget->objectName())
                           .arg(placed.x())
                           .arg(placed.y())
                           .arg(placed.width())
                           .arg(placed.height());
        }
    }
    return outside;
}

QColor composited(const QColor& color, const QColor& background) {
    const QColor top = color.toRgb();
    const QColor under = background.toRgb();
    const float alpha = top.alphaF();
    const auto channel = [alpha](float over, float below) {
        return over * alpha + below * (1 - alpha);
    };
    return QColor::fromRgbF(channel(top.redF(), under.redF()),
                            channel(top.greenF(), under.greenF()),
                            channel(top.blueF(), under.blueF()));
}

QStringList unreadableTextRoles(const QPalette& palette) {
    struct Pair {
        QPalette::ColorRole text;
        QPalette::ColorRole background;
        const char* name;
    };
    static constexpr Pair kPairs[] = {
        {QPalette::WindowText, QPalette::Window, "WindowText on Window"},
        {QPalette::Text, QPalette::Base, "Text on Base"},
        {QPalette::Text, QPalette::AlternateBase, "Text on AlternateBase"},
        {QPalette::PlaceholderText, QPalette::Window, "PlaceholderText on Window"},
        {QPalette::PlaceholderText, QPalette::Base, "PlaceholderText on Base"},
        {QPalette::ButtonText, QPalette::Button, "ButtonText on Button"},
        {QPalette::HighlightedText, QPalette::Highlight, "HighlightedText on Highlight"},
        {QPalette::ToolTipText, QPalette::ToolTipBase, "ToolTipText on ToolTipBase"},
    };
    QStringList unreadable;
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        for (const Pair& pair : kPairs) {
            const QColor background = palette.color(group, pair.background);
            const double ratio = app::contrastRatio(
                composited(palette.color(group, pair.text), background), background);
            if (ratio < 4.5) {
                unreadable << QStringLiteral("%1 (%2): %3:1")
                                  .arg(QString::fromLatin1(pair.name),
                                       group == QPalette::Active ? "active" : "inactive")
                                  .arg(ratio, 0, 'f', 2);
            }
        }
    }
    return unreadable;
}

} // namespace brimvale::testing
