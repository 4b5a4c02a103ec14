/** @file
 * Typed values and their JSON form.
 *
 * A value is reached through a handle (void *) to a heap cell whose layout
 * is public; the cell carries no type tag. On the wire every enveloped value
 * is a JSON object naming its type in "__type__", with "__value__",
 * "__properties__" or "__sub_type__" and "__elements__".
 *
 * Every type has four operations, the operation set that containers hold:
 * a deleter, a deserializer, a serializer and a copier. Cells, texts and
 * arrays come from malloc/strdup and go back with free. Setters copy what
 * they are given; getters lend; copiers copy deeply; deleters release
 * everything a value owns; a container owns the elements it holds.
 *
 * No operation here reports an error. Errors the JSON library raises (a
 * member it cannot convert, say) pass to the caller, and nothing the
 * operation allocated is lost when they do. Each function below says what
 * it does with a null argument and when memory runs out.
 */
#ifndef VELMORA_VALUES_H
#define VELMORA_VALUES_H

#include <cstdint>

#include <json/value.h>

#include "velmora/export.h"

/* ---- The operation set ------------------------------------------------- */

/** Releases a value and all it owns; a null value is nothing to release. */
typedef void (*value_deleter)(void *value);
/** A new value read from its JSON form, or null. */
typedef void *(*value_deserializer)(const Json::Value &in);
/** Writes the value's JSON form into `out` and returns &out (the
 * dictionary's serializer alone returns null). */
typedef Json::Value *(*value_serializer)(void *value, Json::Value &out);
/** Stores an independent copy of `value` in `*slot`; the old content of the
 * slot is overwritten, not released. */
typedef void (*value_copier)(void **slot, void *value);

/* ---- Envelope helpers -------------------------------------------------- */

/** Frees `*slot` when it is not null and sets it to null; a null `slot` is
 * left alone. */
extern "C" VELMORA_EXPORT void safe_free(void **slot);

/**
 * Stores a strdup copy of `text` in `*slot` and returns it: null for a null
 * text, or when memory runs out. The slot's old text is not released.
 * It is also the copier of plain texts ("Unicode"), in another shape than
 * value_copier; give a container a function of the copier's shape that
 * calls it, as examples/list_items.cpp does:
 *
 *     void text_copier(void **slot, void *text) {
 *       string_copier(reinterpret_cast<char **>(slot),
 *                     static_cast<char *>(text));
 *     }
 */
extern "C" VELMORA_EXPORT char *string_copier(char **slot, const char *text);

/* ---- Long -------------------------------------------------------------- */

/** "Long": "__value__" is "%lld" text, read back with strtoll base 10. */
struct Long {
  int64_t value; /**< the number */
};

/** A new cell holding 0, or null when memory runs out. */
VELMORA_EXPORT void *Long_new();
/** Writes the envelope typed "Long" into `out` (a null "__value__" for a
 * null handle); returns &out. */
extern "C" VELMORA_EXPORT Json::Value *Long_serialize(void *value,
                                                      Json::Value &out);
/** A new cell read from `in` (an absent value reads as 0); null when memory
 * runs out. A conversion error is raised before anything is allocated. */
extern "C" VELMORA_EXPORT void *Long_deserialize(const Json::Value &in);
/** Stores a new copy of the cell in `*slot`: null for a null handle, or
 * when memory runs out. */
extern "C" VELMORA_EXPORT void Long_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Long_deleter(void *value);
/** The cell's integer; 0 for a null handle. */
extern "C" VELMORA_EXPORT int64_t Long_getValue(void *value);
/** Stores `number` in the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Long_setValue(void *value, int64_t number);

/* ---- ULong ------------------------------------------------------------- */

/** Written as "Long" too: "%llu" text, read back with strtoull base 0. */
struct ULong {
  uint64_t value; /**< the number */
};

/** Writes the envelope typed "Long" (a null "__value__" for a null handle);
 * returns &out. */
extern "C" VELMORA_EXPORT Json::Value *ULong_serialize(void *value,
                                                       Json::Value &out);
/** A new cell read from `in` (absent reads as 0); null when memory runs
 * out. A conversion error is raised before anything is allocated. */
extern "C" VELMORA_EXPORT void *ULong_deserialize(const Json::Value &in);
/** Stores a new copy in `*slot`: null for a null handle or out of memory. */
extern "C" VELMORA_EXPORT void ULong_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void ULong_deleter(void *value);

/* ---- Double ------------------------------------------------------------ */

/** "Double": "%f" text, read back with strtod. Both follow the process's
 * numeric locale. A text longer than 31 characters is cut at 31 when its
 * integer part (sign included) fits in those 31, which removes only fraction
 * digits; a longer integer part is written whole, so that the value read
 * back is the value written (1e25 gives "10000000000000000905969664.0000",
 * 1e40 its whole text). */
struct Double {
  double value; /**< the number */
};

/** A new cell holding 0.0, or null when memory runs out. */
extern "C" VELMORA_EXPORT void *Double_new(void);
/** Writes the envelope typed "Double" (a null "__value__" for a null
 * handle); returns &out. */
extern "C" VELMORA_EXPORT Json::Value *Double_serialize(void *value,
                                                        Json::Value &out);
/** A new cell read from `in` (absent reads as 0.0); null when memory runs
 * out. A conversion error is raised before anything is allocated. */
extern "C" VELMORA_EXPORT void *Double_deserialize(const Json::Value &in);
/** Stores a new copy in `*slot`: null for a null handle or out of memory. */
extern "C" VELMORA_EXPORT void Double_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Double_deleter(void *value);

/* ---- Time and Date ----------------------------------------------------- */

/** "Time" and "Date": "__value__" is a JSON real; reading truncates toward
 * zero, saturates outside the 64-bit range and reads NaN as 0. */
struct Time {
  int64_t value; /**< the number */
};
/** "Date": as Time. */
struct Date {
  int64_t value; /**< the number */
};

/** Writes the envelope typed "Time" (a null "__value__" for a null handle);
 * returns &out. */
extern "C" VELMORA_EXPORT Json::Value *Time_serialize(void *value,
                                                      Json::Value &out);
/** A new cell read from `in` (absent reads as 0); null when memory runs
 * out. A conversion error is raised before anything is allocated. */
extern "C" VELMORA_EXPORT void *Time_deserialize(const Json::Value &in);
/** Stores a new copy in `*slot`: null for a null handle or out of memory. */
extern "C" VELMORA_EXPORT void Time_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Time_deleter(void *value);

/** As the Time operations, typed "Date". */
extern "C" VELMORA_EXPORT Json::Value *Date_serialize(void *value,
                                                      Json::Value &out);
/** As Time_deserialize. */
extern "C" VELMORA_EXPORT void *Date_deserialize(const Json::Value &in);
/** As Time_copier. */
extern "C" VELMORA_EXPORT void Date_copier(void **slot, void *value);
/** As Time_deleter. */
extern "C" VELMORA_EXPORT void Date_deleter(void *value);

/* ---- Integer and Boolean ----------------------------------------------- */

/** Element types "Integer" and "Boolean" (0 or 1): they exist only inside
 * containers, written and read as bare JSON values. */
struct Integer {
  int32_t value; /**< the number */
};
/** "Boolean": 0 for false, 1 for true. */
struct Boolean {
  int32_t value; /**< 0 or 1 */
};

/** Stores a new copy in `*slot`: null for a null handle or out of memory. */
extern "C" VELMORA_EXPORT void Integer_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Integer_deleter(void *value);
/** Stores a new copy in `*slot`: null for a null handle or out of memory. */
extern "C" VELMORA_EXPORT void Boolean_copier(void **slot, void *value);
/** Frees the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Boolean_deleter(void *value);

/* ---- Plain texts ("Unicode") ------------------------------------------- */

/** The handle is the text itself; string_copier (above) copies it. */

/** A strdup copy of the bare JSON value's text (null gives ""); null when
 * memory runs out. A conversion error is raised before anything is
 * allocated. */
extern "C" VELMORA_EXPORT void *string_deserialize(const Json::Value &in);
/** Frees the text; null does nothing. */
extern "C" VELMORA_EXPORT void string_deleter(void *text);

/* ---- IP ---------------------------------------------------------------- */

/** "IP": a cell holding one owned text (null in a fresh cell, written as
 * ""). */
struct IP {
  char *value; /**< owned text; null when none */
};

/** A new cell holding no text, or null when memory runs out. */
extern "C" VELMORA_EXPORT void *IP_new(void);
/** The cell's text, lent; null for a fresh cell or a null handle. */
extern "C" VELMORA_EXPORT char *ip_getValue(void *value);
/** Stores a copy of `text` (which may be the cell's own text), releases the
 * old one, and returns the copy. A null text leaves the cell without one.
 * When memory runs out, or for a null handle, returns null and the cell
 * keeps its old text. */
extern "C" VELMORA_EXPORT char *ip_setValue(void *value, const char *text);
/** Writes the envelope typed "IP" (a null "__value__" for a null handle);
 * returns &out. */
extern "C" VELMORA_EXPORT Json::Value *IP_serialize(void *value,
                                                    Json::Value &out);
/** A new cell holding the text of `in`'s "__value__" (absent reads as "");
 * null when memory runs out. A conversion error is raised before anything
 * is allocated. */
extern "C" VELMORA_EXPORT void *IP_deserialize(const Json::Value &in);
/** Stores a new cell with a copy of the text in `*slot`: null for a null
 * handle or out of memory. */
extern "C" VELMORA_EXPORT void IP_copier(void **slot, void *value);
/** Frees the text and the cell; a null handle does nothing. */
extern "C" VELMORA_EXPORT void IP_deleter(void *value);

/* ---- Ciphered ---------------------------------------------------------- */

/** "Ciphered": as IP, carried exactly as stored. */
struct Ciphered {
  char *value; /**< owned text; null when none */
};

/** As IP_serialize, typed "Ciphered". */
extern "C" VELMORA_EXPORT Json::Value *Ciphered_serialize(void *value,
                                                          Json::Value &out);
/** As IP_deserialize. */
extern "C" VELMORA_EXPORT void *Ciphered_deserialize(const Json::Value &in);
/** As IP_copier. */
extern "C" VELMORA_EXPORT void Ciphered_copier(void **slot, void *value);
/** As IP_deleter. */
extern "C" VELMORA_EXPORT void Ciphered_deleter(void *value);

/* ---- Blob -------------------------------------------------------------- */

/** "Blob": `length` bytes at `data` (may be null when `length` is 0);
 * "__value__" is the Base64 of the bytes. A negative `length` or a null
 * `data` counts as no bytes. */
struct Blob {
  char *data;     /**< owned bytes, from malloc */
  int32_t length; /**< how many */
};

/** Writes the envelope typed "Blob" (a null "__value__" for a null handle);
 * returns &out. */
extern "C" VELMORA_EXPORT Json::Value *Blob_serialize(void *value,
                                                      Json::Value &out);
/** A new blob of the bytes `in`'s "__value__" decodes to; null when memory
 * runs out. A conversion error is raised before anything is allocated. */
extern "C" VELMORA_EXPORT void *Blob_deserialize(const Json::Value &in);
/** Stores a new blob with a copy of the readable bytes in `*slot`: null for
 * a null handle or out of memory. */
extern "C" VELMORA_EXPORT void Blob_copier(void **slot, void *value);
/** Frees the bytes and the blob; a null handle does nothing. */
extern "C" VELMORA_EXPORT void Blob_deleter(void *value);

/* ---- List -------------------------------------------------------------- */

/** The library's boolean: 0 is false, anything else true. */
enum bool_t : int32_t { VELMORA_FALSE = 0, VELMORA_TRUE = 1 };

/** An ordered, growable sequence of values of one element type. The element
 * types "Unicode", "Integer" and "Boolean" are written and read as bare
 * JSON values when the list has no serializer or deserializer; a null
 * element of such a list is written as JSON null. Elements of any other
 * type need both operations: without them each is written as null and
 * entries are not read. A null that an element's own copier or
 * deserializer gives is stored as that element. */
struct list_s {
  int32_t nb_elements;             /**< entries held */
  int32_t capacity;                /**< slots allocated */
  void **elements;                 /**< the handles, owned */
  char *sub_type;                  /**< element type name, owned */
  value_deleter deleter;           /**< element operations; any may be null */
  value_deserializer deserializer; /**< reads a value */
  value_serializer serializer;     /**< writes a value */
  value_copier copier;             /**< copies a value in */
};

/** A new empty list of `sub_type` (copied; null counts as "") with the given
 * operations, each of which may be null. Null when memory runs out. */
extern "C" VELMORA_EXPORT list_s *list_new(const char *sub_type,
                                           value_deleter deleter,
                                           value_deserializer deserializer,
                                           value_serializer serializer,
                                           value_copier copier);
/** Releases every element through the deleter (when set), then the list; a
 * null list does nothing. */
extern "C" VELMORA_EXPORT void list_del(void *list);
/** Adds a copy of `value` made by the copier (the caller keeps `value`), or
 * the handle itself when the list has no copier. A null list, a full list
 * (INT32_MAX elements) or running out of memory adds nothing. */
extern "C" VELMORA_EXPORT void list_add(list_s *list, void *value);
/** Adds `value`: through the copier when `copy` is non-zero and the list has
 * one, otherwise the handle itself, which then belongs to the list. When
 * nothing can be added (as for list_add) a handle given over stays the
 * caller's. */
VELMORA_EXPORT void list_add_copy(list_s *list, void *value, bool_t copy);
/** The element at `index`, lent; null for a null list or an index outside 0
 * to nb_elements - 1. */
extern "C" VELMORA_EXPORT void *list_get(list_s *list, int32_t index);
/** The element count; 0 for a null list. */
extern "C" VELMORA_EXPORT int32_t list_get_nb_elements(list_s *list);
/** Stores in `*slot` a new list with the same sub-type and operations whose
 * elements were added with list_add (shared when there is no copier); null
 * for a null list, or when memory runs out (nothing is lost then). */
extern "C" VELMORA_EXPORT void list_copier(void **slot, void *list);
/** -1 when either list is null or the sub-types differ, else 1 when the
 * element counts match and -2 when they do not. Elements are not
 * compared. */
extern "C" VELMORA_EXPORT int32_t list_compare(list_s *a, list_s *b);
/** Writes "__type__" "List", "__sub_type__" and "__elements__" into `out`
 * (nothing for a null list); returns &out. */
extern "C" VELMORA_EXPORT Json::Value *list_serialize(void *list,
                                                      Json::Value &out);
/** Appends the elements of `in` when its "__sub_type__" is a leading part of
 * the list's (absent counts as "Unknown"); otherwise prints "Out the loop"
 * on standard output and adds nothing. An "__elements__" that is not an
 * array adds nothing. When memory runs out reading stops, keeping what was
 * added. Returns `list` (null for a null list). */
extern "C" VELMORA_EXPORT list_s *list_deserialize(list_s *list,
                                                   const Json::Value &in);

/* ---- Dict -------------------------------------------------------------- */

/** One entry of a dictionary. */
struct dict_entry_s {
  char *key;          /**< owned copy */
  void *value;        /**< owned handle */
  dict_entry_s *next; /**< newer; the dictionary record after the newest */
  dict_entry_s *prev; /**< older; the dictionary record before the oldest */
};

/** Entries of a text key and a value, in insertion order, on a ring that
 * passes through the record: `first` and `last` are the record itself
 * (cast) when the dictionary is empty. Keys may repeat; lookups find the
 * oldest entry. Native and other element types are written and read as in
 * a list, and a null from an element's own operation is stored alike. */
struct dict_s {
  dict_entry_s *first;             /**< oldest entry */
  dict_entry_s *last;              /**< newest entry */
  int32_t nb_elements;             /**< entries held */
  char *sub_type;                  /**< element type name, owned */
  value_deleter deleter;           /**< element operations; any may be null */
  value_deserializer deserializer; /**< reads a value */
  value_serializer serializer;     /**< writes a value */
  value_copier copier;             /**< copies a value in */
};

/** A new empty dictionary of `sub_type` (copied; null counts as "") with the
 * given operations, each of which may be null. Null when memory runs out. */
extern "C" VELMORA_EXPORT dict_s *dict_new(const char *sub_type,
                                           value_deleter deleter,
                                           value_deserializer deserializer,
                                           value_serializer serializer,
                                           value_copier copier);
/** Releases every entry (values through the deleter when set), then the
 * dictionary; a null dictionary does nothing. */
VELMORA_EXPORT void dict_free(dict_s *dict);
/** dict_free in the deleter's shape. */
extern "C" VELMORA_EXPORT void dict_deleter(void *dict);
/** Adds an entry: a copy of `key` and the value through the copier when set
 * (else the handle itself). A null dictionary or key, or running out of
 * memory, adds nothing. */
extern "C" VELMORA_EXPORT void dict_add(dict_s *dict, const char *key,
                                        void *value);
/** The value of the oldest entry with `key`, lent; null when none, or for a
 * null dictionary or key. */
extern "C" VELMORA_EXPORT void *dict_get(dict_s *dict, const char *key);
/** 1 when an entry has `key`, else 0 (also for a null dictionary or key). */
extern "C" VELMORA_EXPORT int32_t has_key(dict_s *dict, const char *key);
/** Removes and releases the oldest entry with `key`: 0, or -1 when there is
 * none (also for a null dictionary or key). */
extern "C" VELMORA_EXPORT int32_t dict_remove(dict_s *dict, const char *key);
/** Stores a new array of the entries' own key texts (lent; free only the
 * array), oldest first, in `*keys` and their count in `*count`; either
 * pointer may be null. A null dictionary gives an empty array. When memory
 * runs out the array is null and the count 0. */
extern "C" VELMORA_EXPORT void dict_keys(dict_s *dict, char ***keys,
                                         int32_t *count);
/** A new array of the value handles, oldest first (lent; free only the
 * array); empty for a null dictionary, null only when memory runs out. */
extern "C" VELMORA_EXPORT void **dict_values(dict_s *dict);
/** Stores in `*slot` a copy made entry by entry with dict_add; null for a
 * null dictionary, or when memory runs out (nothing is lost then). */
extern "C" VELMORA_EXPORT void dict_copier(void **slot, void *dict);
/** Writes "__type__" "Dict", "__sub_type__" and "__elements__" into `out`
 * (nothing for a null dictionary); returns null. The serializer is called
 * once per entry, oldest first, each time with the value that dict_get
 * finds for the entry's key (the oldest entry's), so a key held by several
 * entries gives one member. When the serializer throws, the members of the
 * entries before it stay in "__elements__" and the exception passes on. */
extern "C" VELMORA_EXPORT Json::Value *dict_serialize(void *dict,
                                                      Json::Value &out);
/** Adds the members of `in`'s "__elements__" (an object; anything else adds
 * nothing), in ascending byte order of their names, when its
 * "__sub_type__" fits; silently nothing otherwise. With a copier the value
 * read is copied in and released. When memory runs out reading stops,
 * keeping what was added. Returns `dict` (null for a null dictionary). */
extern "C" VELMORA_EXPORT dict_s *dict_deserialize(dict_s *dict,
                                                   const Json::Value &in);

/* ---- ResultSet --------------------------------------------------------- */

/** One page of results: a list and the total count it is part of. */
struct result_set_s {
  list_s *list;        /**< the page's elements, owned */
  int32_t total_items; /**< results in all (-1: unknown) */
};

/** A new page with an empty list (as list_new) and total_items 0; null when
 * memory runs out. */
extern "C" VELMORA_EXPORT result_set_s *
result_set_new(const char *sub_type, value_deleter deleter,
               value_deserializer deserializer, value_serializer serializer,
               value_copier copier);
/** Deletes the list with list_del, then the page; null does nothing. */
extern "C" VELMORA_EXPORT void result_set_del(void *result_set);
/** list_add on the page's list; a null page does nothing. */
extern "C" VELMORA_EXPORT void result_set_add(result_set_s *result_set,
                                              void *value);
/** list_get on the page's list; null for a null page. */
extern "C" VELMORA_EXPORT void *result_set_get(result_set_s *result_set,
                                               int32_t index);
/** list_get_nb_elements on the page's list; 0 for a null page. */
extern "C" VELMORA_EXPORT int32_t
result_get_nb_elements(result_set_s *result_set);
/** The total count of results the page is part of (-1: unknown); 0 for a
 * null page. */
extern "C" VELMORA_EXPORT int32_t
result_set_get_total_items(result_set_s *result_set);
/** Stores the total count; a null page does nothing. */
extern "C" VELMORA_EXPORT void
result_set_set_total_items(result_set_s *result_set, int32_t total_items);
/** The list's form typed "ResultSet", plus "__total_items__" (nothing for a
 * null page); returns &out. */
extern "C" VELMORA_EXPORT Json::Value *result_set_serialize(void *result_set,
                                                            Json::Value &out);
/** Reads the list as list_deserialize does, then total_items from
 * "__total_items__" (-1 when absent), accepted or not. Returns
 * `result_set` (null for a null page). */
extern "C" VELMORA_EXPORT result_set_s *
result_set_deserialize(result_set_s *result_set, const Json::Value &in);
/** Stores in `*slot` a new page: the list copied as list_copier copies it,
 * and the same total_items; null for a null page or out of memory. */
extern "C" VELMORA_EXPORT void resultset_copier(void **slot, void *result_set);

/* ---- Ordering ---------------------------------------------------------- */

/** Sort order. `presence_mask`: 1 = asc given, 2 = order_by given (owned). */
struct Ordering {
  int32_t asc;            /**< 1: ascending */
  char *order_by;         /**< field name */
  uint64_t presence_mask; /**< which fields were given */
};

/** Zeroes every field of a record the caller allocated; null does
 * nothing. */
extern "C" VELMORA_EXPORT void Ordering_init(Ordering *ordering);
/** A new zeroed record to release with Ordering_deleter; null when memory
 * runs out. */
extern "C" VELMORA_EXPORT Ordering *Ordering_new(void);
/** The "asc" field; 0 for a null record. */
extern "C" VELMORA_EXPORT int32_t ordering_getAsc(Ordering *ordering);
/** Stores `asc` and sets its presence bit; a null record does nothing. */
extern "C" VELMORA_EXPORT void ordering_setAsc(Ordering *ordering, int32_t asc);
/** Deserializer step: stores 1 or 0 as the "asc" member of `properties` is
 * true or not, and sets its presence bit; a null record does nothing. */
VELMORA_EXPORT void ordering_setJsonAsc(void *ordering,
                                        const Json::Value &properties);
/** The "order_by" text, lent; null when never given, or for a null
 * record. */
extern "C" VELMORA_EXPORT char *ordering_getOrder_by(Ordering *ordering);
/** Stores a copy of `order_by` (which may be the record's own text) and
 * releases the text it held; null stores no text. When memory runs out, or
 * for a null record, nothing changes. */
extern "C" VELMORA_EXPORT void ordering_setOrder_by(Ordering *ordering,
                                                    const char *order_by);
/** Deserializer step, on a record fresh from Ordering_new: stores a copy of
 * the "order_by" member's text and sets its presence bit, overwriting the
 * field. When memory runs out, or for a null record, nothing changes. */
VELMORA_EXPORT void ordering_setJsonOrder_by(void *ordering,
                                             const Json::Value &properties);
/** Writes "asc" (true only for exactly 1) and "order_by" ("" when there is
 * no text) whatever the mask says (nothing for a null record); returns
 * &out. */
extern "C" VELMORA_EXPORT Json::Value *Ordering_serialize(void *ordering,
                                                          Json::Value &out);
/** A new record with both presence bits set, whatever `in` holds; null when
 * memory runs out. On a conversion error nothing is lost. */
extern "C" VELMORA_EXPORT void *Ordering_deserialize(const Json::Value &in);
/** Stores in `*slot` a copy of the fields whose presence bits are set, with
 * the whole mask; null for a null record or out of memory. */
extern "C" VELMORA_EXPORT void Ordering_copier(void **slot, void *ordering);
/** Releases the members the mask says the record owns, not the record;
 * null does nothing. */
extern "C" VELMORA_EXPORT void Ordering_destroy(Ordering *ordering);
/** Ordering_destroy, then releases the record; null does nothing. */
extern "C" VELMORA_EXPORT void Ordering_deleter(void *ordering);

/* ---- ListInfo ---------------------------------------------------------- */

/** Paging and filter request. `presence_mask`: 1 = limit, 2 = order (owned),
 * 4 = search_parameters (owned), 8 = offset. The two *_is_set flags decide
 * what the serializer writes. */
struct ListInfo {
  int32_t limit;                    /**< page size; 0: the rest */
  Ordering *order;                  /**< sort order */
  int32_t order_is_set;             /**< 1: write `order` */
  dict_s *search_parameters;        /**< field name to wanted value */
  int32_t search_parameters_is_set; /**< 1: write `search_parameters` */
  int32_t offset;                   /**< first result wanted */
  uint64_t presence_mask;           /**< which fields were given */
};

/** Zeroes every field of a record the caller allocated; null does
 * nothing. */
extern "C" VELMORA_EXPORT void ListInfo_init(ListInfo *list_info);
/** A new zeroed record to release with ListInfo_deleter; null when memory
 * runs out. */
extern "C" VELMORA_EXPORT ListInfo *ListInfo_new(void);
/** The "limit" field; 0 for a null record. */
extern "C" VELMORA_EXPORT int32_t listinfo_getLimit(ListInfo *list_info);
/** Stores `limit` and sets its presence bit; a null record does nothing. */
extern "C" VELMORA_EXPORT void listinfo_setLimit(ListInfo *list_info,
                                                 int32_t limit);
/** Deserializer step: stores the "limit" member of `properties` as
 * listinfo_setLimit does; a null record does nothing. */
VELMORA_EXPORT void listinfo_setJsonLimit(void *list_info,
                                          const Json::Value &properties);
/** The order, lent; null when none, or for a null record. */
extern "C" VELMORA_EXPORT Ordering *listinfo_getOrder(ListInfo *list_info);
/** Stores a copy of `order` (which may be the record's own), releases the
 * one held and marks it to be written; null leaves no order to write. When
 * memory runs out, or for a null record, nothing changes. */
extern "C" VELMORA_EXPORT void listinfo_setOrder(ListInfo *list_info,
                                                 Ordering *order);
/** Deserializer step, on a record fresh from ListInfo_new: stores the
 * Ordering read from the "order" member and sets its presence bit, not the
 * flag. When memory runs out, or for a null record, nothing changes. */
VELMORA_EXPORT void listinfo_setJsonOrder(void *list_info,
                                          const Json::Value &properties);
/** The search parameters, lent; null when none, or for a null record. */
extern "C" VELMORA_EXPORT dict_s *
listinfo_getSearch_parameters(ListInfo *list_info);
/** Stores a copy of `parameters` (which may be the record's own, and keeps
 * its element type), releases the one held and marks it to be written;
 * null leaves nothing to write. When memory runs out, or for a null
 * record, nothing changes. */
extern "C" VELMORA_EXPORT void
listinfo_setSearch_parameters(ListInfo *list_info, dict_s *parameters);
/** Deserializer step, on a record fresh from ListInfo_new: stores a Dict of
 * "Unicode" read from the "search_parameters" member and sets its presence
 * bit, not the flag. When memory runs out, or for a null record, nothing
 * changes. */
VELMORA_EXPORT void
listinfo_setJsonSearch_parameters(void *list_info,
                                  const Json::Value &properties);
/** The "offset" field; 0 for a null record. */
extern "C" VELMORA_EXPORT int32_t listinfo_getOffset(ListInfo *list_info);
/** Stores `offset` and sets its presence bit; a null record does nothing. */
extern "C" VELMORA_EXPORT void listinfo_setOffset(ListInfo *list_info,
                                                  int32_t offset);
/** Deserializer step: stores the "offset" member of `properties` as
 * listinfo_setOffset does; a null record does nothing. */
VELMORA_EXPORT void listinfo_setJsonOffset(void *list_info,
                                           const Json::Value &properties);
/** Writes "limit" and "offset" always, "order" and "search_parameters"
 * only when their flags are exactly 1 (nothing for a null record); returns
 * &out. */
extern "C" VELMORA_EXPORT Json::Value *ListInfo_serialize(void *list_info,
                                                          Json::Value &out);
/** A new record with all four presence bits set (an empty Ordering and an
 * empty Dict of "Unicode" when absent) and neither flag raised; null when
 * memory runs out. On a conversion error nothing is lost. */
extern "C" VELMORA_EXPORT void *ListInfo_deserialize(const Json::Value &in);
/** Stores in `*slot` a copy of the fields whose presence bits are set, with
 * the whole mask (the flags stay clear); null for a null record or out of
 * memory. */
extern "C" VELMORA_EXPORT void ListInfo_copier(void **slot, void *list_info);
/** Releases the members the mask says the record owns, not the record; the
 * pointers and mask are left as they were, so apply ListInfo_init before
 * using the record again. Null does nothing. */
extern "C" VELMORA_EXPORT void ListInfo_destroy(ListInfo *list_info);
/** ListInfo_destroy, then releases the record; null does nothing. */
extern "C" VELMORA_EXPORT void ListInfo_deleter(void *list_info);

#endif
