/*
 * Every reader of the value layer on arbitrary JSON: each enveloped type's
 * deserializer, and List, ResultSet and Dict reading with every element type
 * (plain texts through string_deserialize too), with and without a copier.
 * What is read is written, copied and released under the sanitizers; a copy
 * writes the same tree, and what a page or a fully flagged ListInfo writes
 * reads and writes back the same. An exception of the JSON library is a
 * documented outcome; a crash, a leak or a broken invariant is a finding.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

using held = std::unique_ptr<void, value_deleter>;

/* What `value` writes; a copy of it (when there is a copier) must write the
 * same tree. */
Json::Value write_and_copy(void *value, value_serializer write,
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
  return written;
}

/* A ListInfo writes its order and parameters once they are set again. */
Json::Value flagged(void *info) {
  auto *record = static_cast<ListInfo *>(info);
  listinfo_setOrder(record, record->order);
  listinfo_setSearch_parameters(record, record->search_parameters);
  Json::Value out;
  return *ListInfo_serialize(record, out);
}

void read_value(const value_type &t, const Json::Value &in) {
  if (t.write == nullptr || t.copy == nullptr)
    return;
  held value(t.read(in), t.release);
  write_and_copy(value.get(), t.write, t.copy, t.release);
  if (t.read != ListInfo_deserialize)
    return;
  const Json::Value first = flagged(value.get());
  if (static_cast<ListInfo *>(value.get())->presence_mask != 15 ||
      first != flagged(held(t.read(first), t.release).get()))
    abort();
}

void read_list(const value_type &t, const Json::Value &in) {
  held list(list_new(t.name, t.release, t.read, t.write, t.copy), list_del);
  list_s *read = list_deserialize(static_cast<list_s *>(list.get()), in);
  if (read != list.get() || read->nb_elements > read->capacity ||
      write_and_copy(read, list_serialize, t.copy ? list_copier : nullptr,
                     list_del)["__elements__"]
              .size() != Json::ArrayIndex(read->nb_elements))
    abort();
}

/* What a page of type `t` writes after reading `in`. */
Json::Value page_written(const value_type &t, const Json::Value &in) {
  held page(result_set_new(t.name, t.release, t.read, t.write, t.copy),
            result_set_del);
  result_set_deserialize(static_cast<result_set_s *>(page.get()), in);
  return write_and_copy(page.get(), result_set_serialize,
                        t.copy ? resultset_copier : nullptr, result_set_del);
}

void read_page(const value_type &t, const Json::Value &in) {
  const Json::Value first = page_written(t, in);
  if (first != page_written(t, first))
    abort();
}

/* Removing the oldest key in turn must leave the empty ring. */
void read_dict(const value_type &t, const Json::Value &in) {
  held d(dict_new(t.name, t.release, t.read, t.write, t.copy), dict_deleter);
  dict_s *dict = dict_deserialize(static_cast<dict_s *>(d.get()), in);
  if (dict != d.get() ||
      write_and_copy(dict, dict_serialize, t.copy ? dict_copier : nullptr,
                     dict_deleter)["__elements__"]
              .size() > Json::ArrayIndex(dict->nb_elements))
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
      for (auto reader : {read_value, read_list, read_page, read_dict})
        try {
          reader(type, in);
        } catch (const Json::Exception &) {
        }
    }
  return 0;
}
