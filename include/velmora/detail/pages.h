/* Whole collections walked page by page, for generated `_each` calls and
 * velmora-request --paginate: one rule for when a walk goes on. */
#ifndef VELMORA_DETAIL_PAGES_H
#define VELMORA_DETAIL_PAGES_H

#include <cstdint>
#include <limits>
#include <memory>

#include "velmora/values.h"

namespace velmora::detail {

/* What fetching one page told the walk. */
struct Page {
  int32_t count = 0;    /* elements the page held */
  int32_t total = -1;   /* its total count; -1 when it gave none */
  int64_t handed = 0;   /* elements handed to the callback */
  bool stopped = false; /* the callback asked to stop */
};

/* Where the next page starts, or false when the walk is over: after an
 * empty page, a page short of a set `limit` (0 asks for the rest), at the
 * smallest total any page gave, or where offsets would overflow. A page
 * from a negative offset is the last: where the server began it is not
 * known. Every page that goes on moves the offset forward and the smallest
 * total never grows, so a server that never reaches its total still ends
 * the walk. */
inline bool next_page(const Page &page, int32_t limit, int32_t *offset,
                      int32_t *bound) {
  if (page.total >= 0 && page.total < *bound)
    *bound = page.total;
  if (page.count <= 0 || (limit > 0 && page.count < limit) || *offset < 0)
    return false;
  if (page.count > std::numeric_limits<int32_t>::max() - *offset)
    return false;
  *offset += page.count;
  return *offset < *bound;
}

/* Calls fetch(offset, limit, &page) from `offset` on until next_page ends
 * the walk, the callback stops it or a fetch gives a code other than 0,
 * which is returned. `*handed` (when not null) counts the elements the
 * callback was given, so that offset + *handed resumes the walk. */
template <typename Fetch>
int walk_pages(int32_t offset, int32_t limit, int64_t *handed, Fetch fetch) {
  int32_t bound = std::numeric_limits<int32_t>::max();
  int64_t given = 0;
  int code;
  for (;;) {
    Page page;
    code = fetch(offset, limit, &page);
    given += page.handed;
    if (code != 0 || page.stopped || !next_page(page, limit, &offset, &bound))
      break;
  }
  if (handed != nullptr)
    *handed = given;
  return code;
}

/* Hands each element of `set` to `each` until it returns non-zero. */
template <typename T>
void hand_over(result_set_s *set, int (*each)(T *, void *), void *user,
               Page *page) {
  page->count = result_get_nb_elements(set);
  page->total = result_set_get_total_items(set);
  for (int32_t i = 0; i < page->count && !page->stopped; i++) {
    page->handed++;
    page->stopped = each(static_cast<T *>(result_set_get(set, i)), user) != 0;
  }
}

/* A generated operation's walk: call(query, &page) sends one page's
 * request. Each page's query is a shallow copy of `query` (null: a fresh
 * ListInfo) with the page's offset and `page_size` as its limit, so that
 * it writes what `query` writes, order and search included, and the
 * caller's record is not touched; it must stay as it is while the walk
 * runs. One page is held at a time; -1 when `page_size` is negative or
 * `each` null. */
template <typename T, typename Call>
int walk_result_sets(const ListInfo *query, int32_t page_size,
                     int (*each)(T *, void *), void *user, int64_t *handed,
                     Call call) {
  if (handed != nullptr)
    *handed = 0;
  if (page_size < 0 || each == nullptr)
    return -1;
  ListInfo page_query;
  ListInfo_init(&page_query);
  if (query != nullptr)
    page_query = *query;
  auto fetch = [&](int32_t offset, int32_t limit, Page *page) {
    page_query.offset = offset;
    page_query.limit = limit;
    result_set_s *raw = nullptr;
    int code = call(&page_query, &raw);
    std::unique_ptr<result_set_s, void (*)(void *)> set(raw, result_set_del);
    if (code == 0)
      hand_over(set.get(), each, user, page);
    return code;
  };
  return walk_pages(page_query.offset, page_size, handed, fetch);
}

} // namespace velmora::detail

#endif
