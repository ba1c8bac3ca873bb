// Decoding ahead: the decoder's way to do more than one sample at a time.
//
// A sample hangs on the one before it, and that chain is all that decoding costs. So a block of a
// stream is cut into stretches of equal length that are decoded side by side, each at first from a
// history that is a guess. The predictors are stable and samples are whole numbers: within some
// frames, a dozen or two in most sounds, the samples are those that the right history gives. Where
// the last two samples of a frame are the same, so is all behind them, because a frame hangs on
// nothing else.
#ifndef ADPCM_DECODE_AHEAD_H_
#define ADPCM_DECODE_AHEAD_H_

#include <cstddef>

#include "adpcm/adpcm.h"

namespace adpcm {

inline constexpr std::size_t kStretches = 8;

// Decodes kStretches stretches that follow each other, of `length` frames each. `histories` are the
// two samples in front of each, the older first; `frames`, `samples` and the table are as in
// kernels.h. With `untilMet` the samples are those that other histories gave: the function stops
// after the first frame whose last two samples, in each of the stretches, are what they were. The
// result is whether there was one.
using DecodeStretches = bool (*)(const qz::uchar* frames, std::size_t length,
                                 const short (*histories)[kOrder], short* samples,
                                 const short* table, bool untilMet);

// What Kernels::decodeFrames asks for.
void DecodeAhead(DecodeStretches decode, const qz::uchar* frames, std::size_t count, short* history,
                 short* samples, const short* table);

}  // namespace adpcm

#endif  // ADPCM_DECODE_AHEAD_H_
