/*
 * Every reader of the value layer on arbitrary JSON: each enveloped type's
 * deserializer, and List and Dict reading with every element type (plain
 * texts through string_deserialize too), with and without a copier
 * (result_set_round_trip reads pages). What is read is written, copied and
 * released under the sanitizers. An exception of the JSON library is a
 * documented outcome; a crash, a leak or a broken invariant is a finding.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

using held = std::unique_ptr<void, value_deleter>;

/* Writes `value`; a copy of it (when there is a copier) must write the
 * same tree. Returns the count of elements written. */
Json::ArrayIndex write_and_copy(void *value, value_serializer write,
                                value_copier copy, value_deleter release) {
  Json::Value written, copied;
  write(value, written);
  if (copy != nullptr) {
    void *slot = nullptr;
    copy(&slot, value);
    held copy_held(slot, release);
    if (write(slot, copied), written != copied)
      abort();
  }
  return written["__elements__"].size();
}

void read_value(const value_type &t, const Json::Value &in) {
  if (t.write != nullptr && t.copy != nullptr)
    write_and_copy(held(t.read(in), t.release).get(), t.write, t.copy,
                   t.release);
}

void read_list(const value_type &t, const Json::Value &in) {
  held list(list_new(t.name, t.release, t.read, t.write, t.copy), list_del);
  list_s *read = list_deserialize(static_cast<list_s *>(list.get()), in);
  if (read != list.get() || read->nb_elements > read->capacity ||
      write_and_copy(read, list_serialize, t.copy ? list_copier : nullptr,
                     list_del) != Json::ArrayIndex(read->nb_elements))
    abort();
}

/* Removing the oldest key in turn must leave the empty ring. */
void read_dict(const value_type &t, const Json::Value &in) {
  held d(dict_new(t.name, t.release, t.read, t.write, t.copy), dict_deleter);
  dict_s *dict = dict_deserialize(static_cast<dict_s *>(d.get()), in);
  if (dict != d.get() ||
      write_and_copy(dict, dict_serialize, t.copy ? dict_copier : nullptr,
                     dict_deleter) > Json::ArrayIndex(dict->nb_elements))
    abort();
  while (dict->nb_elements > 0 && dict_remove(dict, dict->first->key) == 0)
    ;
  if (dict->nb_elements != 0 || dict->first != (dict_entry_s *)dict ||
      dict->last != dict->first)
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value in;
  if (!parse_json(std::string(reinterpret_cast<const char *>(data), size), in))
    return 0;
  for (value_type type : value_types)
    for (value_copier copier : {type.copy, value_copier()}) {
      type.copy = copier; // without a copier: what is read is kept
      for (auto reader : {read_value, read_list, read_dict})
        try {
          reader(type, in);
        } catch (const Json::Exception &) {
        }
    }
  return 0;
}
