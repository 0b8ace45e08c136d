#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/linux/crash/FixedText.h"

// The program and libraries in this process's memory, as the loader keeps them. Found without a
// lock and without /proc, which a process that is not dumpable can no longer read. Safe in a signal
// handler; what the crash has damaged may make a further fault.
namespace platform::crash {

struct Module {
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  // What addresses in the file are relative to.
  std::uintptr_t base = 0;
  // "" for the program itself.
  std::string_view path;
};

constexpr std::string_view lastComponent(std::string_view path) noexcept {
  return path.substr(path.rfind('/') + 1);
}

std::optional<Module> moduleAt(std::uintptr_t address) noexcept;

// Calls `visit` for each module, the program first.
void forEachModule(void (*visit)(const Module& module, void* data), void* data) noexcept;

// Adds the identifier that the linker has put into the module, in hexadecimal digits; nothing when
// there is none.
void addBuildId(FixedText& text, const Module& module) noexcept;

}  // namespace platform::crash
