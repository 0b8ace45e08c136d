#include "archiver/FileSource.h"

#include <fcntl.h>

#include <algorithm>
#include <memory>

#include "archiver/Beneath.h"
#include "platform/linux/SystemError.h"

namespace archiver {
namespace {

class FileSource {
 public:
  FileSource(FileSources& sources, const SourceItem& item)
      : sources_(sources), path_(item.path), found_(item.status) {}
  ~FileSource() { zip_error_fini(&error_); }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  // The library's one way to ask, by commands.
  static zip_int64_t answer(void* self, void* data, zip_uint64_t size, zip_source_cmd_t command);

 private:
  zip_int64_t open();
  zip_int64_t read(void* data, zip_uint64_t size);
  zip_int64_t describe(zip_stat_t& description) const;
  zip_int64_t fail(int error);

  FileSources& sources_;
  const std::string path_;
  const struct stat found_;
  posix::FileDescriptor file_;
  zip_uint64_t rest_ = 0;
  zip_error_t error_ = {};
};

zip_int64_t FileSource::fail(int error) {
  sources_.failure = platform::statusFromErrno(error, platform::pathOf(sources_.root, path_));
  zip_error_set(&error_, ZIP_ER_READ, error);
  return -1;
}

zip_int64_t FileSource::open() {
  file_ = openBeneath(sources_.root, path_, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0) return fail(errno);
  const bool same = status.st_dev == found_.st_dev && status.st_ino == found_.st_ino;
  if (!same || status.st_size < found_.st_size) return fail(ESTALE);
  rest_ = static_cast<zip_uint64_t>(found_.st_size);
  return 0;
}

zip_int64_t FileSource::read(void* data, zip_uint64_t size) {
  const ssize_t count = ::read(file_.get(), data, std::min(size, rest_));
  if (count < 0) return errno == EINTR ? read(data, size) : fail(errno);
  if (count == 0 && rest_ > 0) return fail(ESTALE);
  rest_ -= static_cast<zip_uint64_t>(count);
  return count;
}

zip_int64_t FileSource::describe(zip_stat_t& description) const {
  zip_stat_init(&description);
  description.valid = ZIP_STAT_SIZE | ZIP_STAT_MTIME;
  description.size = static_cast<zip_uint64_t>(found_.st_size);
  description.mtime = found_.st_mtime;
  return sizeof description;
}

// static
zip_int64_t FileSource::answer(void* self, void* data, zip_uint64_t size,
                               zip_source_cmd_t command) {
  auto* source = static_cast<FileSource*>(self);
  switch (command) {
    case ZIP_SOURCE_OPEN:
      return source->open();
    case ZIP_SOURCE_READ:
      return source->read(data, size);
    case ZIP_SOURCE_CLOSE:
      source->file_.reset();
      return 0;
    case ZIP_SOURCE_STAT:
      return source->describe(*static_cast<zip_stat_t*>(data));
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&source->error_, data, size);
    case ZIP_SOURCE_FREE:
      delete source;
      return 0;
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                            ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    default:
      zip_error_set(&source->error_, ZIP_ER_OPNOTSUPP, 0);
      return -1;
  }
}

}  // namespace

zip_source_t* fileSource(zip_t* zip, FileSources& sources, const SourceItem& item) {
  auto source = std::make_unique<FileSource>(sources, item);
  zip_source_t* made = zip_source_function(zip, FileSource::answer, source.get());
  // It is the library's from here on, which frees it by command.
  if (made != nullptr) static_cast<void>(source.release());
  return made;
}

}  // namespace archiver
