/* Plain texts, IP and Ciphered, and the text helpers they share. */
#include <cstdlib>
#include <cstring>

#include "scalar_support.h"
#include "velmora/values.h"

namespace {

struct TextType {
  const char *name;
  value_serializer serialize;
  value_deserializer read;
  value_copier copy;
  value_deleter release;
};
const TextType kTextTypes[] = {
    {"IP", IP_serialize, IP_deserialize, IP_copier, IP_deleter},
    {"Ciphered", Ciphered_serialize, Ciphered_deserialize, Ciphered_copier,
     Ciphered_deleter},
};

/* A cell made as a caller of Ciphered, which has no constructor, makes one. */
void *text_cell(const char *text) {
  Ciphered *cell = static_cast<Ciphered *>(malloc(sizeof(Ciphered)));
  cell->value = text != nullptr ? strdup(text) : nullptr;
  return cell;
}

const char *text_of(void *cell) {
  return static_cast<Ciphered *>(cell)->value;
}

TEST(Text, SerializesTheExactEnvelope) {
  const struct {
    const char *text;
    const char *value;
  } cases[] = {
      {"10.0.0.1", "\"10.0.0.1\""},
      {"", "\"\""},
      {"say \"hi\"", R"("say \"hi\"")"},
      {"caf\xc3\xa9", "\"caf\xc3\xa9\""},
      {nullptr, "\"\""}, /* a cell holding no text yet */
  };
  for (const TextType &type : kTextTypes) {
    for (const auto &c : cases) {
      SCOPED_TRACE(c.value);
      void *cell = text_cell(c.text);
      Json::Value out = parse(R"({"__value__":1,"keep":1})");
      EXPECT_EQ(type.serialize(cell, out), &out);
      EXPECT_EQ(render(out), std::string("{\"__type__\":\"") + type.name +
                                 "\",\"__value__\":" + c.value +
                                 ",\"keep\":1}");
      type.release(cell);
    }
    Json::Value out;
    type.serialize(nullptr, out);
    EXPECT_EQ(render(out), std::string("{\"__type__\":\"") + type.name +
                               "\",\"__value__\":null}");
  }
}

TEST(Text, ReadsAnyEnvelopeAsItsOwnType) {
  const struct {
    const char *json;
    const char *text;
  } cases[] = {
      {R"({"__type__":"IP","__value__":"::1"})", "::1"},
      {R"({"__type__":"Ciphered","__value__":"x9/+="})", "x9/+="},
      {R"({"__type__":"IP"})", ""},
      {R"({"__value__":null})", ""},
      {R"({"__value__":12})", "12"},
  };
  for (const TextType &type : kTextTypes) {
    for (const auto &c : cases) {
      SCOPED_TRACE(c.json);
      void *cell = type.read(parse(c.json));
      ASSERT_NE(text_of(cell), nullptr);
      EXPECT_STREQ(text_of(cell), c.text);
      type.release(cell);
    }
  }
}

TEST(Text, BytesOutsideAsciiPassUnchanged) {
  const char bytes[] = "\x01\x7f\x80\xc3\xa9\xfe\xff";
  for (const TextType &type : kTextTypes) {
    void *cell = text_cell(bytes);
    Json::Value out;
    type.serialize(cell, out);
    EXPECT_EQ(out["__value__"].asString(), bytes);
    void *back = type.read(out);
    EXPECT_STREQ(text_of(back), bytes);
    type.release(back);
    type.release(cell);
  }
}

TEST(Text, CopiesOwnTheirText) {
  for (const TextType &type : kTextTypes) {
    for (const char *text : {"10.0.0.1", static_cast<const char *>(nullptr)}) {
      void *cell = text_cell(text);
      void *copy = nullptr;
      type.copy(&copy, cell);
      ASSERT_NE(copy, cell);
      type.release(cell);
      if (text == nullptr) {
        EXPECT_EQ(text_of(copy), nullptr);
      } else {
        EXPECT_STREQ(text_of(copy), text);
      }
      type.release(copy);
    }
    void *slot = &slot;
    type.copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr);
    type.release(nullptr);
  }
}

TEST(Text, IpAccessors) {
  void *ip = IP_new();
  EXPECT_EQ(ip_getValue(ip), nullptr);

  char given[] = "10.0.0.1";
  char *first = ip_setValue(ip, given);
  EXPECT_NE(first, given);
  EXPECT_STREQ(first, given);
  EXPECT_EQ(ip_getValue(ip), first);

  /* Replaces and releases the first copy (the leak checker sees it). */
  EXPECT_STREQ(ip_setValue(ip, "::1"), "::1");
  /* The cell's own text: copied before the old one is released. */
  EXPECT_STREQ(ip_setValue(ip, ip_getValue(ip)), "::1");
  EXPECT_EQ(ip_setValue(ip, nullptr), nullptr);
  EXPECT_EQ(ip_getValue(ip), nullptr);
  IP_deleter(ip);

  EXPECT_EQ(ip_getValue(nullptr), nullptr);
  EXPECT_EQ(ip_setValue(nullptr, "x"), nullptr);
}

TEST(Text, PlainTextHelpers) {
  const struct {
    const char *json;
    const char *text;
  } cases[] = {
      {R"("caf\u00e9")", "caf\xc3\xa9"},
      {"null", ""},
      {"-3", "-3"},
  };
  for (const auto &c : cases) {
    char *text = static_cast<char *>(string_deserialize(parse(c.json)));
    EXPECT_STREQ(text, c.text);
    string_deleter(text);
  }

  const char original[] = "order";
  char *slot = nullptr;
  char *copy = string_copier(&slot, original);
  EXPECT_EQ(copy, slot);
  EXPECT_NE(copy, original);
  EXPECT_STREQ(copy, original);

  void *owned = copy;
  safe_free(&owned);
  EXPECT_EQ(owned, nullptr);
  safe_free(&owned);

  EXPECT_EQ(string_copier(&slot, nullptr), nullptr);
  EXPECT_EQ(slot, nullptr);
}

TEST(Text, ErrorsOfTheJsonLibraryPassThroughWithoutLeaks) {
  for (const TextType &type : kTextTypes) {
    EXPECT_THROW(type.read(parse(R"({"__value__":["a"]})")), Json::LogicError);
    EXPECT_THROW(type.read(parse(R"("text")")), Json::LogicError);
  }
  EXPECT_THROW(string_deserialize(parse(R"({"a":"b"})")), Json::LogicError);
}

} // namespace
