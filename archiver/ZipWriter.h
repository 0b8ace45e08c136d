#pragma once

#include <deque>
#include <string>

#include "archiver/FileSource.h"
#include "archiver/Zip.h"

namespace archiver {

// Writes a new zip archive, as common zip tools read it: names in UTF-8 are marked as such, others
// are kept byte by byte; links are links; permissions; times to the second.
class ZipWriter {
 public:
  // At the absolute `path`, where nothing may be. `root` is the folder that the items' paths are
  // relative to.
  ZipWriter(const std::string& path, int root);

  // Takes up a file, a folder or a link; anything else is skipped with a line on standard error.
  // The contents of files are only read by finish().
  platform::Status add(const SourceItem& item);
  // Writes the archive; nothing is there when that fails.
  platform::Status finish();

 private:
  void warnOfLink(const SourceItem& item) const;
  zip_int64_t addEntry(const SourceItem& item);
  zip_int64_t addContents(const SourceItem& item, zip_source_t* contents);
  bool describe(zip_uint64_t index, const SourceItem& item);
  platform::Status finishEmpty();

  const std::string path_;
  FileSources sources_;
  // The library reads them when it writes the archive; they stay where they are.
  std::deque<std::string> linkTargets_;
  platform::Status opened_;
  // After what it reads from, which it must not outlive.
  ZipHandle zip_;
};

}  // namespace archiver
