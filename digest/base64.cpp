/* Base64 with the standard alphabet and "=" padding, on one line. The
 * scalar code runs on lookup tables derived from the alphabet at load and
 * works on two characters (12 bits) per lookup; it is the reference, and
 * it finishes whatever the vector loop picked once per process leaves. */
#include <atomic>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <endian.h>

#include "digest_internal.h"
#include "velmora/digest.h"

using velmora::Base64Path;

namespace {

const std::string base64_alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* Marks a valid character pair. The table lives in static storage, which
 * starts zeroed, and only valid pairs are written: zero means a pair with a
 * character outside the alphabet. */
constexpr uint32_t kValidPair = 0x1000;
constexpr uint8_t kNotInAlphabet = 0xFF;

struct Tables {
  /* The two characters of each 12-bit value. */
  char encode[4096][2];
  /* Indexed by two characters, the first in the low byte: kValidPair and
   * their 12 bits. 128 KiB, of which the valid pairs touch about 16 KiB. */
  uint16_t decode_pair[65536];
  uint8_t sextet[256];

  Tables() {
    for (int v = 0; v < 4096; ++v) {
      encode[v][0] = base64_alphabet[v >> 6];
      encode[v][1] = base64_alphabet[v & 63];
    }
    memset(sextet, kNotInAlphabet, sizeof sextet);
    for (int s = 0; s < 64; ++s)
      sextet[static_cast<unsigned char>(base64_alphabet[s])] = uint8_t(s);
    for (int high = 0; high < 64; ++high)
      for (int low = 0; low < 64; ++low) {
        const unsigned first =
            static_cast<unsigned char>(base64_alphabet[high]);
        const unsigned second =
            static_cast<unsigned char>(base64_alphabet[low]);
        decode_pair[first | second << 8] =
            uint16_t(kValidPair | unsigned(high) << 6 | unsigned(low));
      }
  }
};

const Tables tables;

uint64_t load_be64(const uint8_t *p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return be64toh(v);
}

void store_be64(uint8_t *p, uint64_t v) {
  v = htobe64(v);
  memcpy(p, &v, sizeof v);
}

void put_pair(char *out, uint32_t twelve_bits) {
  memcpy(out, tables.encode[twelve_bits], 2);
}

/* The top 48 bits of `v` (six bytes) into eight characters. */
void encode_six(uint64_t v, char *out) {
  put_pair(out, uint32_t(v >> 52));
  put_pair(out + 2, uint32_t(v >> 40) & 0xFFF);
  put_pair(out + 4, uint32_t(v >> 28) & 0xFFF);
  put_pair(out + 6, uint32_t(v >> 16) & 0xFFF);
}

uint32_t pair_at(const uint8_t *p) {
  uint16_t two;
  memcpy(&two, p, sizeof two);
  return tables.decode_pair[le16toh(two)];
}

/* Value of character c, or kNotInAlphabet when c ends the text. A character
 * that the locale counts as a letter or digit but that is not in the
 * alphabet is read on as the value 0. */
uint32_t sextet_of(unsigned char c) {
  const uint8_t s = tables.sextet[c];
  if (s != kNotInAlphabet)
    return s;
  return c != '=' && isalnum(c) != 0 ? 0 : kNotInAlphabet;
}

/* Decodes from in[i] into buffer[o], two groups per round, while one test
 * tells that all eight characters are in the alphabet. o + 8 <= i + 8 <=
 * size, so the wide store fits. */
void decode_wide(const uint8_t *in, size_t size, uint8_t *buffer, size_t &i,
                 size_t &o) {
  for (; i + 8 <= size; i += 8, o += 6) {
    const uint32_t a = pair_at(in + i), b = pair_at(in + i + 2),
                   c = pair_at(in + i + 4), d = pair_at(in + i + 6);
    if ((a & b & c & d & kValidPair) == 0)
      break;
    /* The xor clears both pairs' marks, which sit at bits 24 and 12. */
    const uint64_t first = (a << 12 ^ b ^ (kValidPair << 12 | kValidPair));
    const uint64_t second = (c << 12 ^ d ^ (kValidPair << 12 | kValidPair));
    store_be64(buffer + o, (first << 24 | second) << 16);
  }
}

/* One group character by character, since the text may end inside it;
 * returns how many of its four characters were in the alphabet. */
int decode_group(const uint8_t *in, size_t size, uint8_t *buffer, size_t &i,
                 size_t &o) {
  uint32_t group = 0;
  int held = 0;
  for (; held < 4 && i < size; ++held, ++i) {
    const uint32_t s = sextet_of(in[i]);
    if (s == kNotInAlphabet)
      break;
    group |= s << (18 - 6 * held);
  }
  /* Two or three characters give one byte fewer; one gives none. */
  const int whole = held == 4 ? 3 : held > 0 ? held - 1 : 0;
  for (int k = 0; k < whole; ++k)
    buffer[o++] = uint8_t(group >> (16 - 8 * k));
  return held;
}

/* Whole groups and the padded rest of `length` bytes, scalar. */
void encode_scalar(const uint8_t *in, size_t length, char *out) {
  size_t i = 0;
  /* Six bytes per eight-byte load (the last two are not used), two loads
   * per round, both before any store: out may alias the input as far as
   * the compiler knows. */
  for (; i + 14 <= length; i += 12, out += 16) {
    const uint64_t first = load_be64(in + i);
    const uint64_t second = load_be64(in + i + 6);
    encode_six(first, out);
    encode_six(second, out + 8);
  }
  for (; i + 8 <= length; i += 6, out += 8)
    encode_six(load_be64(in + i), out);
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
}

/* The vector loops of one path; the scalar path has none. */
struct VectorLoops {
  size_t (*encode)(const uint8_t *, size_t, char *);
  size_t (*decode)(const uint8_t *, size_t, uint8_t *);
};

size_t no_encode(const uint8_t *, size_t, char *) {
  return 0;
}
size_t no_decode(const uint8_t *, size_t, uint8_t *) {
  return 0;
}

constexpr VectorLoops kScalar = {no_encode, no_decode};
constexpr VectorLoops kAvx2 = {velmora::base64_encode_avx2,
                               velmora::base64_decode_avx2};
constexpr VectorLoops kAvx512 = {velmora::base64_encode_avx512,
                                 velmora::base64_decode_avx512};

const VectorLoops *best_loops() {
  if (velmora::base64_cpu_has(Base64Path::avx512))
    return &kAvx512;
  return velmora::base64_cpu_has(Base64Path::avx2) ? &kAvx2 : &kScalar;
}

/* Null until the first call picks; no load-time initialiser needed. */
std::atomic<const VectorLoops *> selected_loops{nullptr};

const VectorLoops &loops() {
  const VectorLoops *chosen = selected_loops.load(std::memory_order_relaxed);
  if (chosen == nullptr) {
    chosen = best_loops();
    selected_loops.store(chosen, std::memory_order_relaxed);
  }
  return *chosen;
}

} // namespace

namespace velmora {

bool base64_cpu_has(Base64Path path) {
  const CpuFeatures &cpu = cpu_features();
  return path == Base64Path::avx2     ? cpu.avx2
         : path == Base64Path::avx512 ? cpu.avx512_vbmi
                                      : true;
}

bool base64_force(Base64Path path) {
  if (!base64_cpu_has(path))
    return false;
  const VectorLoops *forced = path == Base64Path::scalar   ? &kScalar
                              : path == Base64Path::avx2   ? &kAvx2
                              : path == Base64Path::avx512 ? &kAvx512
                                                           : best_loops();
  selected_loops.store(forced, std::memory_order_relaxed);
  return true;
}

} // namespace velmora

std::string base64_encode(const char *bytes, unsigned int length) {
  const uint8_t *in = reinterpret_cast<const uint8_t *>(bytes);
  /* Sized once; the padding is already in place. */
  std::string text((size_t(length) + 2) / 3 * 4, '=');
  const size_t done = loops().encode(in, length, &text[0]);
  encode_scalar(in + done, length - done, &text[done / 3 * 4]);
  return text;
}

void base64_decode(const std::string &text, char **out, int &length) {
  /* Lengths are ints: a longer text is read only up to INT_MAX characters. */
  const size_t size = text.size() < size_t(INT_MAX) ? text.size() : INT_MAX;
  uint8_t *buffer = static_cast<uint8_t *>(malloc(size));
  *out = reinterpret_cast<char *>(buffer);
  length = 0;
  if (buffer == nullptr)
    return;

  const uint8_t *in = reinterpret_cast<const uint8_t *>(text.data());
  size_t i = loops().decode(in, size, buffer);
  size_t o = i / 4 * 3;
  do
    decode_wide(in, size, buffer, i, o);
  while (decode_group(in, size, buffer, i, o) == 4);
  length = int(o);
}
