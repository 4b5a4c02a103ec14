/* Blob: bytes carried as Base64 text. */
#include <cstdlib>
#include <cstring>
#include <string>

#include "scalar_support.h"
#include "velmora/values.h"

namespace {

/* A record made as a caller makes one: Blob has no constructor. */
void *blob_of(const std::string &bytes) {
  Blob *blob = static_cast<Blob *>(malloc(sizeof(Blob)));
  blob->data = static_cast<char *>(malloc(bytes.size()));
  memcpy(blob->data, bytes.data(), bytes.size());
  blob->length = static_cast<int32_t>(bytes.size());
  return blob;
}

std::string bytes_of(void *value) {
  const Blob *blob = static_cast<Blob *>(value);
  return std::string(blob->data, blob->data + blob->length);
}

const struct {
  std::string bytes;
  const char *base64;
} kCases[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foobar", "Zm9vYmFy"},
    {std::string("\0\0\0", 3), "AAAA"},
    {"\xff\xff\xff", "////"},
    {std::string("\x80\0\xfe z", 5), "gAD+IHo="},
};

TEST(Blob, SerializesTheExactEnvelope) {
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.base64);
    void *blob = blob_of(c.bytes);
    Json::Value out = parse(R"({"__value__":1,"keep":1})");
    EXPECT_EQ(Blob_serialize(blob, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__type__":"Blob","__value__":")") +
                               c.base64 + R"(","keep":1})");
    Blob_deleter(blob);
  }
}

TEST(Blob, RoundTripsEveryByte) {
  std::string all(256, '\0');
  for (int i = 0; i < 256; i++)
    all[i] = static_cast<char>(i);
  for (const std::string &bytes : {all, kCases[6].bytes, std::string()}) {
    void *blob = blob_of(bytes);
    Json::Value out;
    void *back = Blob_deserialize(parse(render(*Blob_serialize(blob, out))));
    EXPECT_EQ(bytes_of(back), bytes);
    Blob_deleter(back);
    Blob_deleter(blob);
  }
}

TEST(Blob, ReadsWhatBase64Decodes) {
  const struct {
    const char *json;
    std::string bytes;
  } cases[] = {
      {R"({"__type__":"Blob","__value__":"Zm9vYmFy"})", "foobar"},
      {R"({"__value__":"Zm9v!Zm9v"})", "foo"},
      {R"({"__value__":"Zg"})", "f"},
      {R"({"__type__":"Blob"})", ""},
      {R"({"__value__":null})", ""},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.json);
    void *blob = Blob_deserialize(parse(c.json));
    EXPECT_EQ(bytes_of(blob), c.bytes);
    Blob_deleter(blob);
  }
}

TEST(Blob, CopiesOwnTheirBytes) {
  void *source = blob_of(std::string("a\0b", 3));
  void *copy = nullptr;
  Blob_copier(&copy, source);
  ASSERT_NE(copy, source);
  EXPECT_NE(static_cast<Blob *>(copy)->data, static_cast<Blob *>(source)->data);
  memset(static_cast<Blob *>(source)->data, 'x', 3);
  Blob_deleter(source);
  EXPECT_EQ(bytes_of(copy), std::string("a\0b", 3));
  Blob_deleter(copy);

  void *slot = &slot;
  Blob_copier(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
  Blob_deleter(nullptr);
}

/* Records a caller may build by hand: no bytes behind a null pointer or a
 * negative length, and the zero-length buffer may be null. */
TEST(Blob, RecordsWithoutReadableBytesActAsEmpty) {
  const Blob cases[] = {{nullptr, 0}, {nullptr, 5}, {nullptr, -1}};
  for (const Blob &record : cases) {
    void *blob = malloc(sizeof(Blob));
    memcpy(blob, &record, sizeof record);
    Json::Value out;
    EXPECT_EQ((*Blob_serialize(blob, out))["__value__"].asString(), "");
    void *copy = nullptr;
    Blob_copier(&copy, blob);
    EXPECT_EQ(static_cast<Blob *>(copy)->length, 0);
    Blob_deleter(copy);
    Blob_deleter(blob);
  }
}

TEST(Blob, ErrorsOfTheJsonLibraryPassThroughWithoutLeaks) {
  EXPECT_THROW(Blob_deserialize(parse(R"({"__value__":["Zg=="]})")),
               Json::LogicError);
  EXPECT_THROW(Blob_deserialize(parse("true")), Json::LogicError);
}

} // namespace
