#include "app/views/IdleView.h"

#include <QLabel>
#include <QPalette>

namespace brimvale {

IdleView::IdleView(QWidget* parent)
    : StatusPage(parent) {
    setSymbol("cloud.fill");
    setText(tr("Select a cloud provider to scan"));
    setAccessibleName(textLabel()->text());
}

} // namespace brimvale
