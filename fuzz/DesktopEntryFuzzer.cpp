#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/desktop/DesktopEntry.h"

// What a hostile bundle says of itself, as lines divided by zeros: its name, its program, its
// picture, its path, its identifier, its media types. What is written must be one entry with each
// key at most once, whose command line, read by the rules of the format, is the program and nothing
// else; and the file's name must be one.
namespace {

std::vector<std::string> fieldsOf(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> fields(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      fields.emplace_back();
    } else {
      fields.back() += static_cast<char>(data[i]);
    }
  }
  if (fields.size() < 6) fields.resize(6);
  return fields;
}

void require(bool holds) {
  if (!holds) std::abort();
}

// A value without the escapes that every value has.
std::string unescaped(const std::string& value) {
  std::string result;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\') {
      require(++i < value.size());
      result += value[i] == 's' ? ' ' : value[i];
    } else {
      result += value[i];
    }
  }
  return result;
}

// The word in quotes at the end of a command line, before the field code.
std::string quotedProgram(const std::string& command) {
  const std::string end = "\" %F";
  const std::size_t start = command.find('"');
  require(start != std::string::npos && command.ends_with(end));
  const std::string before = command.substr(0, start);
  require(before.empty() || before == "/usr/bin/nice -n 0 ");
  std::string word;
  for (std::size_t i = start + 1; i < command.size() - end.size(); ++i) {
    const char c = command[i];
    require(c != '"' && c != '`' && c != '$');
    if (c == '\\' || c == '%') {
      ++i;
      require(c == '\\' || command[i] == '%');
    }
    word += command[i];
  }
  return word;
}

void checkEntry(const std::string& entry, const std::string& program) {
  std::istringstream lines(entry);
  std::string line;
  std::getline(lines, line);
  require(line == "[Desktop Entry]");
  std::vector<std::string> keys;
  while (std::getline(lines, line)) {
    const std::string key = line.substr(0, line.find('='));
    for (const std::string& earlier : keys) require(earlier != key);
    keys.push_back(key);
    const std::string value = unescaped(line.substr(key.size() + 1));
    if (key == "Exec") require(quotedProgram(value) == program);
    if (key == "TryExec") require(value == program);
  }
  require(keys.size() >= 7 && keys.size() <= 9);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace desktop_entry = platform::desktop_entry;
  const std::vector<std::string> fields = fieldsOf(data, size);
  desktop_entry::Application application{
      .name = fields[0],
      .executable = "/" + fields[1],
      .bundle = "/" + fields[3],
      .icon = fields[2].empty() ? std::nullopt : std::optional("/" + fields[2]),
      .mediaTypes = {fields.begin() + 5, fields.end()}};
  if (const std::optional<std::string> entry = desktop_entry::serialized(application)) {
    require(desktop_entry::isOurs(*entry));
    checkEntry(*entry, application.executable);
  }
  const std::string file = desktop_entry::fileName(fields[4], application.bundle);
  require(desktop_entry::isFileNameSafe(file.substr(0, file.size() - 8)) || file.size() > 200);
  require(file.size() <= 255 && file.find('/') == std::string::npos);
  return 0;
}
