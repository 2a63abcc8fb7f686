#include "app/support/ExternalOpen.h"

#include <QDesktopServices>

#include <string_view>

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

// A file address made from the path's bytes, each byte outside the unreserved characters
// percent-encoded: a name that is not UTF-8 keeps its bytes (QUrl::fromLocalFile would take a
// QString, which cannot hold them, and the desktop would be sent to another name).
QUrl localFileURL(std::string_view path) {
    const QByteArray bytes(path.data(), static_cast<qsizetype>(path.size()));
    return QUrl::fromEncoded("file://" + bytes.toPercentEncoding("/"), QUrl::StrictMode);
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
    return localFileURL(path);
}

QUrl openURL(const FileNode& node, bool isLocal, const std::optional<std::string>& webURL) {
    if (!isLocal) {
        return webAddress(webURL);
    }
    return localFileURL(localPath(node));
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
