#include "platform/Privilege.h"

#include <sys/prctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "channel/Packet.h"
#include "channel/Way.h"
#include "platform/linux/privilege/ElevatorSession.h"
#include "platform/linux/privilege/HandedDownChannel.h"

namespace platform::privilege {
namespace {

constexpr std::chrono::seconds kInheritanceLimit(10);

}  // namespace

// static
Session::Creation Session::create() {
  channel::ChannelPair pair = channel::makeChannel();
  if (!pair.one) return {errno, nullptr};
  return {0, std::make_shared<ElevatorSession>(std::move(pair.one), std::move(pair.other))};
}

// static
std::shared_ptr<Session> Session::inherited() {
  posix::FileDescriptor channel = takeHandedDownChannel();
  if (!channel) return nullptr;
  auto session = std::make_shared<ElevatorSession>(std::move(channel), posix::FileDescriptor());
  return session->isAlive(kInheritanceLimit) ? session : nullptr;
}

bool isSafeAlone(const std::string& tool, const std::vector<std::string>& arguments) {
  if (!channel::isFileTool(tool)) return true;
  std::vector<std::string> words = {tool};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return std::ranges::all_of(channel::waysOf(words), &channel::Way::isRootsAlone);
}

void protectProcess() {
  ::prctl(PR_SET_DUMPABLE, 0);
  ::umask(::umask(0777) | (S_IWGRP | S_IWOTH));
  secureHandedDownChannel();
}

}  // namespace platform::privilege
