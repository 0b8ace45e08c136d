#include "Shared/RunRecord.h"

#include <utility>

#include "platform/PersonalFiles.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"

namespace run_record {
namespace {

using namespace std::chrono_literals;
using platform::PropertyList;
namespace property_list = platform::property_list;

// Another process of the application keeps the folder as long as it writes one small file.
constexpr auto kLongestWait = 1000ms;

PropertyList::Dictionary contentsOf(const std::string& plistPath) {
  auto contents = property_list::read(plistPath);
  return contents ? std::move(*contents) : PropertyList::Dictionary();
}

std::optional<Date> dateIn(const std::optional<PropertyList>& value) {
  const auto* date = value ? value->get<PropertyList::Date>() : nullptr;
  return date != nullptr ? std::optional(*date) : std::nullopt;
}

std::optional<PropertyList> valueIn(const PropertyList::Dictionary& contents, const char* key) {
  const auto found = contents.find(key);
  return found != contents.end() ? std::optional(found->second) : std::nullopt;
}

void writeToFile(const char* key, const std::string& plistPath) {
  const PropertyList::Dictionary changes = {{key, std::chrono::system_clock::now()}};
  static_cast<void>(platform::personal_files::merge(plistPath, changes, kLongestWait));
}

}  // namespace

Dates read(const std::optional<std::string>& plistPath) {
  if (!plistPath) {
    return {.launch = dateIn(platform::user_defaults::object(kLaunch)),
            .exit = dateIn(platform::user_defaults::object(kExit))};
  }
  const auto contents = contentsOf(*plistPath);
  return {.launch = dateIn(valueIn(contents, kLaunch)), .exit = dateIn(valueIn(contents, kExit))};
}

void write(const char* key, const std::optional<std::string>& plistPath) {
  if (plistPath) return writeToFile(key, *plistPath);
  platform::user_defaults::setObject(key, std::chrono::system_clock::now());
  platform::user_defaults::synchronize();
}

}  // namespace run_record
