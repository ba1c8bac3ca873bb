// Kernels that run the scalar code beside them and assert that it gives the same, for builds with
// SAMPLEDATA_KERNEL_TWIN: a difference shows in whatever was running, with its data at hand.
#ifndef ADPCM_KERNEL_TWIN_H_
#define ADPCM_KERNEL_TWIN_H_

#include <cstring>

#include "adpcm/adpcm.h"
#include "adpcm/frame_kernels.h"
#include "adpcm/kernels.h"
#include "common/qzassert.h"

namespace adpcm {

template <const Kernels& kKernels>
struct Twin {
  static constexpr std::size_t kMostFrames = 1024;  // at a time, on the stack

  static void EncodeFrames(short* samples, std::size_t count, qz::uchar* frames,
                           const short* table) {
    for (std::size_t done = 0; done < count; done += kMostFrames) {
      const std::size_t part = count - done < kMostFrames ? count - done : kMostFrames;
      short* const block = samples + done * kSamplesPerFrame;
      qz::uchar* const out = frames + done * kBytesPerFrame;
      const std::size_t blockBytes = (kOrder + part * kSamplesPerFrame) * sizeof(short);
      short blockTwin[kOrder + kMostFrames * kSamplesPerFrame];
      qz::uchar outTwin[kMostFrames * kBytesPerFrame];
      std::memcpy(blockTwin, block, blockBytes);
      EncodeFramesScalar(blockTwin, part, outTwin, table);
      kKernels.encodeFrames(block, part, out, table);
      QZ_ASSERT(std::memcmp(out, outTwin, part * kBytesPerFrame) == 0, "same frames as the twin");
      QZ_ASSERT(std::memcmp(block, blockTwin, blockBytes) == 0, "same samples as the twin");
    }
  }

  static void DecodeFrames(const qz::uchar* frames, std::size_t count, short* history,
                           short* samples, const short* table) {
    short historyTwin[kOrder];
    std::memcpy(historyTwin, history, sizeof historyTwin);
    kKernels.decodeFrames(frames, count, history, samples, table);
    for (std::size_t frame = 0; frame < count; ++frame) {
      short twin[kSamplesPerFrame];
      DecodeFramesScalar(frames + frame * kBytesPerFrame, 1, historyTwin, twin, table);
      QZ_ASSERT(std::memcmp(samples + frame * kSamplesPerFrame, twin, sizeof twin) == 0,
                "same samples as the twin");
    }
    QZ_ASSERT(std::memcmp(history, historyTwin, sizeof historyTwin) == 0,
              "same history as the twin");
  }

  static constexpr Kernels kWithTwin = {kKernels.name, EncodeFrames, DecodeFrames, kKernels.design};
};

}  // namespace adpcm

#endif  // ADPCM_KERNEL_TWIN_H_
