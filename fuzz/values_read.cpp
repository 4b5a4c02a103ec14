/*
 * Every reader of the value layer on arbitrary JSON: each enveloped type's
 * deserializer, and List, Dict and ResultSet reading with every element
 * type, with and without a copier. What is read is written, copied and
 * released under the sanitizers. An exception of the JSON library is a
 * documented outcome; a crash, a leak or a broken invariant is a finding.
 */
#include <cstdlib>
#include <memory>

#include "../tests/support/value_types.h"

namespace {

using held = std::unique_ptr<void, value_deleter>;

void check(bool holds) {
  if (!holds)
    abort();
}

/* Writes `value` and, when there is a copier, a copy of it that must write
 * the same tree; returns what `value` wrote. */
Json::Value write_and_copy(void *value, value_serializer write,
                           value_copier copy, value_deleter release) {
  Json::Value written, copied;
  write(value, written);
  if (copy != nullptr) {
    void *slot = nullptr;
    copy(&slot, value);
    held copy_held(slot, release);
    write(slot, copied);
    check(written == copied);
  }
  return written;
}

void read_list(const value_type &t, const Json::Value &in) {
  held list(list_new(t.name, t.release, t.read, t.write, t.copy), list_del);
  list_s *read = list_deserialize(static_cast<list_s *>(list.get()), in);
  check(read == list.get() && read->nb_elements <= read->capacity &&
        list_get(read, read->nb_elements) == nullptr);
  Json::Value written = write_and_copy(
      read, list_serialize, t.copy ? list_copier : nullptr, list_del);
  check(written["__elements__"].size() == Json::ArrayIndex(read->nb_elements));
}

void read_page(const value_type &t, const Json::Value &in) {
  held page(result_set_new(t.name, t.release, t.read, t.write, t.copy),
            result_set_del);
  auto *read =
      result_set_deserialize(static_cast<result_set_s *>(page.get()), in);
  check(read == page.get());
  write_and_copy(read, result_set_serialize,
                 t.copy ? resultset_copier : nullptr, result_set_del);
}

/* Removing the oldest key in turn must leave the empty ring. */
void read_dict(const value_type &t, const Json::Value &in) {
  held held_dict(dict_new(t.name, t.release, t.read, t.write, t.copy),
                 dict_deleter);
  dict_s *dict = dict_deserialize(static_cast<dict_s *>(held_dict.get()), in);
  check(dict == held_dict.get());
  Json::Value written = write_and_copy(
      dict, dict_serialize, t.copy ? dict_copier : nullptr, dict_deleter);
  check(written["__elements__"].size() <= Json::ArrayIndex(dict->nb_elements));
  while (dict->nb_elements > 0)
    check(dict_remove(dict, dict->first->key) == 0);
  check(dict->first == reinterpret_cast<dict_entry_s *>(dict) &&
        dict->last == dict->first);
}

template <typename Reader> void guarded(Reader reader) {
  try {
    reader();
  } catch (const Json::Exception &) {
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value in;
  if (!parse_json(std::string(reinterpret_cast<const char *>(data), size), in))
    return 0;
  guarded([&] { string_deleter(string_deserialize(in)); });
  for (const value_type &t : value_types) {
    if (t.write != nullptr)
      guarded([&] {
        held value(t.read(in), t.release);
        write_and_copy(value.get(), t.write, t.copy, t.release);
      });
    value_type keeping = t; // without a copier: what is read is kept
    keeping.copy = nullptr;
    for (const value_type &type : {t, keeping}) {
      guarded([&] { read_list(type, in); });
      guarded([&] { read_page(type, in); });
      guarded([&] { read_dict(type, in); });
    }
  }
  return 0;
}
