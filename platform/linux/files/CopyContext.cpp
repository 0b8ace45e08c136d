#include "platform/linux/files/CopyContext.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/Location.h"

namespace platform {
namespace {

// umask(2) can only be read by setting it, which other threads would notice. When it cannot be
// read, every mode is set explicitly.
mode_t currentCreationMask() {
  constexpr std::string_view kKey = "\nUmask:\t";
  const std::string status = file_system::read("/proc/self/status").value_or("");
  const std::size_t found = status.find(kKey);
  if (found == std::string::npos) return 0777;
  return static_cast<mode_t>(std::strtoul(status.c_str() + found + kKey.size(), nullptr, 8));
}

class ItemInFolder final : public file_system::CopyObserver::Item {
 public:
  ItemInFolder(int folder, const std::string& name) : folder_(folder), name_(name) {}
  std::string path() const override { return pathOf(folder_, name_); }

 private:
  const int folder_;
  const std::string& name_;
};

}  // namespace

CopyContext::CopyContext(file_system::CopyObserver* observer)
    : observer_(observer), creationMask_(currentCreationMask()), superuser_(::geteuid() == 0) {}

bool CopyContext::stopped() {
  if (observer_ != nullptr && !stopped_ && observer_->isCancelled()) {
    fail(statusFromErrno(ECANCELED));
  }
  return stopped_;
}

bool CopyContext::fail(int error, int folder, const std::string& name) {
  return fail(statusFromErrno(error, pathOf(folder, name)));
}

bool CopyContext::fail(Status failure) {
  const std::lock_guard lock(mutex_);
  if (failure_.ok()) failure_ = std::move(failure);
  stopped_ = true;
  return false;
}

Status CopyContext::result() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

void CopyContext::countBytes(std::uint64_t bytes, int folder, const std::string& name) {
  if (observer_ != nullptr) observer_->bytesCopied(bytes, ItemInFolder(folder, name));
}

void CopyContext::countItem(int folder, const std::string& name) {
  if (observer_ != nullptr) observer_->itemCopied(ItemInFolder(folder, name));
}

}  // namespace platform
