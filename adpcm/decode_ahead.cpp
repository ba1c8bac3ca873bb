#include "adpcm/decode_ahead.h"

#include <bit>
#include <cstdint>
#include <cstring>

#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr std::size_t kMostFrames = 1000;  // of a stretch; powers of two crowd the cache
constexpr std::size_t kLeastFrames = 32;   // shorter ones are not worth it
constexpr std::size_t kMostPasses = 3;
constexpr std::size_t kPlainBlocks = 8;  // after one whose stretches did not meet

// What a residual adds to the prediction, the rounding of the shift included, by exponent and
// nibble. The gain is 16 bits wide: exponent 15, which no encoder writes, is -32768.
struct Steps {
  std::int64_t of[16][16];
};
constexpr Steps MakeSteps() {
  Steps steps = {};
  for (int exponent = 0; exponent < 16; ++exponent) {
    for (int nibble = 0; nibble < 16; ++nibble) {
      const int gain = exponent == 15 ? -32768 : 1 << exponent;
      steps.of[exponent][nibble] =
          std::int64_t{nibble < 8 ? nibble : nibble - 16} * gain * 2048 + 1024;
    }
  }
  return steps;
}
constexpr Steps kSteps = MakeSteps();

// The 64 bits of a frame, the header in the highest ones.
std::uint64_t FrameBits(const qz::uchar* frame) {
  std::uint64_t bits;
  std::memcpy(&bits, frame, kBytesPerFrame);
  return std::endian::native == std::endian::little ? __builtin_bswap64(bits) : bits;
}

// Decodes a frame without the clamp to 16 bits, which hardly ever acts and is a good part of the
// chain. False, and no new history, where it would have acted.
bool DecodeUnclamped(const qz::uchar* frame, short* history, short* samples, const short* table) {
  const std::uint64_t bits = FrameBits(frame);
  const auto row = static_cast<std::size_t>(bits >> 60) % kTableRows;
  const std::int64_t c0 = table[2 * row];
  const std::int64_t c1 = table[2 * row + 1];
  const std::int64_t* const steps = kSteps.of[(bits >> 56) & 15];
  std::int64_t previous = history[1];
  std::int64_t earlier = history[0];
  std::uint64_t outside = 0;
#pragma GCC unroll 14
  for (int j = 0; j < kFrameSize; ++j) {
    const std::int64_t rest = earlier * c1 + steps[(bits >> (52 - 4 * j)) & 15];
    earlier = previous;
    previous = (previous * c0 + rest) >> 11;
    outside |= static_cast<std::uint64_t>(previous + 32768);
    // Or g++ keeps all the terms for a vector of them.
    __asm__("" : "+r"(outside));
    samples[j] = static_cast<short>(previous);
  }
  if (outside > 0xFFFF) return false;
  history[0] = static_cast<short>(earlier);
  history[1] = static_cast<short>(previous);
  return true;
}

bool ReachesLimit(const short* samples) {
  bool reaches = false;
  for (int j = 0; j < kFrameSize; ++j)
    reaches |= samples[j] == 32767 || samples[j] == -32768;
  return reaches;
}

// Decodes frame by frame. Those that are clamped come in groups, so behind one the scalar code goes
// first.
void DecodePlainly(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                   const short* table) {
  short last[kOrder] = {history[0], history[1]};
  bool clamped = false;
  for (; count > 0; --count, frames += kBytesPerFrame, samples += kSamplesPerFrame) {
    if (!clamped && DecodeUnclamped(frames, last, samples, table)) continue;
    DecodeFramesScalar(frames, 1, last, samples, table);
    clamped = ReachesLimit(samples);
  }
  std::memcpy(history, last, sizeof last);
}

// Decodes a block and returns how many of its stretches, from the first one on, are right.
//
// At first only the first stretch has its history, the others start from zeros. In a further pass
// each starts from the end of the one before it, and goes on until all meet what is there: then
// each follows the one before it, and so all are right. A pass in which they do not meet has still
// made one more of them right.
std::size_t DecodeBlock(DecodeStretches decode, const qz::uchar* frames, std::size_t length,
                        const short* history, short* samples, const short* table) {
  short histories[kStretches][kOrder] = {{history[0], history[1]}};
  decode(frames, length, histories, samples, table, false);
  for (std::size_t pass = 1; pass < kMostPasses; ++pass) {
    for (std::size_t i = 1; i < kStretches; ++i)
      std::memcpy(histories[i], samples + i * length * kSamplesPerFrame - kOrder,
                  sizeof histories[i]);
    if (decode(frames, length, histories, samples, table, true)) return kStretches;
  }
  return kMostPasses;
}

}  // namespace

// Pure tones can keep stretches from meeting for long, and a table can for ever; so after such a
// block the next ones are decoded in one go.
void DecodeAhead(DecodeStretches decode, const qz::uchar* frames, std::size_t count, short* history,
                 short* samples, const short* table) {
  std::size_t plain = 0;  // frames to go before the next attempt
  while (count > 0) {
    const std::size_t most = count / kStretches;
    const std::size_t length = most < kMostFrames ? most : kMostFrames;
    std::size_t done;
    if (plain > 0 || length < kLeastFrames) {
      done = plain > 0 && plain < count ? plain : count;
      DecodePlainly(frames, done, history, samples, table);
      plain = 0;
    } else {
      const std::size_t right = DecodeBlock(decode, frames, length, history, samples, table);
      done = right * length;
      std::memcpy(history, samples + done * kSamplesPerFrame - kOrder, kOrder * sizeof(short));
      if (right < kStretches) plain = kPlainBlocks * kStretches * length;
    }
    count -= done;
    frames += done * kBytesPerFrame;
    samples += done * kSamplesPerFrame;
  }
}

}  // namespace adpcm
