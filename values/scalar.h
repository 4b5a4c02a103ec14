/* What the scalar value types share: the envelope's two members and the
 * text form of the numbers carried as strings. Internal. */
#ifndef VELMORA_VALUES_SCALAR_H
#define VELMORA_VALUES_SCALAR_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <json/value.h>

/* A malloc copy of the `size` bytes at `cell`; null when `cell` is null or
 * the allocation fails. */
void *cell_dup(const void *cell, size_t size);

/* in's "__value__", or a JSON null when absent. Throws as the JSON library
 * does when `in` is neither null nor an object. */
const Json::Value &envelope_value(const Json::Value &in);

/* Sets out's "__type__" to `type` and "__value__" to `value`, leaving the
 * other members alone; returns &out. */
Json::Value *envelope_write(Json::Value &out, const char *type,
                            Json::Value value);

/* The text asString gives for `member`, borrowed from it when it is a
 * string, else kept in `storage`. Throws as asString does. */
const char *member_text(const Json::Value &member, std::string &storage);

/* A number's text as a JSON string, as "%lld", "%llu" and "%f" (in the
 * process's numeric locale) write it; a "%f" text is cut at 31 characters
 * where that removes fraction digits only. */
Json::Value number_text(int64_t number);
Json::Value number_text(uint64_t number);
Json::Value number_text(double number);

#endif
