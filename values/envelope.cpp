/* What every value type shares: the text helpers and the envelope. */
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "values_internal.h"
#include "velmora/values.h"

void safe_free(void **slot) {
  if (slot != nullptr && *slot != nullptr) {
    free(*slot);
    *slot = nullptr;
  }
}

char *string_copier(char **slot, const char *text) {
  *slot = text != nullptr ? strdup(text) : nullptr;
  return *slot;
}

namespace velmora {

void *cell_dup(const void *cell, size_t size) {
  if (cell == nullptr)
    return nullptr;
  void *copy = malloc(size);
  if (copy != nullptr)
    memcpy(copy, cell, size);
  return copy;
}

const Json::Value &envelope_value(const Json::Value &in) {
  /* The const lookup lends the member (or a shared null) where `get` would
   * copy it, and accepts and refuses the same inputs. */
  return in["__value__"];
}

Json::Value *envelope_write(Json::Value &out, const char *type,
                            Json::Value value) {
  out["__type__"] = type;
  out["__value__"] = std::move(value);
  return &out;
}

const char *member_text(const Json::Value &member, std::string &storage) {
  /* A string made from a null static text lends a null pointer. */
  if (member.isString()) {
    const char *text = member.asCString();
    return text != nullptr ? text : "";
  }
  storage = member.asString();
  return storage.c_str();
}

namespace {

/* Decimal integers have no locale-dependent characters, so the faster
 * to_chars writes exactly what printf would. */
template <typename Integer> Json::Value integer_text(Integer number) {
  char buffer[24];
  char *end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
  return Json::Value(buffer, end);
}

} // namespace

Json::Value number_text(int64_t number) {
  return integer_text(number);
}

Json::Value number_text(uint64_t number) {
  return integer_text(number);
}

Json::Value number_text(double number) {
  char buffer[32];
  int length = snprintf(buffer, sizeof buffer, "%f", number);
  if (length < static_cast<int>(sizeof buffer))
    return Json::Value(buffer, buffer + (length > 0 ? length : 0));

  /* Cut at 31 characters only where that removes fraction digits alone: a
   * huge number keeps its whole text, so it reads back as the value
   * written. */
  std::string whole(static_cast<size_t>(length) + 1, '\0');
  snprintf(&whole[0], whole.size(), "%f", number);
  size_t integer_part = strspn(whole.c_str(), "-0123456789");
  size_t kept = integer_part < sizeof buffer ? sizeof buffer - 1
                                             : static_cast<size_t>(length);
  return Json::Value(whole.data(), whole.data() + kept);
}

} // namespace velmora
