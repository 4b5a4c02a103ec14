/* Internals of the digest subsystem: the block compression routines, the
 * switch that picks between them, the vector Base64 loops, and test-only
 * path switches. */
#ifndef VELMORA_DIGEST_INTERNAL_H
#define VELMORA_DIGEST_INTERNAL_H

#include <cstddef>
#include <cstdint>

namespace velmora {

/* The instruction sets the accelerated paths need, each true only when
 * the operating system also saves the registers it uses. */
struct CpuFeatures {
  bool sha;         /* SHA extensions with SSSE3 and SSE4.1 */
  bool avx2;        /* AVX2 */
  bool avx512_vbmi; /* AVX-512 F, BW and VBMI */
};

/* Read from the CPU on the first call; the same afterwards. */
const CpuFeatures &cpu_features();

/* Runs `count` 64-byte blocks at `blocks` through the chaining words. */
void sha1_compress_portable(uint32_t state[5], const uint8_t *blocks,
                            size_t count);

/* Same as the portable routine; only call it when cpu_features().sha. */
void sha1_compress_shani(uint32_t state[5], const uint8_t *blocks,
                         size_t count);

/* Test-only: true sends every later block to the portable routine, false
 * goes back to the one the CPU supports best. Safe from any thread. */
void sha1_force_portable(bool force);

/* Vector Base64 loops. Each encoder turns whole three-byte groups from the
 * front of `bytes` into text and returns how many bytes it took; each
 * decoder turns whole four-character groups from the front of `text` into
 * bytes and returns how many characters it took, stopping before the group
 * that holds the first character outside the alphabet (high bytes
 * included). The caller finishes with the scalar code. Only call them when
 * base64_cpu_has() says the CPU has their instructions. The decoders store
 * whole vectors past the bytes they decode, never past `size` bytes:
 * `bytes` must have room for `size`. */
size_t base64_encode_avx2(const uint8_t *bytes, size_t length, char *text);
size_t base64_decode_avx2(const uint8_t *text, size_t size, uint8_t *bytes);
size_t base64_encode_avx512(const uint8_t *bytes, size_t length, char *text);
size_t base64_decode_avx512(const uint8_t *text, size_t size, uint8_t *bytes);

enum class Base64Path { best, scalar, avx2, avx512 };

/* True when the CPU and the operating system support the path. */
bool base64_cpu_has(Base64Path path);

/* Test-only: sends every later Base64 call to `path` and returns true, or
 * returns false and changes nothing when the CPU lacks it. Base64Path::best
 * goes back to the best one the CPU supports. Safe from any thread. */
bool base64_force(Base64Path path);

} // namespace velmora

#endif
