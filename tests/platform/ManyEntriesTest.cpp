#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using test::Sandbox;

#ifdef NDEBUG
constexpr int kEntries = 1000000;
#else
// Without the optimiser, and with a sanitizer, a tenth takes as long.
constexpr int kEntries = 100000;
#endif
// The bound of a copy's memory, see platform/FileSystem.h, in what getrusage(2) counts in.
[[maybe_unused]] constexpr long kMostKilobytes = 16 * 1024;

long peakKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

std::string nameOf(int number) {
  return "entry " + std::to_string(number);
}

// One folder with very many empty files, in memory.
class ManyEntriesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    const std::string memory = sandbox_.mountTmpfs("memory", 4UL << 30);
    folder_ = memory + "/folder";
    copy_ = memory + "/copy";
    ASSERT_TRUE(fs::createDirectory(folder_).ok());
    const int folder = ::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < kEntries; ++i) {
      const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
      ASSERT_EQ(::close(::openat(folder, nameOf(i).c_str(), flags, 0600)), 0);
    }
    ::close(folder);
  }

  Sandbox sandbox_;
  std::string folder_;
  std::string copy_;
};

TEST_F(ManyEntriesTest, AFolderOfAMillionIsCopiedAndRemovedInBoundedMemoryAndListedInOrder) {
  [[maybe_unused]] const long before = peakKilobytes();
  const auto status = fs::copy(folder_, copy_);
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_TRUE(fs::remove(folder_).ok());
  EXPECT_FALSE(fs::exists(folder_));
#ifdef NDEBUG
  EXPECT_LE(peakKilobytes() - before, kMostKilobytes);
#endif
  const auto names = fs::list(copy_);
  ASSERT_TRUE(names);
  EXPECT_EQ(names->size(), std::size_t{kEntries});
  EXPECT_TRUE(std::ranges::is_sorted(*names));
}

}  // namespace
