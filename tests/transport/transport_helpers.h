/* Independent oracles and request readers shared by the transport tests. */
#ifndef VELMORA_TEST_TRANSPORT_HELPERS_H
#define VELMORA_TEST_TRANSPORT_HELPERS_H

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include "loopback_server.h"
#include "velmora/transport.h"

inline std::string oracle_base64(const std::string &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(
      reinterpret_cast<unsigned char *>(&text[0]),
      reinterpret_cast<const unsigned char *>(bytes.data()), int(bytes.size()));
  text.resize(size_t(length));
  return text;
}

inline std::string oracle_hmac_base64(const std::string &key,
                                      const std::string &data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), int(key.size()),
       reinterpret_cast<const unsigned char *>(data.data()), data.size(),
       digest, &length);
  return oracle_base64(std::string(reinterpret_cast<char *>(digest), length));
}

inline std::string oracle_sha1_hex(const std::string &text) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char *>(text.data()), text.size(),
       digest);
  char hex[2 * SHA_DIGEST_LENGTH + 1];
  for (int i = 0; i < SHA_DIGEST_LENGTH; ++i)
    snprintf(hex + 2 * i, 3, "%02x", digest[i]);
  return hex;
}

/* What follows `prefix` on the first head line that starts with it, or
 * "<absent>". */
inline std::string line_value(const std::string &request,
                              const std::string &prefix) {
  for (const std::string &line : request_lines(request))
    if (line.compare(0, prefix.size(), prefix) == 0)
      return line.substr(prefix.size());
  return "<absent>";
}

inline const char date_format[] = "%a, %d %b %Y %H:%M:%S %Z";

/* A request's date as broken-down time; tm_year is -1 when it is unreadable. */
inline struct tm request_date(const std::string &request) {
  struct tm date {};
  date.tm_year = -1;
  std::string text = line_value(request, "Date:");
  if (strptime(text.c_str(), date_format, &date) == nullptr)
    date.tm_year = -1;
  return date;
}

/* A reply date `seconds` after the request's date, fields read as UTC. */
inline std::string date_after(const std::string &request, long seconds) {
  struct tm date = request_date(request);
  time_t when = timegm(&date) + seconds;
  struct tm shifted;
  gmtime_r(&when, &shifted);
  char text[64];
  strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &shifted);
  return text;
}

struct ContextDeleter {
  void operator()(client_context_s *context) {
    client_context_free(context);
  }
};
using Context = std::unique_ptr<client_context_s, ContextDeleter>;

#endif
