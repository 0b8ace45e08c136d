#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Status.h"

namespace platform {

// A property list: a value of one of eight types, nested through arrays and dictionaries.
class PropertyList {
 public:
  using Array = std::vector<PropertyList>;
  using Dictionary = std::map<std::string, PropertyList>;
  using Date = std::chrono::system_clock::time_point;
  using Bytes = std::vector<std::byte>;
  using Value =
      std::variant<std::string, bool, std::int64_t, double, Date, Bytes, Array, Dictionary>;

  PropertyList(Value value);  // NOLINT(google-explicit-constructor)
  // What a Value can be made of without narrowing: 1 is an integer, "1" a text.
  template <class T>
  requires(std::constructible_from<Value, T> && !std::same_as<T, Value> &&
           !std::same_as<T, PropertyList>)
      PropertyList(T value)  // NOLINT(google-explicit-constructor)
      : value_(std::move(value)) {}

  // The value if it is of type T, else null.
  template <class T>
  const T* get() const noexcept {
    return std::get_if<T>(&value_);
  }
  const Value& value() const noexcept { return value_; }

  // Whether a switch is on: the string "1", or a number equal to the boolean true.
  bool isSwitchedOn() const noexcept;

  // The truth of the value as user defaults read it: a boolean as it is, a number unless 0, a text
  // that begins, after white space, a sign and zeros, with one of Y y T t 1-9.
  bool boolValue() const noexcept;

  bool operator==(const PropertyList&) const = default;

 private:
  Value value_;
};

namespace property_list {

enum class Format { xml, binary };

// The dictionary in an XML (UTF-8) or binary property list; none when the bytes are no property
// list, hold something else than a dictionary, are nested more than 512 deep, would come to more
// than 200,000 keys and values or 256 MiB of texts and data, or, in a binary list, when a text
// holds a zero character. An integer beyond 63 bits becomes the negative number of the same bits, a
// date that `Date` cannot hold its first or last. Thread-safe.
std::optional<PropertyList::Dictionary> parse(std::string_view bytes);

// The same from a file; none also when it cannot be read or is larger than 64 MiB.
std::optional<PropertyList::Dictionary> read(const std::string& path);

// XML keeps dates to the second, binary to the fraction. Texts are cut at a zero byte; bytes in
// them that are not UTF-8 become U+FFFD. Thread-safe.
std::string serialized(const PropertyList::Dictionary& dictionary, Format format);

// Replaces the file as a whole, see file_system::writeAtomically.
Status write(const std::string& path, const PropertyList::Dictionary& dictionary, Format format);

// Before a file is replaced: a regular file that is no dictionary is renamed to <path>.damaged, or
// to <path>.damaged-2 and so on where that name is taken, so that what it holds is not lost. Where
// that fails it stays.
void setAsideDamaged(const std::string& path);

// Sets the keys of `changes` in the dictionary of a file and keeps its other keys; a file that is
// none is set aside. Keeps others that do the same out meanwhile, unless one of them takes longer
// than `patience`. The file becomes a binary list, which keeps dates to the fraction.
Status merge(const std::string& path, const PropertyList::Dictionary& changes,
             std::chrono::milliseconds patience);

}  // namespace property_list
}  // namespace platform
