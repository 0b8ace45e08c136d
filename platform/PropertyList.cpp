#include "platform/PropertyList.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace platform {
namespace {

constexpr std::string_view kTrueInitials = "YyTt123456789";

bool textIsTrue(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() && kTrueInitials.find(text.front()) != std::string_view::npos;
}

}  // namespace

PropertyList::PropertyList(Value value) : value_(std::move(value)) {}

bool PropertyList::isSwitchedOn() const noexcept {
  if (const auto* text = get<std::string>()) return *text == "1";
  if (const auto* flag = get<bool>()) return *flag;
  if (const auto* whole = get<std::int64_t>()) return *whole == 1;
  if (const auto* real = get<double>()) return *real == 1.0;
  return false;
}

bool PropertyList::boolValue() const noexcept {
  if (const auto* text = get<std::string>()) return textIsTrue(*text);
  if (const auto* flag = get<bool>()) return *flag;
  if (const auto* whole = get<std::int64_t>()) return *whole != 0;
  if (const auto* real = get<double>()) return *real != 0.0;
  return false;
}

}  // namespace platform
