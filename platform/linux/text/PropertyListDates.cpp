#include "platform/linux/text/PropertyListDates.h"

#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/linux/Allocated.h"

namespace platform::property_list_nodes {
namespace {

using namespace std::chrono_literals;

// Property lists count seconds from the first instant of 2001, UTC.
constexpr auto kEpoch = std::chrono::sys_days(2001y / 1 / 1);

// A binary property list of one date: the header, the date's marker, its eight bytes, the table of
// offsets with one entry, and the trailer.
constexpr std::string_view kHead = "bplist00\x33";
constexpr std::size_t kNumberSize = 8;
constexpr char kOffsetTable = '\x08';
constexpr std::size_t kTrailerSize = 32;

double secondsIn(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes.substr(kHead.size(), kNumberSize)) {
    number = number << 8 | static_cast<unsigned char>(byte);
  }
  return std::bit_cast<double>(number);
}

std::string listOf(double seconds) {
  const auto number = std::bit_cast<std::uint64_t>(seconds);
  std::string bytes(kHead);
  for (unsigned shift = 64; shift > 0; shift -= 8) {
    bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
  }
  bytes += kOffsetTable;
  std::string trailer(kTrailerSize, '\0');
  trailer[6] = 1;   // bytes of an offset
  trailer[7] = 1;   // bytes of a reference
  trailer[15] = 1;  // objects
  trailer[31] = static_cast<char>(kHead.size() + kNumberSize);
  return bytes + trailer;
}

PropertyList::Date dateAt(double seconds) {
  using Date = PropertyList::Date;
  const double since1970 =
      seconds + std::chrono::duration<double>(kEpoch.time_since_epoch()).count();
  // A second short of what the clock can hold, out of the way of rounding.
  constexpr double kLast = std::chrono::duration<double>(Date::max() - 1s - Date()).count();
  if (!(since1970 > -kLast)) return Date::min();
  if (!(since1970 < kLast)) return Date::max();
  // Nanoseconds since 2001 would overflow where those since 1970 do not.
  const double whole = std::floor(seconds);
  const std::chrono::duration<double> fraction(seconds - whole);
  return kEpoch + std::chrono::seconds(static_cast<std::int64_t>(whole)) +
         std::chrono::round<Date::duration>(fraction);
}

}  // namespace

PropertyList::Date dateOf(plist_t node) {
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &bytes, &length);
  const Allocated<char> owned(bytes);
  const std::string_view list(bytes, length);
  if (length < kHead.size() + kNumberSize || !list.starts_with(kHead)) return kEpoch;
  return dateAt(secondsIn(list));
}

Node dateNode(PropertyList::Date date) {
  using Seconds = std::chrono::duration<double>;
  // Cut, not rounded down: the second below the clock's first date would overflow.
  const auto whole = std::chrono::time_point_cast<std::chrono::seconds>(date);
  const std::string list = listOf(Seconds(whole - kEpoch).count() + Seconds(date - whole).count());
  plist_t node = nullptr;
  plist_from_bin(list.data(), static_cast<std::uint32_t>(list.size()), &node);
  return Node(node);
}

}  // namespace platform::property_list_nodes
