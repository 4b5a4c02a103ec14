/* The demo catalogue: forty items that /items/list pages, filters and sorts
 * with the library's own typed values. */
#include <algorithm>
#include <cstdlib>

#include <velmora/velmora.h>

#include "devserver.h"

namespace devserver {
namespace {

enum class Field { id, name, address, created };

bool field_named(const std::string &name, Field *field) {
  static const struct {
    const char *name;
    Field field;
  } fields[] = {{"id", Field::id},
                {"name", Field::name},
                {"address", Field::address},
                {"created", Field::created}};
  for (const auto &f : fields)
    if (name == f.name) {
      *field = f.field;
      return true;
    }
  return false;
}

std::string field_text(const Item *item, Field field) {
  switch (field) {
  case Field::id:
    return std::to_string(Long_getValue(item->id));
  case Field::name:
    return item->name;
  case Field::address:
    return ip_getValue(item->address);
  case Field::created:
    return std::to_string(item->created->value);
  }
  return "";
}

int compare_field(const Item *a, const Item *b, Field field) {
  auto order = [](auto x, auto y) { return x < y ? -1 : y < x ? 1 : 0; };
  switch (field) {
  case Field::id:
    return order(Long_getValue(a->id), Long_getValue(b->id));
  case Field::created:
    return order(a->created->value, b->created->value);
  case Field::name:
  case Field::address:
    return field_text(a, field).compare(field_text(b, field));
  }
  return 0;
}

/* Keeps the items whose fields equal the search parameters; false after
 * answering 400 for a field that items do not have. */
bool filter(ListInfo *info, std::vector<const Item *> *found, Response &res) {
  dict_s *search = listinfo_getSearch_parameters(info);
  char **keys;
  int32_t count;
  dict_keys(search, &keys, &count);
  std::vector<std::string> names(keys, keys + count);
  free(keys);
  for (const std::string &name : names) {
    Field field;
    if (!field_named(name, &field)) {
      answer_error(res, 400, "unknown search field \"" + name + "\"");
      return false;
    }
    std::string wanted = static_cast<char *>(dict_get(search, name.c_str()));
    found->erase(std::remove_if(found->begin(), found->end(),
                                [&](const Item *item) {
                                  return field_text(item, field) != wanted;
                                }),
                 found->end());
  }
  return true;
}

/* False after answering 400 for an order field that items do not have. */
bool sort(ListInfo *info, std::vector<const Item *> *found, Response &res) {
  Ordering *order = listinfo_getOrder(info);
  const char *order_by = ordering_getOrder_by(order);
  if (order_by == nullptr || *order_by == '\0')
    return true;
  Field field;
  if (!field_named(order_by, &field)) {
    answer_error(res, 400,
                 std::string("unknown order field \"") + order_by + "\"");
    return false;
  }
  bool ascending = ordering_getAsc(order) == 1;
  std::stable_sort(found->begin(), found->end(),
                   [&](const Item *a, const Item *b) {
                     int c = compare_field(a, b, field);
                     return ascending ? c < 0 : c > 0;
                   });
  return true;
}

void answer_page(const std::vector<const Item *> &found, int limit, int offset,
                 Response &res) {
  /* A limit of 0, as a fresh ListInfo has, means the rest of the list. */
  size_t first = std::min(found.size(), static_cast<size_t>(offset));
  size_t end = limit == 0
                   ? found.size()
                   : std::min(found.size(), first + static_cast<size_t>(limit));
  std::unique_ptr<result_set_s, void (*)(void *)> page(
      result_set_new("Item", Item_deleter, Item_deserialize, Item_serialize,
                     Item_copier),
      result_set_del);
  for (size_t i = first; i < end; i++)
    result_set_add(page.get(), const_cast<Item *>(found[i]));
  result_set_set_total_items(page.get(), static_cast<int32_t>(found.size()));

  Json::Value reply;
  result_set_serialize(page.get(), reply["result"]);
  res.set_content(render(reply), "application/json");
  note.detail = "ok, " + std::to_string(end - first) + " of " +
                std::to_string(found.size()) + " items";
}

} // namespace

/* Forty items whose id, name, address and date orders all differ, so that
 * sorting by any field is visible. */
std::vector<ItemHandle> make_catalogue() {
  static const char *const names[] = {
      "agate",    "amber",    "basalt",    "beryl",    "calcite",   "chalk",
      "cinnabar", "coral",    "diamond",   "dolomite", "emerald",   "feldspar",
      "flint",    "garnet",   "gneiss",    "granite",  "gypsum",    "hematite",
      "jade",     "jasper",   "kyanite",   "lapis",    "malachite", "marble",
      "mica",     "obsidian", "olivine",   "onyx",     "opal",      "pumice",
      "pyrite",   "quartz",   "ruby",      "sapphire", "schist",    "slate",
      "talc",     "topaz",    "turquoise", "zircon"};
  const int count = sizeof names / sizeof names[0];
  std::vector<ItemHandle> items;
  for (int i = 0; i < count; i++) {
    std::string address = "192.0.2." + std::to_string(1 + i % 4);
    int64_t created = 1700000000 + int64_t{86400} * ((i * 13) % count);
    int64_t id = i + 1;
    items.emplace_back(Item_new(), Item_deleter);
    item_setId(items.back().get(), &id);
    item_setName(items.back().get(), names[(i * 17) % count]);
    item_setAddress(items.back().get(), address.c_str());
    item_setCreated(items.back().get(), &created);
  }
  return items;
}

void list_items(const std::vector<ItemHandle> &catalogue,
                const std::string &body, Response &res) {
  Json::Value document;
  std::string why;
  if (!velmora_tools::parse_json(body, velmora_tools::Strictness::strict,
                                 &document, &why))
    return answer_error(res, 400, "malformed JSON: " + why);
  if (!document.isObject() || !document["list_info"].isObject())
    return answer_error(res, 400,
                        "the body must be {\"list_info\": <ListInfo>}");

  std::unique_ptr<ListInfo, void (*)(void *)> info(nullptr, ListInfo_deleter);
  try {
    info.reset(
        static_cast<ListInfo *>(ListInfo_deserialize(document["list_info"])));
  } catch (const std::exception &e) {
    return answer_error(res, 400, std::string("bad list_info: ") + e.what());
  }
  int limit = listinfo_getLimit(info.get());
  int offset = listinfo_getOffset(info.get());
  if (limit < 0 || offset < 0)
    return answer_error(res, 400, "limit and offset must not be negative");

  std::vector<const Item *> found;
  for (const ItemHandle &item : catalogue)
    found.push_back(item.get());
  if (filter(info.get(), &found, res) && sort(info.get(), &found, res))
    answer_page(found, limit, offset, res);
}

} // namespace devserver
