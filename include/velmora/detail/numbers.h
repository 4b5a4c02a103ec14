/* Numbers read from JSON text, and the one parse of each scalar type's text. */
#ifndef VELMORA_DETAIL_NUMBERS_H
#define VELMORA_DETAIL_NUMBERS_H

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "velmora/detail/scan.h"

namespace velmora::detail {

/* How many digits (at most `limit`) stand at `p`, their number added up
 * in `*value`; eight at a time while eight are there, on a little-endian
 * machine. */
inline size_t leading_digits(const char *p, const char *end, size_t limit,
                             uint64_t *value) {
  const bool words = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  const uint64_t highs = 0xF0F0F0F0F0F0F0F0u;
  size_t count = 0;
  uint64_t number = 0, bytes = 0;
  for (; words && count + 8 <= limit && end - p >= 8; p += 8, count += 8) {
    memcpy(&bytes, p, 8);
    if (((bytes & highs) | (((bytes + 0x0606060606060606u) & highs) >> 4)) !=
        0x3333333333333333u)
      break;
    bytes = (bytes & 0x0F0F0F0F0F0F0F0Fu) * 2561 >> 8;
    bytes = (bytes & 0x00FF00FF00FF00FFu) * 6553601 >> 16;
    bytes = (bytes & 0x0000FFFF0000FFFFu) * 42949672960001u >> 32;
    number = number * 100000000 + bytes;
  }
  for (; count < limit && p < end && static_cast<unsigned>(*p - '0') < 10;
       p++, count++)
    number = number * 10 + static_cast<uint64_t>(*p - '0');
  *value = number;
  return count;
}

/* An integer of at most 18 digits without fraction or exponent. */
inline bool integer(Cursor &c, int64_t *value) {
  skip_space(c);
  const char *p = c.at;
  bool negative = p < c.end && *p == '-';
  const char *digits = p + (negative ? 1 : 0);
  for (p = digits; p < c.end && *p >= '0' && *p <= '9';)
    p++;
  size_t count = static_cast<size_t>(p - digits);
  if (count == 0 || count > 18 || (*digits == '0' && count > 1) ||
      !ends_number(c, p))
    return false;
  int64_t number = 0;
  for (const char *digit = digits; digit < p; digit++)
    number = number * 10 + (*digit - '0');
  *value = negative ? -number : number;
  c.at = p;
  return true;
}

/* The double strtod gives for the number token [begin, end), as jsoncpp
 * reads it. */
inline double strtod_of(const char *begin, const char *end) {
  char text[32];
  memcpy(text, begin, static_cast<size_t>(end - begin));
  text[end - begin] = '\0';
  return strtod(text, nullptr);
}

/* A number as jsoncpp gives it to asDouble: an integer, or digits with a
 * fraction, at most 24 bytes and no exponent. A whole number of at most 15
 * digits (as "1700000000.0") is exact as it is summed up here; any other
 * goes through strtod. */
inline bool real(Cursor &c, double *value) {
  skip_space(c);
  const char *p = c.at;
  bool negative = p < c.end && *p == '-';
  const char *digits = p + (negative ? 1 : 0);
  uint64_t whole = 0;
  p = digits + leading_digits(digits, c.end, 15, &whole);
  while (p < c.end && static_cast<unsigned>(*p - '0') < 10)
    p++;
  bool lead = p - digits == 1 || (p > digits && *digits != '0');
  bool exact = p - digits <= 15;
  if (lead && p < c.end && *p == '.') {
    const char *fraction = ++p;
    for (; p < c.end && static_cast<unsigned>(*p - '0') < 10; p++)
      exact = exact && *p == '0';
    lead = p > fraction;
  }
  if (!lead || p - c.at > 24 || !ends_number(c, p))
    return false;
  *value = !exact     ? strtod_of(c.at, p)
           : negative ? -static_cast<double>(whole)
                      : static_cast<double>(whole);
  c.at = p;
  return true;
}

/* A Time's or Date's count from a real: truncated toward zero, saturated
 * outside the 64-bit range, where the conversion would be undefined, and 0
 * for NaN. */
inline int64_t truncated(double real_value) {
  if (std::isnan(real_value))
    return 0;
  if (real_value >= 9223372036854775808.0)
    return INT64_MAX;
  if (real_value > -9223372036854775808.0)
    return static_cast<int64_t>(real_value);
  return INT64_MIN;
}

/* A Long's text as strtoll reads it, for the library and the readers of
 * text alike. `text` is followed by a NUL or a closing quote, which stops
 * strtoll. Plain digits, as writers give them, are summed here: strtoll
 * took a third of the time of reading a Long from a big page. */
inline int64_t long_text(std::string_view text) {
  bool negative = !text.empty() && text[0] == '-';
  const char *digits = text.data() + (negative ? 1 : 0);
  const char *end = text.data() + text.size();
  uint64_t number = 0;
  size_t count = leading_digits(digits, end, 18, &number);
  if (count == 0 || digits + count != end)
    return strtoll(text.data(), nullptr, 10);
  return negative ? -static_cast<int64_t>(number)
                  : static_cast<int64_t>(number);
}

/* A ULong's text: strtoull in base 0 (so "0x" reads hex), stopped as
 * long_text is. */
inline uint64_t ulong_text(std::string_view text) {
  return strtoull(text.data(), nullptr, 0);
}

/* A Double's text: strtod, stopped as long_text is. */
inline double double_text(std::string_view text) {
  return strtod(text.data(), nullptr);
}

} // namespace velmora::detail

#endif
