#include "item.h"

#include <cstdlib>
#include <memory>

Item *Item_new(int64_t id, const char *name, const char *address,
               int64_t created) {
  Item *item = static_cast<Item *>(malloc(sizeof(Item)));
  item->id = static_cast<Long *>(Long_new());
  Long_setValue(item->id, id);
  string_copier(&item->name, name);
  item->address = static_cast<IP *>(IP_new());
  ip_setValue(item->address, address);
  item->created = static_cast<Date *>(malloc(sizeof(Date)));
  item->created->value = created;
  return item;
}

/* Also releases the partly read items that Item_deserialize gives up on,
 * hence the null checks. */
void Item_deleter(void *value) {
  Item *item = static_cast<Item *>(value);
  if (item == nullptr)
    return;
  if (item->id != nullptr)
    Long_deleter(item->id);
  free(item->name);
  if (item->address != nullptr)
    IP_deleter(item->address);
  if (item->created != nullptr)
    Date_deleter(item->created);
  free(item);
}

/* The JSON library throws on members of the wrong kind; the guard releases
 * whatever was read before that. */
void *Item_deserialize(const Json::Value &in) {
  const Json::Value properties = in.get("__properties__", Json::Value());
  std::unique_ptr<Item, void (*)(void *)> item(
      static_cast<Item *>(calloc(1, sizeof(Item))), Item_deleter);
  if (item == nullptr)
    return nullptr; // out of memory
  item->id = static_cast<Long *>(
      Long_deserialize(properties.get("id", Json::Value())));
  item->name = static_cast<char *>(
      string_deserialize(properties.get("name", Json::Value())));
  item->address = static_cast<IP *>(
      IP_deserialize(properties.get("address", Json::Value())));
  item->created = static_cast<Date *>(
      Date_deserialize(properties.get("created", Json::Value())));
  return item.release();
}

Json::Value *Item_serialize(void *value, Json::Value &out) {
  Item *item = static_cast<Item *>(value);
  out["__type__"] = "Item";
  Json::Value &properties = out["__properties__"];
  Long_serialize(item->id, properties["id"]);
  properties["name"] = item->name;
  IP_serialize(item->address, properties["address"]);
  Date_serialize(item->created, properties["created"]);
  return &out;
}

void Item_copier(void **slot, void *value) {
  Item *item = static_cast<Item *>(value);
  Item *copy = static_cast<Item *>(malloc(sizeof(Item)));
  Long_copier(reinterpret_cast<void **>(&copy->id), item->id);
  string_copier(&copy->name, item->name);
  IP_copier(reinterpret_cast<void **>(&copy->address), item->address);
  Date_copier(reinterpret_cast<void **>(&copy->created), item->created);
  *slot = copy;
}
