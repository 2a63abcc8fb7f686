#pragma once

#include "core/onboarding/RcloneBackends.h"

#include <QWidget>

#include <optional>
#include <string>
#include <utility>
#include <vector>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace brimvale {

// A credential form made from rclone's description of a backend, for the services without a
// form of our own: its basic options (required ones marked), the advanced ones folded under a
// button, passwords as password fields, proposed values as a drop-down (a fixed list when
// rclone takes nothing else). Options that are for other providers than the chosen one (S3,
// Koofr) are hidden. The submit button is enabled while every required option shown has a
// value.
class GeneratedBackendForm final : public QWidget {
    Q_OBJECT
public:
    using Values = std::vector<std::pair<std::string, std::string>>;

    explicit GeneratedBackendForm(RcloneBackend backend, QWidget* parent = nullptr);

    const RcloneBackend& backend() const { return backend_; }
    // The options to write: those shown whose value was given and differs from rclone's default.
    Values values() const;
    // The label of the first required option shown without a value.
    std::optional<QString> missingRequired() const;

    void showSubmitError(const QString& message);
    void setBusy(bool busy);

    QPushButton* submitButton() const { return submit_; }
    QLabel* messageLabel() const { return message_; }
    QToolButton* advancedToggle() const { return advancedToggle_; }
    // The editor of an option, for tests: a QLineEdit, QComboBox or QCheckBox named after it.
    QWidget* editor(const std::string& optionName) const;
    // Sets an option's text (or a check box's "true"/"false"), for tests.
    void setValue(const std::string& optionName, const QString& text);

    // The label an option gets: the first sentence of its help when short, else its name.
    static QString labelFor(const RcloneBackendOption& option);

signals:
    void submitted();

private:
    struct Row {
        const RcloneBackendOption* option;
        QWidget* editor;
        QFormLayout* layout;
    };
    QWidget* makeEditor(const RcloneBackendOption& option);
    QString textOf(const Row& row) const;
    void applyProviderFilter();
    void revalidate();
    bool applies(const RcloneBackendOption& option) const;

    RcloneBackend backend_;
    std::vector<Row> rows_;
    QFormLayout* basic_;
    QFormLayout* advanced_;
    QWidget* advancedBox_;
    QToolButton* advancedToggle_;
    QLabel* message_;
    QPushButton* submit_;
    bool busy_ = false;
    bool showingSubmitError_ = false;
};

} // namespace brimvale
