#include "platform/linux/desktop/DesktopEntry.h"

#include <algorithm>

#include "platform/Path.h"
#include "platform/Text.h"

namespace platform::desktop_entry {
namespace {

constexpr char kGroup[] = "[Desktop Entry]\n";
// By this key an entry that somebody else wrote is told from ours and left alone.
constexpr char kBundleKey[] = "X-Quorvale-Bundle=";
constexpr std::size_t kMaximumMediaTypes = 256;
// An identifier longer than this makes no file name together with its extension.
constexpr std::size_t kMaximumIdentifier = 200;

bool isAsciiAlphanumeric(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool isWritable(const std::string& path) {
  return std::ranges::none_of(path, isControl) && text::validUtf8(path) == path;
}

// The escapes that every value of the file has.
std::string escaped(std::string_view value) {
  std::string result;
  for (const char c : value) {
    if (c == '\\') result += '\\';
    result += c;
  }
  // A reader drops white space after the equal sign.
  if (result.starts_with(' ')) result.replace(0, 1, "\\s");
  return result;
}

// One word of a command line: in quotes, with what stays special inside them escaped and the sign
// of the field codes doubled.
std::string inQuotes(std::string_view word) {
  std::string result = "\"";
  for (const char c : word) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') result += '\\';
    if (c == '%') result += '%';
    result += c;
  }
  return result + '"';
}

// A program's path may hold no equal sign, and GLib looks the first word up before it undoubles
// percent signs. Such a program is reached through one that just starts its argument.
std::string commandLine(const std::string& executable) {
  const bool direct = executable.find_first_of("%=") == std::string::npos;
  return (direct ? "" : "/usr/bin/nice -n 0 ") + inQuotes(executable) + " %F";
}

std::string readableName(const Application& application) {
  std::string name = text::validUtf8(application.name);
  std::ranges::replace_if(name, isControl, ' ');
  name = text::trimmed(name);
  if (!name.empty()) return name;
  return text::validUtf8(path::lastComponent(application.executable));
}

bool isMediaTypeCharacter(char c) {
  return isAsciiAlphanumeric(c) || std::string_view("!#$&^_.+-").find(c) != std::string_view::npos;
}

bool isMediaType(std::string_view type) {
  const std::size_t slash = type.find('/');
  if (slash == std::string_view::npos || slash == 0 || slash + 1 == type.size()) return false;
  return std::ranges::all_of(type.substr(0, slash), isMediaTypeCharacter) &&
         std::ranges::all_of(type.substr(slash + 1), isMediaTypeCharacter);
}

std::string mediaTypeList(const std::vector<std::string>& types) {
  std::string list;
  std::size_t count = 0;
  for (const std::string& type : types) {
    if (!isMediaType(type)) continue;
    if (++count > kMaximumMediaTypes) break;
    list += type + ';';
  }
  return list;
}

// Calls `take` with every text in the arrays `key` of the dictionaries in the array `list`.
template <class Take>
void forEachText(const PropertyList::Dictionary& info, const char* list, const char* key,
                 Take take) {
  const auto found = info.find(list);
  const auto* entries = found == info.end() ? nullptr : found->second.get<PropertyList::Array>();
  if (entries == nullptr) return;
  for (const PropertyList& entry : *entries) {
    const auto* fields = entry.get<PropertyList::Dictionary>();
    if (fields == nullptr || !fields->contains(key)) continue;
    const auto* values = fields->at(key).get<PropertyList::Array>();
    if (values == nullptr) continue;
    for (const PropertyList& value : *values) {
      if (const auto* string = value.get<std::string>()) take(*string);
    }
  }
}

std::vector<std::string> mediaTypesOf(const PropertyList::Dictionary& info) {
  std::vector<std::string> types;
  forEachText(info, "CFBundleDocumentTypes", "CFBundleTypeMIMETypes",
              [&](const std::string& type) { types.push_back(type); });
  forEachText(info, "CFBundleURLTypes", "CFBundleURLSchemes", [&](const std::string& scheme) {
    types.push_back("x-scheme-handler/" + text::lowercased(scheme));
  });
  return types;
}

std::optional<std::string> iconOf(const Bundle& bundle) {
  const std::optional<std::string> file = bundle.infoString("CFBundleIconFile");
  if (!file || file->empty()) return std::nullopt;
  const std::string stem = path::deletingExtension(*file);
  // The formats that desktops show.
  for (const char* type : {"svg", "png", "xpm"}) {
    if (auto found = bundle.resourcePath(stem, type)) return found;
    if (auto found = bundle.resourcePath(*file, type)) return found;
  }
  return std::nullopt;
}

std::string bundleName(const std::string& bundlePath) {
  return path::deletingExtension(path::lastComponent(bundlePath));
}

}  // namespace

std::optional<Application> describing(const Bundle& bundle) {
  if (!bundle.executablePath()) return std::nullopt;
  std::optional<std::string> name = bundle.infoString("CFBundleDisplayName");
  if (!name) name = bundle.infoString("CFBundleName");
  return Application{.name = name.value_or(bundleName(bundle.path())),
                     .executable = *bundle.executablePath(),
                     .bundle = bundle.path(),
                     .icon = iconOf(bundle),
                     .mediaTypes = mediaTypesOf(bundle.info())};
}

std::optional<std::string> serialized(const Application& application) {
  if (!isWritable(application.executable) || !isWritable(application.bundle)) return std::nullopt;
  std::string entry = kGroup;
  const auto add = [&](const std::string& key, const std::string& value) {
    entry += key + escaped(value) + '\n';
  };
  add("Type=", "Application");
  add("Version=", "1.1");
  add("Name=", readableName(application));
  add("Exec=", commandLine(application.executable));
  // Takes the application out of the menus when its bundle has gone.
  add("TryExec=", application.executable);
  if (application.icon && isWritable(*application.icon)) add("Icon=", *application.icon);
  add("StartupWMClass=", path::lastComponent(application.executable));
  const std::string types = mediaTypeList(application.mediaTypes);
  if (!types.empty()) add("MimeType=", types);
  add(kBundleKey, application.bundle);
  return entry;
}

bool isOurs(std::string_view entry) {
  return entry.starts_with(kGroup) &&
         entry.find(std::string("\n") + kBundleKey) != std::string_view::npos;
}

bool isFileNameSafe(std::string_view identifier) {
  return !identifier.empty() && identifier.size() <= kMaximumIdentifier &&
         isAsciiAlphanumeric(identifier.front()) && std::ranges::all_of(identifier, [](char c) {
           return isAsciiAlphanumeric(c) || c == '.' || c == '-';
         });
}

std::string fileName(const std::optional<std::string>& identifier, const std::string& bundlePath) {
  std::string stem =
      identifier && isFileNameSafe(*identifier) ? *identifier : bundleName(bundlePath);
  std::ranges::replace_if(
      stem, [](char c) { return !isAsciiAlphanumeric(c) && c != '.' && c != '-'; }, '-');
  stem = stem.substr(0, kMaximumIdentifier);
  if (stem.empty() || !isAsciiAlphanumeric(stem.front())) stem.insert(0, "application");
  return stem + ".desktop";
}

}  // namespace platform::desktop_entry
