/* The element logic the list, the dictionary and the records that hold
 * one share: native kinds, reading, storing, discarding and copying. */
#include <cstdlib>
#include <cstring>
#include <string>

#include "values_internal.h"
#include "velmora/values.h"

namespace velmora {

native_kind native_kind_of(const char *sub_type) {
  if (strcmp(sub_type, "Unicode") == 0)
    return native_kind::unicode;
  if (strcmp(sub_type, "Integer") == 0)
    return native_kind::integer;
  if (strcmp(sub_type, "Boolean") == 0)
    return native_kind::boolean;
  return native_kind::none;
}

Json::Value native_to_json(native_kind kind, const void *element) {
  if (element == nullptr)
    return Json::Value();
  switch (kind) {
  case native_kind::unicode:
    return Json::Value(static_cast<const char *>(element));
  case native_kind::integer:
    return Json::Value(static_cast<const Integer *>(element)->value);
  case native_kind::boolean:
    // Only the low-order byte decides, whatever else the cell holds.
    return Json::Value((static_cast<const Boolean *>(element)->value & 0xff) !=
                       0);
  case native_kind::none:
    break;
  }
  return Json::Value();
}

namespace {

/* A new cell (or text) read from `entry`, or null for kind none and when
 * memory runs out. When the JSON library cannot convert the entry it
 * raises, and nothing is allocated. */
void *native_from_json(native_kind kind, const Json::Value &entry) {
  switch (kind) {
  case native_kind::unicode:
    return strdup(entry.asString().c_str());
  case native_kind::integer: {
    // Convert before allocating so that a refused entry leaks nothing.
    int32_t number = entry.asInt();
    Integer *cell = static_cast<Integer *>(malloc(sizeof *cell));
    if (cell != nullptr)
      cell->value = number;
    return cell;
  }
  case native_kind::boolean: {
    int32_t flag = entry.asBool() ? 1 : 0;
    Boolean *cell = static_cast<Boolean *>(malloc(sizeof *cell));
    if (cell != nullptr)
      cell->value = flag;
    return cell;
  }
  case native_kind::none:
    break;
  }
  return nullptr;
}

} // namespace

bool sub_type_fits(const char *sub_type, const Json::Value &in) {
  const Json::Value *named = find_member(in, "__sub_type__");
  std::string text = named != nullptr ? named->asString() : "Unknown";
  // A prefix test that never reads past the end of our own name.
  size_t own = strlen(sub_type);
  return text.size() <= own && memcmp(sub_type, text.data(), text.size()) == 0;
}

const Json::Value *find_member(const Json::Value &in, const char *name) {
  return in.find(name, name + strlen(name));
}

value_copier text_copier() {
  // string_copier returns its copy; no container reads a copier's result.
  return reinterpret_cast<value_copier>(
      reinterpret_cast<void (*)()>(string_copier));
}

bool read_element(const element_reader &reader, const Json::Value &entry,
                  bool (*store)(void *target, void *element), void *target) {
  if (reader.deserializer == nullptr && reader.kind == native_kind::none)
    return true; // nothing reads this element type
  void *element = reader.deserializer != nullptr
                      ? reader.deserializer(entry)
                      : native_from_json(reader.kind, entry);
  // A deserializer's null is an element like any other; a native read gives
  // null only when memory runs out.
  if (element == nullptr && reader.deserializer == nullptr)
    return false;
  bool stored = store(target, element);
  if (reader.stores_copy || !stored)
    discard_element(reader.deleter, element);
  return stored;
}

void *stored_form(value_copier copier, void *value) {
  if (copier == nullptr)
    return value;
  void *copy = nullptr;
  // string_copier is called as what it is: a call through a pointer of
  // another function type is undefined.
  if (copier == text_copier())
    string_copier(reinterpret_cast<char **>(&copy),
                  static_cast<const char *>(value));
  else
    copier(&copy, value);
  return copy;
}

void discard_element(value_deleter deleter, void *element) {
  if (element == nullptr)
    return;
  if (deleter != nullptr)
    deleter(element);
  else
    free(element);
}

namespace {

template <typename Container>
bool set_type(Container *container, const char *sub_type, value_deleter deleter,
              value_deserializer deserializer, value_serializer serializer,
              value_copier copier) {
  container->sub_type = strdup(sub_type != nullptr ? sub_type : "");
  container->deleter = deleter;
  container->deserializer = deserializer;
  container->serializer = serializer;
  container->copier = copier;
  return container->sub_type != nullptr;
}

void release(list_s *list) {
  list_del(list);
}

void release(dict_s *dict) {
  dict_free(dict);
}

template <typename Container>
Container *copy_of(Container *source,
                   Container *(*make)(const char *, value_deleter,
                                      value_deserializer, value_serializer,
                                      value_copier)) {
  if (source == nullptr)
    return nullptr;
  Container *copy =
      make(source->sub_type, source->deleter, source->deserializer,
           source->serializer, source->copier);
  if (copy == nullptr || add_copies(copy, source))
    return copy;
  // Handles shared with the source are the source's to release.
  if (copy->copier == nullptr)
    copy->deleter = nullptr;
  release(copy);
  return nullptr;
}

} // namespace

bool set_element_type(list_s *list, const char *sub_type, value_deleter deleter,
                      value_deserializer deserializer,
                      value_serializer serializer, value_copier copier) {
  return set_type(list, sub_type, deleter, deserializer, serializer, copier);
}

bool set_element_type(dict_s *dict, const char *sub_type, value_deleter deleter,
                      value_deserializer deserializer,
                      value_serializer serializer, value_copier copier) {
  return set_type(dict, sub_type, deleter, deserializer, serializer, copier);
}

list_s *copy_container(list_s *source) {
  return copy_of(source, list_new);
}

dict_s *copy_container(dict_s *source) {
  return copy_of(source, dict_new);
}

} // namespace velmora
