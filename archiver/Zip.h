#pragma once

#include <zip.h>

#include <memory>
#include <string_view>

#include "platform/Status.h"

// What reading and writing share of the zip library.
namespace archiver {

// An open archive, and one entry that is read. Whatever is let go of unfinished is not written.
using ZipHandle = std::unique_ptr<zip_t, decltype(&zip_discard)>;
using ZipFileHandle = std::unique_ptr<zip_file_t, decltype(&zip_fclose)>;

// The "extended timestamp" extra field, by which zip tools keep times to the second in universal
// time: a byte of flags, of which the lowest says that the time of modification follows, then that
// as a signed number of four bytes, the lowest first.
inline constexpr zip_uint16_t kTimesField = 0x5455;
inline constexpr zip_uint16_t kTimesFieldSize = 5;

// The library's error as a status: "<subject>: <description>".
platform::Status statusOf(zip_error_t* error, std::string_view subject);
platform::Status statusOf(const ZipHandle& zip, std::string_view subject);
// The same for a function that answers only a number.
platform::Status statusOfCode(int code, std::string_view subject);

}  // namespace archiver
