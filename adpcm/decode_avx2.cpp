// The decoder with AVX2: 8 places of the stream at a time, one in each lane of 32 bits.
//
// A sample hangs on the one before it, and that chain is all that decoding costs: a multiplication,
// an addition, a shift and the clamp, 7 cycles whether for one sample or for 8. All else lies
// beside it.
//
// A block is 8 stretches of equal length, and each lane decodes its own. Only the first one's
// history is known, the others start from zeros. That is wrong, but the predictors are stable and
// samples are whole numbers: within some frames, a dozen or two in most sounds, the samples are
// those that the right history gives. So a second pass starts each stretch from the end of the one
// before it and goes on until every lane meets what the first pass left there. Where the last two
// samples of a frame are the same, so is all behind them, because a frame hangs on nothing else;
// then each stretch goes on from the one before it, and the first is right.
//
// Where the lanes do not meet, a pass has still made one more stretch right, so 8 passes do for any
// bytes. That worst case takes the time of one lane alone, which is less than the scalar code's.
#if defined(__x86_64__)
#include <immintrin.h>

#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

using Lanes = __m256i;  // 8 x 32 bits: one stretch each

constexpr std::size_t kLanes = 8;
constexpr std::size_t kFrameBytes = 8;
constexpr std::size_t kFrameSize = 14;
constexpr std::size_t kPairs = kFrameSize / 2;
constexpr std::size_t kMostFrames = 1000;  // of a stretch; powers of two crowd the cache
constexpr std::size_t kLeastFrames = 8;    // shorter ones are not worth it

// Where the lanes stand: the next frame of the first stretch, where its samples go, and how many
// frames a stretch has.
struct Place {
  const qz::uchar* frames;
  short* samples;
  std::size_t stretch;
};

// The two samples before a frame.
struct History {
  Lanes previous, earlier;
};

// The coefficients by row, each in the low half of its lane.
struct Table {
  Lanes previous, earlier;
};

inline Lanes Set(int value) {
  return _mm256_set1_epi32(value);
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
  const std::size_t s = place.stretch * kFrameBytes;
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

// Decodes the next frame of each lane. The last pair of samples is returned, the older in the low
// half.
inline Lanes DecodeFrames(const Place& place, History& history, const Table& table) {
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
  Lanes previous = history.previous;
  Lanes earlier = history.earlier;
#pragma GCC unroll 14
  for (int j = 0; j < static_cast<int>(kFrameSize); ++j) {
    // The residual times 2048 in the high half; the header is two nibbles too.
    const Lanes nibble = _mm256_slli_epi32(bits[(j + 2) / 8], 4 * ((j + 2) % 8));
    const Lanes residual = _mm256_and_si256(_mm256_srai_epi32(nibble, 1), Set(-1 << 27));
    const Lanes rest = _mm256_add_epi32(
        _mm256_madd_epi16(Halves(earlier, residual), ofEarlierAndResidual), Set(1024));
    const Lanes sum = _mm256_add_epi32(_mm256_madd_epi16(previous, ofPrevious), rest);
    earlier = previous;
    previous =
        _mm256_min_epi32(_mm256_max_epi32(_mm256_srai_epi32(sum, 11), Set(-32768)), Set(32767));
    if (j % 2 == 1) pairs[j / 2] = Halves(earlier, _mm256_slli_epi32(previous, 16));
  }
  StoreQuads(pairs, place.samples, place.stretch * kFrameSize);
  StoreQuads(pairs + kPairs - 4, place.samples + kFrameSize - 8, place.stretch * kFrameSize);
  history = {previous, earlier};
  return pairs[kPairs - 1];
}

inline void Advance(Place& place) {
  place.frames += kFrameBytes;
  place.samples += kFrameSize;
}

// The last pair of samples that an earlier pass left in the next frame of each lane.
inline Lanes LastPairs(const Place& place) {
  int pairs[kLanes];
  for (std::size_t i = 0; i < kLanes; ++i) {
    const short* const frame = place.samples + i * place.stretch * kFrameSize;
    __builtin_memcpy(&pairs[i], frame + kFrameSize - 2, sizeof pairs[i]);
  }
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pairs));
}

void DecodePass(Place place, History& history, const Table& table) {
  for (std::size_t i = 0; i < place.stretch; ++i) {
    DecodeFrames(place, history, table);
    Advance(place);
  }
}

// Decodes over an earlier pass until all lanes meet what it left; false if they do not.
bool DecodeUntilMet(Place place, History& history, const Table& table) {
  for (std::size_t i = 0; i < place.stretch; ++i) {
    const Lanes left = LastPairs(place);
    const Lanes made = DecodeFrames(place, history, table);
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi32(left, made)) == -1) return true;
    Advance(place);
  }
  return false;
}

// What follows the end of each stretch; the first one follows `first`.
inline Lanes Following(int first, Lanes ends) {
  const Lanes shifted = _mm256_permutevar8x32_epi32(ends, _mm256_set_epi32(6, 5, 4, 3, 2, 1, 0, 0));
  return _mm256_blend_epi32(shifted, Set(first), 1);
}

void DecodeBlock(const Place& place, short* history, const Table& table) {
  const int previous = history[1];
  const int earlier = history[0];
  const Lanes zeros = _mm256_setzero_si256();
  History ends = {Following(previous, zeros), Following(earlier, zeros)};
  DecodePass(place, ends, table);
  for (std::size_t pass = 1; pass < kLanes; ++pass) {
    History next = {Following(previous, ends.previous), Following(earlier, ends.earlier)};
    if (DecodeUntilMet(place, next, table)) break;
    ends = next;
  }
  history[0] = static_cast<short>(_mm256_extract_epi32(ends.earlier, kLanes - 1));
  history[1] = static_cast<short>(_mm256_extract_epi32(ends.previous, kLanes - 1));
}

}  // namespace

void DecodeFramesAvx2(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                      const short* table) {
  int previous[kLanes], earlier[kLanes];
  for (std::size_t i = 0; i < kLanes; ++i) {
    previous[i] = static_cast<qz::ushort>(table[2 * i]);
    earlier[i] = static_cast<qz::ushort>(table[2 * i + 1]);
  }
  const Table rows = {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(previous)),
                      _mm256_loadu_si256(reinterpret_cast<const __m256i*>(earlier))};
  while (count >= kLanes * kLeastFrames) {
    const std::size_t stretch = count / kLanes < kMostFrames ? count / kLanes : kMostFrames;
    DecodeBlock({frames, samples, stretch}, history, rows);
    count -= kLanes * stretch;
    frames += kLanes * stretch * kFrameBytes;
    samples += kLanes * stretch * kFrameSize;
  }
  DecodeFramesAhead(frames, count, history, samples, table);
}

}  // namespace adpcm
#endif
