#include "platform/PersonalFiles.h"

#include <cstdlib>
#include <utility>

#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/personal/Operations.h"
#include "platform/linux/personal/PersonsChild.h"
#include "platform/linux/users/PlaceOwner.h"

namespace platform::personal_files {
namespace {

using personal::Texts;
namespace operation = personal::operation;
using std::chrono::system_clock;

std::optional<std::uint32_t> personOf(const std::string& path) {
  return process_info::isSuperuser() ? reach(path).owner : std::nullopt;
}

// By the person whose place `where` is.
Texts carryOut(const std::string& where, const Texts& request) {
  const auto owner = personOf(where);
  return owner ? personal::PersonsChild::of(*owner).ask(request) : personal::perform(request);
}

// What changes an item changes the folder that holds it, whosever the item is.
std::string folderOf(const std::string& path) {
  return path::deletingLastComponent(path);
}

bool isYes(const Texts& answer) {
  return answer.front() == personal::kYes;
}

Status statusOf(const Texts& answer) {
  if (isYes(answer)) return {};
  return Status::failure(std::atoi(answer.front().c_str()), answer.size() > 1 ? answer[1] : "");
}

}  // namespace

bool isInPersonsFolder(const std::string& path) {
  return personOf(folderOf(path)).has_value();
}

bool exists(const std::string& path) {
  return isYes(carryOut(path, {operation::kExists, path}));
}

std::optional<system_clock::time_point> modificationDate(const std::string& path) {
  const Texts answer = carryOut(path, {operation::kDate, path});
  if (!isYes(answer) || answer.size() < 2) return std::nullopt;
  return system_clock::time_point(
      system_clock::duration(std::strtoll(answer[1].c_str(), nullptr, 10)));
}

std::optional<std::vector<std::string>> list(const std::string& path) {
  Texts answer = carryOut(path, {operation::kList, path});
  if (!isYes(answer)) return std::nullopt;
  answer.erase(answer.begin());
  return answer;
}

Status createDirectory(const std::string& path) {
  return statusOf(carryOut(path, {operation::kMake, path}));
}

Status move(const std::string& source, const std::string& destination) {
  return statusOf(carryOut(folderOf(source), {operation::kMove, source, destination}));
}

Status remove(const std::string& path) {
  return statusOf(carryOut(folderOf(path), {operation::kRemove, path}));
}

Status merge(const std::string& path, const PropertyList::Dictionary& changes,
             std::chrono::milliseconds patience) {
  return statusOf(carryOut(
      folderOf(path),
      {operation::kMerge, path, property_list::serialized(changes, property_list::Format::binary),
       std::to_string(patience.count())}));
}

}  // namespace platform::personal_files
