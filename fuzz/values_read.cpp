/*
 * Every reader of the value layer on arbitrary JSON: each scalar and record
 * deserializer, and List, Dict and ResultSet reading with every element
 * type. What is read is then written, copied and released, so the whole
 * life of a value read from a hostile reply runs under the sanitizers.
 * An exception of the JSON library is a documented outcome; anything else,
 * a crash, a leak or a broken invariant, is a finding.
 */
#include <cstdlib>
#include <cstring>

#include "json_input.h"

namespace {

struct scalar_type {
  value_deleter deleter;
  value_deserializer deserializer;
  value_serializer serializer;
  value_copier copier;
};

const scalar_type scalar_types[] = {
    {Long_deleter, Long_deserialize, Long_serialize, Long_copier},
    {ULong_deleter, ULong_deserialize, ULong_serialize, ULong_copier},
    {Double_deleter, Double_deserialize, Double_serialize, Double_copier},
    {Time_deleter, Time_deserialize, Time_serialize, Time_copier},
    {Date_deleter, Date_deserialize, Date_serialize, Date_copier},
    {IP_deleter, IP_deserialize, IP_serialize, IP_copier},
    {Ciphered_deleter, Ciphered_deserialize, Ciphered_serialize,
     Ciphered_copier},
    {Blob_deleter, Blob_deserialize, Blob_serialize, Blob_copier},
    {Ordering_deleter, Ordering_deserialize, Ordering_serialize,
     Ordering_copier},
    {ListInfo_deleter, ListInfo_deserialize, ListInfo_serialize,
     ListInfo_copier},
};

/* Containers without a copier keep what they read as it comes; they are
 * not copied here, since a copy would share their elements. */
const operation_set keeping_types[] = {
    {"Unicode", string_deleter, nullptr, nullptr, nullptr},
    {"Integer", Integer_deleter, nullptr, nullptr, nullptr},
    {"Long", Long_deleter, Long_deserialize, Long_serialize, nullptr},
    {"Blob", Blob_deleter, Blob_deserialize, Blob_serialize, nullptr},
};

/* Holds a value for the harness so that an exception never leaks it. */
struct held {
  void *value = nullptr;
  value_deleter deleter;
  explicit held(value_deleter d) : deleter(d) {}
  ~held() {
    if (value != nullptr)
      deleter(value);
  }
};

void read_scalar(const scalar_type &type, const Json::Value &in) {
  held value(type.deleter), copy(type.deleter);
  value.value = type.deserializer(in);
  Json::Value written, copied;
  type.serializer(value.value, written);
  type.copier(&copy.value, value.value);
  type.serializer(copy.value, copied);
  if (!(written == copied))
    abort();
}

void read_text(const Json::Value &in) {
  held text(string_deleter);
  text.value = string_deserialize(in);
}

void list_deleter(void *list) {
  list_del(list);
}

void read_list(const operation_set &type, const Json::Value &in) {
  held list(list_deleter), copy(list_deleter);
  list.value = list_new(type.sub_type, type.deleter, type.deserializer,
                        type.serializer, type.copier);
  list_s *read = list_deserialize(static_cast<list_s *>(list.value), in);
  if (read != list.value)
    abort();
  const int32_t count = list_get_nb_elements(read);
  if (count < 0 || count > read->capacity || list_get(read, count) != nullptr ||
      list_get(read, -1) != nullptr)
    abort();
  for (int32_t i = 0; i < count; ++i)
    if (list_get(read, i) == nullptr)
      abort();
  Json::Value written, copied;
  list_serialize(read, written);
  if (written["__elements__"].size() != static_cast<Json::ArrayIndex>(count))
    abort();
  if (type.copier == nullptr)
    return;
  list_copier(&copy.value, read);
  if (list_compare(static_cast<list_s *>(copy.value), read) != 1)
    abort();
  list_serialize(copy.value, copied);
  if (!(written == copied))
    abort();
}

void read_dict(const operation_set &type, const Json::Value &in) {
  held dict(dict_deleter), copy(dict_deleter);
  dict.value = dict_new(type.sub_type, type.deleter, type.deserializer,
                        type.serializer, type.copier);
  dict_s *read = dict_deserialize(static_cast<dict_s *>(dict.value), in);
  if (read != dict.value)
    abort();
  Json::Value written, copied;
  dict_serialize(read, written);
  if (type.copier != nullptr) {
    dict_copier(&copy.value, read);
    dict_serialize(copy.value, copied);
    if (!(written == copied))
      abort();
  }

  char **keys = nullptr;
  int32_t count = -1;
  dict_keys(read, &keys, &count);
  void **values = dict_values(read);
  if (count != read->nb_elements ||
      written["__elements__"].size() > static_cast<Json::ArrayIndex>(count))
    abort();
  for (int32_t i = 0; i < count; ++i)
    if (has_key(read, keys[i]) != 1 || values[i] == nullptr)
      abort();
  free(values);
  /* Removing every key in turn must leave the empty ring. */
  const std::string first_key = count > 0 ? keys[0] : "";
  free(keys);
  while (read->nb_elements > 0)
    if (dict_remove(read, read->first->key) != 0)
      abort();
  if (read->first != reinterpret_cast<dict_entry_s *>(read) ||
      read->last != reinterpret_cast<dict_entry_s *>(read) ||
      dict_remove(read, first_key.c_str()) != -1)
    abort();
}

void result_set_deleter(void *result_set) {
  result_set_del(result_set);
}

void read_result_set(const operation_set &type, const Json::Value &in) {
  held result_set(result_set_deleter), copy(result_set_deleter);
  result_set.value =
      result_set_new(type.sub_type, type.deleter, type.deserializer,
                     type.serializer, type.copier);
  auto *read =
      result_set_deserialize(static_cast<result_set_s *>(result_set.value), in);
  if (read != result_set.value)
    abort();
  Json::Value written, copied;
  result_set_serialize(read, written);
  if (written["__total_items__"].asInt() != result_set_get_total_items(read))
    abort();
  if (type.copier == nullptr)
    return;
  resultset_copier(&copy.value, read);
  result_set_serialize(copy.value, copied);
  if (!(written == copied))
    abort();
}

template <typename Reader> void guarded(Reader reader) {
  try {
    reader();
  } catch (const Json::Exception &) {
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value root;
  if (!parse_json(data, size, root))
    return 0;
  for (const scalar_type &type : scalar_types)
    guarded([&] { read_scalar(type, root); });
  guarded([&] { read_text(root); });
  const auto read_containers = [&](const operation_set &type) {
    guarded([&] { read_list(type, root); });
    guarded([&] { read_dict(type, root); });
    guarded([&] { read_result_set(type, root); });
  };
  for (const operation_set &type : element_types)
    read_containers(type);
  for (const operation_set &type : keeping_types)
    read_containers(type);
  return 0;
}
