/* Generated walks (walk_each, from everything.json) over the devserver's
 * catalogue and its faults: the items handed over, in order, and the code
 * a walk ends with. */
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "devserver_process.h"
#include "everything.h"

namespace {

using Context = std::unique_ptr<client_context_s, void (*)(client_context_s *)>;
using Query = std::unique_ptr<ListInfo, void (*)(void *)>;

struct Seen {
  std::vector<int64_t> ids;
  int64_t stop_after = 0;
};

int collect(Stone *stone, void *data) {
  Seen *run = static_cast<Seen *>(data);
  int64_t id = 0;
  stone_getId(stone, &id);
  run->ids.push_back(id);
  return static_cast<int64_t>(run->ids.size()) == run->stop_after ? 1 : 0;
}

std::vector<int64_t> from_one(int64_t last) {
  std::vector<int64_t> ids;
  for (int64_t id = 1; id <= last; id++)
    ids.push_back(id);
  return ids;
}

/* The items at 192.0.2.3 by name: the devserver's order, or a query. */
Query by_name_at_one_address() {
  Query query(ListInfo_new(), ListInfo_deleter);
  std::unique_ptr<Ordering, void (*)(void *)> order(Ordering_new(),
                                                    Ordering_deleter);
  ordering_setOrder_by(order.get(), "name");
  ordering_setAsc(order.get(), 1);
  listinfo_setOrder(query.get(), order.get());
  std::unique_ptr<dict_s, void (*)(void *)> search(
      dict_new("Unicode", string_deleter, string_deserialize, nullptr,
               [](void **slot, void *text) {
                 string_copier(reinterpret_cast<char **>(slot),
                               static_cast<char *>(text));
               }),
      dict_deleter);
  dict_add(search.get(), "address", const_cast<char *>("192.0.2.3"));
  listinfo_setSearch_parameters(query.get(), search.get());
  return query;
}

std::vector<std::string> fault(const char *fault) {
  return {"--fault", std::string("/items/list:") + fault};
}

/* Every page empty though the total is 50; a second request fails, so a
 * walk that goes on after the empty page ends with -1, not in a loop. */
std::vector<std::string> empty_pages() {
  std::string path = testing::TempDir() + "velmora_walk_empty_page.json";
  std::ofstream(path) << R"({"result": {"__type__": "ResultSet", )"
                         R"("__sub_type__": "Item", "__elements__": [], )"
                         R"("__total_items__": 50}})";
  return {"--route", "/items/list=" + path, "--fault",
          "/items/list:status=500,after=1"};
}

Context signed_context(int port) {
  Context context(client_context_new(), client_context_free);
  client_context_set_port(context.get(), port);
  client_context_set_user(context.get(), "u");
  client_context_set_password(context.get(), "pw");
  return context;
}

TEST(GeneratedWalks, HandOverEachItemOnceInOrderUntilTheEnd) {
  /* Five requests in all: a resynchronisation on every page would make a
   * sixth, which fails. */
  const std::vector<std::string> clock = {"--clock-offset", "600", "--fault",
                                          "/items/list:status=503,after=5"};
  const struct {
    const char *name;
    std::vector<std::string> options;
    int32_t page_size;
    int64_t stop_after;
    int code;
    std::vector<int64_t> ids;
  } cases[] = {
      // clang-format off
      {"exact multiple", {}, 10, 0, 0, from_one(40)},
      {"last page short", {"--items", "47"}, 10, 0, 0, from_one(47)},
      {"limit 0: one page", {}, 0, 0, 0, from_one(40)},
      {"limit 0: an empty page before the total", empty_pages(), 0, 0, 0, {}},
      {"the callback stops", {}, 10, 23, 0, from_one(23)},
      {"fails on page 3", fault("status=500,after=2"), 10, 0, -1, from_one(20)},
      {"date refused on page 3", fault("auth-error=1,after=2,first=1"), 10, 0, 0, from_one(40)},
      {"clock resynchronised once", clock, 10, 0, 0, from_one(40)},
  };
  // clang-format on
  for (const auto &c : cases) {
    std::vector<std::string> options = {"--user", "u", "--password", "pw"};
    options.insert(options.end(), c.options.begin(), c.options.end());
    DevserverProcess server(VELMORA_DEVSERVER, options);
    ASSERT_NE(server.port(), 0) << c.name;
    Context context = signed_context(server.port());
    Seen run;
    run.stop_after = c.stop_after;
    int64_t handed = -1;
    EXPECT_EQ(walk_each(context.get(), "p", nullptr, c.page_size, collect, &run,
                        &handed),
              c.code)
        << c.name;
    EXPECT_EQ(run.ids, c.ids) << c.name;
    EXPECT_EQ(handed, static_cast<int64_t>(c.ids.size())) << c.name;
    if (c.options == clock) {
      EXPECT_NEAR(context->clock_offset, 600, 5) << c.name;
    }
  }
}

TEST(GeneratedWalks, KeepTheQuerysOrderSearchAndOffset) {
  DevserverProcess server(VELMORA_DEVSERVER,
                          {"--user", "u", "--password", "pw"});
  ASSERT_NE(server.port(), 0);
  Context context = signed_context(server.port());
  Query query = by_name_at_one_address();
  result_set_s *page = nullptr;
  ASSERT_EQ(walk(context.get(), "p", query.get(), &page), 0);
  std::vector<int64_t> all;
  for (int32_t i = 0; i < result_get_nb_elements(page); i++) {
    int64_t id = 0;
    stone_getId(static_cast<Stone *>(result_set_get(page, i)), &id);
    all.push_back(id);
  }
  result_set_del(page);
  ASSERT_EQ(all.size(), 10u);
  listinfo_setOffset(query.get(), 2);
  Seen run;
  int64_t handed = 0;
  EXPECT_EQ(
      walk_each(context.get(), "p", query.get(), 3, collect, &run, &handed), 0);
  EXPECT_EQ(run.ids, std::vector<int64_t>(all.begin() + 2, all.end()));
  EXPECT_EQ(handed, 8);
  EXPECT_EQ(listinfo_getLimit(query.get()), 0) << "the caller's query changed";
  EXPECT_EQ(
      walk_each(context.get(), "p", query.get(), -1, collect, &run, &handed),
      -1);
  EXPECT_EQ(
      walk_each(context.get(), "p", query.get(), 3, nullptr, &run, &handed),
      -1);
}

} // namespace
