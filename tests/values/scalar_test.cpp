/* The scalar types: numbers, times, texts and Blob, and the text helpers. */
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "failing_malloc.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

struct Type {
  const char *name; /* the "__type__" written */
  value_serializer serialize;
  value_deserializer read;
  value_copier copy;
  value_deleter release;
};
const Type kLong = {"Long", Long_serialize, Long_deserialize, Long_copier,
                    Long_deleter};
const Type kULong = {"Long", ULong_serialize, ULong_deserialize, ULong_copier,
                     ULong_deleter};
const Type kDouble = {"Double", Double_serialize, Double_deserialize,
                      Double_copier, Double_deleter};
const Type kTime = {"Time", Time_serialize, Time_deserialize, Time_copier,
                    Time_deleter};
const Type kDate = {"Date", Date_serialize, Date_deserialize, Date_copier,
                    Date_deleter};
const Type kIP = {"IP", IP_serialize, IP_deserialize, IP_copier, IP_deleter};
const Type kCiphered = {"Ciphered", Ciphered_serialize, Ciphered_deserialize,
                        Ciphered_copier, Ciphered_deleter};
const Type kBlob = {"Blob", Blob_serialize, Blob_deserialize, Blob_copier,
                    Blob_deleter};
const Type kAll[] = {kLong, kULong, kDouble,   kTime,
                     kDate, kIP,    kCiphered, kBlob};

/* Cells made as callers of the types without a constructor make them. */
template <typename Cell> void *cell_of(decltype(Cell::value) content) {
  Cell *cell = static_cast<Cell *>(malloc(sizeof(Cell)));
  cell->value = content;
  return cell;
}

void *text_of(const char *text) {
  return cell_of<Ciphered>(text != nullptr ? strdup(text) : nullptr);
}

void *blob_of(const std::string &bytes) {
  Blob *blob = static_cast<Blob *>(malloc(sizeof(Blob)));
  blob->data = static_cast<char *>(malloc(bytes.size()));
  memcpy(blob->data, bytes.data(), bytes.size());
  blob->length = int32_t(bytes.size());
  return blob;
}

/* The "__value__" that `type` writes for `cell`, as JSON text. */
std::string written_value(const Type &type, void *cell) {
  Json::Value out;
  type.serialize(cell, out);
  return render(out["__value__"]);
}

/* Each cell writes its exact envelope over `out`'s old members; what it
 * wrote reads back, and its copy outlives it, writing the same value. */
TEST(Scalar, WritesTheExactEnvelopeWhichReadsAndCopiesBack) {
  const struct {
    const Type &type;
    void *cell;
    const char *value;
  } cases[] = {
      {kLong, cell_of<Long>(INT64_MIN), R"("-9223372036854775808")"},
      {kLong, cell_of<Long>(INT64_MAX), R"("9223372036854775807")"},
      {kULong, cell_of<ULong>(UINT64_MAX), R"("18446744073709551615")"},
      {kDouble, cell_of<Double>(0.1), R"("0.100000")"},
      {kDouble, cell_of<Double>(4e-7), R"("0.000000")"},
      {kDouble, cell_of<Double>(-4e-7), R"("-0.000000")"},
      {kDouble, cell_of<Double>(-INFINITY), R"("-inf")"},
      {kDouble, cell_of<Double>(NAN), R"("nan")"},
      /* Past 31 characters: cut where only fraction digits go, else whole. */
      {kDouble, cell_of<Double>(1e25),
       R"("10000000000000000905969664.0000")"},
      {kDouble, cell_of<Double>(-1e25),
       R"("-10000000000000000905969664.000")"},
      {kDouble, cell_of<Double>(1e30), R"("1000000000000000019884624838656")"},
      {kDouble, cell_of<Double>(1e40),
       R"("10000000000000000303786028427003666890752.000000")"},
      {kTime, cell_of<Time>(1700000000), "1700000000.0"},
      {kDate, cell_of<Date>(-1), "-1.0"},
      /* Past 2^53 the nearest double; +-2^63 reads back saturated. */
      {kTime, cell_of<Time>(9007199254740993), "9007199254740992.0"},
      {kTime, cell_of<Time>(INT64_MAX), "9.2233720368547758e+18"},
      {kDate, cell_of<Date>(INT64_MIN), "-9.2233720368547758e+18"},
      {kIP, text_of("10.0.0.1"), R"("10.0.0.1")"},
      {kIP, text_of(nullptr), R"("")"}, /* no text yet */
      {kCiphered, text_of("say \"hi\" caf\xc3\xa9"),
       R"("say \"hi\" caf\u00e9")"},
      {kBlob, blob_of(""), R"("")"},
      {kBlob, blob_of("f"), R"("Zg==")"},
      {kBlob, blob_of("fo"), R"("Zm8=")"},
      {kBlob, blob_of(std::string("\0\0\0", 3)), R"("AAAA")"},
      {kBlob, blob_of(std::string("\x80\0\xfe z\xff", 6)), R"("gAD+IHr/")"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.value);
    Json::Value out = parse(R"({"__type__":"X","__value__":[1],"keep":1})");
    EXPECT_EQ(c.type.serialize(c.cell, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__type__":")") + c.type.name +
                               R"(","__value__":)" + c.value + R"(,"keep":1})");
    void *back = c.type.read(out);
    EXPECT_EQ(written_value(c.type, back), c.value);
    c.type.release(back);

    void *copy = nullptr;
    c.type.copy(&copy, c.cell);
    ASSERT_NE(copy, c.cell);
    c.type.release(c.cell);
    EXPECT_EQ(written_value(c.type, copy), c.value);
    c.type.release(copy);
  }
}

TEST(Scalar, NullCellsWriteNullAndCopyAsNull) {
  for (const Type &type : kAll) {
    EXPECT_EQ(written_value(type, nullptr), "null") << type.name;
    void *slot = &slot;
    type.copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr) << type.name;
    type.release(nullptr);
  }
}

/* What a cell read from `in` writes back shows what was read. */
TEST(Scalar, ReadsByTheParsingRules) {
  const struct {
    const Type &type;
    const char *in, *value;
  } cases[] = {
      {kLong, R"({"__value__":"12abc"})", R"("12")"},
      {kLong, R"({"__value__":"abc"})", R"("0")"},
      {kLong, R"({})", R"("0")"},
      {kLong, R"({"__value__":"  -42"})", R"("-42")"},
      {kLong, R"({"__value__":"010"})", R"("10")"},
      {kLong, R"({"__value__":"0x10"})", R"("0")"},
      {kLong, R"({"__value__":"18446744073709551615"})",
       R"("9223372036854775807")"},
      {kLong, R"({"__value__":"-99999999999999999999"})",
       R"("-9223372036854775808")"},
      {kLong, R"({"__type__":"Double","__value__":42})", R"("42")"},
      {kULong, R"({"__value__":"0x10"})", R"("16")"},
      {kULong, R"({"__value__":"010"})", R"("8")"},
      {kULong, R"({"__value__":"-1"})", R"("18446744073709551615")"},
      {kULong, R"({"__value__":"18446744073709551616"})",
       R"("18446744073709551615")"},
      {kDouble, R"({"__value__":"1e3x"})", R"("1000.000000")"},
      {kDouble, R"({"__value__":"-0.000000"})", R"("-0.000000")"},
      {kDouble, R"({"__value__":"inf"})", R"("inf")"},
      {kTime, R"({"__value__":1.9})", "1.0"},
      {kTime, R"({"__value__":-1.9})", "-1.0"},
      {kTime, R"({})", "0.0"},
      {kTime, R"({"__value__":true})", "1.0"},
      {kTime, R"({"__value__":1e300})", "9.2233720368547758e+18"},
      {kDate, R"({"__value__":-1e300})", "-9.2233720368547758e+18"},
      {kDate, R"({"__value__":-9223372036854774807})",
       "-9.2233720368547748e+18"},
      {kCiphered, R"({"__type__":"IP","__value__":"::1"})", R"("::1")"},
      {kIP, R"({"__type__":"IP"})", R"("")"},
      {kCiphered, R"({"__value__":null})", R"("")"},
      {kIP, R"({"__value__":12})", R"("12")"},
      {kBlob, R"({"__value__":"Zm9v!Zm9v"})", R"("Zm9v")"},
      {kBlob, R"({"__value__":"Zg"})", R"("Zg==")"}};
  for (const auto &c : cases) {
    void *cell = c.type.read(parse(c.in));
    EXPECT_EQ(written_value(c.type, cell), c.value) << c.type.name << c.in;
    c.type.release(cell);
  }
  Json::Value not_a_number;
  not_a_number["__value__"] = NAN;
  void *cell = Time_deserialize(not_a_number);
  EXPECT_EQ(written_value(kTime, cell), "0.0");
  Time_deleter(cell);

  /* A string made from a null static text lends no characters at all. */
  Json::Value no_text;
  no_text["__value__"] = Json::Value(Json::StaticString(nullptr));
  const std::pair<const Type &, const char *> empty[] = {
      {kLong, R"("0")"},
      {kULong, R"("0")"},
      {kDouble, R"("0.000000")"},
      {kIP, R"("")"},
      {kCiphered, R"("")"}};
  for (const auto &[type, value] : empty) {
    void *read = type.read(no_text);
    EXPECT_EQ(written_value(type, read), value) << type.name;
    type.release(read);
  }
  char *text = static_cast<char *>(string_deserialize(no_text["__value__"]));
  EXPECT_STREQ(text, "");
  string_deleter(text);
}

/* Each allocation of a read or a copy failing in turn gives null, and the
 * leak checker sees that nothing made before it is lost. */
TEST(Scalar, OutOfMemoryGivesNull) {
  const struct {
    const Type &type;
    void *cell;
  } cases[] = {{kLong, cell_of<Long>(7)},
               {kDouble, cell_of<Double>(0.5)},
               {kDate, cell_of<Date>(9)},
               {kIP, text_of("10.0.0.1")},
               {kBlob, blob_of("foo")}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.type.name);
    Json::Value out;
    c.type.serialize(c.cell, out);
    const int reads =
        with_failing_malloc(0, [&] { c.type.release(c.type.read(out)); });
    const int copies = with_failing_malloc(0, [&] {
      void *copy = nullptr;
      c.type.copy(&copy, c.cell);
      c.type.release(copy);
    });
    ASSERT_GE(reads, 1);
    ASSERT_GE(copies, 1);
    for (int n = 1; n <= reads; ++n)
      with_failing_malloc(n, [&] { EXPECT_EQ(c.type.read(out), nullptr); });
    for (int n = 1; n <= copies; ++n) {
      void *copy = &copy;
      with_failing_malloc(n, [&] { c.type.copy(&copy, c.cell); });
      EXPECT_EQ(copy, nullptr) << n;
    }
    c.type.release(c.cell);
  }
  void *ip = IP_new();
  ip_setValue(ip, "10.0.0.1");
  with_failing_malloc(1, [&] { EXPECT_EQ(ip_setValue(ip, "::1"), nullptr); });
  EXPECT_STREQ(ip_getValue(ip), "10.0.0.1");
  IP_deleter(ip);
}

/* The sanitizer build's leak checker sees that nothing allocated before
 * the JSON library's error is lost. */
TEST(Scalar, JsonLibraryErrorsPassThroughWithoutLeaks) {
  for (const Type &type : kAll)
    for (const char *in :
         {R"({"__value__":[1]})", R"({"__value__":{"a":1}})", "[1]"})
      EXPECT_THROW(type.read(parse(in)), Json::LogicError) << type.name << in;
  EXPECT_THROW(Time_deserialize(parse(R"({"__value__":"12"})")),
               Json::LogicError);
  EXPECT_THROW(string_deserialize(parse(R"({"a":"b"})")), Json::LogicError);
  void *cell = Long_new();
  Json::Value out = parse("[1]");
  EXPECT_THROW(Long_serialize(cell, out), Json::LogicError);
  EXPECT_EQ(render(out), "[1]");
  Long_deleter(cell);
}

TEST(Scalar, ConstructorsAndAccessors) {
  void *number = Long_new();
  EXPECT_EQ(Long_getValue(number), 0);
  Long_setValue(number, INT64_MIN);
  EXPECT_EQ(static_cast<Long *>(number)->value, INT64_MIN);
  Long_deleter(number);
  EXPECT_EQ(Long_getValue(nullptr), 0);
  Long_setValue(nullptr, 1);
  void *real = Double_new();
  EXPECT_EQ(static_cast<Double *>(real)->value, 0.0);
  Double_deleter(real);

  void *ip = IP_new();
  EXPECT_EQ(ip_getValue(ip), nullptr);
  char given[] = "10.0.0.1";
  char *held = ip_setValue(ip, given);
  EXPECT_NE(held, given);
  EXPECT_EQ(ip_getValue(ip), held);
  /* The cell's own text: copied before the old one is released. */
  EXPECT_STREQ(ip_setValue(ip, ip_getValue(ip)), "10.0.0.1");
  EXPECT_EQ(ip_setValue(ip, nullptr), nullptr);
  EXPECT_EQ(ip_getValue(ip), nullptr);
  IP_deleter(ip);
  EXPECT_EQ(ip_setValue(nullptr, "x"), nullptr);
}

TEST(Scalar, TextsKeepEveryByte) {
  const char bytes[] = "\x01\x7f\x80\xc3\xa9\xfe\xff";
  for (const Type &type : {kIP, kCiphered}) {
    void *cell = text_of(bytes);
    Json::Value out;
    void *back = type.read(*type.serialize(cell, out));
    EXPECT_STREQ(ip_getValue(back), bytes) << type.name;
    type.release(back);
    type.release(cell);
  }
  const std::pair<const char *, const char *> plain[] = {
      {R"("caf\u00e9")", "caf\xc3\xa9"}, {"null", ""}, {"-3", "-3"}};
  for (const auto &[in, text] : plain) {
    char *read = static_cast<char *>(string_deserialize(parse(in)));
    EXPECT_STREQ(read, text);
    string_deleter(read);
  }
  char *slot = nullptr;
  EXPECT_EQ(string_copier(&slot, bytes), slot);
  EXPECT_STREQ(slot, bytes);
  void *owned = slot;
  safe_free(&owned);
  EXPECT_EQ(owned, nullptr);
  safe_free(&owned);
  EXPECT_EQ(string_copier(&slot, nullptr), nullptr);
  EXPECT_EQ(slot, nullptr);
}

/* Records a caller may build by hand: no bytes behind a null pointer or a
 * negative length. */
TEST(Scalar, BlobWithoutReadableBytesActsAsEmpty) {
  for (const Blob &record :
       {Blob{nullptr, 0}, Blob{nullptr, 5}, Blob{nullptr, -1}}) {
    void *blob = malloc(sizeof(Blob));
    memcpy(blob, &record, sizeof record);
    EXPECT_EQ(written_value(kBlob, blob), R"("")");
    void *copy = nullptr;
    Blob_copier(&copy, blob);
    EXPECT_EQ(static_cast<Blob *>(copy)->length, 0);
    Blob_deleter(copy);
    Blob_deleter(blob);
  }
}

} // namespace
