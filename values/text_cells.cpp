/* IP and Ciphered: a cell holding one owned text, carried as it stands.
 * The two types differ only in their name. */
#include <cstdlib>
#include <cstring>

#include "values_internal.h"
#include "velmora/values.h"

static_assert(sizeof(IP) == sizeof(Ciphered), "IP and Ciphered share code");

namespace {

/* A cell owning a copy of `text` (none when `text` is null); null when
 * memory runs out. */
void *text_cell_new(const char *text) {
  IP *cell = static_cast<IP *>(malloc(sizeof(IP)));
  if (cell == nullptr)
    return nullptr;
  cell->value = text != nullptr ? strdup(text) : nullptr;
  if (text != nullptr && cell->value == nullptr) {
    free(cell);
    return nullptr;
  }
  return cell;
}

Json::Value *text_cell_serialize(const char *type, void *value,
                                 Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, type, Json::Value());
  const char *text = static_cast<IP *>(value)->value;
  return velmora::envelope_write(out, type,
                                 Json::Value(text != nullptr ? text : ""));
}

void *text_cell_deserialize(const Json::Value &in) {
  std::string storage;
  return text_cell_new(
      velmora::member_text(velmora::envelope_value(in), storage));
}

void text_cell_copier(void **slot, void *value) {
  *slot = value != nullptr ? text_cell_new(static_cast<IP *>(value)->value)
                           : nullptr;
}

void text_cell_deleter(void *value) {
  if (value == nullptr)
    return;
  free(static_cast<IP *>(value)->value);
  free(value);
}

} // namespace

void *IP_new(void) {
  return text_cell_new(nullptr);
}

char *ip_getValue(void *value) {
  return value != nullptr ? static_cast<IP *>(value)->value : nullptr;
}

char *ip_setValue(void *value, const char *text) {
  if (value == nullptr)
    return nullptr;
  IP *cell = static_cast<IP *>(value);
  /* Copy before release: `text` may be the cell's own. */
  char *copy = text != nullptr ? strdup(text) : nullptr;
  if (text != nullptr && copy == nullptr)
    return nullptr; /* out of memory: the old text stays */
  free(cell->value);
  cell->value = copy;
  return copy;
}

Json::Value *IP_serialize(void *value, Json::Value &out) {
  return text_cell_serialize("IP", value, out);
}

void *IP_deserialize(const Json::Value &in) {
  return text_cell_deserialize(in);
}

void IP_copier(void **slot, void *value) {
  text_cell_copier(slot, value);
}

void IP_deleter(void *value) {
  text_cell_deleter(value);
}

Json::Value *Ciphered_serialize(void *value, Json::Value &out) {
  return text_cell_serialize("Ciphered", value, out);
}

void *Ciphered_deserialize(const Json::Value &in) {
  return text_cell_deserialize(in);
}

void Ciphered_copier(void **slot, void *value) {
  text_cell_copier(slot, value);
}

void Ciphered_deleter(void *value) {
  text_cell_deleter(value);
}
