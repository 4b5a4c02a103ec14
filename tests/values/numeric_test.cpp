/* Long, ULong, Double, Time, Date, and the Integer and Boolean cells. */
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "scalar_support.h"
#include "velmora/values.h"

namespace {

/* A cell made as a caller of a type without constructor makes one. */
template <typename Cell> void *cell_of(decltype(Cell::value) content) {
  Cell *cell = static_cast<Cell *>(malloc(sizeof(Cell)));
  cell->value = content;
  return cell;
}

/* The 64 bits of an 8-byte cell's content, so -0.0 and NaN compare too. */
uint64_t bits_of(const void *content) {
  uint64_t bits;
  memcpy(&bits, content, sizeof bits);
  return bits;
}
template <typename Number> uint64_t bits(Number number) {
  static_assert(sizeof number == 8, "8-byte cells only");
  return bits_of(&number);
}

TEST(Numeric, SerializesTheExactEnvelopeKeepingOtherMembers) {
  const struct {
    void *cell;
    value_serializer serialize;
    value_deleter release;
    const char *type;
    const char *value;
  } cases[] = {
      {cell_of<Long>(INT64_MIN), Long_serialize, Long_deleter, "Long",
       "\"-9223372036854775808\""},
      {cell_of<Long>(INT64_MAX), Long_serialize, Long_deleter, "Long",
       "\"9223372036854775807\""},
      {cell_of<ULong>(UINT64_MAX), ULong_serialize, ULong_deleter, "Long",
       "\"18446744073709551615\""},
      {cell_of<Double>(0.1), Double_serialize, Double_deleter, "Double",
       "\"0.100000\""},
      {cell_of<Double>(-2.5), Double_serialize, Double_deleter, "Double",
       "\"-2.500000\""},
      {cell_of<Double>(4e-7), Double_serialize, Double_deleter, "Double",
       "\"0.000000\""},
      {cell_of<Double>(-4e-7), Double_serialize, Double_deleter, "Double",
       "\"-0.000000\""},
      {cell_of<Double>(INFINITY), Double_serialize, Double_deleter, "Double",
       "\"inf\""},
      {cell_of<Double>(-INFINITY), Double_serialize, Double_deleter, "Double",
       "\"-inf\""},
      {cell_of<Double>(NAN), Double_serialize, Double_deleter, "Double",
       "\"nan\""},
      /* Longer than 31 characters: written whole. */
      {cell_of<Double>(1e30), Double_serialize, Double_deleter, "Double",
       "\"1000000000000000019884624838656.000000\""},
      {cell_of<Time>(1700000000), Time_serialize, Time_deleter, "Time",
       "1700000000.0"},
      {cell_of<Date>(-1), Date_serialize, Date_deleter, "Date", "-1.0"},
      /* Beyond 2^53: the nearest double. */
      {cell_of<Time>(9007199254740993), Time_serialize, Time_deleter, "Time",
       "9007199254740992.0"},
      {nullptr, Long_serialize, Long_deleter, "Long", "null"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.value);
    Json::Value out = parse(R"({"__type__":"X","__value__":[1],"keep":1})");
    EXPECT_EQ(c.serialize(c.cell, out), &out);
    EXPECT_EQ(render(out), std::string("{\"__type__\":\"") + c.type +
                               "\",\"__value__\":" + c.value + ",\"keep\":1}");
    c.release(c.cell);
  }
}

TEST(Numeric, ReadsValueTextAndNumbersByTheParsingRules) {
  const struct {
    value_deserializer read;
    const char *json;
    uint64_t expected;
  } cases[] = {
      {Long_deserialize, R"({"__value__":"12abc"})", bits<int64_t>(12)},
      {Long_deserialize, R"({"__value__":"abc"})", bits<int64_t>(0)},
      {Long_deserialize, R"({})", bits<int64_t>(0)},
      {Long_deserialize, R"({"__value__":null})", bits<int64_t>(0)},
      {Long_deserialize, R"({"__value__":"  -42"})", bits<int64_t>(-42)},
      {Long_deserialize, R"({"__value__":"010"})", bits<int64_t>(10)},
      {Long_deserialize, R"({"__value__":"0x10"})", bits<int64_t>(0)},
      {Long_deserialize, R"({"__value__":"-9223372036854775808"})",
       bits<int64_t>(INT64_MIN)},
      {Long_deserialize, R"({"__value__":"18446744073709551615"})",
       bits<int64_t>(INT64_MAX)},
      {Long_deserialize, R"({"__value__":"-99999999999999999999"})",
       bits<int64_t>(INT64_MIN)},
      {Long_deserialize, R"({"__type__":"Double","__value__":"7"})",
       bits<int64_t>(7)},
      {Long_deserialize, R"({"__value__":42})", bits<int64_t>(42)},
      {ULong_deserialize, R"({"__value__":"0x10"})", bits<uint64_t>(16)},
      {ULong_deserialize, R"({"__value__":"010"})", bits<uint64_t>(8)},
      {ULong_deserialize, R"({"__value__":"-1"})", bits<uint64_t>(UINT64_MAX)},
      {ULong_deserialize, R"({"__value__":"18446744073709551616"})",
       bits<uint64_t>(UINT64_MAX)},
      {Double_deserialize, R"({"__value__":"0.100000"})", bits(0.1)},
      {Double_deserialize, R"({"__value__":"1e3x"})", bits(1000.0)},
      {Double_deserialize, R"({"__value__":"-0.000000"})", bits(-0.0)},
      {Double_deserialize, R"({"__value__":"-inf"})", bits(-double(INFINITY))},
      {Double_deserialize, R"({"__value__":"nan"})", bits(double(NAN))},
      {Double_deserialize, R"({"__value__":"x1"})", bits(0.0)},
      {Double_deserialize, R"({})", bits(0.0)},
      {Time_deserialize, R"({"__value__":1.9})", bits<int64_t>(1)},
      {Time_deserialize, R"({"__value__":-1.9})", bits<int64_t>(-1)},
      {Time_deserialize, R"({})", bits<int64_t>(0)},
      {Time_deserialize, R"({"__value__":true})", bits<int64_t>(1)},
      {Time_deserialize, R"({"__value__":1e300})", bits<int64_t>(INT64_MAX)},
      {Date_deserialize, R"({"__value__":-1e300})", bits<int64_t>(INT64_MIN)},
      {Date_deserialize, R"({"__value__":9223372036854775807})",
       bits<int64_t>(INT64_MAX)},
      {Date_deserialize, R"({"__value__":-9223372036854775808})",
       bits<int64_t>(INT64_MIN)},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.json);
    void *cell = c.read(parse(c.json));
    EXPECT_EQ(bits_of(cell), c.expected);
    free(cell);
  }

  Json::Value not_a_number;
  not_a_number["__value__"] = NAN;
  void *cell = Time_deserialize(not_a_number);
  EXPECT_EQ(static_cast<Time *>(cell)->value, 0);
  Time_deleter(cell);
}

TEST(Numeric, RoundTripsThroughJsonText) {
  const struct {
    void *cell;
    value_serializer serialize;
    value_deserializer read;
    uint64_t expected;
  } cases[] = {
      {cell_of<Long>(INT64_MIN), Long_serialize, Long_deserialize,
       bits<int64_t>(INT64_MIN)},
      {cell_of<ULong>(UINT64_MAX), ULong_serialize, ULong_deserialize,
       bits<uint64_t>(UINT64_MAX)},
      {cell_of<Double>(1e30), Double_serialize, Double_deserialize, bits(1e30)},
      {cell_of<Double>(-DBL_MAX), Double_serialize, Double_deserialize,
       bits(-DBL_MAX)},
      {cell_of<Date>(INT64_MIN), Date_serialize, Date_deserialize,
       bits<int64_t>(INT64_MIN)},
      {cell_of<Date>(9007199254740993), Date_serialize, Date_deserialize,
       bits<int64_t>(9007199254740992)},
      /* Rounds up to 2^63, which saturates back. */
      {cell_of<Time>(INT64_MAX), Time_serialize, Time_deserialize,
       bits<int64_t>(INT64_MAX)},
  };
  for (const auto &c : cases) {
    Json::Value out;
    std::string text = render(*c.serialize(c.cell, out));
    SCOPED_TRACE(text);
    void *back = c.read(parse(text));
    EXPECT_EQ(bits_of(back), c.expected);
    free(back);
    free(c.cell);
  }
}

TEST(Numeric, CopiesAreIndependentCells) {
  const struct {
    value_copier copy;
    value_deleter release;
    void *cell;
    size_t size;
  } cases[] = {
      {Long_copier, Long_deleter, cell_of<Long>(-5), sizeof(Long)},
      {ULong_copier, ULong_deleter, cell_of<ULong>(5), sizeof(ULong)},
      {Double_copier, Double_deleter, cell_of<Double>(0.5), sizeof(Double)},
      {Time_copier, Time_deleter, cell_of<Time>(7), sizeof(Time)},
      {Date_copier, Date_deleter, cell_of<Date>(8), sizeof(Date)},
      {Integer_copier, Integer_deleter, cell_of<Integer>(-9), sizeof(Integer)},
      {Boolean_copier, Boolean_deleter, cell_of<Boolean>(1), sizeof(Boolean)},
  };
  for (const auto &c : cases) {
    unsigned char original[8];
    memcpy(original, c.cell, c.size);
    void *copy = &copy;
    c.copy(&copy, c.cell);
    ASSERT_NE(copy, c.cell);
    memset(c.cell, 0xA5, c.size);
    c.release(c.cell);
    EXPECT_EQ(memcmp(copy, original, c.size), 0);
    c.release(copy);

    void *slot = &slot;
    c.copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr);
  }
}

TEST(Numeric, ConstructorsAndAccessors) {
  void *number = Long_new();
  EXPECT_EQ(Long_getValue(number), 0);
  Long_setValue(number, INT64_MIN);
  EXPECT_EQ(Long_getValue(number), INT64_MIN);
  EXPECT_EQ(static_cast<Long *>(number)->value, INT64_MIN);
  Long_deleter(number);
  EXPECT_EQ(Long_getValue(nullptr), 0);
  Long_setValue(nullptr, 1);

  void *real = Double_new();
  EXPECT_EQ(static_cast<Double *>(real)->value, 0.0);
  Double_deleter(real);
}

/* The JSON library's errors pass through; the leak checker of the
 * sanitizer build sees that nothing allocated is lost. */
TEST(Numeric, ErrorsOfTheJsonLibraryPassThroughWithoutLeaks) {
  const value_deserializer readers[] = {Long_deserialize, ULong_deserialize,
                                        Double_deserialize, Time_deserialize,
                                        Date_deserialize};
  for (value_deserializer read : readers) {
    EXPECT_THROW(read(parse(R"({"__value__":[1]})")), Json::LogicError);
    EXPECT_THROW(read(parse(R"({"__value__":{"a":1}})")), Json::LogicError);
    EXPECT_THROW(read(parse("[1]")), Json::LogicError);
  }
  EXPECT_THROW(Time_deserialize(parse(R"({"__value__":"12"})")),
               Json::LogicError);

  void *cell = Long_new();
  Json::Value out = parse("[1]");
  EXPECT_THROW(Long_serialize(cell, out), Json::LogicError);
  EXPECT_EQ(render(out), "[1]");
  Long_deleter(cell);
}

} // namespace
