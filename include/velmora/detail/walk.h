/* Objects and arrays walked member by member, and the fall-back to jsoncpp. */
#ifndef VELMORA_DETAIL_WALK_H
#define VELMORA_DETAIL_WALK_H

#include <memory>
#include <string_view>

#include <json/reader.h>

#include "velmora/detail/scan.h"
#include "velmora/values.h"

namespace velmora::detail {

/* Parses [begin, end) as one JSON value, the way jsoncpp's default reader
 * reads it within a whole text; false when jsoncpp refuses it. */
inline bool parse_span(const char *begin, const char *end, Json::Value *out) {
  thread_local std::unique_ptr<Json::CharReader> reader = [] {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
  }();
  return reader->parse(begin, end, out, nullptr);
}

/* The value at the cursor, read by `slow` from the jsoncpp tree of its
 * text. */
inline Read fall_back(Cursor &c, value_deserializer slow, void **out) {
  const char *begin = c.at;
  Json::Value tree;
  if (!skip_value(c) || !parse_span(begin, c.at, &tree))
    return Read::broken;
  *out = slow(tree);
  return Read::done;
}

/* `fast` on the value at the cursor, or `slow` when its shape is another. */
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

/* Calls `member(c, name)` for each member of an object; `other` for an
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

/* Calls `entry(c)` for each entry of an array. */
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

} // namespace velmora::detail

#endif
