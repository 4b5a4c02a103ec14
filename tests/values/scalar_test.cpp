/* The scalar types: envelopes, parsing rules, accessors and text helpers. */
#include <cstring>

#include <gtest/gtest.h>

#include "value_types.h"

namespace {

/* Cells made as callers of the types without a constructor make them. */
template <typename Cell> void *cell(decltype(Cell::value) content) {
  return memcpy(malloc(sizeof(Cell)), &content, sizeof content);
}

void *blob(const char *bytes, int32_t size, int32_t length) {
  Blob b = {size > 0 ? (char *)memcpy(malloc(size), bytes, size) : nullptr,
            length};
  return memcpy(malloc(sizeof b), &b, sizeof b);
}

/* The member that type `t` writes for `cell`, as JSON text. */
std::string written(int t, void *cell, const char *member = "__value__") {
  Json::Value out;
  EXPECT_EQ(value_types[t].write(cell, out), &out);
  return render(out[member]);
}

/* Each cell's copy, which outlives it, writes its exact envelope over
 * `out`'s old members. */
TEST(Scalar, CopiesWriteTheExactEnvelope) {
  const struct {
    int type;
    void *cell;
    const char *value;
  } cases[] = {
      {LONG, cell<Long>(INT64_MIN), R"("-9223372036854775808")"},
      {ULONG, cell<ULong>(UINT64_MAX), R"("18446744073709551615")"},
      /* Past 31 characters: cut where only fraction digits go, else whole. */
      {DOUBLE, cell<Double>(1e25), R"("10000000000000000905969664.0000")"},
      {DOUBLE, cell<Double>(-1e25), R"("-10000000000000000905969664.000")"},
      {DOUBLE, cell<Double>(1e30), R"("1000000000000000019884624838656")"},
      {DOUBLE, cell<Double>(1e40),
       R"("10000000000000000303786028427003666890752.000000")"},
      /* +-2^63 as the nearest double, read back saturated. */
      {TIME, cell<Time>(INT64_MAX), "9.2233720368547758e+18"},
      {DATE, cell<Date>(INT64_MIN), "-9.2233720368547758e+18"},
      {IPS, cell<IP>(nullptr), R"("")"},
      {CIPHERED, cell<Ciphered>(strdup("\"hi\" caf\xc3\xa9")),
       R"("\"hi\" caf\u00e9")"},
      {BLOB, blob("\x80\0\xfe z\xff", 6, 6), R"("gAD+IHr/")"},
      /* No bytes behind a null pointer or a negative length. */
      {BLOB, blob("", 0, 5), R"("")"},
      {BLOB, blob("abc", 3, -1), R"("")"}};
  for (const auto &c : cases) {
    const value_type &type = value_types[c.type];
    void *copy = nullptr;
    type.copy(&copy, c.cell);
    type.release(c.cell);
    Json::Value out = json(R"({"__type__":"X","__value__":[1],"keep":1})");
    EXPECT_EQ(type.write(copy, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__type__":")") + type.name +
                               R"(","__value__":)" + c.value + R"(,"keep":1})");
    type.release(copy);
  }
}

/* What a cell read from {"__value__": in} writes back shows what was read. */
TEST(Scalar, ReadsByTheParsingRules) {
  const struct {
    int type;
    const char *in, *value;
  } cases[] = {
      {LONG, R"("  -42x")", R"("-42")"},
      {LONG, R"("0x10")", R"("0")"},
      {LONG, R"("-99999999999999999999")", R"("-9223372036854775808")"},
      {ULONG, R"("0x10")", R"("16")"},
      {ULONG, R"("-1")", R"("18446744073709551615")"},
      {ULONG, R"("18446744073709551616")", R"("18446744073709551615")"},
      {DOUBLE, R"("1e3x")", R"("1000.000000")"},
      {TIME, "-1.9", "-1.0"},
      {TIME, "NaN", "0.0"},
      {TIME, "1e300", "9.2233720368547758e+18"},
      {DATE, "-1e300", "-9.2233720368547758e+18"},
      {IPS, "null", R"("")"},
      {CIPHERED, "12", R"("12")"},
      {BLOB, R"("Zm9v!Zm9v")", R"("Zm9v")"}};
  for (const auto &c : cases) {
    void *cell = value_types[c.type].read(
        json(R"({"__value__":)" + std::string(c.in) + "}"));
    EXPECT_EQ(written(c.type, cell), c.value) << c.in;
    value_types[c.type].release(cell);
  }
  /* A string made from a null static text lends no characters at all. */
  Json::Value no_text(Json::StaticString(nullptr)), in;
  in["__value__"] = no_text;
  void *ip = IP_deserialize(in), *text = string_deserialize(no_text);
  EXPECT_EQ(written(IPS, ip) + static_cast<char *>(text), R"("")");
  IP_deleter(ip);
  string_deleter(text);
}

/* Null handles (records' too) write a null value and copy as null; the
 * JSON library's errors pass through (the leak checker sees nothing lost
 * before them). */
TEST(Scalar, NullHandlesAndJsonErrors) {
  for (int t = LONG; t <= LIST_INFO; t++) {
    EXPECT_EQ(written(t, nullptr) + written(t, nullptr, "__properties__"),
              "nullnull")
        << t;
    void *slot = &slot;
    value_types[t].copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr) << t;
    value_types[t].release(nullptr);
    if (t > BLOB)
      continue; // records read only "__properties__"
    for (const char *in : {R"({"__value__":[1]})", R"({"__value__":{}})"})
      EXPECT_THROW(value_types[t].read(json(in)), Json::LogicError) << in;
  }
  EXPECT_THROW(Time_deserialize(json(R"({"__value__":"12"})")),
               Json::LogicError);
  EXPECT_THROW(string_deserialize(json("{}")), Json::LogicError);
  Long_setValue(nullptr, 1);
  EXPECT_EQ(Long_getValue(nullptr), 0);
  EXPECT_EQ(ip_getValue(nullptr), ip_setValue(nullptr, "x"));
}

/* Fresh cells hold zero or no text; setters keep their own copy. */
TEST(Scalar, ConstructorsAccessorsAndTextHelpers) {
  void *number = Long_new(), *real = Double_new(), *ip = IP_new();
  Long_setValue(number, INT64_MIN);
  EXPECT_EQ(static_cast<Long *>(number)->value, INT64_MIN);
  EXPECT_EQ(written(DOUBLE, real), R"("0.000000")");
  EXPECT_EQ(ip_getValue(ip), nullptr);
  const char text[] = "\x01\x7f\x80\xff";
  char *held = ip_setValue(ip, text);
  EXPECT_EQ(ip_getValue(ip), held);
  EXPECT_STREQ(ip_setValue(ip, held), text); // the cell's own text
  EXPECT_NE(ip_getValue(ip), text);
  EXPECT_EQ(ip_setValue(ip, nullptr), nullptr);
  EXPECT_EQ(written(IPS, ip), R"("")");
  for (void *cell : {number, real, ip})
    free(cell);
  char *slot = nullptr;
  EXPECT_STREQ(string_copier(&slot, text), text);
  void *owned = slot;
  safe_free(&owned);
  safe_free(&owned);
  safe_free(nullptr);
  EXPECT_TRUE(owned == nullptr && string_copier(&slot, nullptr) == nullptr &&
              slot == nullptr);
}

} // namespace
