#include "archiver/ZipWriter.h"

#include <fcntl.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>

#include "archiver/EntryPath.h"
#include "archiver/Interruption.h"
#include "platform/linux/SystemError.h"
#include "posix/WriteAll.h"

namespace archiver {
namespace {

using platform::Status;

// The library writes no file for an archive without entries; this is the end that one has.
constexpr std::string_view kEmptyArchive("PK\5\6\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 22);
constexpr std::string_view kNotWritten("the archive cannot be written");
constexpr zip_uint32_t kDosFolder = 0x10;
// What zip tools use unless they are told: the last few percent would take twice the time.
constexpr zip_uint32_t kLevel = 6;

int cancelled(zip_t* /*zip*/, void* /*state*/) {
  return isInterrupted() ? 1 : 0;
}

bool setTime(zip_t* zip, zip_uint64_t index, std::time_t time) {
  if (zip_file_set_mtime(zip, index, time, 0) != 0) return false;
  using Seconds = std::int32_t;
  if (time < std::numeric_limits<Seconds>::min() || time > std::numeric_limits<Seconds>::max()) {
    return true;
  }
  const auto bits = static_cast<std::uint32_t>(time);
  std::array<zip_uint8_t, kTimesFieldSize> field = {1};
  for (unsigned i = 0; i < 4; ++i) field[i + 1] = static_cast<zip_uint8_t>(bits >> (8 * i));
  return zip_file_extra_field_set(zip, index, kTimesField, ZIP_EXTRA_FIELD_NEW, field.data(),
                                  field.size(), ZIP_FL_LOCAL | ZIP_FL_CENTRAL) == 0;
}

}  // namespace

ZipWriter::ZipWriter(const std::string& path, int root)
    : path_(path), sources_{.root = root, .failure = {}}, zip_(nullptr, zip_discard) {
  int error = 0;
  zip_.reset(zip_open(path.c_str(), ZIP_CREATE | ZIP_EXCL, &error));
  if (!zip_) opened_ = statusOfCode(error, kNotWritten);
  if (zip_) zip_register_cancel_callback_with_state(zip_.get(), cancelled, nullptr, nullptr);
}

// Who wants the archive back must learn of it while what it is made of is still there.
void ZipWriter::warnOfLink(const SourceItem& item) const {
  std::fprintf(stderr, "archiver: %s leads out of the archive, which cannot be unpacked with it\n",
               platform::pathOf(sources_.root, item.path).c_str());
}

Status ZipWriter::add(const SourceItem& item) {
  if (!opened_.ok()) return opened_;
  const mode_t type = item.status.st_mode & S_IFMT;
  if (type != S_IFREG && type != S_IFDIR && type != S_IFLNK) {
    std::fprintf(stderr, "archiver: skipped %s: neither a file, a folder nor a link\n",
                 platform::pathOf(sources_.root, item.path).c_str());
    return {};
  }
  const zip_int64_t index = addEntry(item);
  const bool added = index >= 0 && describe(static_cast<zip_uint64_t>(index), item);
  return added ? Status() : statusOf(zip_, item.name);
}

zip_int64_t ZipWriter::addEntry(const SourceItem& item) {
  if (S_ISLNK(item.status.st_mode)) {
    if (namesOutside(item.name, item.linkTarget)) warnOfLink(item);
    constexpr int kKeep = 0;
    const std::string& target = linkTargets_.emplace_back(item.linkTarget);
    return addContents(item, zip_source_buffer(zip_.get(), target.data(), target.size(), kKeep));
  }
  if (S_ISREG(item.status.st_mode)) {
    return addContents(item, fileSource(zip_.get(), sources_, item));
  }
  const zip_int64_t index = zip_dir_add(zip_.get(), item.name.c_str(), ZIP_FL_ENC_UTF_8);
  return index >= 0 ? index : zip_dir_add(zip_.get(), item.name.c_str(), ZIP_FL_ENC_GUESS);
}

// A name that is not UTF-8 is refused as such and goes in without the mark.
zip_int64_t ZipWriter::addContents(const SourceItem& item, zip_source_t* contents) {
  if (contents == nullptr) return -1;
  zip_int64_t index = zip_file_add(zip_.get(), item.name.c_str(), contents, ZIP_FL_ENC_UTF_8);
  if (index < 0) {
    index = zip_file_add(zip_.get(), item.name.c_str(), contents, ZIP_FL_ENC_GUESS);
  }
  if (index < 0) {
    zip_source_free(contents);
    return index;
  }
  const auto entry = static_cast<zip_uint64_t>(index);
  return zip_set_file_compression(zip_.get(), entry, ZIP_CM_DEFAULT, kLevel) == 0 ? index : -1;
}

bool ZipWriter::describe(zip_uint64_t index, const SourceItem& item) {
  const zip_uint32_t folder = S_ISDIR(item.status.st_mode) ? kDosFolder : 0;
  const zip_uint32_t attributes = (item.status.st_mode << 16U) | folder;
  return zip_file_set_external_attributes(zip_.get(), index, 0, ZIP_OPSYS_UNIX, attributes) == 0 &&
         setTime(zip_.get(), index, item.status.st_mtime);
}

Status ZipWriter::finishEmpty() {
  zip_.reset();
  const posix::FileDescriptor file(
      ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file) return platform::statusFromErrno(errno, kNotWritten);
  return platform::statusFromErrno(posix::writeAll(file.get(), kEmptyArchive).error);
}

Status ZipWriter::finish() {
  if (!opened_.ok()) return opened_;
  if (zip_get_num_entries(zip_.get(), 0) == 0) return finishEmpty();
  if (zip_close(zip_.get()) == 0) {
    // Closing has let it go.
    static_cast<void>(zip_.release());
    return {};
  }
  return sources_.failure.ok() ? statusOf(zip_, kNotWritten) : sources_.failure;
}

}  // namespace archiver
