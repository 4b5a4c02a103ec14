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

/* What reading one entry gave. */
enum class element_read { element, nothing, out_of_memory };

/*
 * Reads `entry` as a container does: through `deserializer` when there is
 * one (its null is an element like any other), else as the native `kind`
 * (null only when memory runs out), else nothing. Raises as the
 * deserializer or the JSON library does, having allocated nothing.
 */
element_read read_element(value_deserializer deserializer, native_kind kind,
                          const Json::Value &entry, void *&element);

/* What a container stores for `value`: the copier's copy (null included,
 * the copier's answer), or `value` itself when there is no copier. */
void *stored_form(value_copier copier, void *value);

/* Releases an element a container made but cannot keep: with `deleter`,
 * or free when there is none. A null holds nothing to release. */
void discard_element(value_deleter deleter, void *element);

/*
 * The copier shape of both containers: a null source gives null; else a
 * container made like the source and given each of its elements, or null
 * when memory runs out on the way (the part made is released, sparing the
 * handles it shares with the source).
 */
struct container_copying {
  void *(*make_like)(const void *source);
  bool (*add_all)(void *copy, void *source); /* false: out of memory */
  void (*release_part)(void *copy);
};
void copy_container(void **slot, void *source, const container_copying &how);

/* dict_deserialize on a dictionary that is not null; false when memory ran
 * out part way, the entries read before staying. */
bool read_members(dict_s *dict, const Json::Value &in);

} // namespace velmora

#endif
