/*
 * Item: a record type of the kind client code (hand-written or generated)
 * adds on top of the library, built only from the library's own values.
 *
 *   {"__type__": "Item", "__properties__": {
 *      "id": <Long>, "name": "text", "address": <IP>, "created": <Date>}}
 *
 * `created` counts seconds since 1970-01-01 UTC. Like every value type it
 * has the four operations that containers hold (deleter, deserializer,
 * serializer, copier), so a ResultSet of items needs nothing else.
 */
#ifndef VELMORA_EXAMPLE_ITEM_H
#define VELMORA_EXAMPLE_ITEM_H

#include <cstdint>

#include <velmora/velmora.h>

struct Item {
  Long *id;
  char *name;
  IP *address;
  Date *created;
};

/* New item owning a copy of each argument; release it with Item_deleter. */
Item *Item_new(int64_t id, const char *name, const char *address,
               int64_t created);

/* The four operations, in the shapes of the library's operation set. */
void Item_deleter(void *item);
void *Item_deserialize(const Json::Value &in);
Json::Value *Item_serialize(void *item, Json::Value &out);
void Item_copier(void **slot, void *item);

#endif
