// The frame encoder in the compiler's own vectors.
//
// The 8 table rows are the lanes, 4 in each of two vectors. Each lane is at an exponent of its own
// and everything happens in whole numbers. With x = in * 2048 - prediction and D = 2048 <<
// exponent,
//
//   residual * D = (x + half) & -D               for x of 0 and more,
//   residual * D = (x + half + below) & -D       below it,
//
// with half = ((2^exponent - 1) / 2) * 2048 and below = min(D, 4096) - 1, is the scalar code's
// rounding. Upwards, x / 2048 is cut to a whole number, to which whole 2048s may be added first,
// and the bits below D are what the division by 2^exponent drops; the half is that of an odd
// number, so exact halves go down. Below zero everything is mirrored, and to cut toward zero is to
// add D - 1 - 2 * half before it. Where only x + half is not negative both give 0.
//
// A lane whose pass was accepted repeats it, and with it the result, until all lanes are done.
#include <bit>
#include <cstddef>
#include <cstdint>

#include "adpcm/adpcm.h"
#include "adpcm/frame_kernels.h"
#include "adpcm/portable_lanes.h"

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr int kRows = static_cast<int>(kTableRows);
constexpr int kHalves = kRows / kLanes;
constexpr int kMaxExponent = 12;

// What passes make of the frame, by row.
struct Trace {
  int restored[kFrameSize][kRows];
  int quantum[kFrameSize][kRows];  // times D
  int error[kRows];                // squared, where the clipping is at most 1
  int clip[kRows];                 // the largest clipping, times D
};

// The largest open-loop residual and the smallest, at least and at most 0.
struct Extremes {
  int most[kRows], least[kRows];
};

// The division of the prediction rounds toward zero, where the closed loop's shift rounds down.
void FindExtremes(const int* in, const Predictor& predictor, int first, Extremes& extremes) {
  Lanes most = {};
  Lanes least = {};
  for (int j = 0; j < kFrameSize; ++j) {
    const Lanes predicted = History(in[j + 1], in[j]).Predict(predictor);
    const Lanes towardZero = (predicted + ((predicted >> 31) & 2047)) >> 11;
    const Lanes residual = in[j + 2] - towardZero;
    most = Max(most, residual);
    least = Min(least, residual);
  }
  Store(extremes.most + first, Min(most, All(32767)));
  Store(extremes.least + first, Max(least, All(-32768)));
}

// One below the exponent at which the residual would fit.
int FirstExponent(int residual) {
  // Halving goes toward zero, so 15 and -17 are the last that one halving brings to 7 and -8.
  const auto magnitude = static_cast<unsigned>(residual < 0 ? -residual : residual);
  int halvings = static_cast<int>(std::bit_width(magnitude >> 3));
  if (residual < 0 && halvings > 0 && magnitude < 9u << (halvings - 1)) --halvings;
  return halvings > 0 ? halvings - 1 : 0;
}

// Whether the residual of magnitude `largest`, which the row has with both signs, comes first with
// the negative one.
bool NegativeComesFirst(const int* in, int c0, int c1, int largest) {
  for (int j = 0; j < kFrameSize; ++j) {
    const int residual = in[j + 2] - (in[j + 1] * c0 + in[j] * c1) / 2048;
    if (residual >= largest) return false;
    if (residual <= -largest) return true;
  }
  return false;
}

// The largest residual decides, the first among equals.
void FirstExponents(const int* in, const Extremes& extremes, const short* table, int* exponents) {
  for (int row = 0; row < kRows; ++row) {
    const int most = extremes.most[row];
    const int least = extremes.least[row];
    bool negative = -least > most;
    if (-least == most && FirstExponent(most) != FirstExponent(least)) {
      negative = NegativeComesFirst(in, table[2 * row], table[2 * row + 1], most);
    }
    exponents[row] = FirstExponent(negative ? least : most);
  }
}

// A pass over the frame by four rows, each at the exponent of its `unit` D.
struct Pass {
  Lanes unit, mask, half, halfBelow, top, bottom;
  History history;
  Lanes error = {}, most = {}, least = {};

  Pass(Lanes d, const int* in)
      : unit(d),
        mask(-d),
        half(Max((d >> 1) - 2048, Lanes{})),
        halfBelow(half + Min(d, All(4096)) - 1),
        top(8 * d - d),
        bottom(-8 * d),
        history(in[1], in[0]) {}

  void Step(const Predictor& predictor, int in, int* restored, int* quantum) {
    const Lanes predicted = history.Predict(predictor);
    const Lanes up = (in * 2048 + half) - predicted;
    const Lanes down = (in * 2048 + halfBelow) - predicted;
    most = Max(most, up);
    least = Min(least, down);
    const Lanes q = Select(up >> 31, Max(down & mask, bottom), Min(up & mask, top));
    const Lanes sample = history.Push((predicted + 1024 + q) >> 11);
    const Lanes e = in - sample;
    error += Product(e, e);
    Store(restored, sample);
    Store(quantum, q);
  }

  void Finish(int first, Trace& trace) const {
    Store(trace.error + first, error);
    Store(trace.clip + first, Max((most & mask) - top, bottom - (least & mask)));
  }
};

void RunPass(const Predictor* predictor, const int* units, const int* in, Trace& trace) {
  Pass low(Load(units), in);
  Pass high(Load(units + kLanes), in);
  for (int j = 0; j < kFrameSize; ++j) {
    low.Step(predictor[0], in[j + 2], trace.restored[j], trace.quantum[j]);
    high.Step(predictor[1], in[j + 2], trace.restored[j] + kLanes, trace.quantum[j] + kLanes);
  }
  low.Finish(0, trace);
  high.Finish(kLanes, trace);
}

// Moves the rows whose pass is not accepted on to their next exponent. False when there is none.
bool NextExponents(const Trace& trace, int* exponents, int* units) {
  bool any = false;
  for (int row = 0; row < kRows; ++row) {
    const int clip = trace.clip[row] >> (exponents[row] + 11);
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

// The squared error of a row that 32 bits may not hold.
std::int64_t ExactError(const Trace& trace, int row, const int* in) {
  std::int64_t error = 0;
  for (int j = 0; j < kFrameSize; ++j) {
    const std::int64_t e = in[j + 2] - trace.restored[j][row];
    error += e * e;
  }
  return error;
}

int BestRow(const Trace& trace, const int* units, const int* in) {
  int best = 0;
  std::int64_t least = 0;
  for (int row = 0; row < kRows; ++row) {
    // A clipping of one step leaves at most 1.5 steps and a bit: 6146 at the highest exponent.
    const bool fits = trace.clip[row] <= units[row];
    const std::int64_t error = fits ? trace.error[row] : ExactError(trace, row, in);
    if (row == 0 || error < least) {
      least = error;
      best = row;
    }
  }
  return best;
}

void EncodeFrame(short* samples, qz::uchar* frame, const Predictor* predictor, const short* table) {
  int in[kFrameSize + 2];
  for (int j = 0; j < kFrameSize + 2; ++j)
    in[j] = samples[j];
  Extremes extremes;
  for (int i = 0; i < kHalves; ++i)
    FindExtremes(in, predictor[i], i * kLanes, extremes);
  int exponents[kRows];
  int units[kRows];
  FirstExponents(in, extremes, table, exponents);
  for (int row = 0; row < kRows; ++row)
    units[row] = 2048 << exponents[row];

  Trace trace;
  do {
    RunPass(predictor, units, in, trace);
  } while (NextExponents(trace, exponents, units));

  const int row = BestRow(trace, units, in);
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
  const Predictor predictor[kHalves] = {Predictor(previous, earlier),
                                        Predictor(previous + kLanes, earlier + kLanes)};
  for (std::size_t i = 0; i < count; ++i)
    EncodeFrame(samples + i * kSamplesPerFrame, frames + i * kBytesPerFrame, predictor, table);
}

}  // namespace adpcm
