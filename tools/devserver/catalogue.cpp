/* The demo catalogue: --items items (forty unless told) that /items/list
 * pages, filters and sorts with the library's own typed values. */
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

/* Item `i` (from 0) of the catalogue: computed, never stored, so
 * that a catalogue of any size costs only the pages asked for. The first
 * forty have forty names whose id, name, address and date orders all
 * differ, so that sorting by any field is visible; later ones repeat the
 * names with a number. */
struct Entry {
  int64_t id;
  std::string name, address;
  int64_t created;
};

Entry entry(long i) {
  static const char *const names[] = {
      "agate",    "amber",    "basalt",    "beryl",    "calcite",   "chalk",
      "cinnabar", "coral",    "diamond",   "dolomite", "emerald",   "feldspar",
      "flint",    "garnet",   "gneiss",    "granite",  "gypsum",    "hematite",
      "jade",     "jasper",   "kyanite",   "lapis",    "malachite", "marble",
      "mica",     "obsidian", "olivine",   "onyx",     "opal",      "pumice",
      "pyrite",   "quartz",   "ruby",      "sapphire", "schist",    "slate",
      "talc",     "topaz",    "turquoise", "zircon"};
  const long named = sizeof names / sizeof names[0];
  std::string name = names[(i * 17) % named];
  if (i >= named)
    name += "-" + std::to_string(i / named);
  return {i + 1, name, "192.0.2." + std::to_string(1 + i % 4),
          1700000000 + int64_t{86400} * ((i * 13) % named) + i / named};
}

std::string field_text(const Entry &item, Field field) {
  switch (field) {
  case Field::id:
    return std::to_string(item.id);
  case Field::name:
    return item.name;
  case Field::address:
    return item.address;
  case Field::created:
    return std::to_string(item.created);
  }
  return "";
}

/* Orders as the field's values do: numbers as numbers, texts by bytes. */
struct Key {
  int64_t number;
  std::string text;
  bool operator<(const Key &other) const {
    return number != other.number ? number < other.number : text < other.text;
  }
};

Key key(const Entry &item, Field field) {
  if (field == Field::id || field == Field::created)
    return {field == Field::id ? item.id : item.created, ""};
  return {0, field_text(item, field)};
}

using Search = std::vector<std::pair<Field, std::string>>;

/* The search parameters as fields and wanted texts; false after answering
 * 400 for a field that items do not have. */
bool search_of(ListInfo *info, Search *wanted, Response &res) {
  dict_s *search = listinfo_getSearch_parameters(info);
  char **keys;
  int32_t key_count;
  dict_keys(search, &keys, &key_count);
  std::vector<std::string> names(keys, keys + key_count);
  free(keys);
  for (const std::string &name : names) {
    Field field;
    if (!field_named(name, &field)) {
      answer_error(res, 400, "unknown search field \"" + name + "\"");
      return false;
    }
    wanted->emplace_back(field,
                         static_cast<char *>(dict_get(search, name.c_str())));
  }
  return true;
}

/* The indexes of the items whose fields equal the wanted texts. */
std::vector<long> filter(long count, const Search &wanted) {
  std::vector<long> found;
  for (long i = 0; i < count; i++) {
    Entry item = entry(i);
    bool kept = true;
    for (const auto &[field, value] : wanted)
      kept = kept && field_text(item, field) == value;
    if (kept)
      found.push_back(i);
  }
  return found;
}

/* False after answering 400 for an order field that items do not have. */
bool sort(ListInfo *info, std::vector<long> *found, Response &res) {
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
  std::vector<std::pair<Key, long>> keyed;
  for (long i : *found)
    keyed.emplace_back(key(entry(i), field), i);
  std::stable_sort(keyed.begin(), keyed.end(),
                   [&](const auto &a, const auto &b) {
                     return ascending ? a.first < b.first : b.first < a.first;
                   });
  for (size_t i = 0; i < keyed.size(); i++)
    (*found)[i] = keyed[i].second;
  return true;
}

bool add_item(result_set_s *page, const Entry &entry) {
  std::unique_ptr<Item, void (*)(void *)> item(Item_new(), Item_deleter);
  if (item == nullptr)
    return false;
  item_setId(item.get(), &entry.id);
  item_setName(item.get(), entry.name.c_str());
  item_setAddress(item.get(), entry.address.c_str());
  item_setCreated(item.get(), &entry.created);
  int32_t before = result_get_nb_elements(page);
  result_set_add(page, item.get());
  return result_get_nb_elements(page) > before;
}

/* Items [first, end) of `found`, or of the whole catalogue when null. */
void answer_page(const std::vector<long> *found, long total, long limit,
                 long offset, Response &res) {
  /* A limit of 0, as a fresh ListInfo has, means the rest of the list. */
  long first = std::min(total, offset);
  long end = limit == 0 ? total : std::min(total, first + limit);
  std::unique_ptr<result_set_s, void (*)(void *)> page(
      result_set_new("Item", Item_deleter, Item_deserialize, Item_serialize,
                     Item_copier),
      result_set_del);
  for (long i = first; i < end; i++)
    if (!add_item(page.get(), entry(found == nullptr ? i : (*found)[i])))
      return answer_error(res, 500, "out of memory");
  result_set_set_total_items(page.get(), static_cast<int32_t>(total));

  Json::Value reply;
  result_set_serialize(page.get(), reply["result"]);
  res.set_content(render(reply), "application/json");
  note.detail = "ok, " + std::to_string(end - first) + " of " +
                std::to_string(total) + " items";
}

} // namespace

void list_items(long count, const std::string &body, Response &res) {
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
  long limit = listinfo_getLimit(info.get());
  long offset = listinfo_getOffset(info.get());
  if (limit < 0 || offset < 0)
    return answer_error(res, 400, "limit and offset must not be negative");

  Search wanted;
  if (!search_of(info.get(), &wanted, res))
    return;
  const char *order_by = ordering_getOrder_by(listinfo_getOrder(info.get()));
  /* The whole catalogue in its own order: only the page is made. */
  if (wanted.empty() && (order_by == nullptr || *order_by == '\0'))
    return answer_page(nullptr, count, limit, offset, res);
  std::vector<long> found = filter(count, wanted);
  if (sort(info.get(), &found, res))
    answer_page(&found, static_cast<long>(found.size()), limit, offset, res);
}

} // namespace devserver
