/* Uses one operation of each subsystem through the installed headers. */
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <json/json.h>
#include <velmora/velmora.h>

static_assert(VELMORA_VERSION_NUM ==
              (VELMORA_VERSION_MAJOR << 16 | VELMORA_VERSION_MINOR << 8 |
               VELMORA_VERSION_PATCH));

int main() {
  void *number = Long_new();
  Long_setValue(number, 42);
  Json::Value envelope;
  Long_serialize(number, envelope);
  Long_deleter(number);

  uint8_t *digest = sha1_hash("abc", 3);
  char hex[41];
  toHexString(reinterpret_cast<char *>(digest), hex);
  free(digest);

  client_context_s *context = client_context_new();
  int port = context->port;
  client_context_free(context);

  std::string text = Json::writeString(Json::StreamWriterBuilder(), envelope);
  printf("version %s\nLong 42: %s\nsha1(abc): %s\ndefault port: %d\n",
         VELMORA_VERSION_STRING, text.c_str(), hex, port);
  bool ok = envelope["__value__"] == "42" &&
            strcmp(hex, "a9993e364706816aba3e25717850c26c9cd0d89d") == 0 &&
            port == 8888;
  return ok ? 0 : 1;
}
