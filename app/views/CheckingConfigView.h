#pragma once

#include "app/views/StatusPage.h"

namespace brimvale {

// The account's configuration is checked before its scan starts.
class CheckingConfigView final : public StatusPage {
    Q_OBJECT
public:
    explicit CheckingConfigView(QWidget* parent = nullptr);
};

} // namespace brimvale
