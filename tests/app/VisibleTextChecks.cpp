#include "tests/app/VisibleTextChecks.h"

#include <QAbstractButton>
#include <QAbstractItemView>
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
    return metrics
        .boundingRect(QRect(0, 0, label.wordWrap() ? width : 100000, 100000), flags, label.text())
        .size();
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

} // namespace brimvale::testing
