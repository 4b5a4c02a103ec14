/* Internals of the digest subsystem: the block compression routines, the
 * switch that picks between them, and a test-only path switch. */
#ifndef VELMORA_DIGEST_INTERNAL_H
#define VELMORA_DIGEST_INTERNAL_H

#include <cstddef>
#include <cstdint>

namespace velmora {

/* Runs `count` 64-byte blocks at `blocks` through the chaining words. */
void sha1_compress_portable(uint32_t state[5], const uint8_t *blocks,
                            size_t count);

/* Same as the portable routine; only call it when sha1_cpu_has_shani(). */
void sha1_compress_shani(uint32_t state[5], const uint8_t *blocks,
                         size_t count);

/* True when the CPU has the SHA extensions and the SSE levels they need. */
bool sha1_cpu_has_shani();

/* Test-only: true sends every later block to the portable routine, false
 * goes back to the one the CPU supports best. Safe from any thread. */
void sha1_force_portable(bool force);

} // namespace velmora

#endif
