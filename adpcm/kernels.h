// The codec's inner loops, once per instruction set, behind one dispatch point.
//
// Every level gives the bytes of the scalar one, which stays as the reference and the last resort.
// The level is chosen once, by what the processor has; nothing else (no environment variable, no
// build type) decides. All functions here may be called from any thread.
#ifndef ADPCM_KERNELS_H_
#define ADPCM_KERNELS_H_

#include <cstddef>

#include "common/qztypes.h"

namespace adpcm {

// From the slowest to the fastest. A level that a build or a processor lacks is skipped.
enum class KernelLevel { kScalar, kPortable, kAvx2 };
inline constexpr KernelLevel kKernelLevels[] = {KernelLevel::kScalar, KernelLevel::kPortable,
                                                KernelLevel::kAvx2};

struct DesignKernels;

struct Kernels {
  const char* name;

  // Encodes `count` frames that follow each other. `samples` are 2 of history and 14 * count of
  // input, which become what a decoder will hold; `frames` gets 8 * count bytes. The table is one
  // that TableIsBounded accepts; the scalar level takes any.
  void (*encodeFrames)(short* samples, std::size_t count, qz::uchar* frames, const short* table);

  // Decodes `count` frames that follow each other to 14 * count samples. `history` are the two
  // samples in front of them, the older first, and then the last two decoded. The frames are any
  // bytes. The table as above.
  void (*decodeFrames)(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                       const short* table);

  // The table design; null where the scalar functions of estimate.h and codebook.h do it.
  const DesignKernels* design;
};

// Whether the rows are such as the table design makes, at most 4096 and 2048 in magnitude, so that
// every sum of the codec fits 32 bits. Sums of other tables wrap, and only the scalar level knows
// how.
bool TableIsBounded(const short* table);

// The level that the codec uses here.
const Kernels& ActiveKernels();

// The kernels of one level, or null where this build or processor lacks it.
const Kernels* KernelsOf(KernelLevel level);

// Keeps the codec from levels above `level`, for tests and benchmarks: from the next call of
// ActiveKernels on, in all threads.
void CapKernels(KernelLevel level);

}  // namespace adpcm

#endif  // ADPCM_KERNELS_H_
