#include "core/model/SizeFormatter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

struct ByteCase {
    std::int64_t bytes;
    const char* text;
};

TEST(SizeFormatter, UnitBoundariesRoundingAndNegatives) {
    const ByteCase cases[] = {
        {0, "0 bytes"},
        {1, "1 bytes"},
        {-5, "-5 bytes"},
        {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808 bytes"},
        {999, "999 bytes"},
        {1000, "1 KB"},
        {1049, "1 KB"},
        {1050, "1 KB"},   // 1.05 ties to the even 1.0
        {1150, "1.2 KB"}, // 1.15 ties to the even 1.2
        {1250, "1.2 KB"}, // 1.25 ties to the even 1.2
        {1251, "1.3 KB"},
        {1500, "1.5 KB"},
        {99'949, "99.9 KB"},
        {99'950, "100 KB"}, // never 99.9 KB nor 100.0 KB
        {100'000, "100 KB"},
        {150'000, "150 KB"},
        {100'500, "100 KB"}, // from 100 on no fraction digit; 100.5 ties to the even 100
        {101'500, "102 KB"},
        {999'499, "999 KB"},
        {999'500, "1000 KB"}, // rounding carries without changing the unit
        {999'999, "1000 KB"},
        {1'000'000, "1 MB"},
        {99'960'000, "100 MB"},
        {123'456'789, "123 MB"},
        {999'999'999, "1000 MB"},
        {1'000'000'000, "1 GB"},
        {1'234'567'890, "1.2 GB"},
        {999'999'999'999, "1000 GB"},
        {1'000'000'000'000, "1 TB"},
        {5'000'000'000'000'000, "5000 TB"},
        {std::numeric_limits<std::int64_t>::max(), "9223372 TB"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(formatBytes(bytes), text) << bytes;
        EXPECT_EQ(sharedSizeFormatter().stringFromByteCount(bytes), text) << bytes;
    }
}

TEST(SizeFormatter, DecimalRoundingWorksOnTheShortestDecimalText) {
    // 0.15 is stored as 0.1499999…; a person reading "0.15" expects the tie rule, not the binary
    // value.
    EXPECT_EQ(formatDecimalHalfEven(0.15, 1), "0.2");
    EXPECT_EQ(formatDecimalHalfEven(0.25, 1), "0.2");
    EXPECT_EQ(formatDecimalHalfEven(0.35, 1), "0.4");
    EXPECT_EQ(formatDecimalHalfEven(9.95, 1), "10");
    EXPECT_EQ(formatDecimalHalfEven(9.951, 1), "10");
    EXPECT_EQ(formatDecimalHalfEven(2.5, 0), "2");
    EXPECT_EQ(formatDecimalHalfEven(3.5, 0), "4");
    EXPECT_EQ(formatDecimalHalfEven(2.5000001, 0), "3");
    EXPECT_EQ(formatDecimalHalfEven(-1.25, 1), "-1.2");
    EXPECT_EQ(formatDecimalHalfEven(-0.01, 1), "0");
    EXPECT_EQ(formatDecimalHalfEven(1e-7, 1), "0");
    EXPECT_EQ(formatDecimalHalfEven(123456789.0, 1), "123456789");
}

TEST(SizeFormatter, SameTextFromManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20'000; ++i) {
                if (sharedSizeFormatter().stringFromByteCount(1250) != "1.2 KB" ||
                    formatBytes(99'950) != "100 KB") {
                    ++mismatches;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

} // namespace
} // namespace brimvale
