#include "platform/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <thread>

namespace {

using platform::Exception;

TEST(ExceptionTest, CarriesItsNameAndReason) {
  const Exception exception("NSRangeException", "index 5 beyond bounds");
  EXPECT_EQ(exception.name(), "NSRangeException");
  EXPECT_EQ(exception.reason(), "index 5 beyond bounds");
  EXPECT_STREQ(exception.what(), "index 5 beyond bounds");
}

void printReason(const Exception& exception) {
  std::fprintf(stderr, "seen: %s\n", exception.reason().c_str());
}

TEST(ExceptionDeathTest, AnUncaughtExceptionIsShownToTheHandlerBeforeTheProcessDies) {
  EXPECT_DEATH(
      {
        platform::setUncaughtExceptionHandler(printReason);
        std::thread([] { throw Exception("NSGenericException", "nobody caught me"); }).join();
      },
      "seen: nobody caught me");
}

TEST(ExceptionDeathTest, AnotherUncaughtExceptionKillsTheProcessUnseen) {
  EXPECT_DEATH(
      {
        platform::setUncaughtExceptionHandler([](const Exception&) { std::fputs("seen", stderr); });
        std::thread([] { throw std::runtime_error("foreign"); }).join();
      },
      testing::Not(testing::HasSubstr("seen")));
}

}  // namespace
