#include "elevator/Server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "elevator/Tool.h"
#include "posix/Escaped.h"
#include "posix/PipeEnds.h"

namespace elevator {
namespace {

// The system is short of something: asking it again at once would only make that worse.
constexpr std::chrono::milliseconds kPauseAfterFailure(50);

posix::FileDescriptor copyOf(const posix::FileDescriptor& descriptor) {
  return posix::FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// What is readable once that process has ended, which it may have already; empty when the system
// has no more descriptors.
posix::FileDescriptor openProcess(pid_t id) {
  posix::FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
  if (process || errno != ESRCH) return process;
  return posix::makePipe().reading;
}

bool hasReader(int pipe) {
  pollfd entry{pipe, 0, 0};
  return ::poll(&entry, 1, 0) == 0;
}

}  // namespace

Server::Server(posix::FileDescriptor firstChannel) : life_(posix::makePipe()) {
  channels_.push_back({std::move(firstChannel), 0, {}, 0});
}

void Server::run() {
  while (hasReasonToStay()) waitForSomething();
}

bool Server::hasReasonToStay() const {
  return !channels_.empty() || jobs_.hasWaiting() ||
         std::ranges::any_of(jobs_.reports(), hasReader);
}

void Server::waitForSomething() {
  std::vector<pollfd> entries;
  for (const Channel& channel : channels_) {
    const short awaited = channel.giver == 0 ? POLLIN : 0;
    entries.push_back({channel.socket.get(), awaited, 0});
    entries.push_back({channel.peerProcess.get(), POLLIN, 0});
  }
  const std::size_t channelEntries = entries.size();
  for (const int process : jobs_.running()) entries.push_back({process, POLLIN, 0});
  const std::size_t served = entries.size();
  // That the last reader of a report has gone matters only when nothing else is left to stay for.
  if (channels_.empty()) {
    for (const int report : jobs_.reports()) entries.push_back({report, 0, 0});
  }
  if (::poll(entries.data(), entries.size(), -1) < 0) {
    if (errno != EINTR) std::this_thread::sleep_for(kPauseAfterFailure);
    return;
  }

  for (std::size_t i = channelEntries; i < served; ++i) {
    if (entries[i].revents != 0) jobs_.finish(entries[i].fd);
  }
  // Backwards, so that what is removed or added moves none that is still to be looked at.
  for (std::size_t i = channels_.size(); i-- > 0;) {
    const bool hasPacket = entries[2 * i].revents != 0;
    const bool orphaned = entries[2 * i + 1].revents != 0;
    // What the peer said before its end still counts.
    if (hasPacket ? serve(channels_[i]) : !orphaned) continue;
    channels_.erase(channels_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

bool Server::serve(Channel& channel) {
  const channel::Packet packet = channel::receive(channel.socket.get(), 0);
  if (packet.state == channel::Packet::State::none) return true;
  if (packet.state == channel::Packet::State::broken) return false;
  const bool admitted = admit(channel, packet.senderPid);
  const auto request = channel::parseRequest(packet.bytes);
  if (!request || !admitted) {
    syslog(LOG_WARNING, "closes the channel of process %d after a packet from process %d",
           channel.peer, packet.senderPid);
    return false;
  }
  return reply(channel, *request);
}

// The number alone would not do: another process may get it when the peer has ended.
// static
bool Server::admit(Channel& channel, pid_t sender) {
  if (channel.peer == 0) {
    channel.peer = sender;
    channel.peerProcess = openProcess(sender);
  }
  return channel.peerProcess && sender == channel.peer;
}

bool Server::reply(const Channel& channel, const channel::Request& request) {
  // Answering may open a channel, which moves the others.
  const int socket = channel.socket.get();
  const Answer result = answer(request, channel.peer);
  std::vector<int> numbers;
  for (const posix::FileDescriptor& descriptor : result.descriptors)
    numbers.push_back(descriptor.get());
  // One who does not take the replies is not waited for.
  return channel::send(socket, channel::encoded(channel::Reply{request.id, result.status}),
                       numbers);
}

Server::Answer Server::answer(const channel::Request& request, pid_t asker) {
  switch (request.kind) {
    case channel::Kind::hello:
      return {};
    case channel::Kind::run:
    case channel::Kind::runPiped:
      return runCommand(request);
    case channel::Kind::newChannel:
      return openChannel(asker);
    case channel::Kind::observe:
      return observe(request);
    case channel::Kind::life:
      return tellLife();
    case channel::Kind::give:
      return {give(asker, channel::processNumber(request.words.front())), {}};
  }
  return {EINVAL, {}};
}

Server::Answer Server::runCommand(const channel::Request& request) {
  Job job;
  job.words = request.words;
  if (!jobs_.hasRoomFor(job)) return {EAGAIN, {}};
  job.tool = openTool(job.words.front());
  if (job.tool.status != 0) {
    syslog(LOG_WARNING, "refuses to run %s", posix::escaped(job.words.front()).c_str());
    return {job.tool.status, {}};
  }
  Answer result;
  if (request.kind == channel::Kind::runPiped) {
    posix::PipeEnds output = posix::makePipe();
    posix::PipeEnds report = posix::makePipe();
    if (!output.reading || !report.reading) return {errno, {}};
    job.ends.output = std::move(output.writing);
    job.report = std::move(report.writing);
    result.descriptors.push_back(std::move(output.reading));
    result.descriptors.push_back(std::move(report.reading));
  }
  job.ends.life = life_.writing.get();
  result.status = jobs_.add(std::move(job));
  if (result.status != 0) result.descriptors.clear();
  return result;
}

Server::Answer Server::openChannel(pid_t asker) {
  if (channels_.size() == kMostChannels) return {EAGAIN, {}};
  channel::ChannelPair pair = channel::makeChannel();
  if (!pair.one) return {errno, {}};
  Answer result;
  result.descriptors.push_back(std::move(pair.other));
  channels_.push_back({std::move(pair.one), 0, {}, asker});
  return result;
}

int Server::give(pid_t asker, pid_t child) {
  const auto given = std::find_if(channels_.rbegin(), channels_.rend(),
                                  [asker](const Channel& each) { return each.giver == asker; });
  if (given == channels_.rend()) return ENOENT;
  posix::FileDescriptor process = openProcess(child);
  if (!process) return errno;
  given->peer = child;
  given->peerProcess = std::move(process);
  given->giver = 0;
  return 0;
}

Server::Answer Server::observe(const channel::Request& request) {
  posix::PipeEnds pipe = posix::makePipe();
  if (!pipe.reading) return {errno, {}};
  Answer result;
  result.status = jobs_.observe(request.words.front(), std::move(pipe.writing));
  if (result.status == 0) result.descriptors.push_back(std::move(pipe.reading));
  return result;
}

Server::Answer Server::tellLife() const {
  Answer result;
  result.descriptors.push_back(copyOf(life_.reading));
  if (!result.descriptors.front()) return {errno, {}};
  return result;
}

}  // namespace elevator
