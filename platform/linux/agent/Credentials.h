#pragma once

#include <string>

namespace authentication_agent {

// A name and a password, gone from memory with the object.
struct Credentials {
  std::string userName;
  std::string password;

  Credentials() = default;
  ~Credentials();
  Credentials(const Credentials&) = delete;
  Credentials& operator=(const Credentials&) = delete;

  // Reads both, each with a zero byte behind it, and nothing further; blocks until they have come.
  // False when the end comes first or one is longer than 511 bytes.
  bool read(int descriptor);
};

}  // namespace authentication_agent
