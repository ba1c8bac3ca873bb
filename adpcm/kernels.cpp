#include "adpcm/kernels.h"

#include <atomic>

#include "adpcm/adpcm.h"
#include "adpcm/design_kernels.h"
#include "adpcm/frame_kernels.h"
#if defined(SAMPLEDATA_KERNEL_TWIN)
#include "adpcm/kernel_twin.h"
#endif

namespace adpcm {
namespace {

constexpr Kernels kScalarKernels = {"scalar", EncodeFramesScalar, DecodeFramesScalar, nullptr};
constexpr Kernels kPortableKernels = {"portable", EncodeFramesPortable, DecodeFramesPortable,
                                      &kDesignPortable};
#if defined(__x86_64__)
constexpr Kernels kAvx2Kernels = {"avx2", EncodeFramesAvx2, DecodeFramesAvx2, &kDesignAvx2};
#endif

std::atomic<KernelLevel> cap{KernelLevel::kAvx2};

const Kernels* BestUpTo(KernelLevel level) {
  const Kernels* best = nullptr;
  for (const KernelLevel candidate : kKernelLevels) {
    if (candidate > level) break;
    if (const Kernels* kernels = KernelsOf(candidate)) best = kernels;
  }
  return best;
}

// The kernels as the codec runs them.
const Kernels& InUse(const Kernels& kernels) {
#if defined(SAMPLEDATA_KERNEL_TWIN)
  if (&kernels == &kPortableKernels) return Twin<kPortableKernels>::kWithTwin;
#if defined(__x86_64__)
  if (&kernels == &kAvx2Kernels) return Twin<kAvx2Kernels>::kWithTwin;
#endif
#endif
  return kernels;
}

}  // namespace

bool TableIsBounded(const short* table) {
  for (std::size_t row = 0; row < kTableRows; ++row) {
    const int previous = table[2 * row];
    const int earlier = table[2 * row + 1];
    if (previous < -4096 || previous > 4096 || earlier < -2048 || earlier > 2048) return false;
  }
  return true;
}

const Kernels* KernelsOf(KernelLevel level) {
  switch (level) {
    case KernelLevel::kScalar:
      return &kScalarKernels;
    case KernelLevel::kPortable:
      return &kPortableKernels;
    case KernelLevel::kAvx2:
#if defined(__x86_64__)
      // The compiler's runtime also asks whether the system saves the wide registers.
      if (__builtin_cpu_supports("avx2")) return &kAvx2Kernels;
#endif
      return nullptr;
  }
  return nullptr;
}

const Kernels& ActiveKernels() {
  return InUse(*BestUpTo(cap.load(std::memory_order_relaxed)));
}

void CapKernels(KernelLevel level) {
  cap.store(level, std::memory_order_relaxed);
}

}  // namespace adpcm
