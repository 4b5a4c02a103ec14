/*
 * What the list and the dictionary share: the bare JSON form of the native
 * element types ("Unicode", "Integer", "Boolean") and the sub-type check
 * that a source must pass before it is read. Also the dictionary's read
 * for the records that hold one.
 */
#ifndef VELMORA_VALUES_ELEMENTS_H
#define VELMORA_VALUES_ELEMENTS_H

#include <json/value.h>

#include "velmora/values.h"

namespace velmora {

enum class native_kind { none, unicode, integer, boolean };

/* The native kind named by `sub_type` (whole-name match), or none. */
native_kind native_kind_of(const char *sub_type);

/* The bare JSON form of `element`. A null element, and any element of kind
 * none, is JSON null. */
Json::Value native_to_json(native_kind kind, const void *element);

/* A new cell (or text) read from `entry`, or null for kind none and when
 * memory runs out. When the JSON library cannot convert the entry it
 * raises, and nothing is allocated. */
void *native_from_json(native_kind kind, const Json::Value &entry);

/* True when the "__sub_type__" of `in` ("Unknown" when absent) is a leading
 * part of `sub_type`; an empty text always fits. */
bool sub_type_fits(const char *sub_type, const Json::Value &in);

/* Calls `copier` on `slot` and `value`. The "Unicode" copier is
 * string_copier, whose own type differs from the copier's shape; it is
 * called as what it is, since a call through a pointer of another function
 * type is undefined. */
void copy_element(value_copier copier, void **slot, void *value);

/* dict_deserialize on a dictionary that is not null; false when memory ran
 * out part way, the entries read before staying. */
bool read_members(dict_s *dict, const Json::Value &in);

/* The member `name` of `in`, lent, or null when absent. Raises, as the JSON
 * library does, when `in` is neither null nor an object. */
const Json::Value *find_member(const Json::Value &in, const char *name);

} // namespace velmora

#endif
