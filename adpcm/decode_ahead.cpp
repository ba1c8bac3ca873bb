// The decoder for every processor: no vectors, but two places of the stream at a time.
//
// A sample hangs on the one before it by a multiplication, an addition and a shift, and that chain
// is all that decoding costs; the processor idles beside it. Two things shorten it.
//
// The clamp to 16 bits is left out. It hardly ever acts, so a frame is checked at its end, and one
// that left the range is decoded again to the letter.
//
// The second half of a block is decoded along with the first, from a history of zeros. That is
// wrong, but the predictors are stable and samples are whole numbers: within some frames, a dozen
// or two in most sounds, the samples are those that the right history gives. Where the last two
// samples of a frame are, so is all behind them, because a frame hangs on nothing else. So the
// first half goes on into the second until it meets what is there. A pure tone can go on for long;
// after such a block the next ones are decoded in one go.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "adpcm/adpcm.h"
#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr std::size_t kMostHalf = 1024;   // frames
constexpr std::size_t kLeastHalf = 64;    // shorter ones are not worth it
constexpr std::size_t kPlainBlocks = 16;  // of kMostHalf, after one that did not meet

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

// Where a decoder stands: the next frame, where its samples go, and the two samples before it.
struct Place {
  const qz::uchar* frame;
  short* out;
  int previous, earlier;
};

// The 64 bits of a frame, the header in the highest ones.
std::uint64_t FrameBits(const qz::uchar* frame) {
  std::uint64_t bits;
  std::memcpy(&bits, frame, kBytesPerFrame);
  return std::endian::native == std::endian::little ? __builtin_bswap64(bits) : bits;
}

void DecodeToTheLetter(Place& place, const short* table) {
  short history[kOrder] = {static_cast<short>(place.earlier), static_cast<short>(place.previous)};
  DecodeFramesScalar(place.frame, 1, history, place.out, table);
  place.earlier = history[0];
  place.previous = history[1];
}

// Decodes a frame at each of the places, side by side.
template <int kPlaces>
inline void DecodeFrameAt(Place* places, const short* table) {
  std::int64_t previous[kPlaces], earlier[kPlaces];
  std::int64_t c0[kPlaces], c1[kPlaces];
  std::uint64_t bits[kPlaces];
  std::uint64_t outside[kPlaces] = {};
  const std::int64_t* steps[kPlaces];
  for (int i = 0; i < kPlaces; ++i) {
    bits[i] = FrameBits(places[i].frame);
    const auto row = static_cast<std::size_t>(bits[i] >> 60) % kTableRows;
    c0[i] = table[2 * row];
    c1[i] = table[2 * row + 1];
    steps[i] = kSteps.of[(bits[i] >> 56) & 15];
    previous[i] = places[i].previous;
    earlier[i] = places[i].earlier;
  }
#pragma GCC unroll 14
  for (int j = 0; j < kFrameSize; ++j) {
#pragma GCC unroll 2
    for (int i = 0; i < kPlaces; ++i) {
      const std::int64_t rest = earlier[i] * c1[i] + steps[i][(bits[i] >> (52 - 4 * j)) & 15];
      earlier[i] = previous[i];
      previous[i] = (previous[i] * c0[i] + rest) >> 11;
      outside[i] |= static_cast<std::uint64_t>(previous[i] + 32768);
      // Or g++ keeps all the terms for a vector of them.
      __asm__("" : "+r"(outside[i]));
      places[i].out[j] = static_cast<short>(previous[i]);
    }
  }
  for (int i = 0; i < kPlaces; ++i) {
    if (outside[i] > 0xFFFF) {
      DecodeToTheLetter(places[i], table);
    } else {
      places[i].previous = static_cast<int>(previous[i]);
      places[i].earlier = static_cast<int>(earlier[i]);
    }
    places[i].frame += kBytesPerFrame;
    places[i].out += kFrameSize;
  }
}

// Goes on from `place` over `count` frames that were decoded from another history, until it meets
// what is there. The result is the number of frames that it took; `count` if it did not meet.
std::size_t Join(Place& place, std::size_t count, const short* table) {
  for (std::size_t done = 0; done < count; ++done) {
    const short* const last = place.out + kFrameSize - kOrder;
    const int earlier = last[0];
    const int previous = last[1];
    DecodeFrameAt<1>(&place, table);
    if (place.earlier == earlier && place.previous == previous) return done + 1;
  }
  return count;
}

}  // namespace

void DecodeFramesAhead(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                       const short* table) {
  Place place = {frames, samples, history[1], history[0]};
  std::size_t plain = 0;  // frames to go before the next attempt
  for (std::size_t left = count; left > 0;) {
    const std::size_t half = left / 2 < kMostHalf ? left / 2 : kMostHalf;
    if (plain > 0 || half < kLeastHalf) {
      DecodeFrameAt<1>(&place, table);
      --left;
      if (plain > 0) --plain;
      continue;
    }
    Place places[2] = {
        place, {place.frame + half * kBytesPerFrame, place.out + half * kSamplesPerFrame, 0, 0}};
    for (std::size_t i = 0; i < half; ++i)
      DecodeFrameAt<2>(places, table);
    place = places[0];
    const std::size_t joined = Join(place, half, table);
    if (joined < half) place = places[1];
    if (joined > half / 2) plain = kPlainBlocks * kMostHalf;
    left -= 2 * half;
  }
  history[0] = static_cast<short>(place.earlier);
  history[1] = static_cast<short>(place.previous);
}

}  // namespace adpcm
