#include "app/views/ScanChangesBar.h"

#include "app/browser/ColumnItemsModel.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/cache/ScanCacheWriter.h"
#include "core/persistence/history/ChangeIndex.h"
#include "tests/support/TreeBuilders.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace brimvale {
namespace {

using testing::file;
using testing::folder;

TEST(ScanChangesBar, ComparesTheTreeOnScreenWithEarlierFinishedScansOnly) {
    QTemporaryDir directory;
    auto cache = std::make_shared<ScanCache>(directory.path().toStdString());
    const auto save = [&](const FileNodeRef& root, bool partial) {
        ScanCacheWriter writer(cache);
        auto snapshot = std::make_shared<CacheSnapshot>(snapshotForCache(*root));
        snapshot->partial = partial;
        writer.save("photos", snapshot, partial ? "checkpoint" : "finished", HistoryLimits{});
        writer.waitForStem("photos");
    };
    const auto tree = [](std::int64_t videos, bool withNotes) {
        std::vector<FileNodeRef> children{folder("Videos", {file("clip.mp4", videos)})};
        if (withNotes) {
            children.push_back(file("notes.txt", 2'000'000));
        }
        FileNodeRef root = folder("photos", std::move(children));
        root->relinkDescendantParentPointers();
        root->propagateSizes();
        return root;
    };

    ScanChangesBar bar;
    QSignalSpy shown(&bar, &ScanChangesBar::changesChanged);
    // One finished scan: nothing to compare with.
    save(tree(5'000'000, true), false);
    bar.showScanOf(*cache, std::string("photos"), false);
    EXPECT_TRUE(bar.isHidden());
    EXPECT_EQ(bar.changes(), nullptr);

    // A partial scan in between is replaced by the finished one: it never becomes history.
    save(tree(7'000'000, true), true);
    const FileNodeRef after = tree(9'000'000, false);
    save(after, false);
    bar.showScanOf(*cache, std::string("photos"), false);
    ASSERT_NE(bar.changes(), nullptr);
    EXPECT_TRUE(bar.findChild<QLabel*>()->text().startsWith("+2 MB since"))
        << bar.findChild<QLabel*>()->text().toStdString();
    int comparable = 0;
    int listed = 0;
    for (const QAction* action : bar.historyMenu()->actions()) {
        if (action->text().contains(" MB")) {
            ++listed;
            comparable += action->isEnabled() ? 1 : 0;
        }
    }
    EXPECT_EQ(listed, 1);
    EXPECT_EQ(comparable, 1);

    // The columns read each row's change from the index the bar hands out.
    ColumnItemsModel model;
    model.setChanges(bar.changes(), false);
    model.setParentNode(after);
    const auto textOf = [&](int row) {
        return model.data(model.index(row, 0), ColumnItemsModel::ChangeTextRole).toString();
    };
    EXPECT_EQ(textOf(0), QStringLiteral("+4 MB")); // Videos grew
    EXPECT_EQ(model.rowCount(), 1);                // notes.txt is gone

    // Sort by change and hide changes reach the columns; a partial tree on screen hides it all.
    const int before = static_cast<int>(shown.count());
    bar.sortByChangeAction()->trigger();
    ASSERT_EQ(shown.count(), before + 1);
    EXPECT_TRUE(shown.last().at(1).toBool());
    for (QAction* action : bar.historyMenu()->actions()) {
        if (action->text() == "Hide Changes") {
            action->trigger();
        }
    }
    EXPECT_EQ(bar.changes(), nullptr);
    bar.showScanOf(*cache, std::string("photos"), true);
    EXPECT_TRUE(bar.isHidden());
}

} // namespace
} // namespace brimvale
