#include "platform/linux/agent/Credentials.h"

#include <string.h>
#include <unistd.h>

namespace authentication_agent {
namespace {

constexpr std::size_t kLongest = 512;

bool readText(int descriptor, std::string& text) {
  // So that no copy stays behind when the text grows.
  text.reserve(kLongest);
  while (text.size() < kLongest) {
    char next = 0;
    if (::read(descriptor, &next, 1) != 1) return false;
    if (next == '\0') return true;
    text.push_back(next);
  }
  return false;
}

}  // namespace

Credentials::~Credentials() {
  ::explicit_bzero(password.data(), password.size());
}

bool Credentials::read(int descriptor) {
  return readText(descriptor, userName) && readText(descriptor, password);
}

}  // namespace authentication_agent
