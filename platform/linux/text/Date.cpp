#include "platform/Date.h"

#include <cstdlib>
#include <ctime>

#include "platform/Format.h"

namespace platform::date {
namespace {

std::tm localTime(Date date) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
  std::tm fields{};
  // localtime_r alone would keep the zone that the process started in.
  ::tzset();
  ::localtime_r(&seconds, &fields);
  return fields;
}

}  // namespace

std::string description(Date date) {
  const std::tm time = localTime(date);
  const long offset = std::labs(time.tm_gmtoff) / 60;
  return formatted("%04d-%02d-%02d %02d:%02d:%02d %c%02d%02d", time.tm_year + 1900, time.tm_mon + 1,
                   time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec,
                   time.tm_gmtoff < 0 ? '-' : '+', offset / 60, offset % 60);
}

std::string timeStamp(Date date) {
  const std::tm time = localTime(date);
  return formatted("%04d%02d%02d%02d%02d%02d", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
                   time.tm_hour, time.tm_min, time.tm_sec);
}

}  // namespace platform::date
