/* Time and Date: a signed 64-bit count carried as a JSON real. The two
 * types differ only in their name. */
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "values_internal.h"
#include "velmora/detail/numbers.h"
#include "velmora/values.h"

static_assert(sizeof(Time) == sizeof(Date), "Time and Date share code");

namespace {

Json::Value *count_serialize(const char *type, void *value, Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, type, Json::Value());
  /* Both cells are one int64_t, so Time serves for Date too. */
  double real = static_cast<double>(static_cast<Time *>(value)->value);
  return velmora::envelope_write(out, type, Json::Value(real));
}

void *count_deserialize(const Json::Value &in) {
  Time cell = {
      velmora::detail::truncated(velmora::envelope_value(in).asDouble())};
  return velmora::cell_dup(&cell, sizeof cell);
}

} // namespace

Json::Value *Time_serialize(void *value, Json::Value &out) {
  return count_serialize("Time", value, out);
}

void *Time_deserialize(const Json::Value &in) {
  return count_deserialize(in);
}

void Time_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Time));
}

void Time_deleter(void *value) {
  free(value);
}

Json::Value *Date_serialize(void *value, Json::Value &out) {
  return count_serialize("Date", value, out);
}

void *Date_deserialize(const Json::Value &in) {
  return count_deserialize(in);
}

void Date_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Date));
}

void Date_deleter(void *value) {
  free(value);
}
