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
  static const char digits[] = "0123456789abcdef";
  const uint8_t *p = static_cast<const uint8_t *>(bytes);
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += digits[p[i] >> 4];
    text += digits[p[i] & 15];
  }
  return text;
}

inline std::string random_bytes(std::mt19937 &rng, size_t count) {
  std::string bytes(count, '\0');
  for (char &c : bytes)
    c = static_cast<char>(rng());
  return bytes;
}

inline const unsigned char *unsigned_bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.data());
}

inline std::string oracle_sha1_hex(const std::string &message) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(unsigned_bytes(message), message.size(), digest);
  return to_hex(digest, sizeof digest);
}

/* The 20 bytes of HMAC-SHA1. */
inline std::string oracle_hmac(const std::string &key,
                               const std::string &data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), int(key.size()), unsigned_bytes(data),
       data.size(), digest, &length);
  return std::string(reinterpret_cast<char *>(digest), length);
}

inline std::string oracle_base64(const std::string &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  text.resize(
      size_t(EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&text[0]),
                             unsigned_bytes(bytes), int(bytes.size()))));
  return text;
}

#endif
