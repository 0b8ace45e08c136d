#include "platform/linux/crash/LoadedModules.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstring>

namespace platform::crash {
namespace {

// A damaged list may have no end.
constexpr int kMostModules = 1000;
constexpr std::string_view kOwner("GNU\0", 4);

template <class T>
const T* at(std::uintptr_t address) noexcept {
  return reinterpret_cast<const T*>(address);  // NOLINT(performance-no-int-to-ptr)
}

std::size_t aligned(std::size_t size) noexcept {
  return (size + 3) & ~std::size_t{3};
}

// The build identifier among the notes of a segment.
std::string_view buildIdIn(const char* notes, std::size_t size) noexcept {
  ElfW(Nhdr) note{};
  while (size >= sizeof note) {
    std::memcpy(&note, notes, sizeof note);
    const std::size_t nameSize = aligned(note.n_namesz);
    const std::size_t whole = sizeof note + nameSize + aligned(note.n_descsz);
    if (whole > size) break;
    const std::string_view owner(notes + sizeof note, note.n_namesz);
    if (note.n_type == NT_GNU_BUILD_ID && owner == kOwner) {
      return {notes + sizeof note + nameSize, note.n_descsz};
    }
    notes += whole;
    size -= whole;
  }
  return {};
}

bool isElf(const Module& module) noexcept {
  return std::memcmp(at<char>(module.start), ELFMAG, SELFMAG) == 0;
}

}  // namespace

// The loader's own search: it is the one that a signal handler may use.
std::optional<Module> moduleAt(std::uintptr_t address) noexcept {
  dl_find_object found{};
  if (_dl_find_object(const_cast<char*>(at<char>(address)), &found) != 0) return std::nullopt;
  const link_map& map = *found.dlfo_link_map;
  return Module{.start = reinterpret_cast<std::uintptr_t>(found.dlfo_map_start),
                .end = reinterpret_cast<std::uintptr_t>(found.dlfo_map_end),
                .base = map.l_addr,
                .path = map.l_name};
}

// The list that debuggers read. Another thread may be changing it at this very moment; the loader
// keeps it whole all the while.
void forEachModule(void (*visit)(const Module& module, void* data), void* data) noexcept {
  const link_map* map = _r_debug.r_map;
  for (int i = 0; map != nullptr && i < kMostModules; ++i, map = map->l_next) {
    const auto module = moduleAt(reinterpret_cast<std::uintptr_t>(map->l_ld));
    if (module) visit(*module, data);
  }
}

void addBuildId(FixedText& text, const Module& module) noexcept {
  if (!isElf(module)) return;
  const auto& header = *at<ElfW(Ehdr)>(module.start);
  const auto* segments = at<ElfW(Phdr)>(module.start + header.e_phoff);
  for (int i = 0; i < header.e_phnum; ++i) {
    if (segments[i].p_type != PT_NOTE) continue;
    const std::string_view id =
        buildIdIn(at<char>(module.base + segments[i].p_vaddr), segments[i].p_memsz);
    if (id.empty()) continue;
    text.addBytes(reinterpret_cast<const unsigned char*>(id.data()), id.size());
    return;
  }
}

}  // namespace platform::crash
