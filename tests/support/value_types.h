/* The value types' operation sets and the JSON text helpers, shared by the
 * value tests and the fuzz targets. */
#ifndef VELMORA_TEST_VALUE_TYPES_H
#define VELMORA_TEST_VALUE_TYPES_H

#include <memory>
#include <stdexcept>
#include <string>

#include <json/json.h>

#include "velmora/values.h"

/* string_copier in the copier's shape, as callers hand it to a container,
 * which must call it by its own type. */
inline const value_copier text_copier =
    reinterpret_cast<value_copier>(reinterpret_cast<void (*)()>(string_copier));

struct value_type {
  const char *name; /* the "__type__" it writes, and its element type */
  value_deleter release;
  value_deserializer read;
  value_serializer write;
  value_copier copy;
};

/* The enveloped types with their four operations, then the element types
 * that containers write (and, without a deserializer, read) themselves. */
enum { LONG, ULONG, DOUBLE, TIME, DATE, IPS, CIPHERED, BLOB, ORDERING };
enum { LIST_INFO = ORDERING + 1, UNICODE, UNICODE_READ, INTEGER, BOOLEAN };
const int ENVELOPED = UNICODE, ALL_TYPES = BOOLEAN + 1;
inline const value_type value_types[ALL_TYPES] = {
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
    {"Unicode", string_deleter, nullptr, nullptr, text_copier},
    {"Unicode", string_deleter, string_deserialize, nullptr, text_copier},
    {"Integer", Integer_deleter, nullptr, nullptr, Integer_copier},
    {"Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier}};

/* Parses JSON text, NaN and infinities included; false when it is not JSON
 * (or nests deeper than the reader allows). */
inline bool parse_json(const std::string &text, Json::Value &root) {
  Json::CharReaderBuilder builder;
  builder["allowSpecialFloats"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), &root,
                         nullptr);
  } catch (const Json::Exception &) {
    return false;
  }
}

/* The tree of JSON text a test writes; a typo in it fails the test. */
inline Json::Value json(const std::string &text) {
  Json::Value root;
  if (!parse_json(text, root))
    throw std::invalid_argument("not JSON: " + text);
  return root;
}

/* Compact JSON text: members in byte order of their names, bytes outside
 * ASCII escaped. */
inline std::string render(const Json::Value &value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

#endif
