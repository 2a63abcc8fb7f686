#include "app/support/ReadableSecondaryText.h"

#include <gtest/gtest.h>

namespace brimvale::app {
namespace {

TEST(ReadableSecondaryText, SecondaryTextMeetsContrastInLightAndDarkSchemesAndStaysSecondary) {
    EXPECT_NEAR(contrastRatio(Qt::black, Qt::white), 21.0, 0.01);
    EXPECT_NEAR(contrastRatio(QColor(0x77, 0x77, 0x77), QColor(0x77, 0x77, 0x77)), 1.0, 1e-9);

    struct Scheme {
        QColor window, base, text, placeholder;
    };
    // Light; dark with a placeholder close to the background (about 1.1:1, as some dark themes
    // ship it); dark with a base lighter than the window; an already readable one kept as is.
    const Scheme schemes[] = {
        {QColor(0xef, 0xef, 0xef), Qt::white, Qt::black, QColor(0xc0, 0xc0, 0xc0)},
        {QColor(0x2b, 0x2b, 0x2b), QColor(0x1e, 0x1e, 0x1e), QColor(0xf0, 0xf0, 0xf0),
         QColor(0x33, 0x33, 0x33)},
        {QColor(0x20, 0x20, 0x20), QColor(0x3a, 0x3a, 0x3a), QColor(0xdd, 0xdd, 0xdd),
         QColor(0x50, 0x50, 0x50)},
        {QColor(0xef, 0xef, 0xef), Qt::white, Qt::black, QColor(0x55, 0x55, 0x55)},
    };
    for (const auto& scheme : schemes) {
        QPalette palette;
        palette.setColor(QPalette::Window, scheme.window);
        palette.setColor(QPalette::Base, scheme.base);
        palette.setColor(QPalette::Text, scheme.text);
        palette.setColor(QPalette::PlaceholderText, scheme.placeholder);
        const QPalette fixed = withReadableSecondaryText(palette);
        for (const auto group : {QPalette::Active, QPalette::Inactive}) {
            const QColor secondary = fixed.color(group, QPalette::PlaceholderText);
            EXPECT_GE(contrastRatio(secondary, scheme.window), 4.5)
                << secondary.name().toStdString();
            EXPECT_GE(contrastRatio(secondary, scheme.base), 4.5) << secondary.name().toStdString();
            // Still told apart from the primary text.
            EXPECT_LT(contrastRatio(secondary, scheme.base),
                      contrastRatio(scheme.text, scheme.base));
        }
        // Applying it again changes nothing: the palette-change watcher does not loop.
        EXPECT_EQ(withReadableSecondaryText(fixed), fixed);
    }
    EXPECT_EQ(withReadableSecondaryText([&] {
                  QPalette palette;
                  palette.setColor(QPalette::Window, schemes[3].window);
                  palette.setColor(QPalette::Base, schemes[3].base);
                  palette.setColor(QPalette::Text, schemes[3].text);
                  palette.setColor(QPalette::PlaceholderText, schemes[3].placeholder);
                  return palette;
              }())
                  .color(QPalette::PlaceholderText),
              schemes[3].placeholder);
}

// Qt's own default palette draws placeholders in the text colour at half opacity (about 3.9:1
// as drawn, though its RGB alone says 21:1) and white selected text on an accent that gives
// 3.7:1; a light text on a dark accent, a dark one on a light accent, and a readable pair kept.
TEST(ReadableSecondaryText, TranslucentSecondaryTextAndSelectedTextAreMadeReadable) {
    QPalette translucent;
    translucent.setColor(QPalette::Window, QColor(0xef, 0xef, 0xef));
    translucent.setColor(QPalette::Base, Qt::white);
    translucent.setColor(QPalette::Text, Qt::black);
    translucent.setColor(QPalette::PlaceholderText, QColor(0, 0, 0, 128));
    const QColor secondary =
        withReadableSecondaryText(translucent).color(QPalette::PlaceholderText);
    EXPECT_EQ(secondary.alpha(), 255);
    EXPECT_GE(contrastRatio(secondary, QColor(0xef, 0xef, 0xef)), 4.5);

    struct Selection {
        QColor text, highlight;
        bool changes;
    };
    const Selection selections[] = {
        {Qt::white, QColor(0x30, 0x8c, 0xc6), true},
        {Qt::white, QColor(0x2f, 0x7d, 0xd1), true},
        {Qt::black, QColor(0x40, 0x40, 0x60), true},
        {Qt::white, QColor(0x1d, 0x4e, 0x89), false},
    };
    for (const auto& selection : selections) {
        QPalette palette;
        palette.setColor(QPalette::HighlightedText, selection.text);
        palette.setColor(QPalette::Highlight, selection.highlight);
        const QPalette fixed = withReadableSelection(palette);
        for (const auto group : {QPalette::Active, QPalette::Inactive}) {
            const QColor highlight = fixed.color(group, QPalette::Highlight);
            EXPECT_GE(contrastRatio(selection.text, highlight), 4.5)
                << highlight.name().toStdString();
            EXPECT_EQ(highlight != selection.highlight, selection.changes)
                << highlight.name().toStdString();
            // A changed accent stays near its own colour: no further than needed.
            if (selection.changes) {
                EXPECT_LT(contrastRatio(selection.text, highlight), 6.0);
            }
        }
        EXPECT_EQ(withReadableSelection(fixed), fixed);
    }
}

} // namespace
} // namespace brimvale::app
