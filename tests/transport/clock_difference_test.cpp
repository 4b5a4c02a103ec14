#include <ctime>

#include <gtest/gtest.h>

#include "transport_internal.h"

namespace {

struct tm fields(int year, int month, int day, int hour, int minute,
                 int second) {
  struct tm time {};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_sec = second;
  time.tm_yday = -99; // must be derived from month and day, not trusted
  return time;
}

TEST(ClockDifference, MatchesTheCalendarFieldByField) {
  const struct {
    struct tm stamp, server;
  } cases[] = {{fields(2024, 3, 1, 10, 0, 0), fields(2024, 3, 1, 11, 0, 0)},
               {fields(2024, 3, 1, 10, 0, 0), fields(2024, 3, 1, 9, 59, 59)},
               {fields(2023, 12, 31, 23, 59, 59), fields(2024, 1, 1, 0, 0, 0)},
               {fields(2024, 2, 28, 12, 0, 0), fields(2024, 3, 1, 12, 0, 0)},
               {fields(2100, 2, 28, 12, 0, 0), fields(2100, 3, 1, 12, 0, 0)},
               {fields(2000, 2, 28, 12, 0, 0), fields(2000, 3, 1, 12, 0, 0)},
               {fields(1970, 1, 1, 0, 0, 0), fields(2038, 1, 19, 3, 14, 8)},
               {fields(2400, 12, 31, 0, 0, 0), fields(1601, 1, 1, 0, 0, 0)},
               {fields(1900, 3, 1, 0, 0, 0), fields(1904, 3, 1, 0, 0, 0)},
               {fields(9999, 12, 31, 23, 59, 59), fields(0, 1, 1, 0, 0, 0)},
               {fields(2024, 6, 15, 8, 30, 0), fields(2024, 6, 15, 8, 30, 60)}};
  for (auto c : cases) {
    struct tm stamp = c.stamp, server = c.server;
    int64_t expected = int64_t(timegm(&server)) - int64_t(timegm(&stamp));
    EXPECT_EQ(velmora::clock_difference(c.stamp, c.server), expected)
        << c.stamp.tm_year + 1900 << " -> " << c.server.tm_year + 1900;
  }
}

} // namespace
