#pragma once

#include "core/model/FileNode.h"

#include <QUrl>

#include <functional>
#include <optional>
#include <string>

namespace brimvale::ExternalOpen {

// Opening items outside the application: the provider's web page for cloud items, the file
// manager or the item's own application for local ones. Local addresses are made from the
// path's bytes, so an item whose name is not UTF-8 opens as itself. GUI thread only.

// The absolute file-system path of a local scan's node (node paths are the absolute path
// without its leading "/"). Bytes, as the tree keeps them: not necessarily UTF-8.
std::string localPath(const FileNode& node);
// Where "open outside" (Ctrl+Down, the context menu) goes: a cloud item's web page when it has
// one; for a local folder the folder itself, for a local file the folder holding it (file
// managers have no portable "select this file"). Empty when there is nowhere to go.
QUrl revealURL(const FileNode& node, bool isLocal, const std::optional<std::string>& webURL);
// What a double-click on a file opens: a local file with its application, a cloud file's web
// page. Empty when there is nowhere to go.
QUrl openURL(const FileNode& node, bool isLocal, const std::optional<std::string>& webURL);

// Hands `url` to the desktop (the default browser, file manager or application); false when
// it is empty or the desktop refused it.
bool openInDesktop(const QUrl& url);
// Replaces the desktop hand-off (tests record the addresses instead); returns the previous one.
using Opener = std::function<bool(const QUrl& url)>;
Opener setOpener(Opener opener);

} // namespace brimvale::ExternalOpen
