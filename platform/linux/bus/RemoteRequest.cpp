#include "platform/linux/bus/RemoteRequest.h"

#include <cstdint>
#include <utility>

#include "platform/Text.h"

namespace platform {
namespace {

constexpr char kOperation[] = "operation";
constexpr char kSubject[] = "subject";
constexpr char kArguments[] = "arguments";
constexpr auto kLastOperation = RemoteRequest::Operation::perform;

// A property list holds valid texts only.
PropertyList valid(const PropertyList& value) {
  if (const auto* string = value.get<std::string>()) return PropertyList(text::validUtf8(*string));
  const auto* dictionary = value.get<PropertyList::Dictionary>();
  if (dictionary == nullptr) return value;
  PropertyList::Dictionary result;
  for (const auto& [key, entry] : *dictionary) result.emplace(text::validUtf8(key), valid(entry));
  return PropertyList(std::move(result));
}

template <class T>
const T* valueOf(const PropertyList::Dictionary& fields, const char* key) {
  const auto found = fields.find(key);
  return found == fields.end() ? nullptr : found->second.get<T>();
}

}  // namespace

std::string serialized(const RemoteRequest& request) {
  PropertyList::Array arguments;
  for (const PropertyList& argument : request.arguments) arguments.push_back(valid(argument));
  PropertyList::Dictionary fields;
  fields.emplace(kOperation, PropertyList(static_cast<std::int64_t>(request.operation)));
  fields.emplace(kSubject, PropertyList(text::validUtf8(request.subject)));
  fields.emplace(kArguments, PropertyList(std::move(arguments)));
  return property_list::serialized(fields, property_list::Format::binary);
}

std::optional<RemoteRequest> parsedRemoteRequest(std::string_view message) {
  const auto fields = property_list::parse(message);
  if (!fields) return std::nullopt;
  const auto* operation = valueOf<std::int64_t>(*fields, kOperation);
  const auto* subject = valueOf<std::string>(*fields, kSubject);
  const auto* arguments = valueOf<PropertyList::Array>(*fields, kArguments);
  const bool whole = operation != nullptr && subject != nullptr && arguments != nullptr;
  if (!whole || *operation < 0 || *operation > static_cast<std::int64_t>(kLastOperation)) {
    return std::nullopt;
  }
  return RemoteRequest{static_cast<RemoteRequest::Operation>(*operation), *subject, *arguments};
}

// An exception's name and its reason stand behind the kind, with a line break between.
std::string serialized(const RemoteAnswer& answer) {
  std::string message = {static_cast<char>(answer.kind)};
  if (answer.kind == RemoteAnswer::Kind::exception) message += answer.name + '\n' + answer.reason;
  return message.substr(0, kLargestRemoteAnswer);
}

std::optional<RemoteAnswer> parsedRemoteAnswer(std::string_view message) {
  using Kind = RemoteAnswer::Kind;
  if (message.empty()) return std::nullopt;
  const auto kind = static_cast<Kind>(message.front());
  message.remove_prefix(1);
  if (kind == Kind::yes || kind == Kind::no) return RemoteAnswer{.kind = kind};
  if (kind != Kind::exception) return std::nullopt;
  const std::string text = text::validUtf8(std::string(message));
  const std::size_t line = text.find('\n');
  if (line == std::string::npos) return RemoteAnswer{kind, {}, text};
  return RemoteAnswer{kind, text.substr(0, line), text.substr(line + 1)};
}

}  // namespace platform
