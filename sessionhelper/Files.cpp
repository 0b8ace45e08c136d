#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>

#include "platform/FileSystem.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/bus/RemoteWire.h"
#include "platform/linux/personal/Operations.h"
#include "platform/linux/personal/PassedDescriptor.h"
#include "posix/FileDescriptor.h"
#include "sessionhelper/BecomeOwner.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

using platform::personal::Texts;

constexpr int kSocket = STDIN_FILENO;
constexpr std::size_t kLargestRequest = 64U << 20;

// The other side has its own deadlines; it ends this program by closing the socket.
platform::remote_wire::Deadline never() {
  return std::chrono::steady_clock::now() + std::chrono::hours(24 * 365);
}

std::optional<Texts> nextRequest() {
  const auto bytes = platform::remote_wire::receive(kSocket, kLargestRequest, never());
  auto request = bytes ? platform::personal::decoded(*bytes) : std::nullopt;
  if (!request || request->empty()) return std::nullopt;
  return request;
}

bool answer(const Texts& texts) {
  return platform::remote_wire::send(kSocket, platform::personal::encoded(texts), never());
}

bool openFolder(const std::string& folder) {
  static_cast<void>(platform::file_system::createDirectory(folder));
  const posix::FileDescriptor opened(
      ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened) return answer({std::to_string(errno)});
  return answer({std::string(platform::personal::kYes)}) &&
         platform::personal::passDescriptor(kSocket, opened.get());
}

bool carryOut(const Texts& request) {
  if (request.size() == 2 && request.front() == platform::personal::operation::kOpen) {
    return openFolder(request[1]);
  }
  return answer(platform::personal::perform(request));
}

}  // namespace

int files(const Arguments& arguments) {
  const auto order = platform::helper_verb::parsed<platform::helper_verb::Files>(arguments);
  if (!order) return kUsageError;
  if (!becomeOwner(static_cast<std::uint32_t>(std::strtoul(order->userId.c_str(), nullptr, 10)))) {
    return kFailure;
  }
  while (const std::optional<Texts> request = nextRequest()) {
    if (!carryOut(*request)) return kFailure;
  }
  return 0;
}

}  // namespace session_helper
