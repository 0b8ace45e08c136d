#include <glib.h>

#include "platform/Text.h"
#include "platform/Utf8.h"

// GLib's functions on whole texts follow the process's locale; those on single characters do not.
namespace platform::text {
namespace {

constexpr char32_t kCapitalIWithDot = 0x0130;
constexpr char32_t kCapitalSigma = 0x03A3;
constexpr char32_t kFinalSigma = 0x03C2;
constexpr char32_t kCombiningDotAbove = 0x0307;

bool isCased(char32_t codePoint) {
  return g_unichar_isupper(codePoint) || g_unichar_islower(codePoint) ||
         g_unichar_istitle(codePoint);
}

bool isCaseIgnorable(char32_t codePoint) {
  switch (codePoint) {
    case '\'':
    case '.':
    case ':':
    case 0x00B7:
    case 0x2019:
      return true;
    default:
      break;
  }
  switch (g_unichar_type(codePoint)) {
    case G_UNICODE_NON_SPACING_MARK:
    case G_UNICODE_ENCLOSING_MARK:
    case G_UNICODE_FORMAT:
    case G_UNICODE_MODIFIER_LETTER:
    case G_UNICODE_MODIFIER_SYMBOL:
      return true;
    default:
      return false;
  }
}

bool endsWithCasedLetter(std::string_view text) {
  while (!text.empty()) {
    const utf8::Character character = utf8::last(text);
    if (character.codePoint == utf8::kInvalid) return false;
    if (!isCaseIgnorable(character.codePoint)) return isCased(character.codePoint);
    text.remove_suffix(character.length);
  }
  return false;
}

bool beginsWithCasedLetter(std::string_view text) {
  while (!text.empty()) {
    const utf8::Character character = utf8::first(text);
    if (character.codePoint == utf8::kInvalid) return false;
    if (!isCaseIgnorable(character.codePoint)) return isCased(character.codePoint);
    text.remove_prefix(character.length);
  }
  return false;
}

// The two places where the full mapping differs from that of single characters, Unicode's
// SpecialCasing.txt: a capital I with a dot, and a sigma at the end of a word.
void appendLowercased(std::string& lower, char32_t codePoint, std::string_view before,
                      std::string_view after) {
  if (codePoint == kCapitalIWithDot) {
    utf8::append(lower, 'i');
    utf8::append(lower, kCombiningDotAbove);
  } else if (codePoint == kCapitalSigma && endsWithCasedLetter(before) &&
             !beginsWithCasedLetter(after)) {
    utf8::append(lower, kFinalSigma);
  } else {
    utf8::append(lower, g_unichar_tolower(codePoint));
  }
}

void appendFolded(std::string& folded, std::string_view character) {
  char* mapped = g_utf8_casefold(character.data(), static_cast<gssize>(character.size()));
  folded += mapped;
  g_free(mapped);
}

// Takes the first character off `text` and appends it to `folded` without its letter case.
void foldNext(std::string& folded, std::string_view& text) {
  const utf8::Character character = utf8::first(text);
  const std::string_view bytes = text.substr(0, character.length);
  if (character.codePoint == utf8::kInvalid || character.codePoint == 0) {
    folded += bytes;
  } else {
    appendFolded(folded, bytes);
  }
  text.remove_prefix(character.length);
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const utf8::Character character = utf8::first(text.substr(at));
    if (character.codePoint == utf8::kInvalid) {
      lower += text[at];
    } else {
      appendLowercased(lower, character.codePoint, text.substr(0, at),
                       text.substr(at + character.length));
    }
    at += character.length;
  }
  return lower;
}

bool hasPrefixIgnoringCase(std::string_view text, std::string_view prefix) {
  std::string wanted;
  while (!prefix.empty()) foldNext(wanted, prefix);
  std::string found;
  // Compared at the ends of characters only: half of a letter that folds to two is no prefix.
  while (found.size() < wanted.size() && !text.empty()) foldNext(found, text);
  return found == wanted;
}

}  // namespace platform::text
