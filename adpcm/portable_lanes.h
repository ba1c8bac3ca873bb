// Four lanes of 32 bits in the compiler's own vectors, for every processor that has 16-byte ones:
// 32-byte vectors would be taken apart badly where the processor has none. Not for files that are
// built for a wider instruction set.
#ifndef ADPCM_PORTABLE_LANES_H_
#define ADPCM_PORTABLE_LANES_H_

#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace adpcm {

using Lanes = int __attribute__((vector_size(16)));
inline constexpr int kLanes = 4;

inline Lanes All(int value) {
  return Lanes{} + value;
}

inline Lanes Select(Lanes mask, Lanes yes, Lanes no) {
  return (mask & yes) | (~mask & no);
}

inline Lanes Min(Lanes a, Lanes b) {
  return Select(a < b, a, b);
}

inline Lanes Max(Lanes a, Lanes b) {
  return Select(a > b, a, b);
}

inline Lanes Load(const int* values) {
  Lanes lanes;
  std::memcpy(&lanes, values, sizeof lanes);
  return lanes;
}

inline void Store(int* values, Lanes lanes) {
  std::memcpy(values, &lanes, sizeof lanes);
}

// The last two samples of each lane, and what table rows predict from them; the product of values
// of 16 bits.
#if defined(__SSE2__)
struct Predictor {
  __m128i pair;  // the weight of the sample before in the low half of a lane

  Predictor(const int* previous, const int* earlier) {
    const Lanes both = (Load(previous) & 0xFFFF) | (Load(earlier) << 16);
    pair = reinterpret_cast<__m128i>(both);
  }
};

class History {
 public:
  History(int previous, int earlier)
      : last_(_mm_set1_epi16(static_cast<short>(previous))),
        pair_(_mm_set1_epi32((previous & 0xFFFF) | (earlier * 65536))) {}
  History(const int* previous, const int* earlier)
      : last_(_mm_packs_epi32(reinterpret_cast<__m128i>(Load(previous)), __m128i{})),
        pair_(Predictor(previous, earlier).pair) {}
  Lanes Predict(const Predictor& predictor) const {
    return reinterpret_cast<Lanes>(_mm_madd_epi16(pair_, predictor.pair));
  }
  // Adds a sample, clamped to 16 bits, and returns it so.
  Lanes Push(Lanes sample) {
    const __m128i wide = reinterpret_cast<__m128i>(sample);
    const __m128i narrow = _mm_packs_epi32(wide, wide);
    pair_ = _mm_unpacklo_epi16(narrow, last_);
    last_ = narrow;
    return reinterpret_cast<Lanes>(pair_) << 16 >> 16;
  }

 private:
  __m128i last_, pair_;
};

inline Lanes Product(Lanes a, Lanes b) {
  return reinterpret_cast<Lanes>(
      _mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b & 0xFFFF)));
}
#else
struct Predictor {
  Lanes c0, c1;

  Predictor(const int* previous, const int* earlier) : c0(Load(previous)), c1(Load(earlier)) {}
};

class History {
 public:
  History(int previous, int earlier) : previous_(All(previous)), earlier_(All(earlier)) {}
  History(const int* previous, const int* earlier)
      : previous_(Load(previous)), earlier_(Load(earlier)) {}
  Lanes Predict(const Predictor& predictor) const {
    return previous_ * predictor.c0 + earlier_ * predictor.c1;
  }
  Lanes Push(Lanes sample) {
    earlier_ = previous_;
    previous_ = Max(Min(sample, All(32767)), All(-32768));
    return previous_;
  }

 private:
  Lanes previous_, earlier_;
};

// Unsigned: the square of -32768 needs all 32 bits.
inline Lanes Product(Lanes a, Lanes b) {
  using Unsigned = unsigned __attribute__((vector_size(16)));
  return reinterpret_cast<Lanes>(reinterpret_cast<Unsigned>(a) * reinterpret_cast<Unsigned>(b));
}
#endif

}  // namespace adpcm

#endif  // ADPCM_PORTABLE_LANES_H_
