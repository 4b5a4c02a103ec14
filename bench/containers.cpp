/*
 * Containers against the JSON library itself: each list figure sits beside
 * code that builds or reads the same tree directly with jsoncpp, in the
 * same run; dict_serialize is measured at three sizes to show its growth.
 */
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <benchmark/benchmark.h>
#include <json/value.h>

#include "velmora/values.h"

namespace {

constexpr int32_t kIntegers = 1000000;

/* Times `serialize` after one untimed call. A set-up that frees enough lets
 * the allocator hand its heap top back to the system, and the next tree's
 * ~90 MB of nodes must then be faulted in again: one such call among the
 * two or three timed ones moved a row by half. Which side it hit depended
 * on the set-ups, not on the code measured. */
template <typename Serialize>
void after_one_call(benchmark::State &state, Serialize serialize) {
  serialize();
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  for (auto _ : state)
    serialize();
  getrusage(RUSAGE_SELF, &after);
  state.counters["page_faults"] =
      benchmark::Counter(double(after.ru_minflt - before.ru_minflt),
                         benchmark::Counter::kAvgIterations);
}

list_s *integer_list(int32_t n) {
  list_s *list =
      list_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
  for (int32_t i = 0; i < n; i++) {
    Integer *cell = static_cast<Integer *>(malloc(sizeof *cell));
    cell->value = i * 7 - n;
    list_add_copy(list, cell, VELMORA_FALSE);
  }
  return list;
}

Json::Value integer_tree(int32_t n) {
  Json::Value out;
  list_s *list = integer_list(n);
  list_serialize(list, out);
  list_del(list);
  return out;
}

void BM_IntegerList_Serialize(benchmark::State &state) {
  list_s *list = integer_list(kIntegers);
  after_one_call(state, [list] {
    Json::Value out;
    list_serialize(list, out);
    benchmark::DoNotOptimize(out);
  });
  list_del(list);
}

void BM_IntegerList_SerializeJsonPeer(benchmark::State &state) {
  std::vector<int32_t> values(kIntegers);
  for (int32_t i = 0; i < kIntegers; i++)
    values[i] = i * 7 - kIntegers;
  after_one_call(state, [&values] {
    Json::Value out;
    out["__type__"] = "List";
    out["__sub_type__"] = "Integer";
    Json::Value elements(Json::arrayValue);
    for (int32_t v : values)
      elements.append(Json::Value(v));
    out["__elements__"] = std::move(elements);
    benchmark::DoNotOptimize(out);
  });
}

void BM_IntegerList_Deserialize(benchmark::State &state) {
  Json::Value tree = integer_tree(kIntegers);
  for (auto _ : state) {
    list_s *list =
        list_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
    list_deserialize(list, tree);
    benchmark::DoNotOptimize(list->elements);
    list_del(list);
  }
}

/* The floor: the same entries read with the JSON library into a growing
 * array of plain integers (no cell per element). */
void BM_IntegerList_DeserializeJsonPeer(benchmark::State &state) {
  Json::Value tree = integer_tree(kIntegers);
  for (auto _ : state) {
    std::vector<int32_t> values;
    if (tree["__sub_type__"].asString() == "Integer") {
      const Json::Value &elements = tree["__elements__"];
      for (Json::ArrayIndex i = 0; i < elements.size(); i++)
        values.push_back(elements[i].asInt());
    }
    benchmark::DoNotOptimize(values.data());
  }
}

constexpr int32_t kLongs = 100000;

list_s *long_list() {
  list_s *list = list_new("Long", Long_deleter, Long_deserialize,
                          Long_serialize, Long_copier);
  for (int32_t i = 0; i < kLongs; i++) {
    void *cell = Long_new();
    Long_setValue(cell, int64_t{i} * 92233720368547 - 4611686018427387904);
    list_add_copy(list, cell, VELMORA_FALSE);
  }
  return list;
}

void BM_LongList_Serialize(benchmark::State &state) {
  list_s *list = long_list();
  after_one_call(state, [list] {
    Json::Value out;
    list_serialize(list, out);
    benchmark::DoNotOptimize(out);
  });
  list_del(list);
}

void BM_LongList_SerializeJsonPeer(benchmark::State &state) {
  std::vector<int64_t> values;
  for (int32_t i = 0; i < kLongs; i++)
    values.push_back(int64_t{i} * 92233720368547 - 4611686018427387904);
  after_one_call(state, [&values] {
    Json::Value out;
    out["__type__"] = "List";
    out["__sub_type__"] = "Long";
    Json::Value elements(Json::arrayValue);
    for (int64_t v : values) {
      Json::Value &entry = elements.append(Json::Value());
      entry["__type__"] = "Long";
      entry["__value__"] = std::to_string(v);
    }
    out["__elements__"] = std::move(elements);
    benchmark::DoNotOptimize(out);
  });
}

void BM_LongList_Deserialize(benchmark::State &state) {
  Json::Value tree;
  list_s *source = long_list();
  list_serialize(source, tree);
  list_del(source);
  for (auto _ : state) {
    list_s *list = list_new("Long", Long_deleter, Long_deserialize,
                            Long_serialize, Long_copier);
    list_deserialize(list, tree);
    benchmark::DoNotOptimize(list->elements);
    list_del(list);
  }
}

/* The floor: each entry's "__value__" read in place into a plain array. */
void BM_LongList_DeserializeJsonPeer(benchmark::State &state) {
  Json::Value tree;
  list_s *source = long_list();
  list_serialize(source, tree);
  list_del(source);
  for (auto _ : state) {
    std::vector<int64_t> values;
    if (tree["__sub_type__"].asString() == "Long") {
      const Json::Value &elements = tree["__elements__"];
      for (Json::ArrayIndex i = 0; i < elements.size(); i++)
        values.push_back(
            strtoll(elements[i]["__value__"].asCString(), nullptr, 10));
    }
    benchmark::DoNotOptimize(values.data());
  }
}

dict_s *integer_dict(int32_t n) {
  dict_s *dict =
      dict_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
  for (int32_t i = 0; i < n; i++) {
    // Keys arrive in no particular order relative to the JSON object's.
    std::string key = "key" + std::to_string((i * 7919) % n);
    dict_add(dict, key.c_str(), &i);
  }
  return dict;
}

void BM_Dict_Serialize(benchmark::State &state) {
  dict_s *dict = integer_dict(static_cast<int32_t>(state.range(0)));
  for (auto _ : state) {
    Json::Value out;
    dict_serialize(dict, out);
    benchmark::DoNotOptimize(out);
  }
  dict_free(dict);
}

void BM_Dict_SerializeJsonPeer(benchmark::State &state) {
  int32_t n = static_cast<int32_t>(state.range(0));
  std::vector<std::pair<std::string, int32_t>> entries;
  for (int32_t i = 0; i < n; i++)
    entries.emplace_back("key" + std::to_string((i * 7919) % n), i);
  for (auto _ : state) {
    Json::Value out;
    out["__type__"] = "Dict";
    out["__sub_type__"] = "Integer";
    Json::Value elements(Json::objectValue);
    for (const auto &entry : entries)
      elements[entry.first] = entry.second;
    out["__elements__"] = std::move(elements);
    benchmark::DoNotOptimize(out);
  }
}

} // namespace

BENCHMARK(BM_IntegerList_Serialize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IntegerList_SerializeJsonPeer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IntegerList_Deserialize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IntegerList_DeserializeJsonPeer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LongList_Serialize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LongList_SerializeJsonPeer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LongList_Deserialize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LongList_DeserializeJsonPeer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dict_Serialize)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Dict_SerializeJsonPeer)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
