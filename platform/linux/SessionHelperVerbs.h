#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// What the session helper can be asked to do on its command line: each verb with its name and its
// arguments in their order, for those who ask and for the helper alike. Detaching alone is not
// asked for so: its words are those of the tool for which the helper stands in (ToolEquivalents.h).
namespace platform::helper_verb {

using Words = std::vector<std::string>;

// The operations of platform/Workspace.h. The path is what they are about and comes last.
struct Open {
  static constexpr std::string_view kName = "open";
  std::string path;
  auto fields() { return std::tie(path); }
};
struct OpenWith {
  static constexpr std::string_view kName = "open-with";
  // A bundle.
  std::string application;
  std::string path;
  auto fields() { return std::tie(application, path); }
};
struct Register {
  static constexpr std::string_view kName = "register";
  std::string path;
  auto fields() { return std::tie(path); }
};

// Opens a file with the person's default application.
struct OpenFile {
  static constexpr std::string_view kName = "open-file";
  std::string path;
  auto fields() { return std::tie(path); }
};
// Opens a file with the application of an identifier.
struct OpenFileWith {
  static constexpr std::string_view kName = "open-file-with";
  std::string identifier;
  std::string path;
  auto fields() { return std::tie(identifier, path); }
};

// Starts a program as the person and leaves it running. Its absolute path, then its arguments.
struct Start {
  static constexpr std::string_view kName = "start";
  Words command;
  auto fields() { return std::tie(command); }
};

// The helper becomes the person and then that program, in the same process and with all its
// descriptors.
struct Become {
  static constexpr std::string_view kName = "become";
  Words command;
  auto fields() { return std::tie(command); }
};

// Becomes the user with that number and does what a socket, standard input, asks for in that
// person's places (personal/Operations.h); ends when it does.
struct Files {
  static constexpr std::string_view kName = "files";
  // In decimal digits.
  std::string userId;
  auto fields() { return std::tie(userId); }
};

// Speaks to an object on the person's session bus for a process that may not, asked by requests on
// standard input (bus/RemoteRequest.h); ends when they do.
struct Remote {
  static constexpr std::string_view kName = "remote";
  std::tuple<> fields() { return {}; }
};

// Carries out a verb, given in words, when what descriptors tell has ended: the third is held
// meanwhile, then come two for each session in which tools run, then those of earlier deferred
// verbs (tasks/Turn.h).
struct After {
  static constexpr std::string_view kName = "after";
  int writers = 0;
  int turns = 0;
  Words verb;
  auto fields() { return std::tie(writers, turns, verb); }
};

// Unmounts what is mounted at a path.
struct Detach {
  static constexpr std::string_view kName = "detach";
};

// One field to and from words. Numbers are not negative; a list takes all words that are left.
void append(Words& words, const std::string& field);
void append(Words& words, int field);
void append(Words& words, const Words& field);
bool take(std::span<const std::string>& words, std::string& field);
bool take(std::span<const std::string>& words, int& field);
bool take(std::span<const std::string>& words, Words& field);

// The verb's name and its arguments.
template <class Verb>
Words words(Verb verb) {
  Words result = {std::string(Verb::kName)};
  std::apply([&result](const auto&... field) { (append(result, field), ...); }, verb.fields());
  return result;
}

// The verb with the arguments that follow its name; none when they are not what it takes.
template <class Verb>
std::optional<Verb> parsed(std::span<const std::string> arguments) {
  Verb verb;
  const bool taken = std::apply(
      [&arguments](auto&... field) { return (take(arguments, field) && ...); }, verb.fields());
  return taken && arguments.empty() ? std::optional(verb) : std::nullopt;
}

}  // namespace platform::helper_verb
