// The decoder with AVX2: a stretch in each of the 8 lanes of 32 bits.
//
// A sample's chain is a multiplication, an addition, a shift and the clamp, and takes as long for 8
// of them as for one. All else lies beside it.
#if defined(__x86_64__)
#include <immintrin.h>

#include "adpcm/decode_ahead.h"
#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

using Lanes = __m256i;  // 8 x 32 bits: one stretch each

constexpr int kFrameSize = 14;
constexpr int kPairs = kFrameSize / 2;

// Where the lanes stand: the next frame of the first stretch, where its samples go, and how many
// frames a stretch has.
struct Place {
  const qz::uchar* frames;
  short* samples;
  std::size_t length;
};

// The coefficients by row, each in the low half of its lane.
struct Table {
  Lanes previous, earlier;
};

inline Lanes Set(int value) {
  return _mm256_set1_epi32(value);
}

inline Lanes Load(const void* address) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(address));
}

inline bool Equal(Lanes a, Lanes b) {
  return _mm256_movemask_epi8(_mm256_cmpeq_epi32(a, b)) == -1;
}

// Keeps the compiler from adding up in another order, which would lengthen the chain.
inline Lanes Fixed(Lanes value) {
  __asm__("" : "+x"(value));
  return value;
}

// The even numbers' halves from `low`, the odd ones from `high`.
inline Lanes Halves(Lanes low, Lanes high) {
  return _mm256_blend_epi16(low, high, 0xAA);
}

inline __m128i LoadTwo(const qz::uchar* low, const qz::uchar* high) {
  return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(low)),
                            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(high)));
}

// The next frame of each lane: its first four bytes and its last four, the first one highest.
inline void LoadFrames(const Place& place, Lanes bits[2]) {
  const qz::uchar* const f = place.frames;
  const std::size_t s = place.length * kBytesPerFrame;
  const Lanes swap = _mm256_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13,
                                     14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
  const Lanes a =
      _mm256_shuffle_epi8(_mm256_set_m128i(LoadTwo(f + 4 * s, f + 5 * s), LoadTwo(f, f + s)), swap);
  const Lanes b = _mm256_shuffle_epi8(
      _mm256_set_m128i(LoadTwo(f + 6 * s, f + 7 * s), LoadTwo(f + 2 * s, f + 3 * s)), swap);
  const __m256 x = _mm256_castsi256_ps(a);
  const __m256 y = _mm256_castsi256_ps(b);
  bits[0] = _mm256_castps_si256(_mm256_shuffle_ps(x, y, 0x88));
  bits[1] = _mm256_castps_si256(_mm256_shuffle_ps(x, y, 0xDD));
}

// Four pairs of samples of each lane, to the same place of each stretch.
inline void StoreQuads(const Lanes* pairs, short* samples, std::size_t step) {
  const Lanes low01 = _mm256_unpacklo_epi32(pairs[0], pairs[1]);
  const Lanes high01 = _mm256_unpackhi_epi32(pairs[0], pairs[1]);
  const Lanes low23 = _mm256_unpacklo_epi32(pairs[2], pairs[3]);
  const Lanes high23 = _mm256_unpackhi_epi32(pairs[2], pairs[3]);
  const Lanes quads[4] = {_mm256_unpacklo_epi64(low01, low23), _mm256_unpackhi_epi64(low01, low23),
                          _mm256_unpacklo_epi64(high01, high23),
                          _mm256_unpackhi_epi64(high01, high23)};
  for (std::size_t i = 0; i < 4; ++i) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(samples + i * step),
                     _mm256_castsi256_si128(quads[i]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(samples + (i + 4) * step),
                     _mm256_extracti128_si256(quads[i], 1));
  }
}

// Decodes the next frame of each lane. The history and the result, the last samples, are pairs with
// the older one in the low half.
inline Lanes DecodeFrames(const Place& place, Lanes history, const Table& table) {
  Lanes bits[2];
  LoadFrames(place, bits);
  // The permutation takes 3 bits of a row number, as the table has 8 rows.
  const Lanes row = _mm256_srli_epi32(bits[0], 28);
  const Lanes exponent = _mm256_and_si256(_mm256_srli_epi32(bits[0], 24), Set(15));
  const Lanes ofPrevious = _mm256_permutevar8x32_epi32(table.previous, row);
  // The gain is 16 bits wide: exponent 15, which no encoder writes, is -32768.
  const Lanes gain = _mm256_sllv_epi32(Set(1 << 16), exponent);
  const Lanes ofEarlierAndResidual =
      _mm256_or_si256(_mm256_permutevar8x32_epi32(table.earlier, row), gain);

  Lanes pairs[kPairs];
  Lanes previous = _mm256_srai_epi32(history, 16);
  Lanes earlier = history;  // only the low halves count
#pragma GCC unroll 14
  for (int j = 0; j < kFrameSize; ++j) {
    // The residual times 2048 in the high half; the header is two nibbles too.
    const Lanes nibble = _mm256_slli_epi32(bits[(j + 2) / 8], 4 * ((j + 2) % 8));
    const Lanes residual = _mm256_and_si256(_mm256_srai_epi32(nibble, 1), Set(-1 << 27));
    const Lanes rest = Fixed(_mm256_add_epi32(
        _mm256_madd_epi16(Halves(earlier, residual), ofEarlierAndResidual), Set(1024)));
    const Lanes sum = _mm256_add_epi32(_mm256_madd_epi16(previous, ofPrevious), rest);
    earlier = previous;
    previous =
        _mm256_min_epi32(_mm256_max_epi32(_mm256_srai_epi32(sum, 11), Set(-32768)), Set(32767));
    if (j % 2 == 1) pairs[j / 2] = Halves(earlier, _mm256_slli_epi32(previous, 16));
  }
  StoreQuads(pairs, place.samples, place.length * kSamplesPerFrame);
  StoreQuads(pairs + kPairs - 4, place.samples + kFrameSize - 8, place.length * kSamplesPerFrame);
  return pairs[kPairs - 1];
}

// The last pair of samples that an earlier pass left in the next frame of each lane.
inline Lanes LastPairs(const Place& place) {
  int pairs[kStretches];
  for (std::size_t i = 0; i < kStretches; ++i) {
    const short* const frame = place.samples + i * place.length * kSamplesPerFrame;
    __builtin_memcpy(&pairs[i], frame + kFrameSize - 2, sizeof pairs[i]);
  }
  return Load(pairs);
}

bool DecodeStretchesAvx2(const qz::uchar* frames, std::size_t length,
                         const short (*histories)[kOrder], short* samples, const short* table,
                         bool untilMet) {
  int previous[kTableRows], earlier[kTableRows];
  for (std::size_t i = 0; i < kTableRows; ++i) {
    previous[i] = static_cast<qz::ushort>(table[2 * i]);
    earlier[i] = static_cast<qz::ushort>(table[2 * i + 1]);
  }
  const Table rows = {Load(previous), Load(earlier)};
  Place place = {frames, samples, length};
  Lanes last = Load(histories);
  for (std::size_t i = 0; i < length; ++i) {
    const Lanes left = untilMet ? LastPairs(place) : Lanes{};
    last = DecodeFrames(place, last, rows);
    if (untilMet && Equal(left, last)) return true;
    place.frames += kBytesPerFrame;
    place.samples += kSamplesPerFrame;
  }
  return false;
}

}  // namespace

void DecodeFramesAvx2(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                      const short* table) {
  DecodeAhead(DecodeStretchesAvx2, frames, count, history, samples, table);
}

}  // namespace adpcm
#endif
