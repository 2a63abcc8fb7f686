#pragma once

#include "core/local/LocalVolumePickerOptions.h"

#include <QDialog>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QLabel;
class QListWidget;
class QPushButton;

namespace brimvale {

// The sheet where the local disk account chooses what to scan: the whole startup disk, each
// mounted disk or network share with a capacity bar, or any folder ("Choose folder…"). The
// volume list is read on a background thread (a dead network mount must not freeze the
// window). Window-modal; reports the choice through `chosen` or `cancelled` once.
class LocalVolumeSheet final : public QDialog {
    Q_OBJECT
public:
    using Choices = std::vector<LocalVolumePickerOptions::Choice>;

    struct Options {
        // Reads the choices; called on a background thread. Default: this machine's.
        std::function<Choices()> loadChoices;
        // Asks for a folder; empty when the user cancelled. Default: the platform's folder
        // dialog.
        std::function<std::optional<std::string>(QWidget* parent)> chooseFolder;
        // The path chosen last time, preselected when it is among the choices.
        std::optional<std::string> savedPath;
        // The account's name, for the title.
        QString accountName;
    };

    LocalVolumeSheet(Options options, QWidget* parent = nullptr);
    ~LocalVolumeSheet() override;

    // Whether the choices have arrived.
    bool choicesLoaded() const { return loaded_; }
    const Choices& choices() const { return choices_; }
    QListWidget* list() const { return list_; }
    QPushButton* scanButton() const { return scan_; }
    QPushButton* chooseFolderButton() const { return chooseFolder_; }

    // Closes the sheet without reporting anything (the coordinator closed the picker).
    void dismissWithoutReport();
    // Fills the list (the background read ends here; tests call it directly).
    void showChoices(Choices choices);

signals:
    void chosen(const std::string& scanPath);
    void cancelled();

protected:
    void done(int result) override;

private:
    void chooseFolder();
    void finish(std::optional<std::string> scanPath);

    Options options_;
    Choices choices_;
    bool loaded_ = false;
    bool reported_ = false;
    std::shared_ptr<bool> alive_;
    QLabel* status_;
    QListWidget* list_;
    QPushButton* scan_;
    QPushButton* chooseFolder_;
};

} // namespace brimvale
