#include "platform/linux/personal/Operations.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "platform/FileSystem.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "platform/linux/SystemError.h"

namespace platform::personal {
namespace {

Texts yes(Texts results = {}) {
  results.insert(results.begin(), std::string(kYes));
  return results;
}

Texts answer(const Status& status) {
  return status.ok() ? yes() : Texts{std::to_string(status.code()), status.description()};
}

Texts answerIf(bool done) {
  return done ? yes() : answer(statusFromErrno(ENOENT));
}

Texts date(const std::string& path) {
  const auto attributes = file_system::attributes(path);
  if (!attributes) return answerIf(false);
  return yes({std::to_string(attributes->modificationDate.time_since_epoch().count())});
}

Texts list(const std::string& folder) {
  auto names = file_system::list(folder);
  return names ? yes(std::move(*names)) : answerIf(false);
}

Texts read(const std::string& path, const std::string& limit) {
  auto contents = file_system::read(path, std::strtoull(limit.c_str(), nullptr, 10));
  return contents ? yes({std::move(*contents)}) : answerIf(false);
}

Texts merge(const std::string& path, const std::string& changes, const std::string& patience) {
  const auto parsed = property_list::parse(changes);
  if (!parsed) return answerIf(false);
  return answer(property_list::merge(
      path, *parsed, std::chrono::milliseconds(std::strtol(patience.c_str(), nullptr, 10))));
}

struct Operation {
  std::string_view name;
  std::size_t arguments;
  Texts (*run)(const Texts& request);
};

// One line an operation, in the order of their names.
constexpr Operation kOperations[] = {
    {operation::kDate, 1, [](const Texts& r) { return date(r[1]); }},
    {operation::kExists, 1, [](const Texts& r) { return answerIf(file_system::exists(r[1])); }},
    {operation::kList, 1, [](const Texts& r) { return list(r[1]); }},
    {operation::kMake, 1,
     [](const Texts& r) { return answer(file_system::createDirectory(r[1])); }},
    {operation::kMerge, 3, [](const Texts& r) { return merge(r[1], r[2], r[3]); }},
    {operation::kMove, 2, [](const Texts& r) { return answer(file_system::move(r[1], r[2])); }},
    {operation::kRead, 2, [](const Texts& r) { return read(r[1], r[2]); }},
    {operation::kRegister, 1,
     [](const Texts& r) { return answerIf(workspace::registerApplication(r[1])); }},
    {operation::kRemove, 1, [](const Texts& r) { return answer(file_system::remove(r[1])); }},
};

void append(std::string& bytes, std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size());
  bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
  bytes += text;
}

}  // namespace

Texts perform(const Texts& request) {
  for (const Operation& operation : kOperations) {
    if (request.size() == operation.arguments + 1 && request.front() == operation.name) {
      return operation.run(request);
    }
  }
  return answer(statusFromErrno(ENOSYS));
}

std::string encoded(const Texts& texts) {
  std::string bytes;
  for (const std::string& text : texts) append(bytes, text);
  return bytes;
}

std::optional<Texts> decoded(std::string_view bytes) {
  Texts texts;
  std::uint32_t length = 0;
  while (!bytes.empty()) {
    if (bytes.size() < sizeof length) return std::nullopt;
    std::memcpy(&length, bytes.data(), sizeof length);
    bytes.remove_prefix(sizeof length);
    if (bytes.size() < length) return std::nullopt;
    texts.emplace_back(bytes.substr(0, length));
    bytes.remove_prefix(length);
  }
  return texts;
}

}  // namespace platform::personal
