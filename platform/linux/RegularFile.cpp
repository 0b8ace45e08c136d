#include "platform/linux/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace platform {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

bool isRegular(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::optional<std::string> readRegularFile(const std::string& path, std::uint64_t limit) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.number() < 0 || !isRegular(file.number())) return std::nullopt;
  std::string contents;
  std::array<char, 16384> chunk;
  for (;;) {
    const ssize_t count = ::read(file.number(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return contents;
    contents.append(chunk.data(), static_cast<std::size_t>(count));
    if (contents.size() > limit) return std::nullopt;
  }
}

}  // namespace platform
