#include "app/views/CheckingConfigView.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

namespace brimvale {

CheckingConfigView::CheckingConfigView(QWidget* parent)
    : StatusPage(parent) {
    auto* progress = new QProgressBar(this);
    progress->setRange(0, 0); // indeterminate
    progress->setTextVisible(false);
    progress->setFixedWidth(220);
    progress->setAccessibleName(tr("Checking configuration…"));
    body()->addWidget(progress, 0, Qt::AlignHCenter);
    setText(tr("Checking configuration…"));
    setAccessibleName(textLabel()->text());
}

} // namespace brimvale
