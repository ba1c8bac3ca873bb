// The table design's parameters and the parts that its levels share.
#ifndef ADPCM_DESIGN_H_
#define ADPCM_DESIGN_H_

#include "adpcm/adpcm.h"

namespace adpcm {

struct DesignKernels;

inline constexpr int kDesignOrder = static_cast<int>(kOrder);
inline constexpr int kTaps = kDesignOrder + 1;
inline constexpr double kSilentEnergy = 10.0;  // of a frame; at or below it there is no signal
inline constexpr int kRefineIterations = 2;    // after each split
inline constexpr double kSplitDelta = 0.01;
inline constexpr double kSplitDirection[kTaps] = {0.0, -1.0, 0.0};

// The predictor of one frame by the covariance method, made stable: kTaps taps. `frame` has kOrder
// samples of history in front. False for a frame that gives none: silence, a singular or nearly
// singular system, an unstable predictor.
bool FramePredictor(const short* frame, double* taps);

// Designs 2^log2Size rows of kTaps taps, at most kDesignRows, with kernels. False when memory runs
// out.
bool DesignByKernels(const DesignKernels& kernels, const short* samples, qz::ulong nsamples,
                     int log2Size, double** codebook);

}  // namespace adpcm

#endif  // ADPCM_DESIGN_H_
