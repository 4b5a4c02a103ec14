/*
 * Eight threads at once, each with its own records and values, serializing,
 * sending to one loopback server, reading back and re-synchronising its
 * clock. Run under ThreadSanitizer by scripts/tsan-test; in the ordinary
 * builds it checks that distinct records do not disturb each other.
 */
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "loopback_server.h"
#include "transport_internal.h"
#include "velmora/velmora.h"

namespace {

constexpr int thread_count = 8;
constexpr int rounds = 10;

/* Echoes every body; the first request to each /skewed/ path is refused
 * with a date an hour ahead. Runs on the server's one thread. */
LoopbackServer::Responder echo_responder() {
  return
      [refused = std::set<std::string>()](const std::string &request) mutable {
        const std::string target = request_lines(request)[0];
        if (target.find(" /skewed/") != std::string::npos &&
            refused.insert(target).second)
          return http_reply(401, "auth_error: 1\r\nDate: " + date_in_an_hour() +
                                     "\r\n");
        return http_reply(200, "", request_body(request));
      };
}

/* The values one round sends: a paging request, a result page of Longs, a
 * blob and an address, all distinct per thread and round. */
Json::Value build_document(int thread, int round) {
  const std::string tag = std::to_string(thread) + "-" + std::to_string(round);
  Json::Value document;

  ListInfo *info = ListInfo_new();
  listinfo_setLimit(info, thread);
  listinfo_setOffset(info, round);
  Ordering *order = Ordering_new();
  ordering_setAsc(order, round % 2);
  ordering_setOrder_by(order, ("field" + tag).c_str());
  listinfo_setOrder(info, order);
  Ordering_deleter(order);
  dict_s *search = dict_new("Unicode", string_deleter, string_deserialize,
                            nullptr, [](void **slot, void *text) {
                              *slot = strdup(static_cast<char *>(text));
                            });
  char owner[] = "owner";
  dict_add(search, "owner", owner);
  listinfo_setSearch_parameters(info, search);
  dict_free(search);
  ListInfo_serialize(info, document["info"]);
  ListInfo_deleter(info);

  result_set_s *page = result_set_new("Long", Long_deleter, Long_deserialize,
                                      Long_serialize, Long_copier);
  for (int i = 0; i < 3; ++i) {
    void *number = Long_new();
    Long_setValue(number, thread * 1000 + round * 10 + i);
    result_set_add(page, number);
    Long_deleter(number);
  }
  result_set_set_total_items(page, 100 + thread);
  result_set_serialize(page, document["page"]);
  result_set_del(page);

  Blob blob{static_cast<char *>(malloc(tag.size())),
            static_cast<int32_t>(tag.size())};
  memcpy(blob.data, tag.data(), tag.size());
  Blob_serialize(&blob, document["blob"]);
  free(blob.data);

  void *address = IP_new();
  ip_setValue(address, ("10.0." + tag).c_str());
  IP_serialize(address, document["ip"]);
  IP_deleter(address);
  return document;
}

/* Reads the echoed document back and checks it holds what was sent. */
void check_document(const std::string &text, int thread, int round) {
  const std::string tag = std::to_string(thread) + "-" + std::to_string(round);
  Json::Value document;
  std::string errors;
  const std::unique_ptr<Json::CharReader> reader(
      Json::CharReaderBuilder().newCharReader());
  ASSERT_TRUE(
      reader->parse(text.data(), text.data() + text.size(), &document, &errors))
      << errors;

  auto *info = static_cast<ListInfo *>(ListInfo_deserialize(document["info"]));
  EXPECT_EQ(listinfo_getLimit(info), thread);
  EXPECT_EQ(listinfo_getOffset(info), round);
  EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(info)),
               ("field" + tag).c_str());
  EXPECT_STREQ(static_cast<char *>(
                   dict_get(listinfo_getSearch_parameters(info), "owner")),
               "owner");
  ListInfo_deleter(info);

  result_set_s *page = result_set_new("Long", Long_deleter, Long_deserialize,
                                      Long_serialize, Long_copier);
  result_set_deserialize(page, document["page"]);
  EXPECT_EQ(result_get_nb_elements(page), 3);
  EXPECT_EQ(result_set_get_total_items(page), 100 + thread);
  for (int i = 0; i < result_get_nb_elements(page); ++i)
    EXPECT_EQ(Long_getValue(result_set_get(page, i)),
              thread * 1000 + round * 10 + i);
  result_set_del(page);

  auto *blob = static_cast<Blob *>(Blob_deserialize(document["blob"]));
  EXPECT_EQ(std::string(blob->data, blob->length), tag);
  Blob_deleter(blob);

  void *address = IP_deserialize(document["ip"]);
  EXPECT_STREQ(ip_getValue(address), ("10.0." + tag).c_str());
  IP_deleter(address);
}

/* Seconds the re-synchronisation must add: an hour, plus the distance of
 * the local zone from the zone the server writes its dates in. */
int64_t expected_shift() {
  const time_t now = time(nullptr);
  tm local;
  localtime_r(&now, &local);
  return 3600 - local.tm_gmtoff;
}

void client_thread(int thread, int port, std::shared_future<void> start) {
  start.wait();
  for (int round = 0; round < rounds; ++round) {
    /* Half the threads keep the record in their own storage. */
    client_context_s own;
    client_context_s *context = &own;
    if (thread % 2 == 0)
      context = client_context_new();
    else
      client_context_init(&own);
    client_context_set_port(context, port);
    client_context_set_user(context, ("user" + std::to_string(thread)).c_str());
    if (thread % 4 < 2)
      client_context_set_password(context, "secret");
    else
      client_context_set_token(context, "token");

    const Json::Value document = build_document(thread, round);
    const std::string body =
        Json::writeString(Json::StreamWriterBuilder(), document);
    std::string out;
    EXPECT_EQ(send_request(context, "/echo", body, &out), 0);
    EXPECT_EQ(out, body);
    check_document(out, thread, round);

    if (round == 0) {
      const std::string path =
          "/skewed/" + std::to_string(thread * rounds + round);
      out.clear();
      EXPECT_EQ(send_request(context, path, body, &out), 0);
      EXPECT_EQ(out, body);
      EXPECT_NEAR(static_cast<double>(context->clock_offset),
                  static_cast<double>(expected_shift()), 5.0);
    }

    if (context == &own)
      client_context_clean(&own);
    else
      client_context_free(context);
  }
}

TEST(Concurrency, EightThreadsWithTheirOwnRecordsAndValues) {
  LoopbackServer server(echo_responder());
  std::promise<void> go;
  const std::shared_future<void> start = go.get_future().share();
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t)
    threads.emplace_back(client_thread, t, server.port(), start);
  go.set_value();
  for (std::thread &t : threads)
    t.join();
  /* The count of libcurl's global initialisations is the GlobalInit
   * test's; scripts/tsan-test runs both. */
  EXPECT_TRUE(velmora::global_init.initialized);
  EXPECT_EQ(server.request_count(), size_t(thread_count * (rounds + 2)));
}

} // namespace
