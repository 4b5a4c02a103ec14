/* Independent oracles (OpenSSL) and byte helpers shared by the tests. The
 * test programs link OpenSSL; the support library itself does not. */
#ifndef VELMORA_TEST_ORACLES_H
#define VELMORA_TEST_ORACLES_H

#include <cstdint>
#include <random>
#include <string>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

inline std::string to_hex(const void *bytes, size_t count) {
  const uint8_t *p = static_cast<const uint8_t *>(bytes);
  std::string text;
  for (size_t i = 0; i < count; ++i)
    text.append({"0123456789abcdef"[p[i] >> 4], "0123456789abcdef"[p[i] & 15]});
  return text;
}

inline std::string random_bytes(std::mt19937 &rng, size_t count) {
  std::string bytes(count, '\0');
  for (char &c : bytes)
    c = char(rng());
  return bytes;
}

inline const unsigned char *bytes_of(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

inline std::string oracle_sha1_hex(const std::string &message) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  return to_hex(SHA1(bytes_of(message), message.size(), digest), 20);
}

/* The 20 bytes of HMAC-SHA1. */
inline std::string oracle_hmac(const std::string &key,
                               const std::string &data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  HMAC(EVP_sha1(), key.data(), int(key.size()), bytes_of(data), data.size(),
       digest, nullptr);
  return std::string(reinterpret_cast<char *>(digest), 20);
}

inline std::string oracle_base64(const std::string &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&text[0]),
                      bytes_of(bytes), int(bytes.size()));
  return text.substr(0, size_t(length));
}

#endif
