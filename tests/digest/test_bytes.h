/* Small helpers shared by the digest tests. */
#ifndef VELMORA_TEST_BYTES_H
#define VELMORA_TEST_BYTES_H

#include <cstdint>
#include <random>
#include <string>

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

#endif
