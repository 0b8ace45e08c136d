#pragma once

#include <string>

namespace authenticator {

// A name and a password, gone from memory with the object.
struct Credentials {
  std::string userName;
  std::string password;

  Credentials() = default;
  ~Credentials();
  Credentials(const Credentials&) = delete;
  Credentials& operator=(const Credentials&) = delete;

  // Reads both from standard input, each with a zero byte behind it; false when they do not come or
  // are too long.
  bool read();
};

}  // namespace authenticator
