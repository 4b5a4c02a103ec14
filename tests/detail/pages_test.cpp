/* The rule of a walk over pages, against scripted servers: where it asks,
 * what it hands over and when it stops. The walk through a generated call
 * and a real server is in tests/gen/walk_test.cpp. */
#include <algorithm>
#include <climits>
#include <vector>

#include <gtest/gtest.h>
#include <velmora/generated.h>

namespace {

using namespace velmora::detail;

/* A server of `items` items that reports `total` (from the page at
 * `changed_at` on, `later_total`), caps pages at `cap` (0: none), fails
 * with -2 at call `fail_at` (from 1) and answers `stuck` items whatever it
 * is asked, when that is not 0. */
struct Server {
  int32_t items, total;
  int32_t cap = 0;
  int changed_at = 0;
  int32_t later_total = 0;
  int fail_at = 0;
  int32_t stuck = 0;
};

struct Case {
  const char *name;
  Server server;
  int32_t start, limit;
  int64_t stop_after; /* the callback stops at this item; 0: never */
  int code;
  int64_t handed;
  std::vector<int32_t> offsets; /* asked, in order */
};

TEST(Pages, WalksEndWhereTheCollectionOrTheCallerSays) {
  const int32_t near_end = INT32_MAX - 7;
  /* {items, total, cap, changed_at, later_total, fail_at, stuck}, start,
   * limit, stop_after, code, handed, offsets */
  // clang-format off
  const Case cases[] = {
      {"exact multiple", {40, 40}, 0, 10, 0, 0, 40, {0, 10, 20, 30}},
      {"short last page", {40, 40}, 0, 15, 0, 0, 40, {0, 15, 30}},
      {"from an offset", {40, 40}, 25, 10, 0, 0, 15, {25, 35}},
      {"empty page before the total", {40, 50, 0, 0, 0, 3}, 0, 0, 0, 0, 40, {0, 40}},
      {"total shrinks mid-walk", {40, 40, 0, 2, 25}, 0, 10, 0, 0, 30, {0, 10, 20}},
      {"total grows mid-walk", {80, 40, 0, 2, 80}, 0, 10, 0, 0, 40, {0, 10, 20, 30}},
      {"the callback stops", {40, 40}, 0, 10, 23, 0, 23, {0, 10, 20}},
      {"a call fails on page 3", {40, 40, 0, 0, 0, 3}, 0, 10, 0, -2, 20, {0, 10, 20}},
      {"limit 0: the rest at once", {40, 40}, 0, 0, 0, 0, 40, {0}},
      {"limit 0, pages capped", {40, 40, 16}, 0, 0, 0, 0, 40, {0, 16, 32}},
      {"no total: a short page ends", {25, -1}, 0, 10, 0, 0, 25, {0, 10, 20}},
      {"offset ignored: the total ends", {40, 40, 0, 0, 0, 0, 10}, 0, 10, 0, 0, 40, {0, 10, 20, 30}},
      {"offsets would overflow", {INT32_MAX, -1, 0, 0, 0, 0, 10}, near_end, 10, 0, 0, 10, {near_end}},
      {"a negative offset: one page", {40, 40}, -5, 10, 0, 0, 10, {-5}},
  };
  // clang-format on
  for (const Case &c : cases) {
    const Server &s = c.server;
    std::vector<int32_t> offsets;
    int64_t seen = 0;
    auto fetch = [&](int32_t offset, int32_t limit, Page *page) {
      offsets.push_back(offset);
      int call = static_cast<int>(offsets.size());
      if (call == s.fail_at)
        return -2;
      int32_t rest = s.items - offset;
      int32_t size = limit == 0 ? rest : std::min(limit, rest);
      size = s.cap != 0 ? std::min(size, s.cap) : size;
      page->count = s.stuck != 0 ? s.stuck : std::max(size, 0);
      page->total =
          s.changed_at != 0 && call >= s.changed_at ? s.later_total : s.total;
      for (int32_t i = 0; i < page->count && !page->stopped; i++) {
        page->handed++;
        page->stopped = ++seen == c.stop_after;
      }
      return 0;
    };
    int64_t handed = -1;
    EXPECT_EQ(walk_pages(c.start, c.limit, &handed, fetch), c.code) << c.name;
    EXPECT_EQ(handed, c.handed) << c.name;
    EXPECT_EQ(offsets, c.offsets) << c.name;
  }
}

} // namespace
