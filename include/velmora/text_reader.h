/** @file
 * Typed values read straight from JSON text: the machinery of the fast
 * readers that velmora-gen writes (`R_read`, and the calls' reply readers).
 *
 * A fast reader builds values from the text itself, without a jsoncpp tree,
 * for the envelope shapes the library writes. Any value of another shape (a
 * member of an unexpected kind, an envelope with extra keys, a string with
 * escapes, a number in another form) is parsed alone by jsoncpp and handed
 * to the type's deserializer, so both roads give the same value. Text a
 * fast reader cannot vouch for as a whole (not strict JSON, nested too
 * deep) makes it give up: the caller then parses it all with jsoncpp.
 *
 * Everything here is inline and header-only: it adds no symbol to the
 * library. Calls report through `velmora_text::Read`; they throw only what
 * a deserializer they fall back to throws, and std::bad_alloc.
 */
#ifndef VELMORA_TEXT_READER_H
#define VELMORA_TEXT_READER_H

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <json/reader.h>

#include "velmora/values.h"

/** The fast readers' machinery. */
namespace velmora_text {

/** How far a reader got. */
enum class Read {
  done,  /**< the value was read (a null value included) */
  other, /**< not a shape this reader knows; nothing was consumed */
  broken /**< text the fast readers cannot vouch for: give up */
};

/** Where a reader is in the text, and how deep. */
struct Cursor {
  const char *at;  /**< the next byte */
  const char *end; /**< one past the last byte */
  int depth;       /**< objects and arrays open */
};

/** Reads one value at the cursor into `*out` (null allowed). */
typedef Read (*FastRead)(Cursor &c, void **out);

/** Deeper than this, jsoncpp would refuse where a fast reader would not. */
const int max_depth = 512;

/** Skips JSON white space. */
inline void skip_space(Cursor &c) {
  while (c.at < c.end &&
         (*c.at == ' ' || *c.at == '\n' || *c.at == '\r' || *c.at == '\t'))
    c.at++;
}

/** True, past it, when the next byte after white space is `byte`. */
inline bool take(Cursor &c, char byte) {
  skip_space(c);
  if (c.at == c.end || *c.at != byte)
    return false;
  c.at++;
  return true;
}

/** The first quote, backslash or control byte from `p` on, eight bytes
 * at a time; `end` when there is none. */
inline const char *string_stop(const char *p, const char *end) {
  const uint64_t ones = 0x0101010101010101u, highs = 0x8080808080808080u;
  for (; end - p >= 8; p += 8) {
    uint64_t bytes;
    memcpy(&bytes, p, 8);
    uint64_t quote = bytes ^ (ones * '"'), slash = bytes ^ (ones * '\\');
    uint64_t found = ((quote - ones) & ~quote) | ((slash - ones) & ~slash) |
                     ((bytes - ones * 0x20) & ~bytes);
    if ((found & highs) != 0)
      return p + __builtin_ctzll(found & highs) / 8;
  }
  while (p < end && *p != '"' && *p != '\\' &&
         static_cast<unsigned char>(*p) >= 0x20)
    p++;
  return p;
}

/** A string without escapes or control bytes, as it stands in the text;
 * false (nothing consumed) for any other token. */
inline bool raw_string(Cursor &c, std::string_view *text) {
  skip_space(c);
  if (c.at == c.end || *c.at != '"')
    return false;
  const char *p = string_stop(c.at + 1, c.end);
  if (p == c.end || *p != '"')
    return false;
  *text = std::string_view(c.at + 1, static_cast<size_t>(p - c.at - 1));
  c.at = p + 1;
  return true;
}

/** A member's key and its colon. */
inline bool key(Cursor &c, std::string_view *name) {
  return raw_string(c, name) && take(c, ':');
}

/** True for a byte that may end a number token. */
inline bool ends_number(const Cursor &c, const char *p) {
  return p == c.end || *p == ',' || *p == '}' || *p == ']' || *p == ' ' ||
         *p == '\n' || *p == '\r' || *p == '\t';
}

/** An integer of at most 18 digits without fraction or exponent. */
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

/** How many digits (at most `limit`) stand at `p`, their number added up
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

/** The double strtod gives for the number token [begin, end), as jsoncpp
 * reads it. */
inline double strtod_of(const char *begin, const char *end) {
  char text[32];
  memcpy(text, begin, static_cast<size_t>(end - begin));
  text[end - begin] = '\0';
  return strtod(text, nullptr);
}

/** A number as jsoncpp gives it to asDouble: an integer, or digits with a
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

/** The literal `word` ("true", "false", "null"). */
inline bool literal(Cursor &c, std::string_view word) {
  skip_space(c);
  if (static_cast<size_t>(c.end - c.at) < word.size() || *c.at != word[0] ||
      memcmp(c.at, word.data(), word.size()) != 0 ||
      !ends_number(c, c.at + word.size()))
    return false;
  c.at += word.size();
  return true;
}

/** True when the bytes at `p` are `word`'s: eight at a time, the last
 * eight overlapping, as the fixed texts of the compact form are short. */
inline bool same_bytes(const char *p, std::string_view word) {
  size_t n = word.size();
  if (n < 8)
    return memcmp(p, word.data(), n) == 0;
  uint64_t a, b, diff = 0;
  for (size_t i = 0; i + 8 < n; i += 8) {
    memcpy(&a, p + i, 8);
    memcpy(&b, word.data() + i, 8);
    diff |= a ^ b;
  }
  memcpy(&a, p + n - 8, 8);
  memcpy(&b, word.data() + n - 8, 8);
  return (diff | (a ^ b)) == 0;
}

/** True, past it, when the text at the cursor is `word` byte for byte (no
 * white space skipped): the compact form writers give, checked whole. */
inline bool exactly(Cursor &c, std::string_view word) {
  if (static_cast<size_t>(c.end - c.at) < word.size() ||
      !same_bytes(c.at, word))
    return false;
  c.at += word.size();
  return true;
}

/** Past `{"__type__":"...",` + `key` in the compact form, one level deeper;
 * false (cursor moved) for any other text. */
inline bool compact_envelope(Cursor &c, std::string_view key) {
  std::string_view type;
  if (c.depth >= max_depth || !exactly(c, "{\"__type__\":") ||
      !raw_string(c, &type) || !exactly(c, key))
    return false;
  c.depth++;
  return true;
}

/** Past the opening of a compact record envelope, one level deeper:
 * `{"__properties__":` as jsoncpp writes it (members sorted), or
 * `{"__type__":"...","__properties__":`; false for any other text. */
inline bool compact_record_open(Cursor &c, bool *type_first) {
  const char *start = c.at;
  std::string_view type;
  *type_first = exactly(c, "{\"__type__\":") && raw_string(c, &type) &&
                exactly(c, ",\"__properties__\":");
  if (!*type_first) {
    c.at = start;
    if (!exactly(c, "{\"__properties__\":"))
      return false;
  }
  if (c.depth >= max_depth)
    return false;
  c.depth++;
  return true;
}

/** Past the rest of that envelope after its properties. */
inline bool compact_record_close(Cursor &c, bool type_first) {
  std::string_view type;
  c.depth--;
  if (type_first)
    return take(c, '}');
  return exactly(c, ",\"__type__\":") && raw_string(c, &type) && take(c, '}');
}

/** After a member or entry: true past a comma, false past `close`; any
 * other byte is not a shape the readers know. */
inline Read next(Cursor &c, char close, bool *more) {
  *more = take(c, ',');
  return *more || take(c, close) ? Read::done : Read::other;
}

/** Past one string, escapes included. */
inline bool skip_string(Cursor &c) {
  for (c.at++; c.at < c.end && *c.at != '"'; c.at++)
    if (*c.at == '\\' && ++c.at == c.end)
      return false;
  return c.at++ < c.end;
}

/** Past one value of any shape, by its brackets; jsoncpp then checks it. */
inline bool skip_value(Cursor &c) {
  int open = 0;
  do {
    skip_space(c);
    if (c.at == c.end)
      return false;
    char byte = *c.at;
    if (byte == '"') {
      if (!skip_string(c))
        return false;
    } else if (byte == '{' || byte == '[') {
      if (c.depth + ++open > max_depth)
        return false;
      c.at++;
    } else if (byte == '}' || byte == ']' || byte == ',' || byte == ':') {
      if (open == 0)
        return false;
      open -= byte == '}' || byte == ']' ? 1 : 0;
      c.at++;
    } else {
      const char *start = c.at;
      while (c.at < c.end && (isalnum(static_cast<unsigned char>(*c.at)) ||
                              *c.at == '-' || *c.at == '+' || *c.at == '.'))
        c.at++;
      if (c.at == start)
        return false;
    }
  } while (open > 0);
  return true;
}

/** Parses [begin, end) as one JSON value, the way jsoncpp's default reader
 * reads it within a whole text; false when jsoncpp refuses it. */
inline bool parse_span(const char *begin, const char *end, Json::Value *out) {
  thread_local std::unique_ptr<Json::CharReader> reader = [] {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
  }();
  return reader->parse(begin, end, out, nullptr);
}

/** The value at the cursor, read by `slow` from the jsoncpp tree of its
 * text. */
inline Read fall_back(Cursor &c, value_deserializer slow, void **out) {
  const char *begin = c.at;
  Json::Value tree;
  if (!skip_value(c) || !parse_span(begin, c.at, &tree))
    return Read::broken;
  *out = slow(tree);
  return Read::done;
}

/** `fast` on the value at the cursor, or `slow` when its shape is another. */
template <typename Fast>
Read read_value(Cursor &c, Fast fast, value_deserializer slow, void **out) {
  skip_space(c);
  Cursor start = c;
  *out = nullptr;
  Read read = fast(c, out);
  if (read != Read::other)
    return read;
  c = start;
  return fall_back(c, slow, out);
}

/** Calls `member(c, name)` for each member of an object; `other` for an
 * object with a key that has escapes. */
template <typename Member> Read members(Cursor &c, Member member) {
  if (!take(c, '{'))
    return Read::other;
  if (++c.depth > max_depth)
    return Read::broken;
  bool more = !take(c, '}');
  while (more) {
    std::string_view name;
    if (!key(c, &name))
      return Read::other;
    Read read = member(c, name);
    if (read == Read::done)
      read = next(c, '}', &more);
    if (read != Read::done)
      return read;
  }
  c.depth--;
  return Read::done;
}

/** Calls `entry(c)` for each entry of an array. */
template <typename Entry> Read entries(Cursor &c, Entry entry) {
  if (!take(c, '['))
    return Read::other;
  if (++c.depth > max_depth)
    return Read::broken;
  bool more = !take(c, ']');
  while (more) {
    Read read = entry(c);
    if (read == Read::done)
      read = next(c, ']', &more);
    if (read != Read::done)
      return read;
  }
  c.depth--;
  return Read::done;
}

/** A field of a record: `read` into `*slot`. A null member leaves the field
 * absent; a second member of the name, or a value the fast road reads as
 * null, is `other`, so that the record is read by its deserializer. */
template <typename T>
Read field(Cursor &c, FastRead fast, value_deserializer slow, T **slot) {
  if (*slot != nullptr)
    return Read::other;
  if (literal(c, "null"))
    return Read::done;
  void *value = nullptr;
  Read result = read_value(c, fast, slow, &value);
  *slot = static_cast<T *>(value);
  return result == Read::done && value == nullptr ? Read::other : result;
}

/** A member no field names, kept in `*unknown` (made when first needed). */
inline Read unknown(Cursor &c, std::string_view name, Json::Value **unknown) {
  skip_space(c);
  const char *begin = c.at;
  Json::Value value;
  if (!skip_value(c) || !parse_span(begin, c.at, &value))
    return Read::broken;
  if (*unknown == nullptr)
    *unknown = new Json::Value(Json::objectValue);
  (**unknown)[std::string(name)].swap(value);
  return Read::done;
}

/** A record envelope, {"__type__": text, "__properties__": {...}} in either
 * order, made by `make` and its members read by `fields(c, name, record)`.
 * Anything else, and an error a field's deserializer throws, is `other`:
 * the record's own deserializer then decides. */
template <typename T, typename Fields>
Read record(Cursor &c, T *(*make)(), value_deleter deleter, Fields fields,
            void **out) try {
  std::unique_ptr<T, value_deleter> made(make(), deleter);
  if (made == nullptr)
    return Read::other;
  auto field = [&](Cursor &c, std::string_view name) {
    return fields(c, name, made.get());
  };
  skip_space(c);
  Cursor start = c;
  /* Written compact, as writers do, the fields need no search for the
   * envelope's keys; a record that then goes wrong is the deserializer's. */
  bool type_first = false;
  if (compact_record_open(c, &type_first)) {
    Read read = members(c, field);
    if (read == Read::done && !compact_record_close(c, type_first))
      read = Read::other;
    if (read != Read::done)
      return read == Read::broken ? read : Read::other;
    *out = made.release();
    return Read::done;
  }
  c = start;
  bool type = false, properties = false;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    std::string_view text;
    if (name == "__type__" && !type)
      return (type = raw_string(c, &text)) ? Read::done : Read::other;
    if (name != "__properties__" || properties)
      return Read::other;
    properties = true;
    return members(c, field);
  });
  if (read != Read::done || !properties)
    return read == Read::broken ? read : Read::other;
  *out = made.release();
  return Read::done;
} catch (const std::exception &) {
  return Read::other;
}

/** `record` at the cursor, or `slow` when its shape is another. */
template <typename T, typename Fields>
Read read_record(Cursor &c, T *(*make)(), value_deleter deleter, Fields fields,
                 value_deserializer slow, void **out) {
  return read_value(
      c,
      [&](Cursor &c, void **out) {
        return record(c, make, deleter, fields, out);
      },
      slow, out);
}

/** A scalar envelope, {"__type__": text, "__value__": V} in either order,
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

/** A new cell holding `value`; null when memory runs out. */
template <typename Cell> void *cell(const Cell &value) {
  void *made = malloc(sizeof(Cell));
  if (made != nullptr)
    memcpy(made, &value, sizeof(Cell));
  return made;
}

/** A malloc'd copy of `text` with its terminator; null when memory runs
 * out. */
inline char *text_copy(std::string_view text) {
  char *copy = static_cast<char *>(malloc(text.size() + 1));
  if (copy != nullptr) {
    memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
  }
  return copy;
}

/** Long, ULong and Double: the "__value__" text parsed as the library
 * parses it; parsing stops at the closing quote as it would at a NUL. */
template <typename Cell, typename Parse>
Read number_text(Cursor &c, void **out, Parse parse) {
  std::string_view text;
  Read read = envelope(c, [&](Cursor &c) { return raw_string(c, &text); });
  if (read == Read::done)
    *out = cell(Cell{parse(text)});
  return read;
}

/** A real truncated to a count as the library does. */
inline int64_t truncated(double real_value) {
  if (std::isnan(real_value))
    return 0;
  if (real_value >= 9223372036854775808.0)
    return INT64_MAX;
  if (real_value > -9223372036854775808.0)
    return static_cast<int64_t>(real_value);
  return INT64_MIN;
}

/** Time and Date: a real "__value__", truncated as the library does. */
template <typename Cell> Read count(Cursor &c, void **out) {
  double real_value = 0;
  Read read = envelope(c, [&](Cursor &c) { return real(c, &real_value); });
  if (read == Read::done)
    *out = cell(Cell{truncated(real_value)});
  return read;
}

/** A cell holding a copy of `text`; null when memory runs out. */
template <typename Cell> void *text_cell_of(std::string_view text) {
  char *copy = text_copy(text);
  void *made = copy == nullptr ? nullptr : cell(Cell{copy});
  if (made == nullptr)
    free(copy);
  return made;
}

/** IP and Ciphered: a cell holding a copy of the "__value__" text. */
template <typename Cell> Read text_cell(Cursor &c, void **out) {
  std::string_view text;
  Read read = envelope(c, [&](Cursor &c) { return raw_string(c, &text); });
  if (read == Read::done)
    *out = text_cell_of<Cell>(text);
  return read;
}

/** What strtoll gives for a quoted `text`: plain digits, as writers give
 * them, are read here; anything else by strtoll, which the closing quote
 * stops. */
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

/** What strtoull in base 0 gives for a quoted `text`, as ULong reads it. */
inline uint64_t ulong_text(std::string_view text) {
  return strtoull(text.data(), nullptr, 0);
}

/** What strtod gives for a quoted `text`, as Double reads it. */
inline double double_text(std::string_view text) {
  return strtod(text.data(), nullptr);
}

/** The fast readers of the library's scalar types, each with the
 * deserializer it falls back to. */
inline Read fast_long(Cursor &c, void **out) {
  return number_text<Long>(c, out, long_text);
}
/** ULong. */
inline Read fast_ulong(Cursor &c, void **out) {
  return number_text<ULong>(c, out, ulong_text);
}
/** Double. */
inline Read fast_double(Cursor &c, void **out) {
  return number_text<Double>(c, out, double_text);
}
/** Time. */
inline Read fast_time(Cursor &c, void **out) {
  return count<Time>(c, out);
}
/** Date. */
inline Read fast_date(Cursor &c, void **out) {
  return count<Date>(c, out);
}
/** IP. */
inline Read fast_ip(Cursor &c, void **out) {
  return text_cell<IP>(c, out);
}
/** Ciphered. */
inline Read fast_ciphered(Cursor &c, void **out) {
  return text_cell<Ciphered>(c, out);
}
/** A bare text ("Unicode"). */
inline Read fast_text(Cursor &c, void **out) {
  std::string_view text;
  if (!raw_string(c, &text))
    return Read::other;
  *out = text_copy(text);
  return Read::done;
}
/** A bare Integer: a 32-bit integer. */
inline Read fast_integer(Cursor &c, void **out) {
  int64_t number = 0;
  if (!integer(c, &number) || number < INT32_MIN || number > INT32_MAX)
    return Read::other;
  *out = cell(Integer{static_cast<int32_t>(number)});
  return Read::done;
}
/** A bare Boolean. */
inline Read fast_boolean(Cursor &c, void **out) {
  bool yes = literal(c, "true");
  if (!yes && !literal(c, "false"))
    return Read::other;
  *out = cell(Boolean{yes ? 1 : 0});
  return Read::done;
}

/** A reader for shapes the fast road leaves to the deserializer. */
inline Read fast_none(Cursor &, void **) {
  return Read::other;
}

/* ---- Records as the library writes them ----------------------------------
 * A record written compact with every field, as the library writes it,
 * is read in one pass over its fixed text: each field's key and, for a
 * scalar envelope, `{"__type__":"T","__value__":` stand in the text as a
 * table expects them, and only the values are read. Any other text is left
 * to the members' road, which reads the same values from it. */

/** Reads a value after its fixed text, and an envelope's closing brace;
 * true with `*out` made (null when memory runs out), or false. */
typedef bool (*CompactRead)(Cursor &c, void **out);

/** A field in the compact form: the text before its value, the value's
 * reader and the field's place in the record. */
struct CompactField {
  std::string_view before; /**< `,"key":` and an envelope's opening */
  CompactRead read;        /**< one of the compact_ readers below */
  size_t offset;           /**< offsetof the field in its record */
};

/** Long, ULong and Double: the quoted value parsed as `parse` does. */
template <typename Cell, typename Parse>
bool compact_number(Cursor &c, void **out, Parse parse) {
  std::string_view text;
  if (!raw_string(c, &text) || !exactly(c, "}"))
    return false;
  *out = cell(Cell{parse(text)});
  return true;
}
/** Long. */
inline bool compact_long(Cursor &c, void **out) {
  return compact_number<Long>(c, out, long_text);
}
/** ULong. */
inline bool compact_ulong(Cursor &c, void **out) {
  return compact_number<ULong>(c, out, ulong_text);
}
/** Double. */
inline bool compact_double(Cursor &c, void **out) {
  return compact_number<Double>(c, out, double_text);
}
/** Time and Date: a real, truncated. */
template <typename Cell> bool compact_count(Cursor &c, void **out) {
  double real_value = 0;
  if (!real(c, &real_value) || !exactly(c, "}"))
    return false;
  *out = cell(Cell{truncated(real_value)});
  return true;
}
/** Time. */
inline bool compact_time(Cursor &c, void **out) {
  return compact_count<Time>(c, out);
}
/** Date. */
inline bool compact_date(Cursor &c, void **out) {
  return compact_count<Date>(c, out);
}
/** IP and Ciphered: a copy of the quoted value. */
template <typename Cell> bool compact_text_cell(Cursor &c, void **out) {
  std::string_view text;
  if (!raw_string(c, &text) || !exactly(c, "}"))
    return false;
  *out = text_cell_of<Cell>(text);
  return true;
}
/** IP. */
inline bool compact_ip(Cursor &c, void **out) {
  return compact_text_cell<IP>(c, out);
}
/** Ciphered. */
inline bool compact_ciphered(Cursor &c, void **out) {
  return compact_text_cell<Ciphered>(c, out);
}
/** A bare text. */
inline bool compact_text(Cursor &c, void **out) {
  return fast_text(c, out) == Read::done;
}
/** A bare Integer. */
inline bool compact_integer(Cursor &c, void **out) {
  return fast_integer(c, out) == Read::done;
}
/** A bare Boolean. */
inline bool compact_boolean(Cursor &c, void **out) {
  return fast_boolean(c, out) == Read::done;
}

/** The record at the cursor when it is written compact with every field
 * of `fields`, in their order, and nothing else; false (cursor moved)
 * otherwise. As deep as the members' road reads envelopes, no deeper. */
template <typename T, size_t N>
bool compact_record(Cursor &c, T *(*make)(), value_deleter deleter,
                    const CompactField (&fields)[N], void **out) {
  std::string_view type;
  if (c.depth + 3 > max_depth || !exactly(c, "{\"__properties__\":{"))
    return false;
  std::unique_ptr<T, value_deleter> made(make(), deleter);
  if (made == nullptr)
    return false;
  for (const CompactField &field : fields) {
    void *value = nullptr;
    bool read = exactly(c, field.before) && field.read(c, &value);
    memcpy(reinterpret_cast<char *>(made.get()) + field.offset, &value,
           sizeof value);
    if (!read || value == nullptr)
      return false;
  }
  if (!exactly(c, "},\"__type__\":") || !raw_string(c, &type) || !take(c, '}'))
    return false;
  *out = made.release();
  return true;
}

/** `read_record`, trying first the compact form `compact` describes. */
template <typename T, typename Fields, size_t N>
Read read_record(Cursor &c, T *(*make)(), value_deleter deleter, Fields fields,
                 const CompactField (&compact)[N], value_deserializer slow,
                 void **out) {
  skip_space(c);
  Cursor start = c;
  if (compact_record(c, make, deleter, compact, out))
    return Read::done;
  c = start;
  return read_record(c, make, deleter, fields, slow, out);
}

/** The list of a List, or of a ResultSet. */
inline list_s *list_of(list_s *list) {
  return list;
}
/** The list of a ResultSet. */
inline list_s *list_of(result_set_s *set) {
  return set->list;
}

/** `value` handed over to `list`; false (and released) when it cannot be
 * added. */
inline bool hand_over(list_s *list, void *value) {
  int32_t before = list->nb_elements;
  list_add_copy(list, value, VELMORA_FALSE);
  if (list->nb_elements != before)
    return true;
  if (list->deleter != nullptr)
    list->deleter(value);
  return false;
}

/** `value` handed over to `dict` under `key`: kept, or, when the dictionary
 * keeps its copier's copy, released; false when nothing (or a null copy)
 * could be kept, and then `value` is released too. */
inline bool hand_over(dict_s *dict, const std::string &key, void *value) {
  int32_t before = dict->nb_elements;
  dict_add(dict, key.c_str(), value);
  bool kept = dict->nb_elements != before;
  bool copied = dict->copier != nullptr;
  if ((copied || !kept) && dict->deleter != nullptr)
    dict->deleter(value);
  else if (copied || !kept)
    free(value);
  return kept && (!copied || dict->last->value != nullptr);
}

/** A List has no total. */
inline bool set_total(list_s *, int64_t) {
  return false;
}
/** Nor has a Dict. */
inline bool set_total(dict_s *, int64_t) {
  return false;
}
/** A ResultSet's "__total_items__", when it is a 32-bit integer. */
inline bool set_total(result_set_s *set, int64_t total) {
  if (total < INT32_MIN || total > INT32_MAX)
    return false;
  set->total_items = static_cast<int32_t>(total);
  return true;
}

/** The members of a container's envelope but "__elements__", each once:
 * bit 1 "__type__", 2 "__sub_type__", 4 "__total_items__". */
template <typename T>
Read container_member(Cursor &c, std::string_view name, T *made,
                      std::string_view sub_type, int *seen) {
  std::string_view text;
  int64_t total = 0;
  int bit = name == "__type__"          ? 1
            : name == "__sub_type__"    ? 2
            : name == "__total_items__" ? 4
                                        : 0;
  if (bit == 0 || (*seen & bit) != 0)
    return Read::other;
  *seen |= bit;
  bool read = bit == 4 ? integer(c, &total) && set_total(made, total)
                       : raw_string(c, &text) && (bit == 1 || text == sub_type);
  return read ? Read::done : Read::other;
}

/** The "__elements__" array of a List or ResultSet, each entry read by
 * `element` and handed over; a null entry or one of another shape makes it
 * `other`. */
template <typename T> Read elements(Cursor &c, T *made, FastRead element) {
  return entries(c, [&](Cursor &c) {
    void *value = nullptr;
    Read read = element(c, &value);
    if (read == Read::done && value == nullptr)
      return Read::other;
    if (read == Read::done && !hand_over(list_of(made), value))
      return Read::other;
    return read;
  });
}

/** The "__elements__" object of a Dict, as `elements` reads an array. Its
 * keys must come in ascending byte order, as the library writes them and
 * as the tree orders them; keys in another order or repeated are `other`,
 * so that the tree decides which of them counts. */
inline Read elements(Cursor &c, dict_s *made, FastRead element) {
  std::string key;
  bool first = true;
  return members(c, [&](Cursor &c, std::string_view name) {
    if (!first && name <= std::string_view(key))
      return Read::other;
    first = false;
    key.assign(name);
    void *value = nullptr;
    Read read = element(c, &value);
    if (read == Read::done && value == nullptr)
      return Read::other;
    if (read == Read::done && !hand_over(made, key, value))
      return Read::other;
    return read;
  });
}

/** A List, ResultSet or Dict envelope of `sub_type` elements, each read by
 * `element` into the container `make` gives. */
template <typename T>
Read container(Cursor &c, std::string_view sub_type, FastRead element,
               T *(*make)(), value_deleter deleter, void **out) try {
  std::unique_ptr<T, value_deleter> made(make(), deleter);
  if (made == nullptr)
    return Read::other;
  int seen = 0, whole = std::is_same<T, result_set_s>::value ? 15 : 11;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    if (name != "__elements__" || (seen & 8) != 0)
      return container_member(c, name, made.get(), sub_type, &seen);
    seen |= 8;
    return elements(c, made.get(), element);
  });
  if (read != Read::done || seen != whole)
    return read == Read::broken ? read : Read::other;
  *out = made.release();
  return Read::done;
} catch (const std::exception &) {
  return Read::other;
}

/** `container` at the cursor, or `slow` when its shape is another. */
template <typename T>
Read read_container(Cursor &c, std::string_view sub_type, FastRead element,
                    T *(*make)(), value_deleter deleter,
                    value_deserializer slow, void **out) {
  return read_value(
      c,
      [&](Cursor &c, void **out) {
        return container(c, sub_type, element, make, deleter, out);
      },
      slow, out);
}

/** The T of a whole text: read by `fast`, or, when the fast road gives
 * up, by `slow` from the tree jsoncpp's default reader makes of the text.
 * Null when that is not JSON or a deserializer throws. */
template <typename T, typename Fast>
T *read_text(const char *json, size_t length, Fast fast,
             value_deserializer slow, value_deleter deleter) try {
  Cursor c{json, json + length, 0};
  void *value = nullptr;
  Read read = read_value(c, fast, slow, &value);
  skip_space(c);
  if (read != Read::done || c.at != c.end) {
    deleter(value);
    Json::Value tree;
    std::unique_ptr<Json::CharReader> reader(
        Json::CharReaderBuilder().newCharReader());
    value = reader->parse(json, json + length, &tree, nullptr) ? slow(tree)
                                                               : nullptr;
  }
  return static_cast<T *>(value);
} catch (const std::exception &) {
  return nullptr;
}

/** The root object's `member` of a whole text, read as `read_value` does;
 * `broken` unless the text is one strict JSON object holding the member
 * once, with a value. The other members are checked, not kept. On
 * `broken`, `*out` may hold a value to release. */
template <typename Fast>
Read read_member(const char *json, size_t length, std::string_view member,
                 Fast fast, value_deserializer slow, void **out) {
  Cursor c{json, json + length, 0};
  bool found = false;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    Json::Value ignored;
    skip_space(c);
    const char *begin = c.at;
    if (name != member)
      return skip_value(c) && parse_span(begin, c.at, &ignored) ? Read::done
                                                                : Read::broken;
    if (found || literal(c, "null"))
      return Read::broken;
    found = true;
    return read_value(c, fast, slow, out);
  });
  skip_space(c);
  return read == Read::done && found && c.at == c.end ? read : Read::broken;
}

} // namespace velmora_text

#endif
