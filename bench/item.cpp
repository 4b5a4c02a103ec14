/* The Item that velmora-gen writes from examples/items.json against the
 * same record written by hand, as a careful user writes it (the properties
 * object lent, not copied): one item, and a page of 100 in a ResultSet. */
#include <cstdlib>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <json/value.h>

#include "items.h"

namespace {

struct HandItem {
  Long *id;
  char *name;
  IP *address;
  Date *created;
};

void hand_deleter(void *value) {
  auto *item = static_cast<HandItem *>(value);
  if (item == nullptr)
    return;
  Long_deleter(item->id);
  free(item->name);
  IP_deleter(item->address);
  Date_deleter(item->created);
  free(item);
}

void *hand_deserialize(const Json::Value &in) {
  std::unique_ptr<HandItem, void (*)(void *)> item(
      static_cast<HandItem *>(calloc(1, sizeof(HandItem))), hand_deleter);
  if (item == nullptr)
    return nullptr;
  try {
    const Json::Value &properties = in["__properties__"];
    item->id = static_cast<Long *>(Long_deserialize(properties["id"]));
    item->name = static_cast<char *>(string_deserialize(properties["name"]));
    item->address = static_cast<IP *>(IP_deserialize(properties["address"]));
    item->created =
        static_cast<Date *>(Date_deserialize(properties["created"]));
  } catch (const std::exception &) {
    return nullptr;
  }
  return item.release();
}

Json::Value *hand_serialize(void *value, Json::Value &out) {
  const auto *item = static_cast<const HandItem *>(value);
  out["__type__"] = "Item";
  Json::Value &properties = out["__properties__"];
  Long_serialize(item->id, properties["id"]);
  properties["name"] = item->name;
  IP_serialize(item->address, properties["address"]);
  Date_serialize(item->created, properties["created"]);
  return &out;
}

struct Ops {
  value_deleter release;
  value_deserializer read;
  value_serializer write;
};
const Ops generated{Item_deleter, Item_deserialize, Item_serialize};
const Ops hand{hand_deleter, hand_deserialize, hand_serialize};

Json::Value item_tree(int i) {
  Json::Value tree;
  Json::Value &properties = tree["__properties__"];
  tree["__type__"] = "Item";
  properties["id"]["__type__"] = "Long";
  properties["id"]["__value__"] = std::to_string(1000 + i);
  properties["name"] = "widget number " + std::to_string(i);
  properties["address"]["__type__"] = "IP";
  properties["address"]["__value__"] = "192.0.2.17";
  properties["created"]["__type__"] = "Date";
  properties["created"]["__value__"] = 1700000000 + i;
  return tree;
}

Json::Value page_tree() {
  Json::Value tree;
  tree["__type__"] = "ResultSet";
  tree["__sub_type__"] = "Item";
  tree["__total_items__"] = 100;
  for (int i = 0; i < 100; i++)
    tree["__elements__"].append(item_tree(i));
  return tree;
}

void BM_Read(benchmark::State &state, const Ops &ops) {
  Json::Value tree = item_tree(1);
  for (auto _ : state)
    ops.release(ops.read(tree));
}

void BM_Write(benchmark::State &state, const Ops &ops) {
  void *item = ops.read(item_tree(1));
  for (auto _ : state) {
    Json::Value out;
    benchmark::DoNotOptimize(ops.write(item, out));
  }
  ops.release(item);
}

result_set_s *new_page(const Ops &ops) {
  return result_set_new("Item", ops.release, ops.read, ops.write, nullptr);
}

void BM_PageRead(benchmark::State &state, const Ops &ops) {
  Json::Value tree = page_tree();
  for (auto _ : state)
    result_set_del(result_set_deserialize(new_page(ops), tree));
}

void BM_PageWrite(benchmark::State &state, const Ops &ops) {
  result_set_s *page = result_set_deserialize(new_page(ops), page_tree());
  for (auto _ : state) {
    Json::Value out;
    benchmark::DoNotOptimize(result_set_serialize(page, out));
  }
  result_set_del(page);
}

} // namespace

BENCHMARK_CAPTURE(BM_Read, generated, generated);
BENCHMARK_CAPTURE(BM_Read, hand, hand);
BENCHMARK_CAPTURE(BM_Write, generated, generated);
BENCHMARK_CAPTURE(BM_Write, hand, hand);
BENCHMARK_CAPTURE(BM_PageRead, generated, generated);
BENCHMARK_CAPTURE(BM_PageRead, hand, hand);
BENCHMARK_CAPTURE(BM_PageWrite, generated, generated);
BENCHMARK_CAPTURE(BM_PageWrite, hand, hand);
BENCHMARK_MAIN();
