// The design kernels for AVX2: 4 lanes of doubles, and the sums of sample products 8 frames at a
// time in 32-bit integers.
#if defined(__x86_64__)
#include <immintrin.h>

#include "adpcm/design_kernels.h"

namespace adpcm {
namespace {

using Doubles = double __attribute__((vector_size(32)));
using Pair = double __attribute__((vector_size(16)));
using Mask = decltype(Doubles{} < Doubles{});
constexpr int kLanes = 4;
struct Correlations;

void Deinterleave(const TrainingRow* rows, Doubles& r1, Doubles& r2) {
  const __m256d first = _mm256_loadu_pd(&rows[0].r1);
  const __m256d second = _mm256_loadu_pd(&rows[2].r1);
  r1 = _mm256_unpacklo_pd(first, second);
  r2 = _mm256_unpackhi_pd(first, second);
}

int Bits(Mask mask) {
  return _mm256_movemask_pd(reinterpret_cast<__m256d>(mask));
}

Mask InOrder(Mask mask) {
  return reinterpret_cast<Mask>(
      _mm256_permute4x64_epi64(reinterpret_cast<__m256i>(mask), _MM_SHUFFLE(3, 1, 2, 0)));
}

void Interleave(Doubles r1, Doubles r2, Pair* pairs) {
  const __m256d even = _mm256_unpacklo_pd(r1, r2);
  const __m256d odd = _mm256_unpackhi_pd(r1, r2);
  pairs[0] = _mm256_castpd256_pd128(even);
  pairs[1] = _mm256_castpd256_pd128(odd);
  pairs[2] = _mm256_extractf128_pd(even, 1);
  pairs[3] = _mm256_extractf128_pd(odd, 1);
}

Doubles Repeat(const TrainingRow& row) {
  return _mm256_broadcast_pd(reinterpret_cast<const __m128d*>(&row));
}

void Correlate(const short* samples, Correlations& block, int frame);

}  // namespace
}  // namespace adpcm

#include "adpcm/design_lanes.inc"

namespace adpcm {
namespace {

// Sums up to 7 values of 32 bits a lane, too long for 32 bits themselves: the sum modulo 2^32 and
// the sum of the upper halves, which together are the whole.
struct LongSum {
  __m256i modulo = _mm256_setzero_si256();
  __m256i upper = _mm256_setzero_si256();

  void AddUnsigned(__m256i value) {
    modulo = _mm256_add_epi32(modulo, value);
    upper = _mm256_add_epi32(upper, _mm256_srli_epi32(value, 16));
  }
  void AddSigned(__m256i value) {
    modulo = _mm256_add_epi32(modulo, value);
    upper = _mm256_add_epi32(upper, _mm256_srai_epi32(value, 16));
  }
};

// Two vectors of doubles from 8 integers in halves: lanes 0, 1, 4, 5 of `lower` and `upper` for
// the first, the other lanes for the second. The halves go into the mantissa of a double whose
// last bit is worth 1, and `offset` is what that adds.
struct EightDoubles {
  __m256d first, second;
};
EightDoubles FromHalves(__m256i lower, __m256i upper, double offset) {
  const __m256d bias = _mm256_set1_pd(offset);
  return {_mm256_sub_pd(_mm256_castsi256_pd(_mm256_unpacklo_epi32(lower, upper)), bias),
          _mm256_sub_pd(_mm256_castsi256_pd(_mm256_unpackhi_epi32(lower, upper)), bias)};
}

// The sum, plus `more` in every lane.
EightDoubles ToDoubles(const LongSum& sum, double more) {
  const __m256i rest = _mm256_sub_epi32(sum.modulo, _mm256_slli_epi32(sum.upper, 16));
  const __m256i upper =
      _mm256_srai_epi32(_mm256_add_epi32(sum.upper, _mm256_srli_epi32(rest, 16)), 16);
  return FromHalves(sum.modulo, _mm256_add_epi32(upper, _mm256_set1_epi32(0x43380000)),
                    0x1.8p52 - more);
}

EightDoubles ToDoubles(__m256i values) {
  const __m256i shifted = _mm256_xor_si256(values, _mm256_set1_epi32(INT32_MIN));
  return FromHalves(shifted, _mm256_set1_epi32(0x43300000), 0x1p52 + 0x1p31);
}

EightDoubles Add(const EightDoubles& a, const EightDoubles& b) {
  return {_mm256_add_pd(a.first, b.first), _mm256_add_pd(a.second, b.second)};
}

void Store(const EightDoubles& values, double* to) {
  _mm256_store_pd(to, values.first);
  _mm256_store_pd(to + 4, values.second);
}

// Eight samples of two frames, four frames of samples apart in the order of FromHalves.
inline __attribute__((always_inline)) __m256i LoadHalves(const short* frame, const short* other) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(frame))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(other)), 1);
}

// Four pairs of neighbouring samples from each of 8 frames, a pair a vector. The frames lie in the
// lanes so that FromHalves gives them in order.
inline __attribute__((always_inline)) void LoadPairs(const short* samples, __m256i* pairs) {
  const auto frame = [samples](qz::uint64 i) { return samples + i * kSamplesPerFrame; };
  const __m256i a = LoadHalves(frame(0), frame(2));
  const __m256i b = LoadHalves(frame(1), frame(3));
  const __m256i c = LoadHalves(frame(4), frame(6));
  const __m256i d = LoadHalves(frame(5), frame(7));
  const __m256i ab = _mm256_unpacklo_epi32(a, b);
  const __m256i cd = _mm256_unpacklo_epi32(c, d);
  const __m256i abUpper = _mm256_unpackhi_epi32(a, b);
  const __m256i cdUpper = _mm256_unpackhi_epi32(c, d);
  pairs[0] = _mm256_unpacklo_epi64(ab, cd);
  pairs[1] = _mm256_unpackhi_epi64(ab, cd);
  pairs[2] = _mm256_unpacklo_epi64(abUpper, cdUpper);
  pairs[3] = _mm256_unpackhi_epi64(abUpper, cdUpper);
}

// The sums for 8 frames, one a lane of 32 bits.
void Correlate(const short* samples, Correlations& block, int frame) {
  __m256i pair[8];  // samples -2 and -1, then 0 and 1, and so on
  LoadPairs(samples - 2, pair);
  LoadPairs(samples + 6, pair + 4);

  const __m256i swap16 = _mm256_setr_epi8(2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13, 2,
                                          3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13);
  const __m256i minusOne = _mm256_set1_epi32(-1);
  LongSum energy, lag1, lag2;
  __m256i turnedBefore = _mm256_shuffle_epi8(pair[0], swap16);
#pragma GCC unroll 8
  for (int i = 1; i < 8; ++i) {
    const __m256i turned = _mm256_shuffle_epi8(pair[i], swap16);
    const __m256i previous = _mm256_blend_epi16(turnedBefore, turned, 0xAA);
    turnedBefore = turned;
    energy.AddUnsigned(_mm256_madd_epi16(pair[i], pair[i]));
    // 2^31, from four -32768, is not a signed value of 32 bits, but 1 less is.
    lag1.AddSigned(_mm256_add_epi32(_mm256_madd_epi16(pair[i], previous), minusOne));
    lag2.AddSigned(_mm256_add_epi32(_mm256_madd_epi16(pair[i], pair[i - 1]), minusOne));
  }
  const EightDoubles c00 = ToDoubles(energy, 0.0);
  const EightDoubles c01 = ToDoubles(lag1, 7.0);
  Store(c00, block.c00 + frame);
  Store(c01, block.c01 + frame);
  Store(ToDoubles(lag2, 7.0), block.c02 + frame);

  // The sums one and two samples earlier: a product more in front, one less behind.
  const auto square = [](__m256i value) { return _mm256_madd_epi16(value, value); };
  const auto later = [](__m256i value) { return _mm256_srli_epi32(value, 16); };
  const auto earlier = [](__m256i value) { return _mm256_slli_epi32(value, 16); };
  const EightDoubles c11 =
      Add(c00, ToDoubles(_mm256_sub_epi32(square(later(pair[0])), square(later(pair[7])))));
  Store(c11, block.c11 + frame);
  Store(Add(c11, ToDoubles(_mm256_sub_epi32(square(earlier(pair[0])), square(earlier(pair[7]))))),
        block.c22 + frame);
  Store(Add(c01, ToDoubles(_mm256_sub_epi32(_mm256_madd_epi16(pair[0], later(pair[0])),
                                            _mm256_madd_epi16(pair[7], later(pair[7]))))),
        block.c12 + frame);
}

}  // namespace

const DesignKernels kDesignAvx2 = {Collect, AssignRows};

}  // namespace adpcm
#endif
