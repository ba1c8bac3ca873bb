// The frame encoder in the compiler's own vectors, for every processor that has 16-byte ones.
//
// The 8 table rows are the lanes, 4 in each of two vectors: 32-byte vectors would be taken apart
// badly where the processor has none. Each lane is at an exponent of its own and everything
// happens in whole numbers. With x = in * 2048 - prediction and D = 2048 << exponent,
//
//   |residual| * D = (|x| + half) & ~(D - 1),  half = ((2^exponent - 1) / 2) * 2048
//
// is the scalar code's rounding: |x| / 2048 is cut to a whole number, so adding a whole number of
// 2048s first changes nothing, and the bits below D are what the division by 2^exponent drops. The
// half is that of an odd number, so exact halves go down, toward zero.
//
// A lane whose pass was accepted repeats it, and with it the result, until all lanes are done.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "adpcm/adpcm.h"
#include "adpcm/frame_kernels.h"
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr int kRows = static_cast<int>(kTableRows);
constexpr int kLanes = 4;
constexpr int kHalves = kRows / kLanes;
constexpr int kMaxExponent = 12;

using Lanes = int __attribute__((vector_size(16)));
using Unsigned = unsigned __attribute__((vector_size(16)));

Lanes All(int value) {
  return Lanes{} + value;
}

Lanes Select(Lanes mask, Lanes yes, Lanes no) {
  return (mask & yes) | (~mask & no);
}

Lanes Min(Lanes a, Lanes b) {
  return Select(a < b, a, b);
}

Lanes Max(Lanes a, Lanes b) {
  return Select(a > b, a, b);
}

Lanes Load(const int* values) {
  Lanes lanes;
  std::memcpy(&lanes, values, sizeof lanes);
  return lanes;
}

void Store(int* values, Lanes lanes) {
  std::memcpy(values, &lanes, sizeof lanes);
}

// Four rows of the table, and the prediction from two samples of 16 bits each.
#if defined(__SSE2__)
struct Predictor {
  Lanes pair;  // previous in the low half of a lane, earlier in the high one

  Predictor(const int* previous, const int* earlier) : pair(Join(Load(previous), Load(earlier))) {}
  static Lanes Join(Lanes low, Lanes high) { return (low & 0xFFFF) | (high << 16); }
  Lanes operator()(Lanes previous, Lanes earlier) const {
    return reinterpret_cast<Lanes>(_mm_madd_epi16(
        reinterpret_cast<__m128i>(Join(previous, earlier)), reinterpret_cast<__m128i>(pair)));
  }
};
#else
struct Predictor {
  Lanes c0, c1;

  Predictor(const int* previous, const int* earlier) : c0(Load(previous)), c1(Load(earlier)) {}
  Lanes operator()(Lanes previous, Lanes earlier) const { return previous * c0 + earlier * c1; }
};
#endif

// What a pass makes of the frame, by row.
struct Trace {
  int restored[kFrameSize][kRows];
  int quantum[kFrameSize][kRows];         // times D
  int errorLow[kRows], errorHigh[kRows];  // of the squared errors: bits 0 to 15, and those above
  int most[kRows];                        // the largest |residual| before clipping, that of -9 as 8
};

// The residual of largest magnitude when the input predicts itself, the first among equals.
Lanes LargestOpenLoopResidual(const int* in, const Predictor& predict) {
  Lanes largest = {};
  Lanes magnitude = {};
  for (int j = 0; j < kFrameSize; ++j) {
    const Lanes predicted = predict(All(in[j + 1]), All(in[j]));
    const Lanes towardZero = (predicted + ((predicted >> 31) & 2047)) >> 11;
    const Lanes residual = Max(Min(in[j + 2] - towardZero, All(32767)), All(-32768));
    const Lanes absolute = Max(residual, -residual);
    const Lanes larger = absolute > magnitude;
    largest = Select(larger, residual, largest);
    magnitude = Select(larger, absolute, magnitude);
  }
  return largest;
}

// One below the exponent at which the residual would fit.
int FirstExponent(int residual) {
  // Halving goes toward zero, so 15 and -17 are the last that one halving brings to 7 and -8.
  const auto magnitude = static_cast<unsigned>(residual < 0 ? -residual : residual);
  int halvings = static_cast<int>(std::bit_width(magnitude >> 3));
  if (residual < 0 && halvings > 0 && magnitude < 9u << (halvings - 1)) --halvings;
  return halvings > 0 ? halvings - 1 : 0;
}

// One pass over the frame by four rows, each at the exponent of its `unit` D.
struct Pass {
  Lanes unit, mask, half, top;
  Lanes previous, earlier;
  Lanes errorLow = {}, errorHigh = {}, most = {};

  Pass(Lanes d, const int* in)
      : unit(d),
        mask(-d),
        half(Max((d >> 1) - 2048, Lanes{})),
        top(8 * d - d),
        previous(All(in[1])),
        earlier(All(in[0])) {}

  void Step(const Predictor& predict, int in, int* restored, int* quantum) {
    const Lanes predicted = predict(previous, earlier);
    const Lanes x = in * 2048 - predicted;
    const Lanes sign = x >> 31;
    const Lanes extra = unit & sign;  // one more step below zero
    const Lanes rounded = (((x ^ sign) - sign) + half) & mask;
    most = Max(most, rounded - extra);
    const Lanes clipped = Min(rounded, top + extra);
    const Lanes q = (clipped ^ sign) - sign;
    const Lanes sum = (predicted + q + 1024) >> 11;
    const Lanes sample = Max(Min(sum, All(32767)), All(-32768));
    earlier = previous;
    previous = sample;
    // Up to 65535 in magnitude: the square fits 32 bits without sign, the sum does not.
    const auto error = reinterpret_cast<Unsigned>(in - sample);
    const Unsigned square = error * error;
    errorLow += reinterpret_cast<Lanes>(square & 0xFFFF);
    errorHigh += reinterpret_cast<Lanes>(square >> 16);
    Store(restored, sample);
    Store(quantum, q);
  }
};

void RunPass(const Predictor* predict, const int* units, const int* in, Trace& trace) {
  Pass low(Load(units), in);
  Pass high(Load(units + kLanes), in);
  for (int j = 0; j < kFrameSize; ++j) {
    low.Step(predict[0], in[j + 2], trace.restored[j], trace.quantum[j]);
    high.Step(predict[1], in[j + 2], trace.restored[j] + kLanes, trace.quantum[j] + kLanes);
  }
  Store(trace.errorLow, low.errorLow);
  Store(trace.errorLow + kLanes, high.errorLow);
  Store(trace.errorHigh, low.errorHigh);
  Store(trace.errorHigh + kLanes, high.errorHigh);
  Store(trace.most, low.most);
  Store(trace.most + kLanes, high.most);
}

// Moves the rows whose pass is not accepted on to their next exponent. False when there is none.
bool NextExponents(const Trace& trace, int* exponents, int* units) {
  bool any = false;
  for (int row = 0; row < kRows; ++row) {
    const int clip = (trace.most[row] >> (exponents[row] + 11)) - 7;
    if (clip <= 1 || exponents[row] >= kMaxExponent) continue;
    ++exponents[row];
    // Heavy clipping skips exponents, up to the highest.
    for (int k = clip + 8; k > 256 && exponents[row] < kMaxExponent; k >>= 1)
      ++exponents[row];
    units[row] = 2048 << exponents[row];
    any = true;
  }
  return any;
}

int BestRow(const Trace& trace) {
  int best = 0;
  std::int64_t least = 0;
  for (int row = 0; row < kRows; ++row) {
    const std::int64_t error = std::int64_t{trace.errorHigh[row]} * 65536 + trace.errorLow[row];
    if (row == 0 || error < least) {
      least = error;
      best = row;
    }
  }
  return best;
}

void EncodeFrame(short* samples, qz::uchar* frame, const Predictor* predict) {
  int in[kFrameSize + 2];
  for (int j = 0; j < kFrameSize + 2; ++j)
    in[j] = samples[j];
  int exponents[kRows];
  int units[kRows];
  for (int i = 0; i < kHalves; ++i)
    Store(exponents + i * kLanes, LargestOpenLoopResidual(in, predict[i]));
  for (int row = 0; row < kRows; ++row) {
    exponents[row] = FirstExponent(exponents[row]);
    units[row] = 2048 << exponents[row];
  }

  Trace trace;
  do {
    RunPass(predict, units, in, trace);
  } while (NextExponents(trace, exponents, units));

  const int row = BestRow(trace);
  const int shift = exponents[row] + 11;
  for (int j = 0; j < kFrameSize; ++j)
    samples[j + 2] = static_cast<short>(trace.restored[j][row]);
  frame[0] = static_cast<qz::uchar>(row * 16 | exponents[row]);
  for (int m = 0; m < kFrameSize / 2; ++m) {
    const int first = trace.quantum[2 * m][row] >> shift;
    const int second = trace.quantum[2 * m + 1][row] >> shift;
    frame[1 + m] = static_cast<qz::uchar>((first & 15) * 16 | (second & 15));
  }
}

}  // namespace

void EncodeFramesPortable(short* samples, std::size_t count, qz::uchar* frames,
                          const short* table) {
  int previous[kRows];
  int earlier[kRows];
  for (int row = 0; row < kRows; ++row) {
    previous[row] = table[2 * row];
    earlier[row] = table[2 * row + 1];
  }
  const Predictor predict[kHalves] = {Predictor(previous, earlier),
                                      Predictor(previous + kLanes, earlier + kLanes)};
  for (std::size_t i = 0; i < count; ++i)
    EncodeFrame(samples + i * kSamplesPerFrame, frames + i * kBytesPerFrame, predict);
}

}  // namespace adpcm
