#pragma once

#include "app/views/StatusPage.h"

namespace brimvale {

// Nothing selected, or nothing to show yet for the selected account.
class IdleView final : public StatusPage {
    Q_OBJECT
public:
    explicit IdleView(QWidget* parent = nullptr);
};

} // namespace brimvale
