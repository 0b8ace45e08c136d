#include "examples/bugreporter/CrashLogText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/Sandbox.h"

namespace {

using bug_reporter::CrashLogText;
using bug_reporter::kLargestShown;
using bug_reporter::readCrashLog;
using test::Sandbox;
using testing::EndsWith;

class CrashLogTextTest : public testing::Test {
 protected:
  CrashLogText logOf(const std::string& contents) const {
    return readCrashLog(sandbox.makeFile("Sample App_2026_host.crash", contents));
  }
  Sandbox sandbox;
};

TEST_F(CrashLogTextTest, ALogIsShownAsItIsWithItsApplicationAndPath) {
  const CrashLogText log = logOf("Process: Sample\n");
  EXPECT_TRUE(log.readable);
  EXPECT_EQ(log.text, "Process: Sample\n");
  EXPECT_EQ(log.application, "Sample App");
  EXPECT_EQ(log.path, sandbox.path("Sample App_2026_host.crash"));
}

TEST_F(CrashLogTextTest, AnEmptyLogIsShownEmpty) {
  EXPECT_TRUE(logOf("").readable);
  EXPECT_EQ(logOf("").text, "");
}

TEST_F(CrashLogTextTest, WhatIsNoUtf8IsReplaced) {
  EXPECT_EQ(logOf(std::string("a\xFF") + '\0' + "b\xC3").text, "a\uFFFD\uFFFDb\uFFFD");
  const CrashLogText log = readCrashLog(sandbox.makeFile("odd\xFF_1.crash", "x"));
  EXPECT_EQ(log.application, "odd\uFFFD");
  EXPECT_THAT(log.path, EndsWith("/odd\uFFFD_1.crash"));
  EXPECT_EQ(log.text, "x");
}

TEST_F(CrashLogTextTest, OfAHugeFileTheBeginningIsShown) {
  EXPECT_EQ(logOf(std::string(kLargestShown, 'x')).text, std::string(kLargestShown, 'x'));
  EXPECT_EQ(logOf(std::string(8 << 20, 'x')).text,
            std::string(kLargestShown, 'x') + "\n[The rest of the file is not shown.]\n");
}

TEST_F(CrashLogTextTest, WhatCannotBeReadSaysWhy) {
  const CrashLogText missing = readCrashLog(sandbox.path("Sample_1.crash"));
  EXPECT_FALSE(missing.readable);
  EXPECT_EQ(missing.text, "The crash log cannot be shown: No such file or directory.");
  EXPECT_EQ(missing.application, "Sample");
  EXPECT_FALSE(readCrashLog("").readable);
}

TEST_F(CrashLogTextTest, AFolderAndAPipeAreNoLogs) {
  const std::string pipe = sandbox.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {sandbox.makeDirectory("folder"), pipe}) {
    EXPECT_EQ(readCrashLog(path).text, "The crash log cannot be shown: It is not a file.");
    EXPECT_EQ(readCrashLog(path).application, "");
  }
}

}  // namespace
