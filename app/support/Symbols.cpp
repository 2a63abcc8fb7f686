#include "app/support/Symbols.h"

#include <QFile>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>

#include <array>
#include <optional>
#include <utility>

// The resources live in a static library: their registration must be referenced to be linked.
static void registerBundledResources() {
    Q_INIT_RESOURCE(brimvale);
}

namespace brimvale::Symbols {
namespace {

void ensureResources() {
    static const bool registered = [] {
        registerBundledResources();
        return true;
    }();
    (void)registered;
}

QString resourcePath(std::string_view symbol) {
    ensureResources();
    return QStringLiteral(":/symbols/") +
           QString::fromLatin1(symbol.data(), static_cast<qsizetype>(symbol.size())) +
           QStringLiteral(".svg");
}

// Freedesktop icon names of the same meaning, for themes that have them.
std::optional<QString> themeName(std::string_view symbol) {
    static constexpr std::array<std::pair<std::string_view, const char*>, 12> names{{
        {"arrow.clockwise", "view-refresh"},
        {"stop.fill", "process-stop"},
        {"xmark", "window-close"},
        {"plus", "list-add"},
        {"folder.fill", "folder"},
        {"doc.fill", "text-x-generic"},
        {"externaldrive", "drive-harddisk"},
        {"internaldrive.fill", "drive-harddisk"},
        {"exclamationmark.triangle.fill", "dialog-warning"},
        {"magnifyingglass", "edit-find"},
        {"globe", "applications-internet"},
        {"folder.badge.plus", "folder-open"},
    }};
    for (const auto& [name, theme] : names) {
        if (name == symbol) {
            return QString::fromLatin1(theme);
        }
    }
    return std::nullopt;
}

// Paints a one-colour drawing in the palette colour of the requested mode, or in a fixed one.
class TintedSymbolEngine final : public QIconEngine {
public:
    TintedSymbolEngine(QString resource, std::optional<QColor> color,
                       std::optional<QPalette::ColorRole> role = std::nullopt)
        : resource_(std::move(resource))
        , base_(resource_)
        , color_(std::move(color))
        , role_(role) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        const qreal scale = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        const QPixmap drawn = scaledPixmap(rect.size(), mode, state, scale);
        painter->drawPixmap(rect, drawn);
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        QPixmap drawn = base_.pixmap(size, scale, QIcon::Normal, state);
        if (drawn.isNull()) {
            return drawn;
        }
        QPainter painter(&drawn);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(QRect(QPoint(0, 0), drawn.size()), tint(mode));
        return drawn;
    }

    QSize actualSize(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        return size;
    }

    QIconEngine* clone() const override { return new TintedSymbolEngine(resource_, color_, role_); }
    QString key() const override { return QStringLiteral("brimvale.tinted"); }

private:
    QColor tint(QIcon::Mode mode) const {
        const QPalette palette = QGuiApplication::palette();
        const QColor base = role_ ? palette.color(*role_) : palette.color(QPalette::WindowText);
        if (mode == QIcon::Disabled) {
            QColor color = color_.value_or(base);
            color.setAlphaF(0.35F);
            return color;
        }
        if (color_) {
            return *color_;
        }
        if (mode == QIcon::Selected) {
            return palette.color(QPalette::HighlightedText);
        }
        return base;
    }

    QString resource_;
    QIcon base_;
    std::optional<QColor> color_;
    std::optional<QPalette::ColorRole> role_;
};

} // namespace

bool hasBundledSymbol(std::string_view symbol) {
    return QFile::exists(resourcePath(symbol));
}

QIcon icon(std::string_view symbol) {
    if (const auto theme = themeName(symbol); theme && QIcon::hasThemeIcon(*theme)) {
        return QIcon::fromTheme(*theme);
    }
    if (!hasBundledSymbol(symbol)) {
        return {};
    }
    return QIcon(new TintedSymbolEngine(resourcePath(symbol), std::nullopt));
}

QIcon icon(std::string_view symbol, const QColor& color) {
    if (!hasBundledSymbol(symbol)) {
        return {};
    }
    return QIcon(new TintedSymbolEngine(resourcePath(symbol), color));
}

QIcon icon(std::string_view symbol, QPalette::ColorRole role) {
    if (!hasBundledSymbol(symbol)) {
        return {};
    }
    return QIcon(new TintedSymbolEngine(resourcePath(symbol), std::nullopt, role));
}

std::string_view serviceSymbol(std::string_view rcloneType) {
    if (rcloneType == "local") {
        return "internaldrive.fill";
    }
    if (rcloneType == "s3" || rcloneType == "gcs" || rcloneType == "azureblob" ||
        rcloneType == "b2" || rcloneType == "swift" || rcloneType == "storj") {
        return "cylinder.split.1x2";
    }
    if (rcloneType == "ftp" || rcloneType == "sftp" || rcloneType == "webdav" ||
        rcloneType == "smb") {
        return "server.rack";
    }
    return "cloud.fill";
}

QIcon applicationIcon() {
    ensureResources();
    return QIcon(QStringLiteral(":/brimvale.svg"));
}

} // namespace brimvale::Symbols
