/* Blob: bytes carried as Base64 text. */
#include <cstdlib>
#include <cstring>

#include "values_internal.h"
#include "velmora/digest.h"
#include "velmora/values.h"

namespace {

/* The bytes that may be read: none behind a null pointer or a negative
 * length. */
int32_t readable_length(const Blob *blob) {
  return blob->data != nullptr && blob->length > 0 ? blob->length : 0;
}

} // namespace

Json::Value *Blob_serialize(void *value, Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, "Blob", Json::Value());
  const Blob *blob = static_cast<Blob *>(value);
  std::string text = base64_encode(blob->data, readable_length(blob));
  return velmora::envelope_write(out, "Blob", Json::Value(text));
}

void *Blob_deserialize(const Json::Value &in) {
  std::string text = velmora::envelope_value(in).asString();
  char *data = nullptr;
  int length = 0;
  base64_decode(text, &data, length);
  /* The decoder's buffer is as long as the text, so a null one for a
   * non-empty text means memory ran out. */
  if (data == nullptr && !text.empty())
    return nullptr;
  Blob *blob = static_cast<Blob *>(malloc(sizeof(Blob)));
  if (blob == nullptr) {
    free(data);
    return nullptr;
  }
  blob->data = data;
  blob->length = data != nullptr ? length : 0;
  return blob;
}

void Blob_copier(void **slot, void *value) {
  *slot = nullptr;
  if (value == nullptr)
    return;
  const Blob *source = static_cast<Blob *>(value);
  Blob *copy = static_cast<Blob *>(malloc(sizeof(Blob)));
  if (copy == nullptr)
    return;
  int32_t length = readable_length(source);
  copy->data = length > 0 ? static_cast<char *>(malloc(length)) : nullptr;
  if (length > 0 && copy->data == nullptr) {
    free(copy);
    return;
  }
  if (length > 0)
    memcpy(copy->data, source->data, length);
  copy->length = length;
  *slot = copy;
}

void Blob_deleter(void *value) {
  if (value == nullptr)
    return;
  free(static_cast<Blob *>(value)->data);
  free(value);
}
