/* The calendar arithmetic of the clock re-synchronisation: the distance
 * between two broken-down times, without the time zone database. */
#include <cstdint>
#include <ctime>

#include "transport_internal.h"

namespace {

/* Days from the start of year 0 to the start of `year`, proleptic
 * Gregorian; floor division keeps it right for negative years. */
int64_t days_before_year(int64_t year) {
  auto floor_div = [](int64_t a, int64_t b) {
    return a / b - static_cast<int64_t>(a % b != 0 && (a < 0) != (b < 0));
  };
  return 365 * year + floor_div(year + 3, 4) - floor_div(year + 99, 100) +
         floor_div(year + 399, 400);
}

bool is_leap(int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int64_t day_of_year(const struct tm &time) {
  static const int before_month[12] = {0,   31,  59,  90,  120, 151,
                                       181, 212, 243, 273, 304, 334};
  if (time.tm_mon < 0 || time.tm_mon > 11)
    return time.tm_yday;
  int64_t year = int64_t(time.tm_year) + 1900;
  int64_t leap_day = time.tm_mon > 1 && is_leap(year) ? 1 : 0;
  return before_month[time.tm_mon] + leap_day + time.tm_mday - 1;
}

} // namespace

namespace velmora {

int64_t clock_difference(const struct tm &stamp, const struct tm &server) {
  int64_t days = days_before_year(int64_t(server.tm_year) + 1900) -
                 days_before_year(int64_t(stamp.tm_year) + 1900) +
                 day_of_year(server) - day_of_year(stamp);
  int64_t hours = days * 24 + (int64_t(server.tm_hour) - stamp.tm_hour);
  int64_t minutes = hours * 60 + (int64_t(server.tm_min) - stamp.tm_min);
  return minutes * 60 + (int64_t(server.tm_sec) - stamp.tm_sec);
}

} // namespace velmora
