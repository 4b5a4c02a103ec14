/* The scalar types: envelopes, parsing rules, texts and Blob. */
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "value_types.h"

namespace {

/* Cells made as callers of the types without a constructor make them. */
template <typename Cell> void *cell_of(decltype(Cell::value) content) {
  Cell *cell = static_cast<Cell *>(malloc(sizeof(Cell)));
  cell->value = content;
  return cell;
}

void *text_of(const char *text) {
  return cell_of<Ciphered>(text != nullptr ? strdup(text) : nullptr);
}

void *blob_of(const std::string &bytes, int32_t length) {
  Blob *blob = static_cast<Blob *>(malloc(sizeof(Blob)));
  blob->data = nullptr;
  if (!bytes.empty())
    blob->data = static_cast<char *>(
        memcpy(malloc(bytes.size()), bytes.data(), bytes.size()));
  blob->length = length;
  return blob;
}

void *blob_of(const std::string &bytes) {
  return blob_of(bytes, int32_t(bytes.size()));
}

/* The "__value__" that type `t` writes for `cell`, as JSON text. */
std::string written(int t, void *cell) {
  Json::Value out;
  EXPECT_EQ(value_types[t].write(cell, out), &out);
  return render(out["__value__"]);
}

/* What a cell read from `in` writes back. */
std::string read_back(int t, const Json::Value &in) {
  void *cell = value_types[t].read(in);
  std::string value = written(t, cell);
  value_types[t].release(cell);
  return value;
}

/* Each cell writes its exact envelope over `out`'s old members; what it
 * wrote reads back, and its copy outlives it, writing the same value. */
TEST(Scalar, WritesTheExactEnvelopeWhichReadsAndCopiesBack) {
  const struct {
    int type;
    void *cell;
    const char *value;
  } cases[] = {
      {LONG, cell_of<Long>(INT64_MIN), R"("-9223372036854775808")"},
      {LONG, cell_of<Long>(INT64_MAX), R"("9223372036854775807")"},
      {ULONG, cell_of<ULong>(UINT64_MAX), R"("18446744073709551615")"},
      {DOUBLE, cell_of<Double>(0.1), R"("0.100000")"},
      {DOUBLE, cell_of<Double>(-4e-7), R"("-0.000000")"},
      {DOUBLE, cell_of<Double>(-INFINITY), R"("-inf")"},
      {DOUBLE, cell_of<Double>(NAN), R"("nan")"},
      /* Past 31 characters: cut where only fraction digits go, else whole. */
      {DOUBLE, cell_of<Double>(1e25), R"("10000000000000000905969664.0000")"},
      {DOUBLE, cell_of<Double>(-1e25), R"("-10000000000000000905969664.000")"},
      {DOUBLE, cell_of<Double>(1e30), R"("1000000000000000019884624838656")"},
      {DOUBLE, cell_of<Double>(1e40),
       R"("10000000000000000303786028427003666890752.000000")"},
      {TIME, cell_of<Time>(1700000000), "1700000000.0"},
      {DATE, cell_of<Date>(-1), "-1.0"},
      /* Past 2^53 the nearest double; +-2^63 reads back saturated. */
      {TIME, cell_of<Time>(9007199254740993), "9007199254740992.0"},
      {TIME, cell_of<Time>(INT64_MAX), "9.2233720368547758e+18"},
      {DATE, cell_of<Date>(INT64_MIN), "-9.2233720368547758e+18"},
      {IPS, text_of("10.0.0.1"), R"("10.0.0.1")"},
      {IPS, text_of(nullptr), R"("")"},
      {CIPHERED, text_of("say \"hi\" caf\xc3\xa9"),
       R"("say \"hi\" caf\u00e9")"},
      {BLOB, blob_of(""), R"("")"},
      {BLOB, blob_of("f"), R"("Zg==")"},
      {BLOB, blob_of(std::string("\x80\0\xfe z\xff", 6)), R"("gAD+IHr/")"},
      /* No bytes behind a null pointer or a negative length. */
      {BLOB, blob_of("", 5), R"("")"},
      {BLOB, blob_of("abc", -1), R"("")"}};
  for (const auto &c : cases) {
    const value_type &type = value_types[c.type];
    SCOPED_TRACE(c.value);
    Json::Value out = json(R"({"__type__":"X","__value__":[1],"keep":1})");
    EXPECT_EQ(type.write(c.cell, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__type__":")") + type.name +
                               R"(","__value__":)" + c.value + R"(,"keep":1})");
    EXPECT_EQ(read_back(c.type, out), c.value);
    void *copy = nullptr;
    type.copy(&copy, c.cell);
    ASSERT_NE(copy, c.cell);
    type.release(c.cell);
    EXPECT_EQ(written(c.type, copy), c.value);
    type.release(copy);
  }
}

TEST(Scalar, NullHandlesWriteNullCopyAsNullAndReadAsEmpty) {
  for (int t = LONG; t <= BLOB; t++) {
    EXPECT_EQ(written(t, nullptr), "null") << t;
    void *slot = &slot;
    value_types[t].copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr) << t;
    value_types[t].release(nullptr);
  }
  EXPECT_EQ(Long_getValue(nullptr), 0);
  Long_setValue(nullptr, 1);
  EXPECT_EQ(ip_getValue(nullptr), nullptr);
  EXPECT_EQ(ip_setValue(nullptr, "x"), nullptr);
}

/* What a cell read from `in` writes back shows what was read. */
TEST(Scalar, ReadsByTheParsingRules) {
  const struct {
    int type;
    const char *in, *value;
  } cases[] = {{LONG, R"({"__value__":"  -42x"})", R"("-42")"},
               {LONG, R"({"__value__":"abc"})", R"("0")"},
               {LONG, "{}", R"("0")"},
               {LONG, "null", R"("0")"},
               {LONG, R"({"__value__":"010"})", R"("10")"},
               {LONG, R"({"__value__":"0x10"})", R"("0")"},
               {LONG, R"({"__value__":"18446744073709551615"})",
                R"("9223372036854775807")"},
               {LONG, R"({"__value__":"-99999999999999999999"})",
                R"("-9223372036854775808")"},
               {LONG, R"({"__type__":"Double","__value__":42})", R"("42")"},
               {ULONG, R"({"__value__":"0x10"})", R"("16")"},
               {ULONG, R"({"__value__":"010"})", R"("8")"},
               {ULONG, R"({"__value__":"-1"})", R"("18446744073709551615")"},
               {ULONG, R"({"__value__":"18446744073709551616"})",
                R"("18446744073709551615")"},
               {DOUBLE, R"({"__value__":"1e3x"})", R"("1000.000000")"},
               {DOUBLE, R"({"__value__":"-0.000000"})", R"("-0.000000")"},
               {TIME, R"({"__value__":1.9})", "1.0"},
               {TIME, R"({"__value__":-1.9})", "-1.0"},
               {TIME, R"({"__value__":true})", "1.0"},
               {TIME, R"({"__value__":NaN})", "0.0"},
               {TIME, R"({"__value__":1e300})", "9.2233720368547758e+18"},
               {DATE, R"({"__value__":-1e300})", "-9.2233720368547758e+18"},
               {DATE, R"({"__value__":-9223372036854774807})",
                "-9.2233720368547748e+18"},
               {CIPHERED, R"({"__type__":"IP","__value__":"::1"})", R"("::1")"},
               {IPS, R"({"__value__":null})", R"("")"},
               {IPS, R"({"__value__":12})", R"("12")"},
               {BLOB, R"({"__value__":"Zm9v!Zm9v"})", R"("Zm9v")"},
               {BLOB, R"({"__value__":"Zg"})", R"("Zg==")"}};
  for (const auto &c : cases)
    EXPECT_EQ(read_back(c.type, json(c.in)), c.value) << c.in;

  /* A string made from a null static text lends no characters at all. */
  Json::Value no_text;
  no_text["__value__"] = Json::Value(Json::StaticString(nullptr));
  for (int t : {LONG, ULONG, DOUBLE, IPS})
    EXPECT_EQ(read_back(t, no_text), read_back(t, Json::Value())) << t;
  char *text = static_cast<char *>(string_deserialize(no_text["__value__"]));
  EXPECT_STREQ(text, "");
  string_deleter(text);
}

/* The sanitizer build's leak checker sees that nothing allocated before
 * the JSON library's error is lost. */
TEST(Scalar, JsonLibraryErrorsPassThrough) {
  for (int t = LONG; t <= BLOB; t++)
    for (const char *in :
         {R"({"__value__":[1]})", R"({"__value__":{}})", "[1]"})
      EXPECT_THROW(value_types[t].read(json(in)), Json::LogicError) << t << in;
  EXPECT_THROW(Time_deserialize(json(R"({"__value__":"12"})")),
               Json::LogicError);
  EXPECT_THROW(string_deserialize(json(R"({"a":"b"})")), Json::LogicError);
  void *cell = Long_new();
  Json::Value out = json("[1]");
  EXPECT_THROW(Long_serialize(cell, out), Json::LogicError);
  EXPECT_EQ(render(out), "[1]");
  Long_deleter(cell);
}

TEST(Scalar, ConstructorsAccessorsAndTextHelpers) {
  void *number = Long_new(), *real = Double_new();
  EXPECT_EQ(Long_getValue(number), 0);
  Long_setValue(number, INT64_MIN);
  EXPECT_EQ(static_cast<Long *>(number)->value, INT64_MIN);
  EXPECT_EQ(static_cast<Double *>(real)->value, 0.0);
  Long_deleter(number);
  Double_deleter(real);

  const char bytes[] = "\x01\x7f\x80\xc3\xa9\xfe\xff";
  void *ip = IP_new();
  EXPECT_EQ(ip_getValue(ip), nullptr);
  char *held = ip_setValue(ip, bytes);
  EXPECT_NE(held, bytes);
  EXPECT_EQ(ip_getValue(ip), held);
  EXPECT_STREQ(ip_setValue(ip, ip_getValue(ip)), bytes); // the cell's own
  for (int t : {IPS, CIPHERED}) {
    Json::Value out;
    void *back = value_types[t].read(*value_types[t].write(ip, out));
    EXPECT_STREQ(ip_getValue(back), bytes) << t;
    value_types[t].release(back);
  }
  EXPECT_EQ(ip_setValue(ip, nullptr), nullptr);
  EXPECT_EQ(ip_getValue(ip), nullptr);
  IP_deleter(ip);

  char *slot = nullptr;
  EXPECT_EQ(string_copier(&slot, bytes), slot);
  EXPECT_STREQ(slot, bytes);
  void *owned = slot;
  safe_free(&owned);
  EXPECT_EQ(owned, nullptr);
  safe_free(&owned);
  safe_free(nullptr);
  EXPECT_EQ(string_copier(&slot, nullptr), nullptr);
  EXPECT_EQ(slot, nullptr);
}

} // namespace
