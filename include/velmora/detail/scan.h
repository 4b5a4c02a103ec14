/* Scanning JSON text: the cursor, white space, strings, literals, whole values.
 */
#ifndef VELMORA_DETAIL_SCAN_H
#define VELMORA_DETAIL_SCAN_H

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace velmora::detail {

/* How far a reader got. */
enum class Read {
  done,  /* the value was read (a null value included) */
  other, /* not a shape this reader knows; nothing was consumed */
  broken /* text the fast readers cannot vouch for: give up */
};

/* Where a reader is in the text, and how deep. */
struct Cursor {
  const char *at;  /* the next byte */
  const char *end; /* one past the last byte */
  int depth;       /* objects and arrays open */
};

/* Reads one value at the cursor into `*out` (null allowed). */
typedef Read (*FastRead)(Cursor &c, void **out);

/* Deeper than this, jsoncpp would refuse where a fast reader would not. */
const int max_depth = 512;

/* Skips JSON white space. */
inline void skip_space(Cursor &c) {
  while (c.at < c.end &&
         (*c.at == ' ' || *c.at == '\n' || *c.at == '\r' || *c.at == '\t'))
    c.at++;
}

/* True, past it, when the next byte after white space is `byte`. */
inline bool take(Cursor &c, char byte) {
  skip_space(c);
  if (c.at == c.end || *c.at != byte)
    return false;
  c.at++;
  return true;
}

/* The first quote, backslash or control byte from `p` on, eight bytes
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

/* A string without escapes or control bytes, as it stands in the text;
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

/* A member's key and its colon. */
inline bool key(Cursor &c, std::string_view *name) {
  return raw_string(c, name) && take(c, ':');
}

/* True for a byte that may end a number token. */
inline bool ends_number(const Cursor &c, const char *p) {
  return p == c.end || *p == ',' || *p == '}' || *p == ']' || *p == ' ' ||
         *p == '\n' || *p == '\r' || *p == '\t';
}

/* The literal `word` ("true", "false", "null"). */
inline bool literal(Cursor &c, std::string_view word) {
  skip_space(c);
  if (static_cast<size_t>(c.end - c.at) < word.size() || *c.at != word[0] ||
      memcmp(c.at, word.data(), word.size()) != 0 ||
      !ends_number(c, c.at + word.size()))
    return false;
  c.at += word.size();
  return true;
}

/* True when the bytes at `p` are `word`'s: eight at a time, the last
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

/* True, past it, when the text at the cursor is `word` byte for byte (no
 * white space skipped): the compact form writers give, checked whole. */
inline bool exactly(Cursor &c, std::string_view word) {
  if (static_cast<size_t>(c.end - c.at) < word.size() ||
      !same_bytes(c.at, word))
    return false;
  c.at += word.size();
  return true;
}

/* After a member or entry: true past a comma, false past `close`; any
 * other byte is not a shape the readers know. */
inline Read next(Cursor &c, char close, bool *more) {
  *more = take(c, ',');
  return *more || take(c, close) ? Read::done : Read::other;
}

/* Past one string, escapes included. */
inline bool skip_string(Cursor &c) {
  for (c.at++; c.at < c.end && *c.at != '"'; c.at++)
    if (*c.at == '\\' && ++c.at == c.end)
      return false;
  return c.at++ < c.end;
}

/* Past one value of any shape, by its brackets; jsoncpp then checks it. */
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

} // namespace velmora::detail

#endif
