/* A generated record's fields: made, read, written, copied and set. */
#ifndef VELMORA_DETAIL_FIELDS_H
#define VELMORA_DETAIL_FIELDS_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <json/value.h>

#include "velmora/values.h"

namespace velmora::detail {

/* A value released by its type's deleter when the guard goes. */
template <typename T> using Owned = std::unique_ptr<T, void (*)(void *)>;

/* A record with every field absent; null when memory runs out. */
template <typename T> T *new_record() {
  return static_cast<T *>(calloc(1, sizeof(T)));
}

/* The element operations a plain text, Integer and Boolean lack in the
 * library, of the shapes a container takes. */
inline void copy_text(void **slot, void *text) {
  string_copier(reinterpret_cast<char **>(slot), static_cast<char *>(text));
}
inline Json::Value *write_text(void *text, Json::Value &out) {
  out = static_cast<const char *>(text);
  return &out;
}
inline Json::Value *write_integer(void *value, Json::Value &out) {
  out = static_cast<Integer *>(value)->value;
  return &out;
}
inline Json::Value *write_boolean(void *value, Json::Value &out) {
  out = static_cast<Boolean *>(value)->value != 0;
  return &out;
}
inline void *read_integer(const Json::Value &in) {
  Integer value{in.asInt()};
  void *cell = nullptr;
  Integer_copier(&cell, &value);
  return cell;
}
inline void *read_boolean(const Json::Value &in) {
  Boolean value{in.asBool() ? 1 : 0};
  void *cell = nullptr;
  Boolean_copier(&cell, &value);
  return cell;
}

/* 1 with a number cell's value in `*value` (when not null), 0 when the
 * field is absent. */
template <typename Cell, typename Value>
int32_t get_number(const Cell *cell, Value *value) {
  if (cell == nullptr)
    return 0;
  if (value != nullptr)
    *value = cell->value;
  return 1;
}

/* A text cell's text, lent; null when the field is absent. */
template <typename Cell> const char *cell_text(const Cell *cell) {
  return cell == nullptr ? nullptr : cell->value;
}

/* A missing or null member leaves the field absent; false when the
 * member is there but could not be read. */
template <typename T>
bool read_field(const Json::Value &properties, std::string_view name,
                value_deserializer read, T **field) {
  const Json::Value *member =
      properties.find(name.data(), name.data() + name.size());
  if (member == nullptr || member->isNull())
    return true;
  *field = static_cast<T *>(read(*member));
  return *field != nullptr;
}

/* Keeps the members no field names, to write them back. */
template <typename... Names>
void keep_unknown(const Json::Value &properties, Json::Value **unknown,
                  Names... known) {
  if (!properties.isObject())
    return;
  /* Names lent, not copied, and the end made once: most records have no
   * unknown member, and this walk was a third of a read. */
  for (auto at = properties.begin(), last = properties.end(); at != last;
       ++at) {
    const char *end = nullptr;
    const char *begin = at.memberName(&end);
    std::string_view name(begin, static_cast<size_t>(end - begin));
    if ((... || (name == known)))
      continue;
    if (*unknown == nullptr)
      *unknown = new Json::Value(Json::objectValue);
    (**unknown)[std::string(name)] = *at;
  }
}

inline void write_unknown(Json::Value &properties, const Json::Value *unknown) {
  if (unknown == nullptr)
    return;
  for (auto at = unknown->begin(); at != unknown->end(); ++at)
    properties[at.name()] = *at;
}

/* False when memory runs out. */
inline bool copy_unknown(const Json::Value *from, Json::Value **to) {
  if (from == nullptr)
    return true;
  try {
    *to = new Json::Value(*from);
  } catch (const std::exception &) {
    return false;
  }
  return true;
}

/* `value` written as `object`'s member `name`; nothing when absent. */
template <typename T>
void write_field(Json::Value &object, std::string_view name,
                 value_serializer write, const T *value) {
  if (value != nullptr)
    write(const_cast<T *>(value), object[std::string(name)]);
}

/* A number or a text passed by value, written through its type's cell. */
template <typename Cell, typename Value>
void write_number(Json::Value &object, std::string_view name,
                  value_serializer write, const Value *value) {
  Cell cell{value == nullptr ? Value() : *value};
  write_field(object, name, write, value == nullptr ? nullptr : &cell);
}
template <typename Cell>
void write_in_cell(Json::Value &object, std::string_view name,
                   value_serializer write, const char *value) {
  Cell cell{const_cast<char *>(value)};
  write_field(object, name, write, value == nullptr ? nullptr : &cell);
}

/* False when `value` is there but could not be copied. */
template <typename T, typename Value>
bool copy_field(value_copier copier, const Value *value, T **field) {
  if (value == nullptr)
    return true;
  void *copy = nullptr;
  copier(&copy, const_cast<Value *>(value));
  *field = static_cast<T *>(copy);
  return copy != nullptr;
}

/* A copy of `value` replaces the field; nothing changes when the copy
 * cannot be made. */
template <typename T, typename Value>
void set_field(T **field, const Value *value, value_copier copier,
               value_deleter deleter) {
  T *copy = nullptr;
  if (!copy_field(copier, value, &copy))
    return;
  deleter(*field);
  *field = copy;
}

/* set_field for a number or a text passed by value. */
template <typename Cell, typename Value>
void set_number(Cell **field, const Value *value, value_copier copier,
                value_deleter deleter) {
  Cell cell{value == nullptr ? Value() : *value};
  set_field(field, value == nullptr ? nullptr : &cell, copier, deleter);
}
template <typename Cell>
void set_in_cell(Cell **field, const char *value, value_copier copier,
                 value_deleter deleter) {
  Cell cell{const_cast<char *>(value)};
  set_field(field, value == nullptr ? nullptr : &cell, copier, deleter);
}

} // namespace velmora::detail

#endif
