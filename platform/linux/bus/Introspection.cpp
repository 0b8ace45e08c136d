#include "platform/linux/bus/Introspection.h"

#include <glib.h>

#include <memory>

namespace platform::introspection {
namespace {

struct Reading {
  std::string_view interface;
  std::set<std::string> methods;
  // How many elements are open.
  std::size_t depth = 0;
  // Whether the one at depth 2 is the interface.
  bool inside = false;
};

std::string_view attribute(const gchar** names, const gchar** values, std::string_view wanted) {
  for (; *names != nullptr; ++names, ++values) {
    if (*names == wanted) return *values;
  }
  return {};
}

void onStart(GMarkupParseContext*, const gchar* element, const gchar** names, const gchar** values,
             gpointer data, GError**) {
  Reading& reading = *static_cast<Reading*>(data);
  const std::string_view name = attribute(names, values, "name");
  ++reading.depth;
  if (reading.depth == 2) {
    reading.inside = std::string_view(element) == "interface" && name == reading.interface;
  }
  if (reading.depth == 3 && reading.inside && std::string_view(element) == "method") {
    reading.methods.emplace(name);
  }
}

void onEnd(GMarkupParseContext*, const gchar*, gpointer data, GError**) {
  --static_cast<Reading*>(data)->depth;
}

using Context = std::unique_ptr<GMarkupParseContext, decltype(&g_markup_parse_context_free)>;

}  // namespace

std::set<std::string> methodsOf(std::string_view description, std::string_view interface) {
  if (description.size() > kLargestDescription) return {};
  Reading reading{interface, {}};
  constexpr GMarkupParser kParser = {onStart, onEnd, nullptr, nullptr, nullptr};
  const Context context(
      g_markup_parse_context_new(&kParser, G_MARKUP_DEFAULT_FLAGS, &reading, nullptr),
      g_markup_parse_context_free);
  const bool whole =
      g_markup_parse_context_parse(context.get(), description.data(),
                                   static_cast<gssize>(description.size()), nullptr) != FALSE &&
      g_markup_parse_context_end_parse(context.get(), nullptr) != FALSE;
  if (!whole) return {};
  return std::move(reading.methods);
}

}  // namespace platform::introspection
