// The frame encoder with AVX2.
//
// The 8 table rows are the 8 lanes of 32 bits. A walk over the 14 samples is one chain of dependent
// steps; two walks, at neighbouring exponents, run side by side, since nine rows in ten are done at
// the second exponent tried. A row that is done walks on beside the others; its result is kept
// apart.
//
// Walks follow the differences d = restored - input, not the restored samples. What the input alone
// predicts is at hand early; from it comes x = in * 2048 - prediction by way of the differences
// before. Then with D = 2048 << exponent
//   d = (residual * D + 1024 - x) >> 11 = (residual << exponent) + ((1024 - x) >> 11),
// and only the first of the two terms is late: its product with the coefficient enters the next x
// by itself.
//
// Rounding. The residual is
//   (x + half) / D                  for x of 0 and more, half = ((2^exponent - 1) / 2) * 2048,
//   (x + half + halfNegative) / D   below it, halfNegative = min(D, 4096) - 1,
// both rounded down. Cutting x / 2048 to a whole number commutes with adding whole 2048s, and the
// bits below D are what the division by 2^exponent drops; the half is that of an odd number, so
// exact halves go toward zero. Below zero all is mirrored: D - 1 - 2 * half is added. The sign of
// the first sum selects: where it is 0 or more but x is not, both give 0.
//
// The clamp to 16 bits is left out as long as no sample can need it: the largest sums of a walk
// bound how far a sample is from the input, up to the first one that would leave the range. They
// also bound what the 16-bit halves of the multiply-adds hold. Where a walk that counts passed a
// bound, the frame is done again by walks over restored samples, which clamp; so is the next one
// first.
//
// The first exponent hangs on the largest residual of the open loop: on its magnitude, and on the
// sign of the first among equals only where its magnitude is 8 to 9 times a power of two. A float
// gives the power; subtracting an eighth from the mantissa of a negative one moves 8 below 9 down.
//
// The squared error of an accepted walk is at most 14 * 6146^2 and fits 29 bits, so the row goes
// below it and one minimum finds the first of the best. At exponent 12 a walk stands whatever its
// clipping; its error then counts as at most kMaxError a sample, which is no more than it is, and
// where such a row wins the exact sums decide.
//
// Quiet frames, exponent 0 in all rows and nothing clipped, restore the input to within one: the
// error of a sample is -1, 0 or 1 and replaces the multiplication by a selection.
//
// Each frame's own work before its history is known (Prepare) stands in front of the walk of the
// frame before it, and its writing behind the start of the next: the processor overlaps them.
#if defined(__x86_64__)
#include <immintrin.h>

#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

using Lanes = __m256i;  // 8 x 32 bits: one table row each

constexpr int kFrameSize = 14;
constexpr int kMaxPasses = 7;    // of two exponents each
constexpr int kMaxError = 6190;  // 14 * kMaxError^2 fits 29 bits

// Coefficients in 16-bit halves, for multiply-adds with pairs of samples or with one sample.
struct Table {
  Lanes laterLow, laterHigh;  // both: the coefficient of the sample before in the half named
  Lanes previous, earlier, earlierOfHigh;
  Lanes plus[2], minus[2];  // both coefficients as 32 bits, and negated
};

// What the input alone tells of a frame.
struct OpenLoop {
  Lanes most, least;
};
struct Input {
  alignas(32) int scaled[16];           // times 2048
  alignas(32) int open[kFrameSize][8];  // 1024 - x without differences
  OpenLoop openLoop;                    // but of the first two samples
  Lanes second;                         // what the first sample contributes to the second
  Lanes room;                           // how far a restored sample may be off, times 2048
  bool quiet;
};

// What a walk restored less the input, two samples in each lane.
struct Trace {
  alignas(32) int difference[kFrameSize / 2][8];
};

__attribute__((always_inline)) inline Lanes Set(int value) {
  return _mm256_set1_epi32(value);
}

__attribute__((always_inline)) inline Lanes Load(const int* lanes) {
  return _mm256_load_si256(reinterpret_cast<const Lanes*>(lanes));
}

__attribute__((always_inline)) inline void Store(int* lanes, Lanes value) {
  _mm256_store_si256(reinterpret_cast<Lanes*>(lanes), value);
}

__attribute__((always_inline)) inline Lanes Broadcast(const void* address) {
  int value;
  __builtin_memcpy(&value, address, sizeof value);
  return _mm256_set1_epi32(value);
}

__attribute__((always_inline)) inline Lanes Select(Lanes no, Lanes yes, Lanes mask) {
  return _mm256_blendv_epi8(no, yes, mask);
}

__attribute__((always_inline)) inline Lanes SelectBySign(Lanes no, Lanes yes, Lanes sign) {
  return _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(no), _mm256_castsi256_ps(yes),
                                              _mm256_castsi256_ps(sign)));
}

// Keeps the compiler from adding up in another order, which would lengthen the chain.
__attribute__((always_inline)) inline Lanes Fixed(Lanes value) {
  __asm__("" : "+x"(value));
  return value;
}

__attribute__((always_inline)) inline bool Any(Lanes mask) {
  return !_mm256_testz_si256(mask, mask);
}

// The low half of the first, the high half of the second.
__attribute__((always_inline)) inline Lanes Halves(Lanes low, Lanes high) {
  return _mm256_blend_epi16(low, high, 0xAA);
}

// The low half of each.
__attribute__((always_inline)) inline Lanes Pair(Lanes first, Lanes second) {
  return Halves(first, _mm256_slli_epi32(second, 16));
}

// Smallest of the 8 lanes, in all of them
__attribute__((always_inline)) inline Lanes Smallest(Lanes v) {
  v = _mm256_min_epu32(v, _mm256_permute4x64_epi64(v, 0x4E));
  v = _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0x4E));
  return _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0xB1));
}

Table MakeTable(const short* coefs) {
  Table table;
  // rows: low half the coefficient of the sample before, high half of the one before that
  const Lanes rows = _mm256_loadu_si256(reinterpret_cast<const Lanes*>(coefs));
  table.laterLow = rows;
  table.laterHigh = _mm256_or_si256(_mm256_srli_epi32(rows, 16), _mm256_slli_epi32(rows, 16));
  table.previous = _mm256_and_si256(rows, Set(0xFFFF));
  table.earlier = _mm256_srli_epi32(rows, 16);
  table.earlierOfHigh = _mm256_slli_epi32(table.earlier, 16);
  table.plus[0] = _mm256_srai_epi32(_mm256_slli_epi32(rows, 16), 16);
  table.plus[1] = _mm256_srai_epi32(rows, 16);
  for (int k = 0; k < 2; ++k)
    table.minus[k] = _mm256_sub_epi32(_mm256_setzero_si256(), table.plus[k]);
  return table;
}

// The open loop.

// Times 2048, with bits below that do not count. The division rounds toward zero: up where the
// prediction is subtracted and positive.
__attribute__((always_inline)) inline Lanes OpenLoopResidual(Lanes in, Lanes predicted) {
  const Lanes x = _mm256_sub_epi32(in, predicted);
  return SelectBySign(_mm256_add_epi32(x, Set(2047)), x, predicted);
}

__attribute__((always_inline)) inline void Include(OpenLoop& o, Lanes residual) {
  o.most = _mm256_max_epi32(o.most, residual);
  o.least = _mm256_min_epi32(o.least, residual);
}

__attribute__((always_inline)) inline void StoreOpen(int* open, Lanes in, Lanes predicted) {
  Store(open, _mm256_sub_epi32(_mm256_add_epi32(predicted, Set(1024)), in));
}

__attribute__((always_inline)) inline int Peak(__m128i front, __m128i back) {
  const __m128i loudest = _mm_minpos_epu16(
      _mm_xor_si128(_mm_max_epu16(_mm_abs_epi16(front), _mm_abs_epi16(back)), _mm_set1_epi16(-1)));
  return 0xFFFF - (_mm_cvtsi128_si32(loudest) & 0xFFFF);
}

__attribute__((always_inline)) inline void Prepare(const short* input, const Table& table,
                                                   Input& frame) {
  const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input));
  const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input + 6));
  _mm256_storeu_si256(reinterpret_cast<Lanes*>(frame.scaled),
                      _mm256_slli_epi32(_mm256_cvtepi16_epi32(front), 11));
  _mm256_storeu_si256(reinterpret_cast<Lanes*>(frame.scaled + 6),
                      _mm256_slli_epi32(_mm256_cvtepi16_epi32(back), 11));
  const int headroom = (32766 - Peak(front, back)) * 2048;
  frame.room = Set(headroom);
  OpenLoop o = {_mm256_setzero_si256(), _mm256_setzero_si256()};
#pragma GCC unroll 12
  for (int t = 2; t < kFrameSize; ++t) {
    const Lanes in = Broadcast(frame.scaled + t);
    const Lanes predicted = _mm256_madd_epi16(Broadcast(input + t - 2), table.laterHigh);
    StoreOpen(frame.open[t], in, predicted);
    Include(o, OpenLoopResidual(in, predicted));
  }
  frame.openLoop = o;
  frame.second = _mm256_madd_epi16(Set(input[0]), table.previous);
  frame.quiet = headroom >= 0 && !Any(_mm256_or_si256(_mm256_cmpgt_epi32(o.most, Set(7 * 2048)),
                                                      _mm256_cmpgt_epi32(Set(-8 * 2048), o.least)));
}

// Where the walks begin: with the history, and at which exponents.
struct Start {
  Lanes prediction;      // of the first sample
  Lanes earlierHistory;  // what the last sample of history contributes to the second
  OpenLoop openLoop;     // of the whole frame
  Lanes shift;           // 11 more than the exponent
};

// Whether the residual of largest magnitude, the first among equals, is negative.
Lanes SignOfLargest(const short* input, const Table& table, const Input& frame, Lanes first,
                    Lanes second) {
  Lanes largest = _mm256_setzero_si256();
  for (int t = 0; t < kFrameSize; ++t) {
    Lanes residual = t == 0 ? first : second;
    if (t >= 2) {
      residual = OpenLoopResidual(Broadcast(frame.scaled + t),
                                  _mm256_madd_epi16(Broadcast(input + t - 2), table.laterHigh));
    }
    const Lanes whole = _mm256_and_si256(residual, Set(-2048));
    largest = Select(largest, whole,
                     _mm256_cmpgt_epi32(_mm256_abs_epi32(whole), _mm256_abs_epi32(largest)));
  }
  return _mm256_srai_epi32(largest, 31);
}

__attribute__((always_inline)) inline Start Begin(const short* input, const Table& table,
                                                  Lanes history, Input& frame) {
  const Lanes zero = _mm256_setzero_si256();
  Start start;
  start.prediction = Fixed(_mm256_madd_epi16(history, table.laterHigh));
  start.earlierHistory = Fixed(_mm256_madd_epi16(history, table.earlierOfHigh));
  const Lanes secondPrediction = _mm256_add_epi32(frame.second, start.earlierHistory);
  StoreOpen(frame.open[0], Broadcast(frame.scaled), start.prediction);
  StoreOpen(frame.open[1], Broadcast(frame.scaled + 1), secondPrediction);
  const Lanes second = OpenLoopResidual(Broadcast(frame.scaled + 1), secondPrediction);
  const Lanes first = OpenLoopResidual(Broadcast(frame.scaled), start.prediction);
  start.openLoop = frame.openLoop;
  Include(start.openLoop, second);
  Include(start.openLoop, first);

  const Lanes positive = _mm256_and_si256(start.openLoop.most, Set(-2048));
  const Lanes negative = _mm256_sub_epi32(zero, _mm256_and_si256(start.openLoop.least, Set(-2048)));
  const Lanes bits = _mm256_castps_si256(_mm256_cvtepi32_ps(_mm256_max_epi32(positive, negative)));
  Lanes sign = _mm256_cmpgt_epi32(negative, positive);
  const Lanes unclear =
      _mm256_and_si256(_mm256_and_si256(_mm256_cmpeq_epi32(negative, positive),
                                        _mm256_cmpgt_epi32(negative, Set(16 * 2048 - 1))),
                       _mm256_cmpeq_epi32(_mm256_and_si256(bits, Set(0x700000)), zero));
  if (__builtin_expect(Any(unclear), 0)) sign = SignOfLargest(input, table, frame, first, second);
  const Lanes power =
      _mm256_srli_epi32(_mm256_sub_epi32(bits, _mm256_and_si256(sign, Set(0x100000))), 23);
  // One below the exponent at which it would fit
  start.shift = _mm256_sub_epi32(
      _mm256_min_epi32(_mm256_max_epi32(power, Set(127 + 14)), Set(127 + 25)), Set(127 + 3));
  return start;
}

// What the walks of a pass have in common.

// How a walk went: what it would keep, and how far the sums went from zero.
struct Outcome {
  Lanes error, last;  // last: the differences of the last two samples
  Lanes shift, unit;  // unit: D
  Lanes extent;
};

// What is kept of each row: the squared error with the row below it, whether no walk was accepted
// yet, where the trace is, the shift of D, the last two differences, and whether the error is a
// lower bound.
struct Best {
  Lanes key, open, slot, shift, last, inexact;
};

// The larger of most and -1 - least.
__attribute__((always_inline)) inline Lanes Extent(Lanes most, Lanes least) {
  return _mm256_max_epi32(most, _mm256_xor_si256(least, Set(-1)));
}

// By more than one step: acceptable at exponent 12 only.
__attribute__((always_inline)) inline Lanes ClippedTooMuch(const Outcome& o) {
  const Lanes nine = _mm256_add_epi32(_mm256_slli_epi32(o.unit, 3), o.unit);
  return _mm256_cmpgt_epi32(o.extent, _mm256_add_epi32(nine, Set(-1)));
}

// Where a restored sample may have left 16 bits, a half of a multiply-add may have overflowed, or
// the clipping skips exponents. At exponent 12 also where it clipped too much.
__attribute__((always_inline)) inline Lanes IsBeyondBounds(const Outcome& o, Lanes room) {
  const Lanes seven = _mm256_sub_epi32(_mm256_slli_epi32(o.unit, 3), o.unit);
  const Lanes capped = _mm256_min_epi32(o.unit, Set((1 << 18) - (1 << 15)));
  const Lanes limit = _mm256_min_epi32(_mm256_add_epi32(seven, room),
                                       _mm256_add_epi32(_mm256_slli_epi32(capped, 8), Set(-1)));
  return _mm256_cmpgt_epi32(o.extent, limit);
}

// Whether rounding alone could take a sample out of its range.
__attribute__((always_inline)) inline bool RoomIsShort(Lanes largerUnit, Lanes room) {
  return Any(_mm256_cmpgt_epi32(largerUnit, room));
}

// Takes over the rows that were open: from `b` where `useB`.
__attribute__((always_inline)) inline void Keep(Best& best, int pass, const Outcome& a,
                                                const Outcome& b, Lanes useB, Lanes inexact,
                                                Lanes open) {
  const Lanes rowNumber = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  Best found;
  found.key = _mm256_or_si256(_mm256_slli_epi32(Select(a.error, b.error, useB), 3), rowNumber);
  found.slot = _mm256_sub_epi32(Set(2 * pass), useB);
  found.last = Select(a.last, b.last, useB);
  found.shift = Select(a.shift, b.shift, useB);
  found.inexact = inexact;
  found.open = open;
  if (pass == 0) {
    best = found;
    return;
  }
  best.key = Select(best.key, found.key, best.open);
  best.slot = Select(best.slot, found.slot, best.open);
  best.last = Select(best.last, found.last, best.open);
  best.shift = Select(best.shift, found.shift, best.open);
  best.inexact = Select(best.inexact, found.inexact, best.open);
  best.open = _mm256_and_si256(best.open, open);
}

// Walks without the clamp.

struct FreeExponent {
  Lanes shift;             // of D
  Lanes unit;              // D
  Lanes scale, scaleHigh;  // the exponent, and for the high half
  Lanes gain;              // previous coefficient << exponent
  Lanes up, down;          // 1024 + half, and with halfNegative
};

// `late` is what the last residual contributes to the next 1024 - x. `early` holds the other two
// terms, what the input and the older residual left of the last two samples, a half each.
struct FreeWalk {
  Lanes early, late, difference;
  Lanes error, most, least, last;
};

__attribute__((always_inline)) inline FreeExponent MakeFreeExponent(Lanes shift,
                                                                    const Table& table) {
  FreeExponent e;
  e.shift = shift;
  e.unit = _mm256_sllv_epi32(Set(1), shift);
  e.scale = _mm256_sub_epi32(shift, Set(11));
  e.scaleHigh = _mm256_add_epi32(shift, Set(5));
  e.gain = _mm256_sllv_epi32(table.plus[0], e.scale);
  e.up = _mm256_max_epi32(_mm256_sub_epi32(_mm256_srli_epi32(e.unit, 1), Set(1024)), Set(1024));
  e.down = _mm256_add_epi32(e.up, _mm256_sub_epi32(_mm256_min_epi32(e.unit, Set(4096)), Set(1)));
  return e;
}

// Even samples keep their terms in the low halves, odd ones in the high ones with a fraction below
// that nobody reads, so that neighbours combine without a shift.
template <bool kOdd, bool kFirst = false>
__attribute__((always_inline)) inline void FreeStep(FreeWalk& w, const FreeExponent& e,
                                                    const Table& table, Lanes open) {
  Lanes y = open;  // 1024 - x
  if (!kFirst) {
    const Lanes early = _mm256_madd_epi16(w.early, kOdd ? table.laterLow : table.laterHigh);
    y = Fixed(_mm256_add_epi32(Fixed(_mm256_add_epi32(open, early)), w.late));
  }
  const Lanes up = _mm256_sub_epi32(e.up, y);
  const Lanes down = _mm256_sub_epi32(e.down, y);
  w.most = kFirst ? up : _mm256_max_epi32(w.most, up);
  w.least = kFirst ? down : _mm256_min_epi32(w.least, down);
  const Lanes residual =
      SelectBySign(_mm256_min_epi32(_mm256_srav_epi32(up, e.shift), Set(7)),
                   _mm256_max_epi32(_mm256_srav_epi32(down, e.shift), Set(-8)), up);
  w.late = _mm256_mullo_epi32(residual, e.gain);
  const Lanes rest = kOdd ? _mm256_slli_epi32(y, 5) : _mm256_srai_epi32(y, 11);
  const Lanes before = kFirst ? _mm256_setzero_si256() : w.difference;
  w.early = kOdd ? Halves(before, rest) : Halves(rest, before);
  w.difference = _mm256_add_epi32(rest, _mm256_sllv_epi32(residual, kOdd ? e.scaleHigh : e.scale));
}

template <bool kFirst = false>
__attribute__((always_inline)) inline void TwoFreeSteps(FreeWalk& w, const FreeExponent& e,
                                                        const Table& table, Lanes open0,
                                                        Lanes open1, int* trace) {
  FreeStep<false, kFirst>(w, e, table, open0);
  const Lanes first = w.difference;
  FreeStep<true>(w, e, table, open1);
  w.last = Halves(first, w.difference);
  Store(trace, w.last);
  const Lanes square = _mm256_madd_epi16(w.last, w.last);
  w.error = kFirst ? square : _mm256_add_epi32(w.error, square);
}

__attribute__((always_inline)) inline Outcome OutcomeOf(const FreeWalk& w, const FreeExponent& e) {
  return {w.error, w.last, e.shift, e.unit, Extent(w.most, w.least)};
}

// Encodes the frame by every row, or gives false where a walk that counts passed a bound.
__attribute__((always_inline)) inline bool EncodeFree(Lanes shift, const Input& frame,
                                                      const Table& table, Trace* trace,
                                                      Best& best) {
  best.open = Set(-1);
  for (int pass = 0;; ++pass, trace += 2) {
    const FreeExponent ea = MakeFreeExponent(shift, table);
    const FreeExponent eb = MakeFreeExponent(_mm256_add_epi32(shift, Set(1)), table);
    if (RoomIsShort(eb.unit, frame.room)) return false;
    FreeWalk wa, wb;
    TwoFreeSteps<true>(wa, ea, table, Load(frame.open[0]), Load(frame.open[1]),
                       trace[0].difference[0]);
    TwoFreeSteps<true>(wb, eb, table, Load(frame.open[0]), Load(frame.open[1]),
                       trace[1].difference[0]);
#pragma GCC unroll 6
    for (int m = 1; m < kFrameSize / 2; ++m) {
      const Lanes open0 = Load(frame.open[2 * m]);
      const Lanes open1 = Load(frame.open[2 * m + 1]);
      TwoFreeSteps(wa, ea, table, open0, open1, trace[0].difference[m]);
      TwoFreeSteps(wb, eb, table, open0, open1, trace[1].difference[m]);
    }
    const Outcome a = OutcomeOf(wa, ea);
    const Outcome b = OutcomeOf(wb, eb);
    const Lanes openA = ClippedTooMuch(a);
    const Lanes beyond = _mm256_or_si256(IsBeyondBounds(a, frame.room),
                                         _mm256_and_si256(openA, IsBeyondBounds(b, frame.room)));
    if (Any(_mm256_and_si256(best.open, beyond))) return false;
    Keep(best, pass, a, b, openA, _mm256_setzero_si256(),
         _mm256_and_si256(openA, ClippedTooMuch(b)));
    if (!Any(best.open)) return true;
    // Exponent 11 and then 12 are the last.
    const Lanes next = _mm256_min_epi32(_mm256_add_epi32(shift, Set(2)), Set(11 + 11));
    shift = Select(shift, next, best.open);
  }
}

// Walks with the clamp.

struct ClampedExponent {
  Lanes shift, unit, mask, top, bottom, half, halfNegative;
};

struct ClampedWalk {
  // terms of prediction: sample before, the one before it; next sample's far
  Lanes near, far, next;
  Lanes error, most, least, last;
};

__attribute__((always_inline)) inline ClampedExponent MakeClampedExponent(Lanes shift) {
  const Lanes zero = _mm256_setzero_si256();
  ClampedExponent e;
  e.shift = shift;
  e.unit = _mm256_sllv_epi32(Set(1), shift);
  e.mask = _mm256_sub_epi32(zero, e.unit);
  e.bottom = _mm256_slli_epi32(e.mask, 3);
  e.top = _mm256_sub_epi32(e.mask, e.bottom);
  e.half = _mm256_max_epi32(_mm256_sub_epi32(_mm256_srli_epi32(e.unit, 1), Set(2048)), zero);
  e.halfNegative = _mm256_sub_epi32(_mm256_min_epi32(e.unit, Set(4096)), Set(1));
  return e;
}

// The result is the restored sample.
__attribute__((always_inline)) inline Lanes ClampedStep(ClampedWalk& w, const ClampedExponent& e,
                                                        const Table& table, Lanes in) {
  const Lanes far = Fixed(_mm256_add_epi32(w.far, Set(1024)));
  const Lanes rest = Fixed(_mm256_sub_epi32(_mm256_add_epi32(in, e.half), w.far));
  const Lanes restNegative = Fixed(_mm256_add_epi32(rest, e.halfNegative));

  const Lanes up = _mm256_sub_epi32(rest, w.near);
  const Lanes down = _mm256_sub_epi32(restNegative, w.near);
  const Lanes predicted = Fixed(_mm256_add_epi32(far, w.near));
  w.most = _mm256_max_epi32(w.most, up);
  w.least = _mm256_min_epi32(w.least, down);
  const Lanes residual =
      SelectBySign(_mm256_min_epi32(_mm256_and_si256(up, e.mask), e.top),
                   _mm256_max_epi32(_mm256_and_si256(down, e.mask), e.bottom), up);
  Lanes sum = _mm256_add_epi32(predicted, residual);
  sum = _mm256_min_epi32(sum, Set((1 << 26) - 1));
  sum = _mm256_max_epi32(sum, Set(-(1 << 26)));
  const Lanes restored = _mm256_srai_epi32(sum, 11);
  w.near = _mm256_madd_epi16(restored, table.previous);
  w.far = w.next;
  w.next = _mm256_madd_epi16(restored, table.earlier);
  return restored;
}

__attribute__((always_inline)) inline void TwoClampedSteps(ClampedWalk& w, const ClampedExponent& e,
                                                           const Table& table, Lanes in0, Lanes in1,
                                                           Lanes both, int* trace) {
  const Lanes first = ClampedStep(w, e, table, in0);
  const Lanes second = ClampedStep(w, e, table, in1);
  const Lanes restored = Pair(first, second);
  w.last = _mm256_sub_epi16(restored, both);
  Store(trace, w.last);
  Lanes error = _mm256_subs_epi16(both, restored);
  error = _mm256_min_epi16(error, _mm256_set1_epi16(kMaxError));
  error = _mm256_max_epi16(error, _mm256_set1_epi16(-kMaxError));
  w.error = _mm256_add_epi32(w.error, _mm256_madd_epi16(error, error));
}

__attribute__((always_inline)) inline Outcome OutcomeOf(const ClampedWalk& w,
                                                        const ClampedExponent& e) {
  return {w.error, w.last, e.shift, e.unit, Extent(w.most, w.least)};
}

__attribute__((always_inline)) inline Lanes SkipsExponents(const Outcome& o) {
  return _mm256_cmpgt_epi32(o.extent, _mm256_add_epi32(_mm256_slli_epi32(o.unit, 8), Set(-1)));
}

// Heavy clipping skips exponents, up to the highest.
Lanes AfterClipping(Lanes shift, Lanes extent) {
  alignas(32) int shifts[8], extents[8];
  Store(shifts, shift);
  Store(extents, extent);
  for (int row = 0; row < 8; ++row) {
    // 7 less is the clipping, in steps.
    const int steps = (extents[row] >> shifts[row]) - 7;
    ++shifts[row];
    for (int k = steps + 8; k > 256 && shifts[row] < 11 + 12; k >>= 1)
      ++shifts[row];
  }
  return Load(shifts);
}

// Encodes the frame by every row. The result tells whether the clamp may have been needed.
bool EncodeClamped(const Start& start, const Input& frame, const Table& table, const short* input,
                   Trace* trace, Best& best) {
  const Lanes zero = _mm256_setzero_si256();
  const Lanes highest = Set(11 + 12);
  Lanes shift = start.shift;
  bool needed = false;
  best.open = Set(-1);
  for (int pass = 0;; ++pass, trace += 2) {
    const ClampedExponent ea = MakeClampedExponent(shift);
    const ClampedExponent eb = MakeClampedExponent(_mm256_add_epi32(shift, Set(1)));
    ClampedWalk wa = {start.prediction, zero, start.earlierHistory, zero, zero, zero, zero};
    ClampedWalk wb = wa;
    for (int t = 0; t < kFrameSize; t += 2) {
      const Lanes in0 = Broadcast(frame.scaled + t);
      const Lanes in1 = Broadcast(frame.scaled + t + 1);
      const Lanes both = Broadcast(input + t);
      TwoClampedSteps(wa, ea, table, in0, in1, both, trace[0].difference[t / 2]);
      TwoClampedSteps(wb, eb, table, in0, in1, both, trace[1].difference[t / 2]);
    }
    const Outcome a = OutcomeOf(wa, ea);
    const Outcome b = OutcomeOf(wb, eb);
    const Lanes clippedA = ClippedTooMuch(a);
    const Lanes clippedB = ClippedTooMuch(b);
    const Lanes lastA = _mm256_cmpeq_epi32(a.shift, highest);
    const Lanes lastB = _mm256_cmpeq_epi32(b.shift, highest);
    const Lanes openA = _mm256_andnot_si256(lastA, clippedA);
    Lanes openB = _mm256_and_si256(openA, _mm256_andnot_si256(lastB, clippedB));
    const Lanes beyond = _mm256_or_si256(IsBeyondBounds(a, frame.room),
                                         _mm256_and_si256(openA, IsBeyondBounds(b, frame.room)));
    needed = needed || RoomIsShort(eb.unit, frame.room) || Any(_mm256_and_si256(best.open, beyond));

    Lanes next = _mm256_add_epi32(shift, Set(2));
    const Lanes skipA = _mm256_and_si256(openA, SkipsExponents(a));
    const Lanes skipB = _mm256_and_si256(openB, SkipsExponents(b));
    if (Any(_mm256_and_si256(_mm256_or_si256(skipA, skipB), best.open))) {
      openB = _mm256_or_si256(openB, skipA);
      next = AfterClipping(Select(b.shift, a.shift, skipA), Select(b.extent, a.extent, skipA));
    }
    Keep(best, pass, a, b, openA,
         Select(_mm256_and_si256(clippedA, lastA), _mm256_and_si256(clippedB, lastB), openA),
         openB);
    if (!Any(best.open)) return needed;
    // Lanes that are done go on beside the others, at exponents that stay in range.
    shift = Select(shift, next, best.open);
  }
}

// By sums of 64 bits.
int ExactBest(const Trace* trace, const int* slots, const short* input) {
  int best = 0;
  long long least = 0;
  for (int row = 0; row < 8; ++row) {
    long long error = 0;
    for (int t = 0; t < kFrameSize; ++t) {
      const int pair = trace[slots[row]].difference[t / 2][row];
      const auto difference = static_cast<short>(t % 2 == 0 ? pair : pair >> 16);
      const auto restored = static_cast<short>(input[t] + difference);
      const long long e = input[t] - restored;
      error += e * e;
    }
    if (row == 0 || error < least) {
      least = error;
      best = row;
    }
  }
  return best;
}

// Quiet frames.

struct QuietTrace {
  alignas(32) int scaledResidual[kFrameSize / 2][8];
};

struct Quiet {
  Lanes near, far, next, changed, most, least;
};

// near, far: what the errors of the two samples before contribute
__attribute__((always_inline)) inline Lanes QuietStep(Quiet& w, const Table& table, Lanes open,
                                                      Lanes& x) {
  const Lanes rest = Fixed(_mm256_add_epi32(open, w.far));
  const Lanes restLess1 = Fixed(_mm256_sub_epi32(rest, Set(1)));
  x = Fixed(_mm256_add_epi32(rest, w.near));
  const Lanes xLess1 = Fixed(_mm256_add_epi32(restLess1, w.near));
  w.most = _mm256_max_epi32(w.most, x);
  w.least = _mm256_min_epi32(w.least, x);
  const Lanes below = _mm256_cmpgt_epi32(_mm256_and_si256(x, Set(2047)), Set(1024));
  const Lanes above = _mm256_cmpgt_epi32(Set(1024), _mm256_and_si256(xLess1, Set(2047)));
  const Lanes off = SelectBySign(below, above, x);
  w.changed = _mm256_sub_epi32(w.changed, off);
  w.near = _mm256_and_si256(off, SelectBySign(table.plus[0], table.minus[0], x));
  w.far = w.next;
  w.next = _mm256_and_si256(off, SelectBySign(table.plus[1], table.minus[1], x));
  return _mm256_and_si256(off, _mm256_or_si256(_mm256_srai_epi32(x, 31), Set(1)));
}

// x without differences
__attribute__((always_inline)) inline Lanes QuietOpen(const Input& frame, int t) {
  return _mm256_sub_epi32(Set(1024), Load(frame.open[t]));
}

__attribute__((always_inline)) inline bool IsLoud(const OpenLoop& o) {
  return Any(_mm256_or_si256(_mm256_cmpgt_epi32(o.most, Set(16 * 2048 - 1)),
                             _mm256_cmpgt_epi32(Set(-17 * 2048), o.least)));
}

// False where a row has another exponent than 0 or clips. Otherwise the row that won, and the
// history of the next frame.
__attribute__((always_inline)) inline bool EncodeQuiet(const Start& start, const Input& frame,
                                                       const short* input, const Table& table,
                                                       QuietTrace& trace, int& row,
                                                       Lanes& history) {
  const Lanes zero = _mm256_setzero_si256();
  Quiet w = {zero, zero, zero, zero, zero, zero};
  Lanes before, off;
  for (int m = 0; m < kFrameSize / 2; ++m) {
    Lanes x0, x1;
    before = QuietStep(w, table, QuietOpen(frame, 2 * m), x0);
    off = QuietStep(w, table, QuietOpen(frame, 2 * m + 1), x1);
    Store(trace.scaledResidual[m], Pair(x0, x1));
  }
  if (IsLoud(start.openLoop) ||
      Any(_mm256_or_si256(_mm256_cmpgt_epi32(w.most, Set(8 * 2048 - 1)),
                          _mm256_cmpgt_epi32(Set(1 - 9 * 2048), w.least)))) {
    return false;
  }
  const Lanes key = Smallest(
      _mm256_or_si256(_mm256_slli_epi32(w.changed, 3), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
  row = _mm256_cvtsi256_si32(key) & 7;
  const Lanes errors = Pair(before, off);
  history = _mm256_sub_epi16(Broadcast(input + 12), _mm256_permutevar8x32_epi32(errors, key));
  return true;
}

// Writing out.

// The 14 samples of one lane.
__attribute__((always_inline)) inline Lanes Gather(const int (*pairs)[8], int row) {
  const __m128i low = _mm_setr_epi32(pairs[0][row], pairs[1][row], pairs[2][row], pairs[3][row]);
  const __m128i high = _mm_setr_epi32(pairs[4][row], pairs[5][row], pairs[6][row], 0);
  return _mm256_set_m128i(high, low);
}

// The 14 samples of a frame in two overlapping halves, 0 to 7 and 6 to 13.
__attribute__((always_inline)) inline Lanes Overlapping(Lanes samples) {
  const __m128i low = _mm256_castsi256_si128(samples);
  return _mm256_set_m128i(_mm_alignr_epi8(_mm256_extracti128_si256(samples, 1), low, 12), low);
}

__attribute__((always_inline)) inline Lanes LoadSamples(const short* samples) {
  return _mm256_set_m128i(_mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + 6)),
                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples)));
}

__attribute__((always_inline)) inline void StoreSamples(short* samples, Lanes overlapping) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(samples), _mm256_castsi256_si128(overlapping));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(samples + 6),
                   _mm256_extracti128_si256(overlapping, 1));
}

// Header and residuals
__attribute__((always_inline)) inline void StoreFrame(int header, Lanes residuals,
                                                      qz::uchar* frame) {
  const Lanes nibbles = _mm256_and_si256(residuals, _mm256_set1_epi16(15));
  const Lanes bytes = _mm256_madd_epi16(nibbles, Set(1 << 16 | 16));
  const __m128i words =
      _mm_packs_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
  const long long packed = _mm_cvtsi128_si64(_mm_packus_epi16(words, words));
  const unsigned long long whole =
      static_cast<unsigned long long>(packed) << 8 | static_cast<unsigned>(header);
  __builtin_memcpy(frame, &whole, 8);
}

__attribute__((always_inline)) inline void WriteOutQuiet(const QuietTrace& trace, int row,
                                                         short* input, qz::uchar* frame) {
  const Lanes x = Gather(trace.scaledResidual, row);
  const Lanes towardZero = _mm256_add_epi16(x, _mm256_srli_epi16(_mm256_srai_epi16(x, 15), 5));
  const Lanes q = _mm256_srai_epi16(towardZero, 11);
  const Lanes rest = _mm256_sub_epi16(x, _mm256_slli_epi16(q, 11));
  const Lanes error = _mm256_srai_epi16(_mm256_add_epi16(rest, _mm256_set1_epi16(1023)), 11);
  StoreSamples(input, _mm256_sub_epi16(LoadSamples(input), Overlapping(error)));
  StoreFrame(row * 16, q, frame);
}

// What won the frame before, which is still to be written. Slots and shifts are those of Best.
enum class Pending { kNone, kQuiet, kFrame };
struct Winner {
  alignas(32) int slots[8], shifts[8];
  int row;
  Pending pending;
};

// The residuals of 8 samples, 4 in each half: the input, what was restored of the two samples
// before each, and the coefficients.
__attribute__((always_inline)) inline Lanes Residuals(Lanes scaled, Lanes pairs, Lanes coefs,
                                                      int shift) {
  const int unit = 1 << shift;
  const int half = shift == 11 ? 0 : unit / 2 - 2048;
  const Lanes up =
      _mm256_add_epi32(_mm256_sub_epi32(scaled, _mm256_madd_epi16(pairs, coefs)), Set(half));
  const Lanes down = _mm256_add_epi32(up, Set((unit < 4096 ? unit : 4096) - 1));
  return _mm256_sra_epi32(SelectBySign(up, down, up), _mm_cvtsi32_si128(shift));
}

// The residuals once more, of the row that won: cheaper than to keep those of all walks.
__attribute__((always_inline)) inline Lanes ResidualsOfFrame(Lanes input, Lanes restored,
                                                             int history, int coefs, int shift) {
  const __m128i low = _mm256_castsi256_si128(restored);
  const __m128i high = _mm256_extracti128_si256(restored, 1);
  const __m128i beforeLow = _mm_set1_epi32(history);
  const __m128i beforeHigh = _mm_slli_si128(low, 4);  // samples 4 and 5 last
  const Lanes previous =
      _mm256_set_m128i(_mm_alignr_epi8(high, beforeHigh, 14), _mm_alignr_epi8(low, beforeLow, 14));
  const Lanes earlier =
      _mm256_set_m128i(_mm_alignr_epi8(high, beforeHigh, 12), _mm_alignr_epi8(low, beforeLow, 12));
  const Lanes zero = _mm256_setzero_si256();
  const Lanes first = Residuals(_mm256_srai_epi32(_mm256_unpacklo_epi16(zero, input), 5),
                                _mm256_unpacklo_epi16(earlier, previous), Set(coefs), shift);
  const Lanes second = Residuals(_mm256_srai_epi32(_mm256_unpackhi_epi16(zero, input), 5),
                                 _mm256_unpackhi_epi16(earlier, previous), Set(coefs), shift);
  Lanes both = _mm256_packs_epi32(first, second);
  both = _mm256_min_epi16(both, _mm256_set1_epi16(7));
  both = _mm256_max_epi16(both, _mm256_set1_epi16(-8));
  return _mm256_set_m128i(_mm_srli_si128(_mm256_extracti128_si256(both, 1), 4),
                          _mm256_castsi256_si128(both));
}

__attribute__((always_inline)) inline void WriteOut(const Trace* trace, const Winner& w,
                                                    const Table& table, short* samples,
                                                    qz::uchar* frame) {
  const int row = w.row;
  const int shift = w.shifts[row];
  int history, coefs;
  __builtin_memcpy(&history, samples - 2, sizeof history);
  __builtin_memcpy(&coefs, reinterpret_cast<const int*>(&table.laterHigh) + row, sizeof coefs);
  const Lanes input = LoadSamples(samples);
  const Lanes restored =
      _mm256_add_epi16(input, Overlapping(Gather(trace[w.slots[row]].difference, row)));
  StoreSamples(samples, restored);
  StoreFrame(row * 16 + shift - 11, ResidualsOfFrame(input, restored, history, coefs, shift),
             frame);
}

__attribute__((always_inline)) inline void WritePending(const Trace* trace,
                                                        const QuietTrace& quietTrace,
                                                        const Winner& winner, const Table& table,
                                                        short* samples, qz::uchar* frame) {
  if (winner.pending == Pending::kQuiet) {
    WriteOutQuiet(quietTrace, winner.row, samples, frame);
  } else if (winner.pending == Pending::kFrame) {
    WriteOut(trace, winner, table, samples, frame);
  }
}

// The result is the history of the next frame.
__attribute__((always_inline)) inline Lanes FindWinner(const Best& best, const Trace* trace,
                                                       const short* input, Winner& winner) {
  const Lanes key = Smallest(best.key);
  Lanes last = _mm256_permutevar8x32_epi32(best.last, key);
  winner.row = _mm256_cvtsi256_si32(key) & 7;
  winner.pending = Pending::kFrame;
  Store(winner.slots, best.slot);
  Store(winner.shifts, best.shift);
  alignas(32) int inexact[8];
  Store(inexact, best.inexact);
  if (inexact[winner.row] != 0) {
    winner.row = ExactBest(trace, winner.slots, input);
    last = Set(trace[winner.slots[winner.row]].difference[kFrameSize / 2 - 1][winner.row]);
  }
  return _mm256_add_epi16(last, Broadcast(input + kFrameSize - 2));
}

}  // namespace

void EncodeFramesAvx2(short* samples, std::size_t count, qz::uchar* frames, const short* coefs) {
  const Table table = MakeTable(coefs);
  Input inputs[2];  // of this frame and the next
  Trace trace[2 * kMaxPasses];
  QuietTrace quietTrace;
  Winner winner;
  winner.pending = Pending::kNone;
  bool loud = false;
  Lanes history = Broadcast(samples);
  short* input = samples + 2;
  Prepare(input, table, inputs[0]);
  for (std::size_t i = 0; i < count; ++i, input += kFrameSize, frames += 8) {
    Input& frame = inputs[i % 2];
    const Start start = Begin(input, table, history, frame);
    WritePending(trace, quietTrace, winner, table, input - kFrameSize, frames - 8);
    if (i + 1 < count) Prepare(input + kFrameSize, table, inputs[(i + 1) % 2]);
    if (frame.quiet && EncodeQuiet(start, frame, input, table, quietTrace, winner.row, history)) {
      winner.pending = Pending::kQuiet;
      continue;
    }
    Best best = {};
    if (loud || !EncodeFree(start.shift, frame, table, trace, best))
      loud = EncodeClamped(start, frame, table, input, trace, best);
    history = FindWinner(best, trace, input, winner);
  }
  WritePending(trace, quietTrace, winner, table, input - kFrameSize, frames - 8);
}

}  // namespace adpcm
#endif
