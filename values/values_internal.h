/*
 * Internals of the values subsystem: the envelope's two members and the
 * text form of the numbers carried as strings, which the scalar types
 * share; the native element kinds and the element logic, which the list,
 * the dictionary and the records that hold one share.
 */
#ifndef VELMORA_VALUES_INTERNAL_H
#define VELMORA_VALUES_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <json/value.h>

#include "velmora/values.h"

namespace velmora {

/* A malloc copy of the `size` bytes at `cell`; null when `cell` is null or
 * the allocation fails. */
void *cell_dup(const void *cell, size_t size);

/* in's "__value__", or a JSON null when absent. Throws as the JSON library
 * does when `in` is neither null nor an object. */
const Json::Value &envelope_value(const Json::Value &in);

/* Sets out's "__type__" to `type` and "__value__" to `value`, leaving the
 * other members alone; returns &out. */
Json::Value *envelope_write(Json::Value &out, const char *type,
                            Json::Value value);

/* The text asString gives for `member`, borrowed from it when it is a
 * string, else kept in `storage`. Throws as asString does. */
const char *member_text(const Json::Value &member, std::string &storage);

/* A number's text as a JSON string, as "%lld", "%llu" and "%f" (in the
 * process's numeric locale) write it; a "%f" text is cut at 31 characters
 * where that removes fraction digits only. */
Json::Value number_text(int64_t number);
Json::Value number_text(uint64_t number);
Json::Value number_text(double number);

/* The member `name` of `in`, lent, or null when absent. Raises, as the JSON
 * library does, when `in` is neither null nor an object. */
const Json::Value *find_member(const Json::Value &in, const char *name);

enum class native_kind { none, unicode, integer, boolean };

/* The native kind named by `sub_type` (whole-name match), or none. */
native_kind native_kind_of(const char *sub_type);

/* The bare JSON form of `element`. A null element, and any element of kind
 * none, is JSON null. */
Json::Value native_to_json(native_kind kind, const void *element);

/* True when the "__sub_type__" of `in` ("Unknown" when absent) is a leading
 * part of `sub_type`; an empty text always fits. */
bool sub_type_fits(const char *sub_type, const Json::Value &in);

/* string_copier in the copier's shape, for the containers of texts. */
value_copier text_copier();

/* How a container reads its elements: its element type's deserializer
 * and deleter, its native kind, and whether it stores its own copy of what
 * it is given (then the element read is spare once stored). */
struct element_reader {
  value_deserializer deserializer;
  value_deleter deleter;
  native_kind kind;
  bool stores_copy;
};

/*
 * Reads `entry` as a container does: through the deserializer when there
 * is one (its null is an element like any other), else as the native kind
 * (null only when memory runs out), else nothing. What is read goes to
 * `store(target, element)`, which says whether it stored it; an element
 * not stored, or spare, is released. False when memory ran out, and then
 * nothing read is kept. Raises as the deserializer or the JSON library
 * does, having allocated nothing.
 */
bool read_element(const element_reader &reader, const Json::Value &entry,
                  bool (*store)(void *target, void *element), void *target);

/* What a container stores for `value`: the copier's copy (null included,
 * the copier's answer), or `value` itself when there is no copier. */
void *stored_form(value_copier copier, void *value);

/* Releases an element a container made but cannot keep: with `deleter`,
 * or free when there is none. A null holds nothing to release. */
void discard_element(value_deleter deleter, void *element);

/* Gives a new container its element type: a copy of `sub_type` ("" when
 * null; null when memory runs out) and the four operations. False when the
 * copy cannot be made. */
bool set_element_type(list_s *list, const char *sub_type, value_deleter deleter,
                      value_deserializer deserializer,
                      value_serializer serializer, value_copier copier);
bool set_element_type(dict_s *dict, const char *sub_type, value_deleter deleter,
                      value_deserializer deserializer,
                      value_serializer serializer, value_copier copier);

/* Adds each element of `source` to `copy` as list_add and dict_add do;
 * false when memory ran out. Defined beside each container. */
bool add_copies(list_s *copy, const list_s *source);
bool add_copies(dict_s *copy, dict_s *source);

/*
 * The containers' copiers: a container made like `source` holding a copy
 * of each of its elements; null when `source` is null or memory runs out
 * (the part made is released, sparing the handles it shares with the
 * source).
 */
list_s *copy_container(list_s *source);
dict_s *copy_container(dict_s *source);

/* Sets a record's number `field` to `value` and marks it given with
 * `given`; a null record is left alone. */
template <typename Record>
void set_given(Record *record, int32_t Record::*field, uint64_t given,
               int32_t value) {
  if (record == nullptr)
    return;
  record->presence_mask |= given;
  record->*field = value;
}

/* dict_deserialize on a dictionary that is not null; false when memory ran
 * out part way, the entries read before staying. */
bool read_members(dict_s *dict, const Json::Value &in);

} // namespace velmora

#endif
