#include "platform/linux/text/PropertyListCheck.h"

namespace platform::property_list_check {
namespace {

class XmlCheck {
 public:
  explicit XmlCheck(std::string_view rest) : rest_(rest) {}

  bool passes() {
    while (moveBehind("<")) {
      if (!passesMarkup()) return false;
    }
    return true;
  }

 private:
  bool moveBehind(std::string_view mark) {
    const std::size_t found = rest_.find(mark);
    if (found == std::string_view::npos) return false;
    rest_.remove_prefix(found + mark.size());
    return true;
  }

  // Markup without an end is left to the parser to refuse: it has no elements either.
  bool skipTo(std::string_view end) {
    if (!moveBehind(end)) rest_ = {};
    return true;
  }

  bool passesMarkup() {
    if (rest_.starts_with("!--")) return moveBehind("!--") && skipTo("-->");
    if (rest_.starts_with("![CDATA[")) return moveBehind("![CDATA[") && skipTo("]]>");
    if (rest_.starts_with('?') || rest_.starts_with('!')) return !insideContainer_;
    const std::string_view tag = rest_.substr(0, rest_.find('>'));
    const std::string_view refused = insideContainer_ ? "<\"'" : "<";
    if (tag.find_first_of(refused) != std::string_view::npos) return false;
    if (!tag.starts_with('/')) ++values_;
    return values_ <= kMostValues && passesTag(tag);
  }

  bool passesTag(std::string_view tag) {
    const bool closing = tag.starts_with('/');
    if (closing) tag.remove_prefix(1);
    const std::string_view name = tag.substr(0, tag.find_first_of("<> \t\r\n/"));
    if (name != "array" && name != "dict") return true;
    insideContainer_ = true;
    if (tag.ends_with('/')) return true;
    if (!closing) return ++depth_ <= kDeepestNesting;
    if (depth_ > 0) --depth_;
    return true;
  }

  std::string_view rest_;
  std::size_t depth_ = 0;
  std::size_t values_ = 0;
  bool insideContainer_ = false;
};

}  // namespace

bool isReasonableXml(std::string_view bytes) {
  return XmlCheck(bytes).passes();
}

}  // namespace platform::property_list_check
