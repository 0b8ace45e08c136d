#include "archiver/ZipReader.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "archiver/EntryPath.h"
#include "archiver/Interruption.h"
#include "platform/Text.h"
#include "platform/linux/SystemError.h"

namespace archiver {
namespace {

using platform::Status;

constexpr mode_t kPermissionBits = 0777;
constexpr zip_uint32_t kDosFolder = 0x10;

Status refusal(const std::string& name, const char* reason) {
  return Status::failure(EINVAL, "refused \"" + name + "\": " + reason);
}

bool isUnix(zip_uint8_t system) {
  return system == ZIP_OPSYS_UNIX || system == ZIP_OPSYS_OS_X;
}

// The mode that a Unix system keeps in the upper half of the attributes; 0 when there is none.
mode_t modeIn(zip_uint8_t system, zip_uint32_t attributes) {
  return isUnix(system) ? attributes >> 16U : 0;
}

// None for what is no file, folder or link.
std::optional<EntryKind> kindOf(const std::string& name, mode_t mode, zip_uint32_t attributes) {
  const mode_t type = mode & S_IFMT;
  if (type == S_IFLNK) return EntryKind::link;
  if (type == S_IFDIR || name.ends_with('/')) return EntryKind::folder;
  if (type != 0) return type == S_IFREG ? std::optional(EntryKind::file) : std::nullopt;
  return mode == 0 && (attributes & kDosFolder) != 0 ? EntryKind::folder : EntryKind::file;
}

// Why an entry must not be unpacked; none when it may.
const char* objection(const std::optional<std::string>& path, std::optional<EntryKind> kind,
                      zip_uint16_t encryption) {
  if (!path) return "the name leads out of the folder";
  if (!kind) return "neither a file, a folder nor a link";
  if (path->empty() && *kind != EntryKind::folder) return "it has no name";
  return encryption == ZIP_EM_NONE ? nullptr : "it is protected by a password";
}

}  // namespace

ZipReader::ZipReader(posix::FileDescriptor archive) : zip_(nullptr, zip_discard) {
  int error = 0;
  zip_.reset(zip_fdopen(archive.get(), 0, &error));
  // The library closes it, but only when it has taken it.
  if (zip_) static_cast<void>(archive.release());
  if (!zip_) status_ = statusOfCode(error, "the archive cannot be read");
}

ZipReader::ZipReader(std::string_view bytes) : zip_(nullptr, zip_discard) {
  zip_error_t error = {};
  constexpr int kLeave = 0;
  zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), kLeave, &error);
  if (source != nullptr) zip_.reset(zip_open_from_source(source, ZIP_RDONLY, &error));
  if (!zip_) status_ = statusOf(&error, "the archive cannot be read");
  if (!zip_) zip_source_free(source);
  zip_error_fini(&error);
}

zip_uint64_t ZipReader::count() const {
  return static_cast<zip_uint64_t>(zip_get_num_entries(zip_.get(), 0));
}

// As its bytes are, but for what old systems wrote in their own character set.
std::string ZipReader::nameOf(zip_uint64_t index, bool madeOnUnix) const {
  const char* name = zip_get_name(zip_.get(), index, ZIP_FL_ENC_RAW);
  if (name == nullptr) return "";
  if (madeOnUnix || platform::text::validUtf8(name) == name) return name;
  const char* converted = zip_get_name(zip_.get(), index, ZIP_FL_ENC_GUESS);
  return converted == nullptr ? name : converted;
}

// The other time that an archive keeps is a local one of an unknown place.
std::optional<std::time_t> ZipReader::exactTime(zip_uint64_t index) const {
  zip_uint16_t size = 0;
  const zip_uint8_t* field = zip_file_extra_field_get_by_id(zip_.get(), index, kTimesField, 0,
                                                            &size, ZIP_FL_LOCAL | ZIP_FL_CENTRAL);
  if (field == nullptr || size < kTimesFieldSize || (field[0] & 1U) == 0) return std::nullopt;
  std::uint32_t bits = 0;
  for (unsigned i = 0; i < 4; ++i) bits |= static_cast<std::uint32_t>(field[i + 1]) << (8 * i);
  return static_cast<std::int32_t>(bits);
}

Status ZipReader::describe(zip_uint64_t index, Entry& entry) const {
  zip_stat_t found;
  zip_uint8_t system = ZIP_OPSYS_DOS;
  zip_uint32_t attributes = 0;
  if (zip_stat_index(zip_.get(), index, ZIP_FL_ENC_RAW, &found) != 0 ||
      zip_file_get_external_attributes(zip_.get(), index, 0, &system, &attributes) != 0) {
    return statusOf(zip_, "an entry cannot be read");
  }
  const mode_t mode = modeIn(system, attributes);
  const std::string name = nameOf(index, isUnix(system));
  const std::optional<std::string> path = entryPath(name);
  const std::optional<EntryKind> kind = kindOf(name, mode, attributes);
  if (const char* reason = objection(path, kind, found.encryption_method); reason != nullptr) {
    return refusal(name, reason);
  }
  entry = {.index = index,
           .path = *path,
           .kind = *kind,
           .permissions = {},
           .modified = exactTime(index).value_or(found.mtime),
           .size = found.size};
  if (mode != 0) entry.permissions = mode & kPermissionBits;
  return {};
}

Status ZipReader::read(const Entry& entry,
                       const std::function<Status(std::string_view)>& take) const {
  const ZipFileHandle file(zip_fopen_index(zip_.get(), entry.index, 0), zip_fclose);
  if (!file) return statusOf(zip_, entry.path);
  std::array<char, 64 * 1024> buffer;
  zip_uint64_t rest = entry.size;
  for (;;) {
    if (isInterrupted()) return platform::statusFromErrno(EINTR);
    const zip_int64_t count = zip_fread(file.get(), buffer.data(), buffer.size());
    if (count < 0) return statusOf(zip_file_get_error(file.get()), entry.path);
    const auto size = static_cast<zip_uint64_t>(count);
    if (size > rest) return refusal(entry.path, "it is larger than the archive says");
    rest -= size;
    if (size == 0) break;
    Status taken = take({buffer.data(), static_cast<std::size_t>(size)});
    if (!taken.ok()) return taken;
  }
  return rest == 0 ? Status() : refusal(entry.path, "it is smaller than the archive says");
}

}  // namespace archiver
