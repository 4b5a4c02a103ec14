/*
 * A whole collection of 200,000 items from the devserver (--items 200000):
 * walked with the generated items_list_each in pages of 5,000, against one
 * items_list call asking for all of it (limit 0). Each case is one whole
 * collection per iteration, interleaved in random order; compare the
 * medians. Both free what they read inside the timing (the walk frees each
 * page as it goes).
 *
 * BM_*_memory count the heap through this program's own malloc: a case's
 * peak over what it started with.
 */
#include <cstdint>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "devserver_process.h"
#include "heap_count.h"
#include "items.h"

namespace {

const int32_t items = 200000;
const int32_t page_size = 5000;

DevserverProcess &devserver() {
  static DevserverProcess instance(
      VELMORA_DEVSERVER, {"--user", "bench", "--password", "bench-password",
                          "--items", std::to_string(items)});
  return instance;
}

client_context_s *context() {
  static client_context_s *made = [] {
    client_context_s *client = client_context_new();
    client_context_set_port(client, devserver().port());
    client_context_set_user(client, "bench");
    client_context_set_password(client, "bench-password");
    return client;
  }();
  return made;
}

int count(Item *, void *seen) {
  ++*static_cast<int64_t *>(seen);
  return 0;
}

/* The whole collection walked; the items seen. */
int64_t walk() {
  int64_t seen = 0;
  items_list_each(context(), nullptr, page_size, count, &seen, nullptr);
  return seen;
}

/* The whole collection in one call; the items read. */
int64_t at_once() {
  std::unique_ptr<ListInfo, void (*)(void *)> query(ListInfo_new(),
                                                    ListInfo_deleter);
  result_set_s *page = nullptr;
  items_list(context(), query.get(), &page);
  int64_t read = result_get_nb_elements(page);
  result_set_del(page);
  return read;
}

template <int64_t (*Case)()> void BM_time(benchmark::State &state) {
  for (auto _ : state)
    if (Case() != items)
      state.SkipWithError("the collection came back short");
}

template <int64_t (*Case)()> void BM_memory(benchmark::State &state) {
  double peak = 0;
  for (auto _ : state) {
    heap_count_start();
    if (Case() != items)
      state.SkipWithError("the collection came back short");
    peak = double(heap_count_peak());
    heap_count_stop();
  }
  state.counters["peak_heap_MB"] = peak / 1e6;
}

void configure(benchmark::internal::Benchmark *b) {
  b->Iterations(1)->Repetitions(7)->ReportAggregatesOnly(true)->Unit(
      benchmark::kMillisecond);
}

BENCHMARK(BM_time<walk>)->Name("BM_walk")->Apply(configure)->UseRealTime();
BENCHMARK(BM_time<at_once>)
    ->Name("BM_at_once")
    ->Apply(configure)
    ->UseRealTime();
BENCHMARK(BM_memory<walk>)->Name("BM_walk_memory")->Iterations(1);
BENCHMARK(BM_memory<at_once>)->Name("BM_at_once_memory")->Iterations(1);

} // namespace
