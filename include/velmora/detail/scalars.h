/* Scalar envelopes read from text into the library's cells. */
#ifndef VELMORA_DETAIL_SCALARS_H
#define VELMORA_DETAIL_SCALARS_H

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "velmora/detail/numbers.h"
#include "velmora/detail/walk.h"

namespace velmora::detail {

/* Past `{"__type__":"...",` + `key` in the compact form, one level deeper;
 * false (cursor moved) for any other text. */
inline bool compact_envelope(Cursor &c, std::string_view key) {
  std::string_view type;
  if (c.depth >= max_depth || !exactly(c, "{\"__type__\":") ||
      !raw_string(c, &type) || !exactly(c, key))
    return false;
  c.depth++;
  return true;
}

/* A scalar envelope, {"__type__": text, "__value__": V} in either order,
 * V read by `value(c)`. */
template <typename Value> Read envelope(Cursor &c, Value value) {
  skip_space(c);
  Cursor start = c;
  if (compact_envelope(c, ",\"__value__\":") && value(c) && take(c, '}')) {
    c.depth--;
    return Read::done;
  }
  c = start;
  bool type = false, seen = false;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    std::string_view text;
    if (name == "__type__" && !type)
      return (type = raw_string(c, &text)) ? Read::done : Read::other;
    if (name != "__value__" || seen)
      return Read::other;
    seen = true;
    return value(c) ? Read::done : Read::other;
  });
  return read == Read::done && !seen ? Read::other : read;
}

/* A new cell holding `value`; null when memory runs out. */
template <typename Cell> void *cell(const Cell &value) {
  void *made = malloc(sizeof(Cell));
  if (made != nullptr)
    memcpy(made, &value, sizeof(Cell));
  return made;
}

/* A malloc'd copy of `text` with its terminator; null when memory runs
 * out. */
inline char *text_copy(std::string_view text) {
  char *copy = static_cast<char *>(malloc(text.size() + 1));
  if (copy != nullptr) {
    memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
  }
  return copy;
}

/* Long, ULong and Double: the "__value__" text parsed as the library
 * parses it; parsing stops at the closing quote as it would at a NUL. */
template <typename Cell, typename Parse>
Read number_text(Cursor &c, void **out, Parse parse) {
  std::string_view text;
  Read read = envelope(c, [&](Cursor &c) { return raw_string(c, &text); });
  if (read == Read::done)
    *out = cell(Cell{parse(text)});
  return read;
}

/* Time and Date: a real "__value__", truncated as the library does. */
template <typename Cell> Read count(Cursor &c, void **out) {
  double real_value = 0;
  Read read = envelope(c, [&](Cursor &c) { return real(c, &real_value); });
  if (read == Read::done)
    *out = cell(Cell{truncated(real_value)});
  return read;
}

/* A cell holding a copy of `text`; null when memory runs out. */
template <typename Cell> void *text_cell_of(std::string_view text) {
  char *copy = text_copy(text);
  void *made = copy == nullptr ? nullptr : cell(Cell{copy});
  if (made == nullptr)
    free(copy);
  return made;
}

/* IP and Ciphered: a cell holding a copy of the "__value__" text. */
template <typename Cell> Read text_cell(Cursor &c, void **out) {
  std::string_view text;
  Read read = envelope(c, [&](Cursor &c) { return raw_string(c, &text); });
  if (read == Read::done)
    *out = text_cell_of<Cell>(text);
  return read;
}

/* The fast readers of the library's scalar types, each with the
 * deserializer it falls back to. */
inline Read fast_long(Cursor &c, void **out) {
  return number_text<Long>(c, out, long_text);
}
/* ULong. */
inline Read fast_ulong(Cursor &c, void **out) {
  return number_text<ULong>(c, out, ulong_text);
}
/* Double. */
inline Read fast_double(Cursor &c, void **out) {
  return number_text<Double>(c, out, double_text);
}
/* Time. */
inline Read fast_time(Cursor &c, void **out) {
  return count<Time>(c, out);
}
/* Date. */
inline Read fast_date(Cursor &c, void **out) {
  return count<Date>(c, out);
}
/* IP. */
inline Read fast_ip(Cursor &c, void **out) {
  return text_cell<IP>(c, out);
}
/* Ciphered. */
inline Read fast_ciphered(Cursor &c, void **out) {
  return text_cell<Ciphered>(c, out);
}
/* A bare text ("Unicode"). */
inline Read fast_text(Cursor &c, void **out) {
  std::string_view text;
  if (!raw_string(c, &text))
    return Read::other;
  *out = text_copy(text);
  return Read::done;
}
/* A bare Integer: a 32-bit integer. */
inline Read fast_integer(Cursor &c, void **out) {
  int64_t number = 0;
  if (!integer(c, &number) || number < INT32_MIN || number > INT32_MAX)
    return Read::other;
  *out = cell(Integer{static_cast<int32_t>(number)});
  return Read::done;
}
/* A bare Boolean. */
inline Read fast_boolean(Cursor &c, void **out) {
  bool yes = literal(c, "true");
  if (!yes && !literal(c, "false"))
    return Read::other;
  *out = cell(Boolean{yes ? 1 : 0});
  return Read::done;
}

/* A reader for shapes the fast road leaves to the deserializer. */
inline Read fast_none(Cursor &, void **) {
  return Read::other;
}

} // namespace velmora::detail

#endif
