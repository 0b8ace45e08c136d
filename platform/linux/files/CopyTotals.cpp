#include "platform/linux/files/CopyTotals.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "platform/linux/files/TreeWalk.h"

namespace platform {
namespace {

// The bytes of an item that is a file.
std::uint64_t bytesOf(int folder, const char* name) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  return S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

class Counting final : public TreeVisitor {
 public:
  using GoOn = std::function<bool(const CopyTotals&)>;

  explicit Counting(const GoOn& goOn) : goOn_(goOn) {}

  void add(std::uint64_t bytes);
  const CopyTotals& totals() const noexcept { return totals_; }

  bool visit(const Directory& folder, const Item& item) override;
  bool stopped() override { return stopped_; }

 private:
  const GoOn& goOn_;
  CopyTotals totals_;
  bool stopped_ = false;
};

void Counting::add(std::uint64_t bytes) {
  ++totals_.items;
  totals_.bytes += bytes;
  stopped_ = stopped_ || !goOn_(totals_);
}

bool Counting::visit(const Directory& folder, const Item& item) {
  // Only files need to be looked at.
  add(item.type == DT_REG ? bytesOf(folder->get(), item.name.data()) : 0);
  return item.type == DT_DIR;
}

}  // namespace

CopyTotals countForCopy(const Location& source,
                        const std::function<bool(const CopyTotals& soFar)>& goOn) {
  Counting counting(goOn);
  counting.add(bytesOf(source.descriptor(), source.name.c_str()));
  TreeWalk(counting).walk(source.descriptor(), source.name);
  return counting.totals();
}

}  // namespace platform
