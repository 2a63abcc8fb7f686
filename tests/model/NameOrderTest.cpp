#include "core/model/NameOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace brimvale {
namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(NameOrder, FileManagerOrder) {
    const std::vector<std::string> expected = {
        "",   "0",  "1",  "01a",   "2",      "9",    "10",    "_under", "a",
        "A1", "a2", "a9", "a10",   "a10b",   "a100", "abc",   "ABD",    "e",
        "é",  "ez", "f",  "file2", "file10", "Zeta", "zeta2", "Ω",      "\xff",
    };
    for (std::size_t i = 0; i + 1 < expected.size(); ++i) {
        EXPECT_LT(compareNamesForFileManager(expected[i], expected[i + 1]), 0)
            << expected[i] << " < " << expected[i + 1];
        EXPECT_GT(compareNamesForFileManager(expected[i + 1], expected[i]), 0);
    }
    EXPECT_EQ(compareNamesForFileManager("Read.me", "read.ME"), 0);
    EXPECT_EQ(compareNamesForFileManager("a01", "a1"), 0);
    EXPECT_EQ(compareNamesForFileManager("ÉCOLE", "école"), 0);
    // Huge digit runs compare by value without overflowing.
    EXPECT_LT(compareNamesForFileManager("v99999999999999999999", "v100000000000000000000"), 0);
}

TEST(NameOrder, IsAConsistentOrderOverMixedNames) {
    std::vector<std::string> names = {
        "b",    "B",  "á", "a",     "A",         "a1",           "a01",
        "a10",  "à2", "Å", "x\xc3", "x\xc3\xa9", "\xed\xa0\x80", "1",
        "01",   "z",  "ǅ", "ß",     "ss",        "Straße",       "strasse",
        "日本", "ｆ"};
    for (const auto& a : names) {
        EXPECT_EQ(compareNamesForFileManager(a, a), 0);
        for (const auto& b : names) {
            EXPECT_EQ(sign(compareNamesForFileManager(a, b)),
                      -sign(compareNamesForFileManager(b, a)))
                << a << " vs " << b;
            for (const auto& c : names) {
                if (compareNamesForFileManager(a, b) <= 0 &&
                    compareNamesForFileManager(b, c) <= 0) {
                    EXPECT_LE(compareNamesForFileManager(a, c), 0) << a << " " << b << " " << c;
                }
            }
        }
    }
}

} // namespace
} // namespace brimvale
