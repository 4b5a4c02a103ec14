/* Shared by the value targets: arbitrary bytes to a JSON tree, and the
 * value-type operation sets they exercise. */
#ifndef VELMORA_FUZZ_JSON_INPUT_H
#define VELMORA_FUZZ_JSON_INPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <json/reader.h>
#include <json/value.h>

#include "velmora/values.h"

/* Parses `size` bytes as JSON text; false when the text is not JSON. */
inline bool parse_json(const uint8_t *data, size_t size, Json::Value &root) {
  Json::CharReaderBuilder builder;
  builder["allowSpecialFloats"] = true; /* NaN and infinities reach readers */
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  const char *text = reinterpret_cast<const char *>(data);
  std::string errors;
  try {
    return reader->parse(text, text + size, &root, &errors);
  } catch (const Json::Exception &) {
    return false; /* nesting beyond the reader's stack limit */
  }
}

/* string_copier in the copier's shape, so the harness calls nothing through
 * a pointer of another type. */
inline void copy_text(void **slot, void *text) {
  string_copier(reinterpret_cast<char **>(slot), static_cast<char *>(text));
}

struct operation_set {
  const char *sub_type;
  value_deleter deleter;
  value_deserializer deserializer;
  value_serializer serializer;
  value_copier copier;
};

/* Element types the containers are read with: the natives without their
 * own reader and writer, then every enveloped type with its four. */
inline const operation_set element_types[] = {
    {"Unicode", string_deleter, nullptr, nullptr, copy_text},
    {"Unicode", string_deleter, string_deserialize, nullptr, copy_text},
    {"Integer", Integer_deleter, nullptr, nullptr, Integer_copier},
    {"Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier},
    {"Long", Long_deleter, Long_deserialize, Long_serialize, Long_copier},
    {"Long", ULong_deleter, ULong_deserialize, ULong_serialize, ULong_copier},
    {"Double", Double_deleter, Double_deserialize, Double_serialize,
     Double_copier},
    {"Time", Time_deleter, Time_deserialize, Time_serialize, Time_copier},
    {"Date", Date_deleter, Date_deserialize, Date_serialize, Date_copier},
    {"IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier},
    {"Ciphered", Ciphered_deleter, Ciphered_deserialize, Ciphered_serialize,
     Ciphered_copier},
    {"Blob", Blob_deleter, Blob_deserialize, Blob_serialize, Blob_copier},
    {"Ordering", Ordering_deleter, Ordering_deserialize, Ordering_serialize,
     Ordering_copier},
    {"ListInfo", ListInfo_deleter, ListInfo_deserialize, ListInfo_serialize,
     ListInfo_copier},
};

#endif
