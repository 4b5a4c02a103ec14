/* A record's fields as generated code sets, clears and copies them, an
 * allocation failing in turn at each step; members no field names kept
 * apart and copied. The record is velmora-gen's Flat of
 * tests/gen/everything.json. */
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <tuple>

#include <gtest/gtest.h>
#include <json/json.h>
#include <velmora/generated.h>

#include "everything.h"
#include "failing_malloc.h"

namespace {

using namespace velmora::detail;

/* The fields as "id|address|name", "-" for one absent; the number is asked
 * for without a place to store it too. */
std::string shown(const Flat *r) {
  int64_t id = 0, *nowhere = nullptr;
  const char *address = cell_text(r->address);
  const int32_t got = get_number(r->id, &id) + get_number(r->id, nowhere);
  return (got == 2 ? std::to_string(id) : "-") + "|" +
         (address == nullptr ? "-" : address) + "|" +
         (r->name == nullptr ? "-" : r->name);
}

/* Field `which` of `r` set to `value` (the number's text for the id): a
 * number, a text in a cell, a plain text. */
void set(Flat *r, int which, const char *value) {
  const int64_t number = value == nullptr ? 0 : atoll(value);
  if (which == 0)
    set_number(&r->id, value == nullptr ? nullptr : &number, Long_copier,
               Long_deleter);
  else if (which == 1)
    set_in_cell(&r->address, value, IP_copier, IP_deleter);
  else
    set_field(&r->name, value, copy_text, string_deleter);
}

TEST(Fields, SetOrClearedOrLeftWholeWhenTheCopyFails) {
  const std::tuple<int, const char *, const char *> rows[] = {
      {0, "7", "7|192.0.2.1|n"}, {0, nullptr, "-|192.0.2.1|n"},
      {1, "::1", "1|::1|n"},     {1, nullptr, "1|-|n"},
      {2, "m", "1|192.0.2.1|m"}, {2, nullptr, "1|192.0.2.1|-"}};
  for (const auto &[which, value, after] : rows)
    for (int n = 1;; n++) {
      Owned<Flat> r(new_record<Flat>(), Flat_deleter);
      set(r.get(), 0, "1"), set(r.get(), 1, "192.0.2.1"), set(r.get(), 2, "n");
      const bool failed =
          with_failing_malloc(n, [&] { set(r.get(), which, value); }) >= n;
      EXPECT_EQ(shown(r.get()), failed ? "1|192.0.2.1|n" : after) << after;
      if (!failed)
        break;
    }
}

TEST(Fields, UnknownMembersAreKeptApartAndCopied) {
  const std::pair<const char *, const char *> rows[] = {
      {R"({"id": 1, "name": null})", "null"},
      {"[1]", "null"},
      {R"({"id": 1, "": [0], "idx": 3})", R"({"": [0], "idx": 3})"}};
  for (const auto &[text, kept] : rows) {
    Json::Value properties, expected, *unknown = nullptr, *copy = nullptr;
    std::istringstream(text) >> properties;
    std::istringstream(kept) >> expected;
    keep_unknown(properties, &unknown, "id", "name");
    ASSERT_TRUE(copy_unknown(unknown, &copy));
    delete unknown;
    EXPECT_EQ(copy == nullptr ? Json::Value() : *copy, expected) << text;
    delete copy;
  }
}

} // namespace
