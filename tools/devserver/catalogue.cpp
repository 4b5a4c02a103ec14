/* The demo catalogue: --items items (forty unless told) that /items/list
 * pages, filters and sorts with the library's own typed values. */
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

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

/* The first forty items have forty names whose id, name, address and
 * date orders all differ, so that sorting by any field is visible; later
 * ones repeat the names with a number. */
const char *const names[] = {
    "agate",    "amber",    "basalt",    "beryl",    "calcite",   "chalk",
    "cinnabar", "coral",    "diamond",   "dolomite", "emerald",   "feldspar",
    "flint",    "garnet",   "gneiss",    "granite",  "gypsum",    "hematite",
    "jade",     "jasper",   "kyanite",   "lapis",    "malachite", "marble",
    "mica",     "obsidian", "olivine",   "onyx",     "opal",      "pumice",
    "pyrite",   "quartz",   "ruby",      "sapphire", "schist",    "slate",
    "talc",     "topaz",    "turquoise", "zircon"};
const long named = sizeof names / sizeof names[0];

/* One field of an item: its text, and for id and created its number too.
 * Held in place (the longest, a name, takes 16 bytes), so that sorting and
 * searching allocate nothing per item. */
struct Value {
  int64_t number = 0;
  char text[32];
  size_t length = 0;
  std::string_view view() const {
    return {text, length};
  }
  void append(std::string_view more) {
    length += more.copy(text + length, sizeof text - length);
  }
  void append_number(int64_t n) {
    length = std::to_chars(text + length, text + sizeof text, n).ptr - text;
  }
};

/* Field `field` of item `i` (from 0): computed, never stored, so that a
 * catalogue of any size costs only the pages asked for. */
Value field_of(long i, Field field) {
  Value value;
  switch (field) {
  case Field::id:
    value.number = i + 1;
    value.append_number(value.number);
    break;
  case Field::name:
    value.append(names[(i * 17) % named]);
    if (i >= named) {
      value.append("-");
      value.append_number(i / named);
    }
    break;
  case Field::address:
    value.append("192.0.2.");
    value.append_number(1 + i % 4);
    break;
  case Field::created:
    value.number = 1700000000 + int64_t{86400} * ((i * 13) % named) + i / named;
    value.append_number(value.number);
    break;
  }
  return value;
}

/* Orders as the field's values do: numbers as numbers, texts by bytes. */
int compare(const Value &a, const Value &b) {
  if (a.number != b.number)
    return a.number < b.number ? -1 : 1;
  return a.view().compare(b.view());
}

struct Entry {
  int64_t id;
  std::string name, address;
  int64_t created;
};

Entry entry(long i) {
  return {field_of(i, Field::id).number,
          std::string(field_of(i, Field::name).view()),
          std::string(field_of(i, Field::address).view()),
          field_of(i, Field::created).number};
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

/* The indexes of the items whose fields equal the wanted texts: four
 * bytes an item, without its text. */
std::vector<int32_t> filter(long count, const Search &wanted) {
  std::vector<int32_t> found;
  if (wanted.empty())
    found.reserve(count);
  for (long i = 0; i < count; i++) {
    bool kept = true;
    for (const auto &[field, value] : wanted)
      kept = kept && field_of(i, field).view() == value;
    if (kept)
      found.push_back(static_cast<int32_t>(i));
  }
  return found;
}

/* The page asked for: items [first, end) of `total`. A limit of 0, as a
 * fresh ListInfo has, means the rest of the list. */
struct Span {
  long first, end;
};

Span span_of(long total, long limit, long offset) {
  long first = std::min(total, offset);
  return {first, limit == 0 ? total : std::min(total, first + limit)};
}

/* Puts the page's part of `found` in the order asked for, equal ones in
 * the catalogue's order; false after answering 400 for an order field
 * that items do not have. Keys are made as items are compared, never
 * held, and no more is sorted than the page needs. */
bool sort(ListInfo *info, Span span, std::vector<int32_t> *found,
          Response &res) {
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
  auto before = [&](int32_t a, int32_t b) {
    int c = compare(field_of(a, field), field_of(b, field));
    return c != 0 ? (c < 0) == ascending : a < b;
  };
  auto first = found->begin() + span.first, end = found->begin() + span.end;
  if (first == end)
    return true;
  if (first != found->begin())
    std::nth_element(found->begin(), first, found->end(), before);
  if (end == found->end())
    std::sort(first, end, before);
  else
    std::partial_sort(first, end, found->end(), before);
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

/* The span's items of `found`, or of the whole catalogue when null. */
void answer_page(const std::vector<int32_t> *found, long total, Span span,
                 Response &res) {
  auto [first, end] = span;
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
    return answer_page(nullptr, count, span_of(count, limit, offset), res);
  std::vector<int32_t> found = filter(count, wanted);
  long total = static_cast<long>(found.size());
  Span span = span_of(total, limit, offset);
  if (sort(info.get(), span, &found, res))
    answer_page(&found, total, span, res);
}

} // namespace devserver
