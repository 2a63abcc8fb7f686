#include "app/support/ReadableSecondaryText.h"

#include <QApplication>
#include <QEvent>
#include <QObject>

#include <algorithm>
#include <cmath>

namespace brimvale::app {
namespace {

double linearChannel(double channel) {
    return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double relativeLuminance(const QColor& color) {
    const QColor rgb = color.toRgb();
    return 0.2126 * linearChannel(rgb.redF()) + 0.7152 * linearChannel(rgb.greenF()) +
           0.0722 * linearChannel(rgb.blueF());
}

QColor mixed(const QColor& from, const QColor& to, double towards) {
    const QColor a = from.toRgb();
    const QColor b = to.toRgb();
    const auto channel = [towards](double x, double y) {
        return x + (y - x) * towards;
    };
    return QColor::fromRgbF(static_cast<float>(channel(a.redF(), b.redF())),
                            static_cast<float>(channel(a.greenF(), b.greenF())),
                            static_cast<float>(channel(a.blueF(), b.blueF())));
}

// `color` as it shows when drawn over the opaque `background`: themes (Qt's own default among
// them) give the placeholder colour an alpha, which makes it fainter than its RGB says.
QColor drawnOver(const QColor& color, const QColor& background) {
    return mixed(background, color, color.toRgb().alphaF());
}

QPalette readablePalette(const QPalette& palette) {
    return withReadableSelection(withReadableSecondaryText(palette));
}

// Watches the application for palette changes; its own change is told apart by the colour
// already being the readable one, so it does not loop.
class PaletteWatcher : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::ApplicationPaletteChange && watched == qApp) {
            const QPalette current = QApplication::palette();
            const QPalette readable = readablePalette(current);
            if (readable != current) {
                QApplication::setPalette(readable);
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

double contrastRatio(const QColor& a, const QColor& b) {
    const double first = relativeLuminance(a);
    const double second = relativeLuminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

QColor readableSecondaryColor(const QColor& text, const QColor& background,
                              double minimumContrast) {
    // Half-way to the background reads as secondary; closer to the text only as far as needed.
    constexpr int kSteps = 20;
    for (int step = kSteps / 2; step > 0; --step) {
        const QColor candidate = mixed(text, background, static_cast<double>(step) / kSteps);
        if (contrastRatio(candidate, background) >= minimumContrast) {
            return candidate;
        }
    }
    return text.toRgb();
}

QPalette withReadableSecondaryText(QPalette palette) {
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        const QColor current = palette.color(group, QPalette::PlaceholderText);
        const QColor window = palette.color(group, QPalette::Window);
        const QColor base = palette.color(group, QPalette::Base);
        if (contrastRatio(drawnOver(current, window), window) >= 4.5 &&
            contrastRatio(drawnOver(current, base), base) >= 4.5) {
            continue;
        }
        // Of the window and the base, the one the text stands out less against decides.
        const QColor text = palette.color(group, QPalette::Text);
        const QColor harder =
            contrastRatio(text, window) < contrastRatio(text, base) ? window : base;
        QColor readable = readableSecondaryColor(text, harder);
        if (contrastRatio(readable, window) < 4.5 || contrastRatio(readable, base) < 4.5) {
            readable = text;
        }
        palette.setColor(group, QPalette::PlaceholderText, readable);
    }
    return palette;
}

QPalette withReadableSelection(QPalette palette) {
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        const QColor text = palette.color(group, QPalette::HighlightedText);
        const QColor highlight = palette.color(group, QPalette::Highlight);
        if (contrastRatio(drawnOver(text, highlight), highlight) >= 4.5) {
            continue;
        }
        // Darker under light text, lighter under dark text, only as far as needed.
        const QColor away = relativeLuminance(text) > relativeLuminance(highlight)
                                ? QColor(Qt::black)
                                : QColor(Qt::white);
        constexpr int kSteps = 20;
        for (int step = 1; step <= kSteps; ++step) {
            const QColor candidate = mixed(highlight, away, static_cast<double>(step) / kSteps);
            if (contrastRatio(drawnOver(text, candidate), candidate) >= 4.5) {
                palette.setColor(group, QPalette::Highlight, candidate);
                break;
            }
        }
    }
    return palette;
}

void keepSecondaryTextReadable(QApplication& application) {
    QApplication::setPalette(readablePalette(QApplication::palette()));
    application.installEventFilter(new PaletteWatcher(&application));
}

} // namespace brimvale::app
