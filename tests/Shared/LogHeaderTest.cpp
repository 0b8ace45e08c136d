#include "Shared/LogHeader.h"

#include <gtest/gtest.h>

namespace {

TEST(LogHeaderTest, EightGibibytesArePrintedAsEight) {
  EXPECT_EQ(log_header::systemLine("Debian 12", 4, 8ULL << 30),
            "System: OS X Debian 12, 4 CPU(s), 8.00 GB RAM\n");
}

TEST(LogHeaderTest, MemoryIsRoundedToHundredths) {
  EXPECT_EQ(log_header::systemLine("x", 1, 0), "System: OS X x, 1 CPU(s), 0.00 GB RAM\n");
  EXPECT_EQ(log_header::systemLine("x", 1, (1ULL << 30) + (1ULL << 28)),
            "System: OS X x, 1 CPU(s), 1.25 GB RAM\n");
  EXPECT_EQ(log_header::systemLine("x", 1, 33'567'014'912),
            "System: OS X x, 1 CPU(s), 31.26 GB RAM\n");
}

}  // namespace
