#pragma once

#include <QWidget>

class QLabel;
class QVBoxLayout;

namespace brimvale {

// The centred layout the state views share: a large symbol, a title, a text and a row of
// buttons, each optional.
class StatusPage : public QWidget {
    Q_OBJECT
public:
    explicit StatusPage(QWidget* parent = nullptr);

    QLabel* symbolLabel() const;
    QLabel* titleLabel() const { return title_; }
    QLabel* textLabel() const { return text_; }

protected:
    // The symbol in `color`, or in the palette's secondary text colour when none is given.
    void setSymbol(const char* symbol, const QColor& color = {});
    void setTitle(const QString& title);
    void setText(const QString& text);
    // Where views put widgets under the text (buttons, progress).
    QVBoxLayout* body() const { return body_; }

private:
    class SymbolLabel* symbol_;
    QLabel* title_;
    QLabel* text_;
    QVBoxLayout* body_;
};

} // namespace brimvale
