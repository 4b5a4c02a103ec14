/*
 * A page of 50,000 four-field items (about 11 MB in the devserver's own
 * form, {"result": <ResultSet>} written compact by jsoncpp), served by the
 * devserver (--route) in a process of its own, and read three ways in one
 * run: the transfer alone (send_request); the generated items_list call as
 * it reads its reply now, from the text; and the same call reading through
 * a jsoncpp tree, as generated calls did before. Then the page read from
 * text in memory, ResultSet_Item_read against jsoncpp's parse and
 * result_set_deserialize. Each case is one call per iteration; compare the
 * medians.
 *
 * This process has one thread, as a client program of one thread has: once
 * a process has started a thread, glibc takes a lock in every malloc, and
 * reading a page is mostly malloc. VELMORA_BENCH_THREADED=1 starts (and
 * ends) a thread first, to measure a client that runs threads.
 *
 * BM_call_memory counts the heap through this program's own malloc: the
 * call's peak over what it started with, less what the page still holds
 * after it, over the reply's size.
 */
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "devserver_process.h"
#include "heap_count.h"
#include "items.h"

namespace {

const int items = 50000;

using PageHandle = std::unique_ptr<result_set_s, void (*)(void *)>;

/* The page as the devserver writes it. */
std::string page_reply() {
  PageHandle page(result_set_new("Item", Item_deleter, Item_deserialize,
                                 Item_serialize, Item_copier),
                  result_set_del);
  for (int64_t i = 0; i < items; i++) {
    std::unique_ptr<Item, void (*)(void *)> item(Item_new(), Item_deleter);
    int64_t created = 1700000000 + i * 86400;
    std::string name = "item " + std::to_string(i) + " of the catalogue";
    std::string address =
        "192.0." + std::to_string(i % 256) + "." + std::to_string(i % 200);
    item_setId(item.get(), &i);
    item_setName(item.get(), name.c_str());
    item_setAddress(item.get(), address.c_str());
    item_setCreated(item.get(), &created);
    result_set_add(page.get(), item.get());
  }
  result_set_set_total_items(page.get(), items);
  Json::Value reply;
  result_set_serialize(page.get(), reply["result"]);
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, reply);
}

const std::string &reply_body() {
  static const std::string body = page_reply();
  return body;
}

/* A client that runs threads, when asked for. */
const bool threaded = [] {
  const char *asked = getenv("VELMORA_BENCH_THREADED");
  if (asked != nullptr && std::string(asked) == "1")
    std::thread([] {}).join();
  return asked != nullptr && std::string(asked) == "1";
}();

/* The devserver answering /items/list with the page from a file. */
DevserverProcess &devserver() {
  static std::string file = [] {
    char name[] = "/tmp/velmora-page-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0 || write(fd, reply_body().data(), reply_body().size()) !=
                      ssize_t(reply_body().size()))
      abort();
    close(fd);
    return std::string(name);
  }();
  static DevserverProcess instance(
      VELMORA_DEVSERVER, {"--user", "bench", "--password", "bench-password",
                          "--route", "/items/list=" + file});
  // The devserver holds the page once it answers; the file can go.
  static bool removed = unlink(file.c_str()) == 0;
  (void)removed;
  return instance;
}

/* A signed client of the devserver. */
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

const std::string request_body = R"({"list_info":{"__type__":"ListInfo",)"
                                 R"("__properties__":{"limit":0}}})";

/* What generated calls did before: the whole reply as a jsoncpp tree. */
result_set_s *read_tree(const std::string &text) {
  Json::Value document;
  std::unique_ptr<Json::CharReader> parser(
      Json::CharReaderBuilder().newCharReader());
  if (!parser->parse(text.data(), text.data() + text.size(), &document,
                     nullptr))
    return nullptr;
  result_set_s *page = result_set_new("Item", Item_deleter, Item_deserialize,
                                      Item_serialize, Item_copier);
  result_set_deserialize(page, document["result"]);
  return page;
}

void BM_transfer(benchmark::State &state) {
  std::string reply;
  for (auto _ : state)
    if (send_request(context(), "/items/list", request_body, &reply) != 0)
      state.SkipWithError("request failed");
  state.counters["reply_MB"] = double(reply_body().size()) / 1e6;
  state.counters["threaded"] = threaded ? 1 : 0;
}

/* Frees a page outside the timing: the cases compare getting pages, and
 * every way of getting one frees it alike. */
void drop(benchmark::State &state, result_set_s *page) {
  state.PauseTiming();
  result_set_del(page);
  state.ResumeTiming();
}

/* One generated call of `client`; null when it fails. */
result_set_s *call(client_context_s *client) {
  std::unique_ptr<ListInfo, void (*)(void *)> query(ListInfo_new(),
                                                    ListInfo_deleter);
  listinfo_setLimit(query.get(), 0);
  result_set_s *page = nullptr;
  items_list(client, query.get(), &page);
  return page;
}

void BM_call_generated(benchmark::State &state) {
  for (auto _ : state) {
    result_set_s *page = call(context());
    if (result_get_nb_elements(page) != items)
      state.SkipWithError("call failed");
    drop(state, page);
  }
}

void BM_call_memory(benchmark::State &state) {
  std::unique_ptr<ListInfo, void (*)(void *)> query(ListInfo_new(),
                                                    ListInfo_deleter);
  listinfo_setLimit(query.get(), 0);
  double peak = 0, held = 0;
  client_context_s *client = context();
  for (auto _ : state) {
    heap_count_start();
    result_set_s *page = nullptr;
    if (items_list(client, query.get(), &page) != 0)
      state.SkipWithError("call failed");
    held = double(heap_count_now());
    peak = double(heap_count_peak());
    heap_count_stop();
    result_set_del(page);
  }
  state.counters["records_MB"] = held / 1e6;
  state.counters["peak_less_records_x_reply"] =
      (peak - held) / double(reply_body().size());
}

void BM_call_through_tree(benchmark::State &state) {
  std::string reply;
  for (auto _ : state) {
    if (send_request(context(), "/items/list", request_body, &reply) != 0)
      state.SkipWithError("request failed");
    result_set_s *page = read_tree(reply);
    if (result_get_nb_elements(page) != items)
      state.SkipWithError("read failed");
    drop(state, page);
  }
}

/* ---- One call in a fresh process -----------------------------------------
 * The first big page a process reads lands in memory the process never
 * touched, and each first touch of a page costs the kernel a fault. Here
 * the bench runs itself again per iteration, told by VELMORA_BENCH_COLD to
 * make one call to the devserver (after a small one that sets libcurl up)
 * and print its time in milliseconds. */

} // namespace

/* In a process so started, the one call; -1 in the run of the cases. */
extern "C" int velmora_bench_rerun() {
  const char *asked = getenv("VELMORA_BENCH_COLD");
  if (asked == nullptr)
    return -1;
  client_context_s *client = client_context_new();
  client_context_set_port(client, atoi(asked + 1));
  client_context_set_user(client, "bench");
  client_context_set_password(client, "bench-password");
  std::string reply;
  send_request(client, "/warm-up", "{}", &reply);
  result_set_s *page = nullptr;
  auto start = std::chrono::steady_clock::now();
  int code = asked[0] == 'c'
                 ? ((page = call(client)) == nullptr ? 1 : 0)
                 : send_request(client, "/items/list", request_body, &reply);
  std::chrono::duration<double, std::milli> took =
      std::chrono::steady_clock::now() - start;
  result_set_del(page);
  printf("%.3f\n", took.count());
  return code == 0 ? 0 : 1;
}

namespace {

/* Argument 0: the transfer alone; 1: the generated call. */
void BM_cold(benchmark::State &state) {
  char self[4096] = {};
  if (readlink("/proc/self/exe", self, sizeof self - 1) <= 0)
    state.SkipWithError("no /proc/self/exe");
  std::string command = std::string("VELMORA_BENCH_COLD=") +
                        (state.range(0) == 0 ? "t" : "c") +
                        std::to_string(devserver().port()) + " '" + self + "'";
  for (auto _ : state) {
    double took = -1;
    FILE *child = popen(command.c_str(), "r");
    if (child == nullptr || fscanf(child, "%lf", &took) != 1)
      took = -1;
    if ((child == nullptr || pclose(child) != 0) || took < 0)
      state.SkipWithError("the call failed");
    state.SetIterationTime(took / 1e3);
  }
}

/* The ResultSet envelope alone, as a user holding the text reads it. */
const std::string &page_text() {
  static const std::string text = [] {
    const std::string &body = reply_body();
    size_t begin = body.find(':') + 1;
    return body.substr(begin, body.size() - begin - 1);
  }();
  return text;
}

void BM_read_text(benchmark::State &state) {
  for (auto _ : state) {
    result_set_s *page =
        ResultSet_Item_read(page_text().data(), page_text().size());
    if (result_get_nb_elements(page) != items)
      state.SkipWithError("read failed");
    drop(state, page);
  }
}

void BM_read_jsoncpp(benchmark::State &state) {
  for (auto _ : state) {
    Json::Value tree;
    std::unique_ptr<Json::CharReader> parser(
        Json::CharReaderBuilder().newCharReader());
    const std::string &text = page_text();
    parser->parse(text.data(), text.data() + text.size(), &tree, nullptr);
    result_set_s *page = result_set_new("Item", Item_deleter, Item_deserialize,
                                        Item_serialize, Item_copier);
    result_set_deserialize(page, tree);
    if (result_get_nb_elements(page) != items)
      state.SkipWithError("read failed");
    drop(state, page);
  }
}

void configure(benchmark::internal::Benchmark *b) {
  b->Iterations(1)->Repetitions(21)->ReportAggregatesOnly(true)->Unit(
      benchmark::kMillisecond);
}

BENCHMARK(BM_transfer)->Apply(configure)->UseRealTime();
BENCHMARK(BM_call_generated)->Apply(configure)->UseRealTime();
BENCHMARK(BM_call_through_tree)->Apply(configure)->UseRealTime();
BENCHMARK(BM_call_memory)->Iterations(1);
BENCHMARK(BM_cold)->Apply(configure)->Arg(0)->Arg(1)->UseManualTime();
BENCHMARK(BM_read_text)->Apply(configure);
BENCHMARK(BM_read_jsoncpp)->Apply(configure);

} // namespace
