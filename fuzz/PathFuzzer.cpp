#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Shared/QVLocalPaths.h"
#include "platform/Path.h"

namespace {

namespace path = platform::path;

void require(bool holds) {
  if (!holds) std::abort();
}

bool endsWell(const std::string& text) {
  return text == "/" || !text.ends_with('/');
}

void checkParts(const std::string& text) {
  const auto last = path::lastComponent(text);
  require(last == "/" || last.find('/') == std::string::npos);
  require(endsWell(path::deletingLastComponent(text)));
  require(endsWell(path::deletingExtension(text)));
  require(path::extension(text).find('/') == std::string::npos);
  if (!path::extension(text).empty()) {
    require(path::deletingExtension(text) + "." + path::extension(text) ==
            path::appending(text, ""));
  }
}

// Components joined again are the same components, but for the mark of a trailing slash.
void checkComponents(const std::string& text) {
  auto components = path::components(text);
  if (components.size() > 1 && components.back() == "/") components.pop_back();
  std::string joined;
  for (const auto& name : components) joined = path::appending(joined, name);
  require(path::components(joined) == components);
  if (!components.empty()) require(path::lastComponent(text) == components.back());
}

void checkAppending(const std::string& base, const std::string& component) {
  const auto joined = path::appending(base, component);
  require(endsWell(joined));
  require(path::appending(std::optional<std::string>(), component) == std::nullopt);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  checkParts(text);
  checkComponents(text);
  checkAppending(text.substr(0, size / 2), text.substr(size / 2));
  QVLocalPaths::isPathSystemDirectory(text);
  require(!QVLocalPaths::isPathOnTimeMachineVolume(text) || text.starts_with("/Volumes/"));
  return 0;
}
