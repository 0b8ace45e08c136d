#include <systemd/sd-login.h>

#include <string_view>

#include "platform/Directories.h"
#include "platform/linux/Allocated.h"
#include "platform/linux/users/UserDatabase.h"

namespace platform::directories {
namespace {

// A session without a record of its own cannot be asked and counts as a person's.
bool isGreeter(const char* session) {
  char* text = nullptr;
  if (sd_session_get_class(session, &text) < 0) return false;
  const Allocated<char> sessionClass(text);
  return std::string_view(text) == "greeter";
}

}  // namespace

std::optional<std::string> consoleUser() {
  char* text = nullptr;
  uid_t id = 0;
  if (sd_seat_get_active("seat0", &text, &id) < 0) return std::nullopt;
  const Allocated<char> session(text);
  if (session && isGreeter(session.get())) return std::nullopt;
  const auto user = user_database::byId(id);
  if (!user || user->name.empty()) return std::nullopt;
  return user->name;
}

}  // namespace platform::directories
