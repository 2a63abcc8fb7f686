#pragma once

#include "core/model/Date.h"

#include <QFrame>
#include <QTimer>

#include <cstdint>
#include <optional>

class QLabel;
class QPushButton;
class QToolButton;

namespace brimvale {

// The badge over a finished tree: how much of the volume's occupied size the scan accounts
// for (local scans), when the saved scan was made ("Cached 3 hours ago", or "Partial scan, saved
// 3 hours ago" for the saved tree of a scan that did not finish) or that it could not be saved,
// "Rescan" and a close button.
class CacheBadge final : public QFrame {
    Q_OBJECT
public:
    explicit CacheBadge(QWidget* parent = nullptr);

    // What the badge shows; `now` is the time the relative date is measured from.
    void setScan(std::optional<Date> savedDate, std::int64_t accountedBytes,
                 std::optional<std::int64_t> occupiedBytes, bool partial = false);
    bool isPartial() const { return partial_; }
    // Why the tree could not be saved (empty: it was, or nothing was asked): the badge warns
    // that the next start will not find it, the reason in its tooltip.
    void setSaveFailure(const QString& reason);
    const QString& saveFailure() const { return saveFailure_; }

    // Whether the scan accounts for less than 85% of a known, non-zero occupied size.
    static bool accountsForTooLittle(std::int64_t accountedBytes,
                                     std::optional<std::int64_t> occupiedBytes);
    static QString coverageText(bool tooLittle);
    // "Partial scan, saved 3 hours ago" ("Partial scan" without a date), measured from `now`.
    static QString partialScanText(std::optional<Date> savedDate, Date now);
    static QString partialScanExplanation();

    // Parts, for tests and accessibility.
    QLabel* driveSymbol() const;
    bool driveIsWarning() const { return driveWarning_; }
    QLabel* dateLabel() const { return date_; }
    QPushButton* rescanButton() const { return rescan_; }
    QToolButton* closeButton() const { return close_; }

signals:
    void rescanRequested();
    void dismissRequested();

private:
    void refreshDate();
    void paintEvent(QPaintEvent* event) override;

    class SymbolLabel* drive_;
    class SymbolLabel* clock_;
    QLabel* date_;
    QPushButton* rescan_;
    QToolButton* close_;
    QTimer dateTimer_;
    std::optional<Date> savedDate_;
    bool driveWarning_ = false;
    bool partial_ = false;
    QString saveFailure_;
};

} // namespace brimvale
