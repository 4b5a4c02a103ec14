/* What the CPU and the operating system offer the accelerated digest
 * paths, read once from cpuid (and XCR0 for the saved vector state). */
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include "digest_internal.h"

namespace {

#if defined(__x86_64__) || defined(__i386__)
/* The register state the OS saves and restores (XCR0), or none when the
 * CPU lacks AVX; `ecx` is cpuid leaf 1's. */
uint64_t os_saved_state(unsigned ecx) {
  if ((ecx & bit_OSXSAVE) == 0 || (ecx & bit_AVX) == 0)
    return 0;
  uint32_t low, high;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t(high) << 32 | low;
}

/* AVX needs the SSE and AVX halves saved, AVX-512 also the mask and upper
 * registers; the SHA extensions use SSE registers only. */
velmora::CpuFeatures detect() {
  constexpr uint64_t kAvxState = 0x6, kAvx512State = 0xE6;
  velmora::CpuFeatures cpu{};
  unsigned eax, ebx, ecx, edx;
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0)
    return cpu;
  const bool sse = (ecx & bit_SSSE3) != 0 && (ecx & bit_SSE4_1) != 0;
  const uint64_t saved = os_saved_state(ecx);
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0)
    return cpu;
  cpu.sha = sse && (ebx & bit_SHA) != 0;
  cpu.avx2 = (saved & kAvxState) == kAvxState && (ebx & bit_AVX2) != 0;
  cpu.avx512_vbmi = (saved & kAvx512State) == kAvx512State &&
                    (ebx & bit_AVX512F) != 0 && (ebx & bit_AVX512BW) != 0 &&
                    (ecx & bit_AVX512VBMI) != 0;
  return cpu;
}
#else
velmora::CpuFeatures detect() {
  return velmora::CpuFeatures{};
}
#endif

} // namespace

namespace velmora {

const CpuFeatures &cpu_features() {
  static const CpuFeatures cpu = detect();
  return cpu;
}

} // namespace velmora
