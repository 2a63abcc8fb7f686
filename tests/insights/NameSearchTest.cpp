#include "core/insights/NameIndex.h"
#include "tests/insights/RandomTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fnmatch.h>

namespace brimvale {
namespace {

TEST(NamePattern, SubstringsAndGlobs) {
    struct Case {
        const char* pattern;
        const char* name;
        bool matches;
    };
    const Case cases[] = {
        {"PORT", "Report.pdf", true},
        {"port", "REPORT", true},
        {"é", "caf\xc3\xa9", true},
        {"É", "caf\xc3\xa9", false}, // bytes beyond ASCII
        {"", "anything", false},
        {"a", "", false},
        {"*.jpg", "IMG.JPG", true},
        {"*.jpg", "a.jpg.txt", false},
        {"img_?1", "IMG_01", true},
        {"img_?1", "IMG_1", false},
        {"[a-c]*", "Banana", true},
        {"[!a-c]*", "Banana", false},
        {"[^a-c]*", "date", true},
        {"*[]]", "x]", true},
        {"a[", "a[", true},
        {"a[b", "a[b", true},
        {"*a*b*c*", "xaybzc", true},
        {"*a*b*c*", "xaybz", false},
        {"**", "", true},
        {"*", "", true},
        {"?", "", false},
        {"a*", "a", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.pattern) + " / " + c.name);
        EXPECT_EQ(NamePattern(c.pattern).matches(c.name), c.matches);
    }
    // Backtracking stays linear: a long name of near misses finishes at once.
    EXPECT_FALSE(NamePattern("*a*a*a*a*a*a*b").matches(std::string(100'000, 'a')));
}

TEST(NameIndex, FindsWhatFilteringEveryNameFinds) {
    const char* patterns[] = {"report", "REP", "1.", "*.jpg", "img_0?[0-9]*", "[!a-z]*",
                              "x.y",    "Ü",   "*",  "",      ".tar.gz",      "no such"};
    std::mt19937_64 random(5);
    for (int round = 0; round < 20; ++round) {
        const FileNodeRef root = testing::randomTree(random);
        const NameIndex index(*root);
        for (const char* text : patterns) {
            SCOPED_TRACE(text);
            const NamePattern pattern(text);
            std::vector<const FileNode*> expected;
            for (const FileNode* node : testing::preorder(*root)) {
                if (node == root.get() || *text == '\0') {
                    continue;
                }
                std::string name(node->name());
                std::string wanted(text);
                bool hit = false;
                if (pattern.isGlob()) {
                    hit = fnmatch(text, name.c_str(), FNM_NOESCAPE | FNM_CASEFOLD) == 0;
                } else {
                    for (auto* s : {&name, &wanted}) {
                        std::transform(s->begin(), s->end(), s->begin(), [](char c) {
                            return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
                        });
                    }
                    hit = name.find(wanted) != std::string::npos;
                }
                if (hit) {
                    expected.push_back(node);
                }
            }
            std::stable_sort(expected.begin(), expected.end(),
                             [](auto* a, auto* b) { return a->size() > b->size(); });
            for (const std::size_t limit : {std::size_t{0}, std::size_t{3}, std::size_t{1000}}) {
                const NameIndex::Matches matches = index.search(pattern, limit);
                EXPECT_EQ(matches.count, expected.size());
                ASSERT_EQ(matches.items.size(), std::min(limit, expected.size()));
                for (std::size_t i = 0; i < matches.items.size(); ++i) {
                    EXPECT_EQ(matches.items[i].get(), expected[i]);
                }
            }
        }
    }
    // Results outlive the tree they came from.
    FileNodeRef root = testing::randomTree(random);
    const NameIndex index(*root);
    root = nullptr;
    for (const FileNodeRef& item : index.search(NamePattern("*"), 5).items) {
        EXPECT_FALSE(item->name().empty());
    }
}

} // namespace
} // namespace brimvale
