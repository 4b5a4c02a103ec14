/*
 * list_items: the road of one call, from typed values to a signed request
 * and back to typed values.
 *
 *   list_items [--host H] [--port P] [--user U] [--password PW]
 *
 * Asks the service's /items/list for the first page of the items at one
 * address, sorted by name, and prints it. Run it against velmora-devserver.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <json/json.h>
#include <velmora/velmora.h>

#include "items.h"

int main(int argc, char **argv) {
  /* 1. The connection and credential record. */
  client_context_s *context = client_context_new();
  for (int i = 1; i + 1 < argc; i += 2) {
    if (strcmp(argv[i], "--host") == 0)
      client_context_set_host(context, argv[i + 1]);
    else if (strcmp(argv[i], "--port") == 0)
      client_context_set_port(context, atoi(argv[i + 1]));
    else if (strcmp(argv[i], "--user") == 0)
      client_context_set_user(context, argv[i + 1]);
    else if (strcmp(argv[i], "--password") == 0)
      client_context_set_password(context, argv[i + 1]);
  }

  /* 2. The arguments: page size, position, order and a filter. Setters
   *    copy what they are given, so our own values stay ours. */
  Ordering *order = Ordering_new();
  ordering_setOrder_by(order, "name");
  ordering_setAsc(order, 1);

  /* A Dict of plain texts ("Unicode"), written as bare JSON strings; it
   * stores its own copy. */
  dict_s *search = dict_new("Unicode", string_deleter, string_deserialize,
                            nullptr, [](void **slot, void *text) {
                              string_copier(reinterpret_cast<char **>(slot),
                                            static_cast<char *>(text));
                            });
  dict_add(search, "address", const_cast<char *>("192.0.2.3"));

  ListInfo *query = ListInfo_new();
  listinfo_setLimit(query, 5);
  listinfo_setOffset(query, 0);
  listinfo_setOrder(query, order);
  listinfo_setSearch_parameters(query, search);
  Ordering_deleter(order);
  dict_free(search);

  /* 3. The call, generated from items.json: it writes the request
   *    document, sends it and reads the page. A server whose clock differs
   *    refuses our date once; the library then corrects
   *    context->clock_offset and sends again. */
  printf("clock_offset before the call: %lld s\n",
         static_cast<long long>(context->clock_offset));
  result_set_s *page = nullptr;
  int result = items_list(context, query, &page);
  ListInfo_deleter(query);
  printf("clock_offset after the call:  %lld s\n",
         static_cast<long long>(context->clock_offset));
  if (result != 0) {
    fprintf(stderr, "list_items: items_list gave %d\n", result);
    client_context_free(context);
    return 1;
  }

  /* 4. Print the page with the generated accessors. */
  int count = result_get_nb_elements(page);
  printf("%d of %d items at 192.0.2.3, by name:\n", count,
         result_set_get_total_items(page));
  for (int i = 0; i < count; i++) {
    const Item *item = static_cast<Item *>(result_set_get(page, i));
    int64_t id = 0, when = 0;
    item_getId(item, &id);
    item_getCreated(item, &when);
    time_t created = static_cast<time_t>(when);
    struct tm day;
    char text[16] = "?";
    if (gmtime_r(&created, &day) != nullptr)
      strftime(text, sizeof text, "%Y-%m-%d", &day);
    printf("  %3lld  %-12s %-12s %s\n", static_cast<long long>(id),
           item_getName(item), item_getAddress(item), text);
  }

  /* 5. Release everything: the page owns its items. */
  result_set_del(page);
  client_context_free(context);
  return 0;
}
