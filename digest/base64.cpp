/* Base64 with the standard alphabet and "=" padding, on one line. Both
 * directions run on lookup tables derived from the alphabet at load: the
 * encoder turns 12 bits into two characters per lookup, the decoder turns
 * each character straight into its bits of the three output bytes. */
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "velmora/digest.h"

namespace {

const std::string base64_alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* Set in a decode entry for a character outside the alphabet; valid entries
 * only use the low 24 bits. */
constexpr uint32_t kNotInAlphabet = 0xFF000000;

struct Tables {
  char pairs[4096][2];
  /* decode[k][c]: the bits character c contributes, at position k of its
   * group, to the group's three bytes, first byte lowest. */
  uint32_t decode[4][256];

  Tables() {
    for (int v = 0; v < 4096; ++v) {
      pairs[v][0] = base64_alphabet[v >> 6];
      pairs[v][1] = base64_alphabet[v & 63];
    }
    for (auto &row : decode)
      for (uint32_t &entry : row)
        entry = kNotInAlphabet;
    for (uint32_t s = 0; s < 64; ++s) {
      const unsigned char c = static_cast<unsigned char>(base64_alphabet[s]);
      decode[0][c] = s << 2;
      decode[1][c] = s >> 4 | (s & 15) << 12;
      decode[2][c] = (s >> 2) << 8 | (s & 3) << 22;
      decode[3][c] = s << 16;
    }
  }
};

const Tables tables;

uint64_t load_be64(const uint8_t *p) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i)
    v = v << 8 | p[i];
  return v;
}

void store_le64(uint8_t *p, uint64_t v) {
  for (int i = 0; i < 8; ++i)
    p[i] = uint8_t(v >> (8 * i));
}

void put_pair(char *out, uint32_t twelve_bits) {
  memcpy(out, tables.pairs[twelve_bits], 2);
}

/* Bits of character c at position k of a group, or kNotInAlphabet when c
 * ends the text. A character that the locale counts as a letter or digit
 * but that is not in the alphabet is read on as the value 0. */
uint32_t slow_bits(int k, unsigned char c) {
  const uint32_t bits = tables.decode[k][c];
  if (!(bits & kNotInAlphabet))
    return bits;
  return c != '=' && isalnum(c) ? 0 : kNotInAlphabet;
}

} // namespace

std::string base64_encode(const char *bytes, unsigned int length) {
  const uint8_t *in = reinterpret_cast<const uint8_t *>(bytes);
  /* Sized once; the padding is already in place. */
  std::string text((size_t(length) + 2) / 3 * 4, '=');
  char *out = &text[0];
  size_t i = 0;
  /* Six bytes per round, read through one eight-byte load. */
  for (; i + 8 <= length; i += 6, out += 8) {
    const uint64_t v = load_be64(in + i);
    put_pair(out, uint32_t(v >> 52));
    put_pair(out + 2, uint32_t(v >> 40) & 0xFFF);
    put_pair(out + 4, uint32_t(v >> 28) & 0xFFF);
    put_pair(out + 6, uint32_t(v >> 16) & 0xFFF);
  }
  for (; i + 3 <= length; i += 3, out += 4) {
    const uint32_t v =
        uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8 | in[i + 2];
    put_pair(out, v >> 12);
    put_pair(out + 2, v & 0xFFF);
  }
  const size_t rest = length - i;
  if (rest > 0) {
    const uint32_t v =
        uint32_t(in[i]) << 16 | (rest == 2 ? uint32_t(in[i + 1]) << 8 : 0);
    out[0] = base64_alphabet[v >> 18];
    out[1] = base64_alphabet[(v >> 12) & 63];
    if (rest == 2)
      out[2] = base64_alphabet[(v >> 6) & 63];
  }
  return text;
}

void base64_decode(const std::string &text, char **out, int &length) {
  /* Lengths are ints: a longer text is read only up to INT_MAX characters. */
  const size_t size = text.size() < size_t(INT_MAX) ? text.size() : INT_MAX;
  uint8_t *buffer = static_cast<uint8_t *>(malloc(size));
  *out = reinterpret_cast<char *>(buffer);
  length = 0;
  if (!buffer)
    return;

  const uint8_t *in = reinterpret_cast<const uint8_t *>(text.data());
  const auto &decode = tables.decode;
  size_t i = 0;
  size_t o = 0;
  for (;;) {
    /* Two groups per round; one test tells whether all eight characters
     * are in the alphabet. o + 8 <= i + 8 <= size, so the wide store fits. */
    for (; i + 8 <= size; i += 8, o += 6) {
      const uint32_t first = decode[0][in[i]] | decode[1][in[i + 1]] |
                             decode[2][in[i + 2]] | decode[3][in[i + 3]];
      const uint32_t second = decode[0][in[i + 4]] | decode[1][in[i + 5]] |
                              decode[2][in[i + 6]] | decode[3][in[i + 7]];
      if ((first | second) & kNotInAlphabet)
        break;
      store_le64(buffer + o, first | uint64_t(second) << 24);
    }
    /* One group character by character: the text may end inside it. */
    uint32_t group = 0;
    int held = 0;
    for (; held < 4 && i < size; ++held, ++i) {
      const uint32_t bits = slow_bits(held, in[i]);
      if (bits & kNotInAlphabet)
        break;
      group |= bits;
    }
    /* Two or three characters give one byte fewer; one gives none. */
    const int whole = held == 4 ? 3 : held > 0 ? held - 1 : 0;
    for (int k = 0; k < whole; ++k)
      buffer[o++] = uint8_t(group >> (8 * k));
    if (held < 4)
      break;
  }
  length = int(o);
}
