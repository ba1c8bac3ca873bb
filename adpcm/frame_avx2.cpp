// The frame encoder with AVX2.
//
// The 8 table rows are the 8 lanes of 32 bits. A walk over the 14 samples is one chain of dependent
// steps, so what counts is the length of a step: multiply-add, subtract, mask, limit, select, add,
// shift. All else lies beside the chain.
//
// Rounding. With x = in * 2048 - prediction and D = 2048 << exponent, residual * D is
//   (x + half) & -D                  for x of 0 and more, half = ((2^exponent - 1) / 2) * 2048,
//   (x + half + halfNegative) & -D   below it, halfNegative = min(D, 4096) - 1.
// Cutting x / 2048 to a whole number commutes with adding whole 2048s, and the bits below D are
// what the division by 2^exponent drops; the half is that of an odd number, so exact halves go
// toward zero. Below zero all is mirrored: D - 1 - 2 * half is added. Both sums are at hand early,
// and the sign of the first selects: where it is 0 or more but x is not, both give 0.
//
// Exponents. Nine rows in ten are done at the second exponent tried, so two neighbouring ones are
// walked at a time. A row that is done walks on beside the others; its result is kept apart.
//
// The clamp to 16 bits is left out as long as no sample can need it: the largest residuals of a
// walk bound how far a sample is from the input, up to the first one that would leave the range.
// Otherwise the frame is done again with the clamp, and so is the next one first.
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

// An exponent for each row, as the step uses it. `unit` is D.
struct Exponent {
  Lanes unit, mask, top, bottom, half, halfNegative;
};

struct Walk {
  Lanes near, far,
      next;  // terms of prediction: sample before, the one before it; next sample's far
  Lanes error, most, least;
  Lanes last;  // the last two samples
};

// What a walk restored.
struct Trace {
  alignas(32) int restored[kFrameSize / 2][8];
  alignas(32) int quantum[kFrameSize / 2][8];  // of exponent 0, two samples in each lane
};

// Coefficients in 16-bit halves, for multiply-adds with pairs of samples or with one sample.
struct Table {
  Lanes pair, previous, earlier, earlierOfHigh;
  Lanes plus[2], minus[2];  // both coefficients as 32 bits, and negated
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

// Keeps the compiler from adding up in another order, which would lengthen the chain.
inline Lanes Fixed(Lanes value) {
  __asm__("" : "+x"(value));
  return value;
}

inline bool Any(Lanes mask) {
  return !_mm256_testz_si256(mask, mask);
}

inline Exponent MakeExponent(Lanes eight) {
  Exponent e;
  const Lanes zero = _mm256_setzero_si256();
  e.unit = _mm256_srli_epi32(eight, 3);
  e.mask = _mm256_sub_epi32(zero, e.unit);
  e.top = _mm256_sub_epi32(eight, e.unit);
  e.bottom = _mm256_sub_epi32(zero, eight);
  e.half = _mm256_max_epi32(_mm256_sub_epi32(_mm256_srli_epi32(eight, 4), Set(2048)), zero);
  e.halfNegative = _mm256_sub_epi32(_mm256_min_epi32(e.unit, Set(4096)), Set(1));
  return e;
}

// The first in the low half of each lane.
inline Lanes Pair(Lanes first, Lanes second) {
  return _mm256_blend_epi16(first, _mm256_slli_epi32(second, 16), 0xAA);
}

template <bool kClamp>
inline Lanes Step(Walk& w, const Exponent& e, const Table& table, Lanes in, Lanes& q) {
  const Lanes far = Fixed(_mm256_add_epi32(w.far, Set(1024)));
  const Lanes rest = Fixed(_mm256_sub_epi32(_mm256_add_epi32(in, e.half), w.far));
  const Lanes restNegative = Fixed(_mm256_add_epi32(rest, e.halfNegative));

  const Lanes up = _mm256_sub_epi32(rest, w.near);
  const Lanes down = _mm256_sub_epi32(restNegative, w.near);
  const Lanes predicted = Fixed(_mm256_add_epi32(far, w.near));
  w.most = _mm256_max_epi32(w.most, up);
  w.least = _mm256_min_epi32(w.least, down);
  q = SelectBySign(_mm256_min_epi32(_mm256_and_si256(up, e.mask), e.top),
                   _mm256_max_epi32(_mm256_and_si256(down, e.mask), e.bottom), up);
  Lanes sum = _mm256_add_epi32(predicted, q);
  if (kClamp) {
    sum = _mm256_min_epi32(sum, Set((1 << 26) - 1));
    sum = _mm256_max_epi32(sum, Set(-(1 << 26)));
  }
  const Lanes restored = _mm256_srai_epi32(sum, 11);
  w.near = _mm256_madd_epi16(restored, table.previous);
  w.far = w.next;
  w.next = _mm256_madd_epi16(restored, table.earlier);
  return restored;
}

template <bool kClamp>
inline void AddError(Walk& w, Lanes input, Lanes first, Lanes second, int* restored) {
  w.last = Pair(first, second);
  _mm256_store_si256(reinterpret_cast<Lanes*>(restored), w.last);
  Lanes difference = _mm256_subs_epi16(input, w.last);
  if (kClamp) {
    difference = _mm256_min_epi16(difference, _mm256_set1_epi16(kMaxError));
    difference = _mm256_max_epi16(difference, _mm256_set1_epi16(-kMaxError));
  }
  w.error = _mm256_add_epi32(w.error, _mm256_madd_epi16(difference, difference));
}

template <bool kClamp>
inline void TwoSteps(Walk& w, const Exponent& e, const Table& table, Lanes in0, Lanes in1,
                     Lanes both, Trace& trace, int m) {
  Lanes q0, q1;
  const Lanes first = Step<kClamp>(w, e, table, in0, q0);
  const Lanes second = Step<kClamp>(w, e, table, in1, q1);
  _mm256_store_si256(reinterpret_cast<Lanes*>(trace.quantum[m]),
                     _mm256_blend_epi16(_mm256_srli_epi32(q0, 11), _mm256_slli_epi32(q1, 5), 0xAA));
  AddError<kClamp>(w, both, first, second, trace.restored[m]);
}

template <bool kClamp>
inline void Passes(Walk& a, Walk& b, const Exponent& ea, const Exponent& eb, const Table& table,
                   const short* input, const int* scaled, Trace* trace) {
  for (int m = 0; m < kFrameSize / 2; ++m) {
    const Lanes in0 = Broadcast(scaled + 2 * m);
    const Lanes in1 = Broadcast(scaled + 2 * m + 1);
    const Lanes both = Broadcast(input + 2 * m);
    TwoSteps<kClamp>(a, ea, table, in0, in1, both, trace[0], m);
    TwoSteps<kClamp>(b, eb, table, in0, in1, both, trace[1], m);
  }
}

// What is kept of each row: the squared error with the row below it, whether no walk was accepted
// yet, where the trace is, D, the last two samples, and whether the error is a lower bound.
struct Best {
  Lanes key, open, slot, unit, last, inexact;
};

inline Lanes ClippedTooMuch(const Walk& w, const Exponent& e) {
  const Lanes nine = _mm256_sub_epi32(e.unit, e.bottom);
  return _mm256_or_si256(_mm256_cmpgt_epi32(w.most, _mm256_sub_epi32(nine, Set(1))),
                         _mm256_cmpgt_epi32(_mm256_sub_epi32(e.bottom, e.unit), w.least));
}

inline Lanes SkipsExponents(const Walk& w, const Exponent& e) {
  const Lanes limit = _mm256_slli_epi32(e.unit, 8);
  return _mm256_or_si256(
      _mm256_cmpgt_epi32(w.most, _mm256_sub_epi32(limit, Set(1))),
      _mm256_cmpgt_epi32(_mm256_sub_epi32(_mm256_setzero_si256(), limit), w.least));
}

inline Lanes MayLeaveRange(const Walk& w, const Exponent& e, Lanes room) {
  const Lanes over =
      _mm256_max_epi32(_mm256_sub_epi32(w.most, e.top), _mm256_sub_epi32(e.bottom, w.least));
  return _mm256_cmpgt_epi32(over, room);
}

// By how much the largest residuals passed the ends of the range, in steps of the unit.
inline Lanes Clipping(const Walk& w, const Exponent& e) {
  return _mm256_max_epi32(_mm256_sub_epi32(_mm256_and_si256(w.most, e.mask), e.top),
                          _mm256_sub_epi32(e.bottom, _mm256_and_si256(w.least, e.mask)));
}

// Heavy clipping skips exponents, up to the highest.
Lanes AfterClipping(Lanes eight, Lanes clipping) {
  alignas(32) int eights[8], clippings[8];
  _mm256_store_si256(reinterpret_cast<Lanes*>(eights), eight);
  _mm256_store_si256(reinterpret_cast<Lanes*>(clippings), clipping);
  for (int row = 0; row < 8; ++row) {
    const int unit = eights[row] / 8;
    eights[row] *= 2;
    for (int k = clippings[row] / unit + 8; k > 256 && eights[row] < 1 << 26; k >>= 1) {
      eights[row] *= 2;
    }
  }
  return _mm256_load_si256(reinterpret_cast<const Lanes*>(eights));
}

// Encodes the frame by every row. Without kClamp false where a restored sample may have left 16
// bits. `leaves` tells whether that is so.
template <bool kClamp>
inline bool EncodeRows(Lanes eight, const Walk& start, Lanes room, const Table& table,
                       const short* input, const int* scaled, Trace* trace, Best& best,
                       bool& leaves) {
  const Lanes highest = Set(2048 << 12);
  const Lanes rowNumber = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  best.open = Set(-1);
  leaves = false;
  for (int pass = 0;; ++pass, trace += 2) {
    const Exponent ea = MakeExponent(eight);
    const Exponent eb = MakeExponent(_mm256_add_epi32(eight, eight));
    leaves = leaves || Any(_mm256_cmpgt_epi32(eb.unit, room));
    if (!kClamp && leaves) return false;
    Walk a = start;
    a.error = _mm256_setzero_si256();
    Walk b = a;
    Passes<kClamp>(a, b, ea, eb, table, input, scaled, trace);
    const Lanes clippedA = ClippedTooMuch(a, ea);
    const Lanes clippedB = ClippedTooMuch(b, eb);
    const Lanes lastA = _mm256_cmpeq_epi32(ea.unit, highest);
    const Lanes lastB = _mm256_cmpeq_epi32(eb.unit, highest);
    const Lanes openA = _mm256_andnot_si256(lastA, clippedA);
    Lanes openB = _mm256_and_si256(openA, _mm256_andnot_si256(lastB, clippedB));
    leaves = leaves ||
             Any(_mm256_and_si256(
                 best.open, _mm256_or_si256(MayLeaveRange(a, ea, room),
                                            _mm256_and_si256(openA, MayLeaveRange(b, eb, room)))));
    if (!kClamp && leaves) return false;

    Lanes next = _mm256_slli_epi32(eight, 2);
    const Lanes skipA = _mm256_and_si256(openA, SkipsExponents(a, ea));
    const Lanes skipB = _mm256_and_si256(openB, SkipsExponents(b, eb));
    if (Any(_mm256_and_si256(_mm256_or_si256(skipA, skipB), best.open))) {
      openB = _mm256_or_si256(openB, skipA);
      next = AfterClipping(Select(_mm256_add_epi32(eight, eight), eight, skipA),
                           Select(Clipping(b, eb), Clipping(a, ea), skipA));
    }
    Best found;
    found.key = Select(a.error, b.error, openA);
    found.key = _mm256_or_si256(_mm256_slli_epi32(found.key, 3), rowNumber);
    found.slot = _mm256_sub_epi32(Set(2 * pass), openA);
    found.last = Select(a.last, b.last, openA);
    found.unit = Select(ea.unit, eb.unit, openA);
    found.inexact =
        Select(_mm256_and_si256(clippedA, lastA), _mm256_and_si256(clippedB, lastB), openA);
    found.open = openB;
    if (pass == 0) {
      best = found;
    } else {
      best.key = Select(best.key, found.key, best.open);
      best.slot = Select(best.slot, found.slot, best.open);
      best.last = Select(best.last, found.last, best.open);
      best.unit = Select(best.unit, found.unit, best.open);
      best.inexact = Select(best.inexact, found.inexact, best.open);
      best.open = _mm256_and_si256(best.open, openB);
    }
    if (!Any(best.open)) return true;
    // Lanes that are done go on beside the others, at exponents that stay in range.
    eight = Select(eight, next, best.open);
  }
}

// Smallest of the 8 lanes, in all of them
inline Lanes Smallest(Lanes v) {
  v = _mm256_min_epu32(v, _mm256_permute4x64_epi64(v, 0x4E));
  v = _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0x4E));
  return _mm256_min_epu32(v, _mm256_shuffle_epi32(v, 0xB1));
}

struct OpenLoop {
  Lanes most, least;
};

// Times 2048, with bits below that do not count. The division rounds toward zero: up where the
// prediction is subtracted and positive.
inline Lanes OpenLoopResidual(Lanes in, Lanes predicted) {
  const Lanes x = _mm256_sub_epi32(in, predicted);
  return SelectBySign(_mm256_add_epi32(x, Set(2047)), x, predicted);
}

inline void Include(OpenLoop& o, Lanes residual) {
  o.most = _mm256_max_epi32(o.most, residual);
  o.least = _mm256_min_epi32(o.least, residual);
}

// By sums of 64 bits.
int ExactBest(const Trace* trace, const int* slots, const short* input) {
  int best = 0;
  long long least = 0;
  for (int row = 0; row < 8; ++row) {
    long long error = 0;
    for (int m = 0; m < kFrameSize; ++m) {
      short restored;
      __builtin_memcpy(
          &restored,
          reinterpret_cast<const short*>(&trace[slots[row]].restored[m / 2][row]) + m % 2, 2);
      const long long e = input[m] - restored;
      error += e * e;
    }
    if (row == 0 || error < least) {
      least = error;
      best = row;
    }
  }
  return best;
}

// What the input alone tells of a frame.
struct Input {
  alignas(32) int scaled[16];
  OpenLoop openLoop;  // but of the first two samples
  Lanes second;
  Lanes room;
  bool quiet;
};

inline bool IsLoud(const OpenLoop& o) {
  return Any(_mm256_or_si256(_mm256_cmpgt_epi32(o.most, Set(16 * 2048 - 1)),
                             _mm256_cmpgt_epi32(Set(-17 * 2048), o.least)));
}

inline void Prepare(const short* input, const Table& table, Input& frame) {
  const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input));
  const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i*>(input + 6));
  _mm256_storeu_si256(reinterpret_cast<Lanes*>(frame.scaled),
                      _mm256_slli_epi32(_mm256_cvtepi16_epi32(front), 11));
  _mm256_storeu_si256(reinterpret_cast<Lanes*>(frame.scaled + 6),
                      _mm256_slli_epi32(_mm256_cvtepi16_epi32(back), 11));
  const __m128i loudest = _mm_minpos_epu16(
      _mm_xor_si128(_mm_max_epu16(_mm_abs_epi16(front), _mm_abs_epi16(back)), _mm_set1_epi16(-1)));
  const int peak = 0xFFFF - (_mm_cvtsi128_si32(loudest) & 0xFFFF);
  const int headroom = (32766 - peak) * 2048;
  frame.room = Set(headroom < 4095 * 2048 ? headroom : 4095 * 2048);
  frame.openLoop = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  for (int t = 2; t < kFrameSize; ++t) {
    Include(frame.openLoop,
            OpenLoopResidual(Broadcast(frame.scaled + t),
                             _mm256_madd_epi16(Broadcast(input + t - 2), table.pair)));
  }
  frame.second = _mm256_madd_epi16(Set(input[0]), table.previous);
  frame.quiet = headroom >= 0 &&
                !Any(_mm256_or_si256(_mm256_cmpgt_epi32(frame.openLoop.most, Set(7 * 2048)),
                                     _mm256_cmpgt_epi32(Set(-8 * 2048), frame.openLoop.least)));
}

inline Lanes Start(const short* input, const Table& table, Lanes history, const Input& frame,
                   Walk& start) {
  const Lanes zero = _mm256_setzero_si256();
  start.near = Fixed(_mm256_madd_epi16(history, table.pair));
  start.far = zero;
  start.next = Fixed(_mm256_madd_epi16(history, table.earlierOfHigh));
  start.most = start.least = start.last = start.error = zero;
  const Lanes second =
      OpenLoopResidual(Broadcast(frame.scaled + 1), _mm256_add_epi32(frame.second, start.next));
  const Lanes first = OpenLoopResidual(Broadcast(frame.scaled), start.near);
  OpenLoop o = frame.openLoop;
  Include(o, second);
  Include(o, first);
  const Lanes positive = _mm256_and_si256(o.most, Set(-2048));
  const Lanes negative = _mm256_sub_epi32(zero, _mm256_and_si256(o.least, Set(-2048)));
  const Lanes bits = _mm256_castps_si256(_mm256_cvtepi32_ps(_mm256_max_epi32(positive, negative)));
  Lanes sign = _mm256_cmpgt_epi32(negative, positive);
  const Lanes unclear =
      _mm256_and_si256(_mm256_and_si256(_mm256_cmpeq_epi32(negative, positive),
                                        _mm256_cmpgt_epi32(negative, Set(16 * 2048 - 1))),
                       _mm256_cmpeq_epi32(_mm256_and_si256(bits, Set(0x700000)), zero));
  if (__builtin_expect(Any(unclear), 0)) {
    Lanes largest = zero;
    for (int t = 0; t < kFrameSize; ++t) {
      const Lanes residual =
          t == 0   ? first
          : t == 1 ? second
                   : OpenLoopResidual(Broadcast(frame.scaled + t),
                                      _mm256_madd_epi16(Broadcast(input + t - 2), table.pair));
      const Lanes whole = _mm256_and_si256(residual, Set(-2048));
      largest = Select(largest, whole,
                       _mm256_cmpgt_epi32(_mm256_abs_epi32(whole), _mm256_abs_epi32(largest)));
    }
    sign = _mm256_srai_epi32(largest, 31);
  }
  const Lanes power = _mm256_and_si256(
      _mm256_sub_epi32(bits, _mm256_and_si256(sign, Set(0x100000))), Set(0x7F800000));
  const Lanes bounded =
      _mm256_min_epi32(_mm256_max_epi32(power, Set((127 + 14) << 23)), Set((127 + 25) << 23));
  return _mm256_cvttps_epi32(_mm256_castsi256_ps(bounded));
}

struct QuietTrace {
  alignas(32) int scaledResidual[kFrameSize / 2][8];
};

struct Quiet {
  Lanes near, far, next, changed, most, least;
};

// near, far: what the errors of the two samples before contribute
inline Lanes QuietStep(Quiet& w, const Table& table, Lanes open, Lanes& x) {
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

inline Lanes QuietOpen(const Input& frame, const short* input, const Table& table, int t) {
  return _mm256_sub_epi32(Broadcast(frame.scaled + t),
                          _mm256_madd_epi16(Broadcast(input + t - 2), table.pair));
}

inline bool EncodeQuiet(const Walk& start, const Input& frame, const short* input,
                        const Table& table, QuietTrace& trace, Lanes& key, Lanes& last) {
  const Lanes zero = _mm256_setzero_si256();
  Quiet w = {zero, zero, zero, zero, zero, zero};
  const Lanes first = _mm256_sub_epi32(Broadcast(frame.scaled), start.near);
  const Lanes secondPrediction = _mm256_add_epi32(frame.second, start.next);
  const Lanes second = _mm256_sub_epi32(Broadcast(frame.scaled + 1), secondPrediction);
  Lanes before, off;
  for (int m = 0; m < kFrameSize / 2; ++m) {
    const Lanes open0 = m == 0 ? first : QuietOpen(frame, input, table, 2 * m);
    const Lanes open1 = m == 0 ? second : QuietOpen(frame, input, table, 2 * m + 1);
    Lanes x0, x1;
    before = QuietStep(w, table, open0, x0);
    off = QuietStep(w, table, open1, x1);
    _mm256_store_si256(reinterpret_cast<Lanes*>(trace.scaledResidual[m]), Pair(x0, x1));
  }
  OpenLoop o = frame.openLoop;
  Include(o, OpenLoopResidual(Broadcast(frame.scaled), start.near));
  Include(o, OpenLoopResidual(Broadcast(frame.scaled + 1), secondPrediction));
  if (IsLoud(o) || Any(_mm256_or_si256(_mm256_cmpgt_epi32(w.most, Set(8 * 2048 - 1)),
                                       _mm256_cmpgt_epi32(Set(1 - 9 * 2048), w.least)))) {
    return false;
  }
  key = Smallest(
      _mm256_or_si256(_mm256_slli_epi32(w.changed, 3), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
  const Lanes errors = Pair(before, off);
  last = _mm256_sub_epi16(Broadcast(input + 12), _mm256_permutevar8x32_epi32(errors, key));
  return true;
}

// The 14 samples of one lane.
inline Lanes Gather(const int (*pairs)[8], int row) {
  const __m128i low = _mm_setr_epi32(pairs[0][row], pairs[1][row], pairs[2][row], pairs[3][row]);
  const __m128i high = _mm_setr_epi32(pairs[4][row], pairs[5][row], pairs[6][row], 0);
  return _mm256_set_m128i(high, low);
}

// Header and residuals
inline void StoreFrame(int header, Lanes residuals, qz::uchar* frame) {
  const Lanes nibbles = _mm256_and_si256(residuals, _mm256_set1_epi16(15));
  const Lanes bytes = _mm256_madd_epi16(nibbles, Set(1 << 16 | 16));
  const __m128i words =
      _mm_packs_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
  const long long packed = _mm_cvtsi128_si64(_mm_packus_epi16(words, words));
  const unsigned long long whole =
      static_cast<unsigned long long>(packed) << 8 | static_cast<unsigned>(header);
  __builtin_memcpy(frame, &whole, 8);
}

inline void WriteOutQuiet(const QuietTrace& trace, int row, short* input, qz::uchar* frame) {
  const Lanes x = Gather(trace.scaledResidual, row);
  const Lanes towardZero = _mm256_add_epi16(x, _mm256_srli_epi16(_mm256_srai_epi16(x, 15), 5));
  const Lanes q = _mm256_srai_epi16(towardZero, 11);
  const Lanes rest = _mm256_sub_epi16(x, _mm256_slli_epi16(q, 11));
  const Lanes error = _mm256_srai_epi16(_mm256_add_epi16(rest, _mm256_set1_epi16(1023)), 11);
  const __m128i low = _mm_sub_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(input)),
                                    _mm256_castsi256_si128(error));
  const __m128i high = _mm_sub_epi16(
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(input + 6)),
      _mm_alignr_epi8(_mm256_extracti128_si256(error, 1), _mm256_castsi256_si128(error), 12));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(input), low);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(input + 6), high);
  StoreFrame(row * 16, q, frame);
}

struct Winner {
  alignas(32) int slots[8], units[8];
  int row;
};

inline void WriteOut(const Trace* trace, const Winner& w, short* input, qz::uchar* frames) {
  const int row = w.row;
  const Trace& t = trace[w.slots[row]];
  const int shift = __builtin_ctz(static_cast<unsigned>(w.units[row]));
  for (int m = 0; m < kFrameSize / 2; ++m)
    __builtin_memcpy(input + 2 * m, &t.restored[m][row], 4);
  const Lanes q = _mm256_sra_epi16(Gather(t.quantum, row), _mm_cvtsi32_si128(shift - 11));
  StoreFrame(row * 16 + shift - 11, q, frames);
}

}  // namespace

void EncodeFramesAvx2(short* samples, std::size_t count, qz::uchar* frames, const short* coefs) {
  alignas(32) Trace trace[2 * kMaxPasses];
  Input inputs[2];
  Table table;
  // rows: low half c0 (previous), high half c1
  const Lanes rows = _mm256_loadu_si256(reinterpret_cast<const Lanes*>(coefs));
  // pairs in memory: the earlier sample in the low half
  table.pair = _mm256_or_si256(_mm256_srli_epi32(rows, 16), _mm256_slli_epi32(rows, 16));
  table.previous = _mm256_and_si256(rows, Set(0xFFFF));
  table.earlier = _mm256_srli_epi32(rows, 16);
  table.earlierOfHigh = _mm256_slli_epi32(table.earlier, 16);

  const Lanes zero = _mm256_setzero_si256();
  table.plus[0] = _mm256_srai_epi32(_mm256_slli_epi32(rows, 16), 16);
  table.plus[1] = _mm256_srai_epi32(rows, 16);
  for (int k = 0; k < 2; ++k)
    table.minus[k] = _mm256_sub_epi32(zero, table.plus[k]);

  QuietTrace quietTrace;
  bool quiet = false;
  Lanes history = Broadcast(samples);
  short* input = samples + 2;
  Prepare(input, table, inputs[0]);
  Winner winner;
  bool pending = false;
  bool loud = false;
  for (std::size_t i = 0; i < count; ++i, input += kFrameSize, frames += 8) {
    Walk start;
    const Input& frame = inputs[i % 2];
    const Lanes eight = Start(input, table, history, frame, start);
    if (quiet) WriteOutQuiet(quietTrace, winner.row, input - kFrameSize, frames - 8);
    if (pending) WriteOut(trace, winner, input - kFrameSize, frames - 8);
    if (i + 1 < count) Prepare(input + kFrameSize, table, inputs[(i + 1) % 2]);

    quiet = false;
    pending = false;
    if (frame.quiet) {
      Lanes key;
      Lanes last;
      quiet = EncodeQuiet(start, frame, input, table, quietTrace, key, last);
      if (quiet) {
        history = last;
        winner.row = _mm256_cvtsi256_si32(key) & 7;
        continue;
      }
    }

    Best best = {zero, zero, zero, zero, zero, zero};
    bool leaves = loud;
    if (loud || !EncodeRows<false>(eight, start, frame.room, table, input, frame.scaled, trace,
                                   best, leaves)) {
      EncodeRows<true>(eight, start, frame.room, table, input, frame.scaled, trace, best, leaves);
    }
    loud = leaves;
    pending = true;
    const Lanes key = Smallest(best.key);
    history = _mm256_permutevar8x32_epi32(best.last, key);
    winner.row = _mm256_cvtsi256_si32(key) & 7;
    alignas(32) int inexact[8];
    _mm256_store_si256(reinterpret_cast<Lanes*>(winner.slots), best.slot);
    _mm256_store_si256(reinterpret_cast<Lanes*>(winner.units), best.unit);
    _mm256_store_si256(reinterpret_cast<Lanes*>(inexact), best.inexact);
    if (inexact[winner.row] != 0) {
      winner.row = ExactBest(trace, winner.slots, input);
      history = Set(trace[winner.slots[winner.row]].restored[6][winner.row]);
    }
  }
  if (quiet) WriteOutQuiet(quietTrace, winner.row, input - kFrameSize, frames - 8);
  if (pending) WriteOut(trace, winner, input - kFrameSize, frames - 8);
}

}  // namespace adpcm
#endif
