#include "timesync/calendar.h"

namespace {
constexpr int kLastInvalidYear = 2015 - 1900;
}

struct tm local_time(time_t seconds) {
  struct tm when {};
  localtime_r(&seconds, &when);
  return when;
}

struct tm utc_time(time_t seconds) {
  struct tm when {};
  gmtime_r(&seconds, &when);
  return when;
}

std::string calendar_string(const struct tm& when) {
  // Room beyond the 26 bytes of the fixed form: a year past 9999 does not fit it.
  char text[64];
  return asctime_r(&when, text) ? text : "";
}

bool clock_is_valid(const struct tm& local) { return local.tm_year > kLastInvalidYear; }
