#include "app/support/ExternalOpen.h"

#include <QDesktopServices>

namespace brimvale::ExternalOpen {
namespace {

Opener& currentOpener() {
    static Opener opener;
    return opener;
}

QUrl webAddress(const std::optional<std::string>& webURL) {
    if (!webURL || webURL->empty()) {
        return {};
    }
    return QUrl(QString::fromStdString(*webURL));
}

} // namespace

std::string localPath(const FileNode& node) {
    return "/" + node.path();
}

QUrl revealURL(const FileNode& node, bool isLocal, const std::optional<std::string>& webURL) {
    if (!isLocal) {
        return webAddress(webURL);
    }
    std::string path = localPath(node);
    if (!node.isDirectory()) {
        const auto slash = path.rfind('/');
        path = slash == 0 ? std::string("/") : path.substr(0, slash);
    }
    return QUrl::fromLocalFile(QString::fromStdString(path));
}

QUrl openURL(const FileNode& node, bool isLocal, const std::optional<std::string>& webURL) {
    if (!isLocal) {
        return webAddress(webURL);
    }
    return QUrl::fromLocalFile(QString::fromStdString(localPath(node)));
}

bool openInDesktop(const QUrl& url) {
    if (url.isEmpty()) {
        return false;
    }
    if (const Opener& opener = currentOpener()) {
        return opener(url);
    }
    return QDesktopServices::openUrl(url);
}

Opener setOpener(Opener opener) {
    Opener previous = std::move(currentOpener());
    currentOpener() = std::move(opener);
    return previous;
}

} // namespace brimvale::ExternalOpen
