#include "service/measurement_record.h"

#include <cstdio>
#include <ctime>

namespace boxdim::service {

std::string utc_time_text(std::int64_t time_us) {
  const std::int64_t ms_total = time_us >= 0 ? time_us / 1000 : (time_us - 999) / 1000;
  std::time_t seconds =
      static_cast<std::time_t>(ms_total >= 0 ? ms_total / 1000 : (ms_total - 999) / 1000);
  const int ms = static_cast<int>(ms_total - static_cast<std::int64_t>(seconds) * 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, ms);
  return text;
}

bool parse_utc_time(const std::string& text, std::int64_t& time_us) {
  int year, month, day, hour, minute, second, used = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute,
                  &second, &used) != 6 ||
      used != 19) {
    return false;
  }
  std::size_t at = 19;
  std::int64_t micro = 0;
  if (at < text.size() && text[at] == '.') {
    int digits = 0;
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, ++digits) {
      if (digits < 6) micro = micro * 10 + (text[at] - '0');
    }
    if (digits == 0) return false;
    for (; digits < 6; ++digits) micro *= 10;
  }
  if (at + 1 != text.size() || text[at] != 'Z') return false;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return false;
  }
  std::tm utc{};
  utc.tm_year = year - 1900;
  utc.tm_mon = month - 1;
  utc.tm_mday = day;
  utc.tm_hour = hour;
  utc.tm_min = minute;
  utc.tm_sec = second;
  const std::time_t seconds = timegm(&utc);
  // timegm normalises 31 February into March: such a date is no date.
  std::tm back{};
  gmtime_r(&seconds, &back);
  if (back.tm_mday != day && second != 60) return false;
  time_us = static_cast<std::int64_t>(seconds) * 1000000 + micro;
  return true;
}

}  // namespace boxdim::service
