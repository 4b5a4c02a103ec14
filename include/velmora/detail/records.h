/* Records read from text: member by member, or in one pass over the compact
 * form. */
#ifndef VELMORA_DETAIL_RECORDS_H
#define VELMORA_DETAIL_RECORDS_H

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "velmora/detail/scalars.h"

namespace velmora::detail {

/* Past the opening of a compact record envelope, one level deeper:
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

/* Past the rest of that envelope after its properties. */
inline bool compact_record_close(Cursor &c, bool type_first) {
  std::string_view type;
  c.depth--;
  if (type_first)
    return take(c, '}');
  return exactly(c, ",\"__type__\":") && raw_string(c, &type) && take(c, '}');
}

/* A field of a record: `read` into `*slot`. A null member leaves the field
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

/* A member no field names, kept in `*unknown` (made when first needed). */
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

/* A record envelope, {"__type__": text, "__properties__": {...}} in either
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

/* `record` at the cursor, or `slow` when its shape is another. */
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

/* ---- Records as the library writes them ----------------------------------
 * A record written compact with every field, as the library writes it,
 * is read in one pass over its fixed text: each field's key and, for a
 * scalar envelope, `{"__type__":"T","__value__":` stand in the text as a
 * table expects them, and only the values are read. Any other text is left
 * to the members' road, which reads the same values from it. */

/* Reads a value after its fixed text, and an envelope's closing brace;
 * true with `*out` made (null when memory runs out), or false. */
typedef bool (*CompactRead)(Cursor &c, void **out);

/* A field in the compact form: the text before its value, the value's
 * reader and the field's place in the record. */
struct CompactField {
  std::string_view before; /* `,"key":` and an envelope's opening */
  CompactRead read;        /* one of the compact_ readers below */
  size_t offset;           /* offsetof the field in its record */
};

/* Long, ULong and Double: the quoted value parsed as `parse` does. */
template <typename Cell, typename Parse>
bool compact_number(Cursor &c, void **out, Parse parse) {
  std::string_view text;
  if (!raw_string(c, &text) || !exactly(c, "}"))
    return false;
  *out = cell(Cell{parse(text)});
  return true;
}
/* Long. */
inline bool compact_long(Cursor &c, void **out) {
  return compact_number<Long>(c, out, long_text);
}
/* ULong. */
inline bool compact_ulong(Cursor &c, void **out) {
  return compact_number<ULong>(c, out, ulong_text);
}
/* Double. */
inline bool compact_double(Cursor &c, void **out) {
  return compact_number<Double>(c, out, double_text);
}
/* Time and Date: a real, truncated. */
template <typename Cell> bool compact_count(Cursor &c, void **out) {
  double real_value = 0;
  if (!real(c, &real_value) || !exactly(c, "}"))
    return false;
  *out = cell(Cell{truncated(real_value)});
  return true;
}
/* Time. */
inline bool compact_time(Cursor &c, void **out) {
  return compact_count<Time>(c, out);
}
/* Date. */
inline bool compact_date(Cursor &c, void **out) {
  return compact_count<Date>(c, out);
}
/* IP and Ciphered: a copy of the quoted value. */
template <typename Cell> bool compact_text_cell(Cursor &c, void **out) {
  std::string_view text;
  if (!raw_string(c, &text) || !exactly(c, "}"))
    return false;
  *out = text_cell_of<Cell>(text);
  return true;
}
/* IP. */
inline bool compact_ip(Cursor &c, void **out) {
  return compact_text_cell<IP>(c, out);
}
/* Ciphered. */
inline bool compact_ciphered(Cursor &c, void **out) {
  return compact_text_cell<Ciphered>(c, out);
}
/* A bare text. */
inline bool compact_text(Cursor &c, void **out) {
  return fast_text(c, out) == Read::done;
}
/* A bare Integer. */
inline bool compact_integer(Cursor &c, void **out) {
  return fast_integer(c, out) == Read::done;
}
/* A bare Boolean. */
inline bool compact_boolean(Cursor &c, void **out) {
  return fast_boolean(c, out) == Read::done;
}

/* The record at the cursor when it is written compact with every field
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

/* `read_record`, trying first the compact form `compact` describes. */
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

} // namespace velmora::detail

#endif
