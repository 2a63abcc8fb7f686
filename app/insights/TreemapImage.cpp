#include "app/insights/TreemapImage.h"

#include "core/model/SizeFormatter.h"

#include <QCoreApplication>
#include <QFontMetricsF>
#include <QLocale>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace brimvale {
namespace {

// A cushion's surface is z = s1·x + s2·x² along each axis, summed over every level of nesting
// so the ridges of folders show through their contents.
struct Cushion {
    double s1x = 0;
    double s2x = 0;
    double s1y = 0;
    double s2y = 0;
};

void addRidge(double from, double to, double height, double& s1, double& s2) {
    if (to - from <= 0) {
        return;
    }
    s1 += 4 * height * (to + from) / (to - from);
    s2 -= 4 * height / (to - from);
}

constexpr double kRidgeHeight = 0.5;
constexpr double kRidgeFalloff = 0.75;
constexpr double kAmbient = 0.45;
constexpr double kDiffuse = 0.55;

void shadeCell(QImage& image, const QRectF& area, const Cushion& cushion, QColor color) {
    const int left = std::max(0, static_cast<int>(std::lround(area.left())));
    const int right = std::min(image.width(), static_cast<int>(std::lround(area.right())));
    const int top = std::max(0, static_cast<int>(std::lround(area.top())));
    const int bottom = std::min(image.height(), static_cast<int>(std::lround(area.bottom())));
    // Light from the upper left, mostly from the front.
    const double lightX = -0.09759;
    const double lightY = -0.19518;
    const double lightZ = 0.9759;
    const double red = color.redF() * 255;
    const double green = color.greenF() * 255;
    const double blue = color.blueF() * 255;
    for (int y = top; y < bottom; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        const double ny = -(2 * cushion.s2y * (y + 0.5) + cushion.s1y);
        for (int x = left; x < right; ++x) {
            const double nx = -(2 * cushion.s2x * (x + 0.5) + cushion.s1x);
            const double cosine =
                (nx * lightX + ny * lightY + lightZ) / std::sqrt(nx * nx + ny * ny + 1);
            const double intensity = kAmbient + kDiffuse * std::max(0.0, cosine);
            line[x] = qRgb(std::min(255, static_cast<int>(red * intensity)),
                           std::min(255, static_cast<int>(green * intensity)),
                           std::min(255, static_cast<int>(blue * intensity)));
        }
    }
}

// The pixels whose centres fall in `area`, as shadeCell covers them.
void fillCell(QImage& image, const QRectF& area, QColor color) {
    const int left = std::max(0, static_cast<int>(std::lround(area.left())));
    const int right = std::min(image.width(), static_cast<int>(std::lround(area.right())));
    const int top = std::max(0, static_cast<int>(std::lround(area.top())));
    const int bottom = std::min(image.height(), static_cast<int>(std::lround(area.bottom())));
    const QRgb value = color.rgb();
    for (int y = top; y < bottom; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        std::fill(line + left, line + std::max(left, right), value);
    }
}

QRectF pixelRect(const TreemapRect& rect, qreal scale) {
    return {rect.x * scale, rect.y * scale, rect.width * scale, rect.height * scale};
}

QString cellName(const TreemapCell& cell) {
    if (!cell.node) {
        return QCoreApplication::translate("TreemapView", "%1 smaller items")
            .arg(QLocale().toString(static_cast<qlonglong>(cell.restCount)));
    }
    return QString::fromUtf8(cell.node->name().data(),
                             static_cast<qsizetype>(cell.node->name().size()));
}

} // namespace

TreemapLook TreemapLook::standard(const QFont& font) {
    TreemapLook look;
    look.categoryColors = {
        QColor(0xd9, 0x5c, 0x5c), // video
        QColor(0xe8, 0xa8, 0x3e), // images
        QColor(0x9b, 0x6c, 0xc9), // audio
        QColor(0x9a, 0x7b, 0x5a), // archives
        QColor(0x4a, 0x9b, 0xd4), // code
        QColor(0x5c, 0xb0, 0x68), // documents
        QColor(0x93, 0x9a, 0xa3), // other
    };
    look.folderColor = QColor(0x6f, 0x86, 0x9c);
    look.restColor = QColor(0xb9, 0xbd, 0xc2);
    look.frameColor = QColor(0x3b, 0x41, 0x48);
    look.headerText = QColor(0xf2, 0xf4, 0xf6);
    look.cellText = QColor(0x14, 0x16, 0x18);
    look.font = font;
    return look;
}

QColor TreemapLook::colorOf(const TreemapCell& cell) const {
    if (!cell.node) {
        return restColor;
    }
    if (cell.isDirectory) {
        return folderColor;
    }
    return categoryColors[static_cast<std::size_t>(cell.category)];
}

QImage drawTreemap(const TreemapLayout& layout, const TreemapLook& look, qreal devicePixelRatio) {
    const int width = std::max(1, static_cast<int>(std::ceil(layout.width() * devicePixelRatio)));
    const int height = std::max(1, static_cast<int>(std::ceil(layout.height() * devicePixelRatio)));
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(look.frameColor);
    const auto& cells = layout.cells();
    std::vector<Cushion> cushions(cells.size());
    // Shading first, then text over it with one painter. Cells come parents first, so each
    // inherits the ridges of the folders around it.
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const TreemapCell& cell = cells[i];
        if (!cell.visible) {
            continue;
        }
        const QRectF area = pixelRect(cell.rect, devicePixelRatio);
        Cushion cushion =
            cell.parent >= 0 ? cushions[static_cast<std::size_t>(cell.parent)] : Cushion{};
        if (look.cushions) {
            const double ridge = kRidgeHeight * std::pow(kRidgeFalloff, cell.depth);
            addRidge(area.left(), area.right(), ridge, cushion.s1x, cushion.s2x);
            addRidge(area.top(), area.bottom(), ridge, cushion.s1y, cushion.s2y);
        }
        cushions[i] = cushion;
        const bool frame = cell.opened && i + 1 < cells.size() && cells[i + 1].visible;
        if (frame) {
            continue;
        }
        if (look.cushions) {
            shadeCell(image, area, cushion, look.colorOf(cell));
        } else {
            fillCell(image, area, look.colorOf(cell));
        }
    }
    image.setDevicePixelRatio(devicePixelRatio);
    QPainter painter(&image);
    painter.setFont(look.font);
    const QFontMetricsF metrics(look.font);
    const double lineHeight = metrics.height();
    // A name is written only where at least a few of its letters fit.
    const double shortest = metrics.horizontalAdvance(QStringLiteral("Mmm\u2026"));
    for (const TreemapCell& cell : cells) {
        if (!cell.visible || cell.rect.width < shortest + 6 || cell.rect.height < lineHeight + 2) {
            continue;
        }
        const QRectF rect(cell.rect.x, cell.rect.y, cell.rect.width, cell.rect.height);
        const QString size = QString::fromStdString(formatBytes(cell.size));
        const QString name = cellName(cell);
        if (cell.hasHeader) {
            const double padding = layout.options().padding;
            const QRectF strip(rect.left() + padding + 2, rect.top() + padding,
                               rect.width() - 2 * padding - 4, layout.options().headerHeight);
            painter.setPen(look.headerText);
            const QString whole = name + QStringLiteral("  ") + size;
            painter.drawText(strip, Qt::AlignLeft | Qt::AlignVCenter,
                             metrics.horizontalAdvance(whole) <= strip.width()
                                 ? whole
                                 : metrics.elidedText(name, Qt::ElideRight, strip.width()));
            continue;
        }
        if (cell.opened) {
            continue;
        }
        const QRectF inner = rect.adjusted(3, 1, -3, -1);
        painter.setPen(look.cellText);
        const QString shown = metrics.elidedText(name, Qt::ElideRight, inner.width());
        if (inner.height() >= 2 * lineHeight && metrics.horizontalAdvance(size) <= inner.width()) {
            painter.drawText(inner, Qt::AlignLeft | Qt::AlignTop, shown + QLatin1Char('\n') + size);
        } else {
            painter.drawText(inner, Qt::AlignLeft | Qt::AlignVCenter, shown);
        }
    }
    return image;
}

} // namespace brimvale
