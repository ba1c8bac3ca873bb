// The decoder in the compiler's own vectors: a stretch in each lane, and two vectors side by side.
#include <bit>
#include <cstdint>
#include <cstring>

#include "adpcm/decode_ahead.h"
#include "adpcm/frame_kernels.h"
#include "adpcm/portable_lanes.h"

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr int kHalves = static_cast<int>(kStretches) / kLanes;

// The frames of the stretches, as the lanes need them.
struct Frames {
  int start[kStretches], rest[kStretches];  // four bytes each, the first one highest
  int previous[kStretches], earlier[kStretches];
  int gain[kStretches];
};

int BigEndian(const qz::uchar* bytes) {
  std::uint32_t value;
  std::memcpy(&value, bytes, sizeof value);
  if (std::endian::native == std::endian::little) value = __builtin_bswap32(value);
  return static_cast<int>(value);
}

Frames LoadFrames(const qz::uchar* frames, std::size_t step, const short* table) {
  Frames loaded;
  for (std::size_t i = 0; i < kStretches; ++i, frames += step) {
    const std::size_t row = (frames[0] >> 4) % kTableRows;
    loaded.start[i] = BigEndian(frames);
    loaded.rest[i] = BigEndian(frames + 4);
    loaded.previous[i] = table[2 * row];
    loaded.earlier[i] = table[2 * row + 1];
    // 16 bits wide: exponent 15, which no encoder writes, is a gain of -32768.
    loaded.gain[i] = static_cast<short>(static_cast<qz::ushort>(1u << (frames[0] & 15)));
  }
  return loaded;
}

// Decodes a frame of each stretch; `samples` get one row for each sample.
void DecodeFrames(const Frames& frames, History* histories, int (*samples)[kStretches]) {
#pragma GCC unroll 2
  for (int half = 0; half < kHalves; ++half) {
    const int first = half * kLanes;
    const Predictor predictor(frames.previous + first, frames.earlier + first);
    const Lanes gain = Load(frames.gain + first);
    const Lanes words[2] = {Load(frames.start + first), Load(frames.rest + first)};
    History history = histories[half];
#pragma GCC unroll 14
    for (int j = 0; j < kFrameSize; ++j) {
      // The header is two nibbles too.
      const Lanes residual = words[(j + 2) / 8] << (4 * ((j + 2) % 8)) >> 28;
      const Lanes step = Product(residual, gain) * 2048 + 1024;
      Store(samples[j] + first, history.Push((history.Predict(predictor) + step) >> 11));
    }
    histories[half] = history;
  }
}

// Whether the last two samples of the frame in `out` are the decoded ones.
bool Meets(const int (*samples)[kStretches], std::size_t i, const short* out) {
  return out[kFrameSize - 2] == samples[kFrameSize - 2][i] &&
         out[kFrameSize - 1] == samples[kFrameSize - 1][i];
}

History LoadHistory(const short (*histories)[kOrder]) {
  int previous[kLanes], earlier[kLanes];
  for (int i = 0; i < kLanes; ++i) {
    previous[i] = histories[i][1];
    earlier[i] = histories[i][0];
  }
  return History(previous, earlier);
}

bool DecodeStretchesPortable(const qz::uchar* frames, std::size_t length,
                             const short (*histories)[kOrder], short* samples, const short* table,
                             bool untilMet) {
  History history[kHalves] = {LoadHistory(histories), LoadHistory(histories + kLanes)};
  for (std::size_t frame = 0; frame < length; ++frame) {
    const Frames loaded =
        LoadFrames(frames + frame * kBytesPerFrame, length * kBytesPerFrame, table);
    int decoded[kFrameSize][kStretches];
    DecodeFrames(loaded, history, decoded);
    bool met = untilMet;
    for (std::size_t i = 0; i < kStretches; ++i) {
      short* const out = samples + (i * length + frame) * kSamplesPerFrame;
      met = met && Meets(decoded, i, out);
      for (int j = 0; j < kFrameSize; ++j)
        out[j] = static_cast<short>(decoded[j][i]);
    }
    if (met) return true;
  }
  return false;
}

}  // namespace

void DecodeFramesPortable(const qz::uchar* frames, std::size_t count, short* history,
                          short* samples, const short* table) {
  DecodeAhead(DecodeStretchesPortable, frames, count, history, samples, table);
}

}  // namespace adpcm
