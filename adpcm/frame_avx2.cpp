#if defined(__x86_64__)
#include <immintrin.h>

#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

using Lanes = __m256i;  // 8 x 32 bits: one table row each

constexpr int kFrameSize = 14;
constexpr int kMaxPasses = 7;
constexpr int kMaxError = 6190;

struct Exponent {
  Lanes unit, mask, top, bottom, half, halfNegative;
};

struct Walk {
  Lanes previous, earlierTerm;
  Lanes error, most, least;
};

struct Trace {
  alignas(32) int restored[kFrameSize / 2][8];
  alignas(32) int quantum[kFrameSize][8];
};

struct Table {
  Lanes pair, previous, earlier;
};

inline Lanes Set(int value) {
  return _mm256_set1_epi32(value);
}

inline Lanes Broadcast(const void* address) {
  int value;
  __builtin_memcpy(&value, address, sizeof value);
  return _mm256_set1_epi32(value);
}

inline Lanes Select(Lanes no, Lanes yes, Lanes mask) {
  return _mm256_blendv_epi8(no, yes, mask);
}

inline Lanes SelectBySign(Lanes no, Lanes yes, Lanes sign) {
  return _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(no), _mm256_castsi256_ps(yes),
                                              _mm256_castsi256_ps(sign)));
}

inline bool Any(Lanes mask) {
  return !_mm256_testz_si256(mask, mask);
}

inline Exponent MakeExponent(Lanes unit) {
  Exponent e;
  e.unit = unit;
  const Lanes eight = _mm256_slli_epi32(unit, 3);
  e.mask = _mm256_sub_epi32(_mm256_setzero_si256(), unit);
  e.top = _mm256_sub_epi32(eight, unit);
  e.bottom = _mm256_sub_epi32(_mm256_setzero_si256(), eight);
  e.half = _mm256_max_epi32(_mm256_sub_epi32(_mm256_srli_epi32(unit, 1), Set(2048)),
                            _mm256_setzero_si256());
  e.halfNegative = _mm256_sub_epi32(_mm256_min_epi32(unit, Set(4096)), Set(1));
  return e;
}

template <bool kClamp>
inline Lanes Step(Walk& w, const Exponent& e, const Table& table, Lanes in, int* quantum) {
  const Lanes forward = _mm256_add_epi32(w.earlierTerm, Set(1024));
  const Lanes rest = _mm256_sub_epi32(_mm256_add_epi32(in, e.half), w.earlierTerm);
  const Lanes restNegative = _mm256_add_epi32(rest, e.halfNegative);
  w.earlierTerm = _mm256_madd_epi16(w.previous, table.earlier);

  const Lanes previousTerm = _mm256_madd_epi16(w.previous, table.previous);
  const Lanes up = _mm256_sub_epi32(rest, previousTerm);
  const Lanes down = _mm256_sub_epi32(restNegative, previousTerm);
  const Lanes predicted = _mm256_add_epi32(forward, previousTerm);
  w.most = _mm256_max_epi32(w.most, up);
  w.least = _mm256_min_epi32(w.least, down);
  const Lanes q = SelectBySign(_mm256_min_epi32(_mm256_and_si256(up, e.mask), e.top),
                               _mm256_max_epi32(_mm256_and_si256(down, e.mask), e.bottom), up);
  _mm256_store_si256(reinterpret_cast<Lanes*>(quantum), q);
  Lanes sum = _mm256_add_epi32(predicted, q);
  if (kClamp) {
    sum = _mm256_min_epi32(sum, Set((1 << 26) - 1));
    sum = _mm256_max_epi32(sum, Set(-(1 << 26)));
  }
  w.previous = _mm256_srai_epi32(sum, 11);
  return w.previous;
}

template <bool kClamp>
inline void AddError(Walk& w, Lanes input, Lanes first, Lanes second, int* restored) {
  const Lanes both = _mm256_blend_epi16(first, _mm256_slli_epi32(second, 16), 0xAA);
  _mm256_store_si256(reinterpret_cast<Lanes*>(restored), both);
  Lanes difference = _mm256_subs_epi16(input, both);
  if (kClamp) {
    difference = _mm256_min_epi16(difference, _mm256_set1_epi16(kMaxError));
    difference = _mm256_max_epi16(difference, _mm256_set1_epi16(-kMaxError));
  }
  w.error = _mm256_add_epi32(w.error, _mm256_madd_epi16(difference, difference));
}

template <bool kClamp>
inline void Passes(Walk& a, Walk& b, const Exponent& ea, const Exponent& eb, const Table& table,
                   const short* input, const int* scaled, Trace* trace) {
  for (int m = 0; m < kFrameSize / 2; ++m) {
    const Lanes in0 = Broadcast(scaled + 2 * m);
    const Lanes in1 = Broadcast(scaled + 2 * m + 1);
    const Lanes both = Broadcast(input + 2 * m);
    const Lanes a0 = Step<kClamp>(a, ea, table, in0, trace[0].quantum[2 * m]);
    const Lanes b0 = Step<kClamp>(b, eb, table, in0, trace[1].quantum[2 * m]);
    const Lanes a1 = Step<kClamp>(a, ea, table, in1, trace[0].quantum[2 * m + 1]);
    const Lanes b1 = Step<kClamp>(b, eb, table, in1, trace[1].quantum[2 * m + 1]);
    AddError<kClamp>(a, both, a0, a1, trace[0].restored[m]);
    AddError<kClamp>(b, both, b0, b1, trace[1].restored[m]);
  }
}

struct Best {
  Lanes error, open, slot, exponent, previous, earlier, inexact;
};

inline Lanes ClippedTooMuch(const Walk& w, const Exponent& e) {
  const Lanes nine = _mm256_add_epi32(_mm256_slli_epi32(e.unit, 3), e.unit);
  return _mm256_or_si256(
      _mm256_cmpgt_epi32(w.most, _mm256_sub_epi32(nine, Set(1))),
      _mm256_cmpgt_epi32(_mm256_sub_epi32(_mm256_setzero_si256(), nine), w.least));
}

inline Lanes SkipsExponents(const Walk& w, const Exponent& e) {
  const Lanes limit = _mm256_slli_epi32(e.unit, 8);
  return _mm256_or_si256(
      _mm256_cmpgt_epi32(w.most, _mm256_sub_epi32(limit, Set(1))),
      _mm256_cmpgt_epi32(_mm256_sub_epi32(_mm256_setzero_si256(), limit), w.least));
}

// Whether some walk may have left 16 bits
inline Lanes MayLeaveRange(const Walk& w, const Exponent& e, Lanes room) {
  const Lanes over =
      _mm256_max_epi32(_mm256_sub_epi32(w.most, e.top), _mm256_sub_epi32(e.bottom, w.least));
  return _mm256_cmpgt_epi32(over, room);
}

enum class Outcome { kDone, kLeftRange, kNotCovered };

template <bool kClamp>
inline Outcome EncodeRows(Lanes unit, Lanes previous, Lanes earlierTerm, Lanes room,
                          const Table& table, const short* input, const int* scaled, Trace* trace,
                          Best& best) {
  const Lanes highest = Set(2048 << 12);
  best.open = Set(-1);
  for (int pass = 0; pass < kMaxPasses; ++pass, trace += 2) {
    const Exponent ea = MakeExponent(unit);
    const Lanes nextUnit = _mm256_add_epi32(unit, unit);
    const Exponent eb = MakeExponent(nextUnit);
    if (!kClamp && Any(_mm256_cmpgt_epi32(nextUnit, room))) return Outcome::kLeftRange;
    const Lanes zero = _mm256_setzero_si256();
    Walk a = {previous, earlierTerm, zero, zero, zero};
    Walk b = a;
    Passes<kClamp>(a, b, ea, eb, table, input, scaled, trace);
    if (!kClamp) {
      if (Any(_mm256_and_si256(
              best.open, _mm256_or_si256(MayLeaveRange(a, ea, room), MayLeaveRange(b, eb, room)))))
        return Outcome::kLeftRange;
    }
    const Lanes clippedA = ClippedTooMuch(a, ea);
    const Lanes clippedB = ClippedTooMuch(b, eb);
    const Lanes lastA = _mm256_cmpeq_epi32(ea.unit, highest);
    const Lanes lastB = _mm256_cmpeq_epi32(eb.unit, highest);
    const Lanes openA = _mm256_andnot_si256(lastA, clippedA);
    const Lanes openB = _mm256_and_si256(openA, _mm256_andnot_si256(lastB, clippedB));
    const Lanes inexact =
        Select(_mm256_and_si256(clippedA, lastA), _mm256_and_si256(clippedB, lastB), openA);
    if (!kClamp && Any(_mm256_and_si256(inexact, best.open))) return Outcome::kLeftRange;
    const Lanes skips = _mm256_or_si256(_mm256_and_si256(openA, SkipsExponents(a, ea)),
                                        _mm256_and_si256(openB, SkipsExponents(b, eb)));
    if (Any(_mm256_and_si256(skips, best.open))) return Outcome::kNotCovered;
    const Lanes error = Select(a.error, b.error, openA);
    const Lanes slot = _mm256_sub_epi32(Set(2 * pass), openA);
    const Lanes last = Select(a.previous, b.previous, openA);
    const Lanes chosenUnit = Select(unit, nextUnit, openA);
    if (pass == 0) {
      best = {error, openB, slot, chosenUnit, last, zero, inexact};
    } else {
      best.error = Select(best.error, error, best.open);
      best.slot = Select(best.slot, slot, best.open);
      best.previous = Select(best.previous, last, best.open);
      best.exponent = Select(best.exponent, chosenUnit, best.open);
      best.inexact = Select(best.inexact, inexact, best.open);
      best.open = _mm256_and_si256(best.open, openB);
    }
    if (!Any(best.open)) return Outcome::kDone;
    // Lanes that are done go on beside the others, at exponents that stay in range.
    unit = Select(unit, _mm256_slli_epi32(unit, 2), best.open);
  }
  return Outcome::kNotCovered;
}

// Smallest of the 8 lanes, in all of them
inline Lanes Smallest(Lanes v) {
  v = _mm256_min_epu32(v, _mm256_permute4x64_epi64(v, 0x4E));
  v = _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0x4E));
  return _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0xB1));
}

inline Lanes FirstExponentOf(__m256 magnitude) {
  const Lanes biased = _mm256_srli_epi32(_mm256_castps_si256(magnitude), 23);
  return _mm256_max_epi32(_mm256_sub_epi32(biased, Set(127 + 3)), _mm256_setzero_si256());
}

struct OpenLoop {
  Lanes most, least;
};

inline void Include(OpenLoop& o, Lanes in, Lanes predicted) {
  const Lanes x = _mm256_sub_epi32(in, predicted);
  const Lanes rounded = SelectBySign(_mm256_add_epi32(x, Set(2047)), x, predicted);
  o.most = _mm256_max_epi32(o.most, rounded);
  o.least = _mm256_min_epi32(o.least, rounded);
}

struct History {
  Lanes previous, earlier;  // in every lane
};

}  // namespace

void EncodeFramesAvx2(short* samples, std::size_t count, qz::uchar* frames, const short* coefs) {
  alignas(32) Trace trace[2 * kMaxPasses];
  alignas(32) int scaled[16];
  Table table;
  // rows: low half c0 (previous), high half c1
  const Lanes rows = _mm256_loadu_si256(reinterpret_cast<const Lanes*>(coefs));
  // pairs in memory: the earlier sample in the low half
  table.pair = _mm256_or_si256(_mm256_srli_epi32(rows, 16), _mm256_slli_epi32(rows, 16));
  table.previous = _mm256_and_si256(rows, Set(0xFFFF));
  table.earlier = _mm256_srli_epi32(rows, 16);
  const Lanes rowNumber = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);

  History history = {Set(samples[1]), Set(samples[0])};
  for (std::size_t i = 0; i < count; ++i, samples += kFrameSize, frames += 8) {
    short* const input = samples + 2;
    const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input));
    const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input + 6));
    const Lanes in0 = _mm256_slli_epi32(_mm256_cvtepi16_epi32(front), 11);
    const Lanes in1 = _mm256_slli_epi32(_mm256_cvtepi16_epi32(back), 11);
    _mm256_storeu_si256(reinterpret_cast<Lanes*>(scaled), in0);
    _mm256_storeu_si256(reinterpret_cast<Lanes*>(scaled + 6), in1);
    const __m128i loudest = _mm_minpos_epu16(_mm_xor_si128(
        _mm_max_epu16(_mm_abs_epi16(front), _mm_abs_epi16(back)), _mm_set1_epi16(-1)));
    const int peak = 0xFFFF - (_mm_cvtsi128_si32(loudest) & 0xFFFF);
    const Lanes room = Set((32766 - peak) * 2048);

    OpenLoop o = {_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int t = 2; t < kFrameSize; ++t) {
      Include(o, Broadcast(scaled + t), _mm256_madd_epi16(Broadcast(input + t - 2), table.pair));
    }
    const Lanes earlierTerm = _mm256_madd_epi16(history.earlier, table.earlier);
    Include(o, Broadcast(scaled + 1),
            _mm256_add_epi32(_mm256_madd_epi16(Set(input[0]), table.previous),
                             _mm256_madd_epi16(history.previous, table.earlier)));
    Include(o, Broadcast(scaled),
            _mm256_add_epi32(_mm256_madd_epi16(history.previous, table.previous), earlierTerm));
    const Lanes positive = _mm256_min_epi32(_mm256_srai_epi32(o.most, 11), Set(32767));
    const Lanes negative = _mm256_min_epi32(
        _mm256_sub_epi32(_mm256_setzero_si256(), _mm256_srai_epi32(o.least, 11)), Set(32768));
    const Lanes s0 = FirstExponentOf(_mm256_cvtepi32_ps(positive));
    const Lanes s1 =
        FirstExponentOf(_mm256_mul_ps(_mm256_cvtepi32_ps(negative), _mm256_set1_ps(0.88888896f)));
    const Lanes s = Select(s0, s1, _mm256_cmpgt_epi32(negative, positive));
    const Lanes unclear =
        _mm256_andnot_si256(_mm256_cmpeq_epi32(s0, s1), _mm256_cmpeq_epi32(negative, positive));
    const Lanes unit = _mm256_sllv_epi32(Set(2048), s);

    Best best;
    Outcome outcome = Outcome::kNotCovered;
    if (!Any(unclear)) {
      outcome = EncodeRows<false>(unit, history.previous, earlierTerm, room, table, input, scaled,
                                  trace, best);
      if (outcome == Outcome::kLeftRange) {
        outcome = EncodeRows<true>(unit, history.previous, earlierTerm, room, table, input, scaled,
                                   trace, best);
      }
    }
    if (outcome == Outcome::kDone) {
      const Lanes key = Smallest(_mm256_or_si256(_mm256_slli_epi32(best.error, 3), rowNumber));
      const Lanes winner = _mm256_permutevar8x32_epi32(best.previous, key);
      const int row = _mm256_cvtsi256_si32(key) & 7;
      alignas(32) int slots[8], units[8], inexact[8];
      _mm256_store_si256(reinterpret_cast<Lanes*>(slots), best.slot);
      _mm256_store_si256(reinterpret_cast<Lanes*>(units), best.exponent);
      _mm256_store_si256(reinterpret_cast<Lanes*>(inexact), best.inexact);
      if (inexact[row] == 0) {
        const Trace& t = trace[slots[row]];
        const int shift = __builtin_ctz(static_cast<unsigned>(units[row]));
        for (int m = 0; m < kFrameSize / 2; ++m)
          __builtin_memcpy(input + 2 * m, &t.restored[m][row], 4);
        frames[0] = static_cast<qz::uchar>(row * 16 + shift - 11);
        for (int m = 0; m < kFrameSize / 2; ++m)
          frames[1 + m] = static_cast<qz::uchar>(((t.quantum[2 * m][row] >> shift) & 15) * 16 |
                                                 ((t.quantum[2 * m + 1][row] >> shift) & 15));
        history.previous = winner;
        history.earlier = Set(static_cast<short>(t.restored[6][row]));
        continue;
      }
    }
    EncodeFramesScalar(samples, 1, frames, coefs);
    history = {Set(samples[15]), Set(samples[14])};
  }
}

}  // namespace adpcm
#endif
