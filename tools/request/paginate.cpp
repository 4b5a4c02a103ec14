/* --paginate: a whole collection, page after page, one element per line. */
#include <cstdio>
#include <unistd.h>

#include <json/json.h>
#include <velmora/detail/pages.h>

#include "common/json_text.h"
#include "request.h"

namespace velmora_request {
namespace {

/* The object's first member whose value is an envelope of `type`; null
 * when none. */
Json::Value *member_of_type(Json::Value &object, const char *type) {
  for (const std::string &name : object.getMemberNames()) {
    Json::Value &value = object[name];
    if (value.isObject() && value["__type__"] == type)
      return &value;
  }
  return nullptr;
}

/* The ListInfo's properties in `body`, which each page's offset and limit
 * are written into; null after saying why there are none. */
Json::Value *query_of(Json::Value &body, const std::string &text) {
  std::string why;
  Json::Value *list_info = nullptr;
  if (velmora_tools::parse_json(text, velmora_tools::Strictness::strict, &body,
                                &why) &&
      body.isObject())
    list_info = member_of_type(body, "ListInfo");
  Json::Value *properties =
      list_info == nullptr ? nullptr : &(*list_info)["__properties__"];
  if (properties != nullptr && properties->isNull())
    *properties = Json::objectValue;
  if (properties != nullptr && properties->isObject() &&
      ((*properties)["offset"].isNull() || (*properties)["offset"].isInt()))
    return properties;
  fprintf(stderr,
          "velmora-request: --paginate needs a BODY that is a JSON object "
          "with a ListInfo member (\"__type__\": \"ListInfo\") whose offset, "
          "if any, is a number%s%s\n",
          why.empty() ? "" : "; ", why.c_str());
  return nullptr;
}

/* A page whose reply holds no ResultSet, among send_request's codes. */
const int no_result_set = -4;

struct Walk {
  Walk(client_context_s *context, const Options &o) : context(context), o(o) {}
  client_context_s *context;
  const Options &o;
  Json::Value body;
  Json::Value *query = nullptr;
  int64_t start = 0; /* the query's offset */
  int64_t items = 0;
  long pages = 0;
  std::string printed; /* by the library, for a failed transfer */
  bool progress = isatty(STDERR_FILENO) != 0;
};

/* The progress line is cleared before the elements are printed, as
 * standard output may be the same terminal. */
void clear_progress(const Walk &walk) {
  if (walk.progress && walk.pages > 0)
    fputs("\r\033[K", stderr);
}

/* Where the walk is in the whole collection, whatever offset it began at;
 * drawn under the page's elements, which go out first. */
void show_progress(const Walk &walk, int32_t total) {
  if (!walk.progress)
    return;
  fflush(stdout);
  fprintf(stderr, "\r\033[K%lld / %s items (page %ld)",
          static_cast<long long>(walk.start + walk.items),
          total < 0 ? "?" : std::to_string(total).c_str(), walk.pages);
}

/* Prints the page's elements; false when the reply holds no ResultSet. */
bool print_page(const std::string &reply, const Walk &walk,
                velmora::detail::Page *page) {
  Json::Value document;
  Json::Value *set = nullptr;
  if (velmora_tools::parse_json(reply, velmora_tools::Strictness::strict,
                                &document) &&
      document.isObject())
    set = member_of_type(document, "ResultSet");
  if (set == nullptr || !(*set)["__elements__"].isArray())
    return false;
  const Json::Value &elements = (*set)["__elements__"];
  const Json::Value &total = (*set)["__total_items__"];
  page->count = static_cast<int32_t>(elements.size());
  page->total = total.isInt() ? total.asInt() : -1;
  clear_progress(walk);
  for (const Json::Value &element : elements) {
    std::string line = velmora_tools::one_line(element) + "\n";
    fwrite(line.data(), 1, line.size(), stdout);
    page->handed++;
  }
  return true;
}

/* One page at `offset`: send_request's code, or no_result_set. */
int fetch(Walk &walk, int32_t offset, int32_t limit,
          velmora::detail::Page *page) {
  (*walk.query)["offset"] = offset;
  (*walk.query)["limit"] = limit;
  std::string reply;
  int result =
      send_quietly(walk.context, walk.o.path,
                   velmora_tools::one_line(walk.body), &reply, &walk.printed);
  if (result != 0)
    return result;
  if (!print_page(reply, walk, page))
    return no_result_set;
  walk.items += page->handed;
  walk.pages++;
  show_progress(walk, page->total);
  return 0;
}

} // namespace

int paginate(client_context_s *context, const Options &o,
             const std::string &url) {
  Walk walk(context, o);
  walk.query = query_of(walk.body, o.body);
  if (walk.query == nullptr)
    return exit_usage;
  walk.start = (*walk.query)["offset"].asInt();
  int result = velmora::detail::walk_pages(
      static_cast<int32_t>(walk.start), static_cast<int32_t>(o.page_size),
      nullptr, [&](int32_t offset, int32_t limit, velmora::detail::Page *page) {
        return fetch(walk, offset, limit, page);
      });
  fflush(stdout);
  if (walk.progress && walk.pages > 0)
    fputc('\n', stderr);
  if (result == 0)
    return exit_ok;
  int status = exit_no_page;
  if (result == no_result_set)
    fprintf(stderr, "velmora-request: %s answered without a ResultSet\n",
            url.c_str());
  else
    status = report(result, o, url, walk.printed);
  fprintf(stderr,
          "velmora-request: the walk stopped at offset %lld, after %lld "
          "items\n",
          static_cast<long long>(walk.start + walk.items),
          static_cast<long long>(walk.items));
  return status;
}

} // namespace velmora_request
