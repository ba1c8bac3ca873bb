// The design kernels in the compiler's vectors of 16 bytes, for any processor: 2 lanes of doubles,
// and the sums of sample products in 64-bit integers.
#include "adpcm/design_kernels.h"

namespace adpcm {
namespace {

using Doubles = double __attribute__((vector_size(16)));
using Pair = Doubles;
using Mask = decltype(Doubles{} < Doubles{});
constexpr int kLanes = 2;
struct Correlations;

void Deinterleave(const TrainingRow* rows, Doubles& r1, Doubles& r2) {
  r1 = Doubles{rows[0].r1, rows[1].r1};
  r2 = Doubles{rows[0].r2, rows[1].r2};
}

int Bits(Mask mask) {
  return static_cast<int>((mask[0] & 1) | (mask[1] & 2));
}

Mask InOrder(Mask mask) {
  return mask;
}

void Interleave(Doubles r1, Doubles r2, Pair* pairs) {
  pairs[0] = Pair{r1[0], r2[0]};
  pairs[1] = Pair{r1[1], r2[1]};
}

Doubles Repeat(const TrainingRow& row) {
  return Doubles{row.r1, row.r2};
}

void Correlate(const short* samples, Correlations& block, int frame);

}  // namespace
}  // namespace adpcm

#include "adpcm/design_lanes.inc"

namespace adpcm {
namespace {

void Correlate(const short* samples, Correlations& block, int frame) {
  for (int end = frame + kDesignGroup; frame < end; ++frame, samples += kSamplesPerFrame) {
    const auto product = [samples](int i, int j) { return qz::int64{samples[i]} * samples[j]; };
    qz::int64 energy = 0, lag1 = 0, lag2 = 0;
    for (int n = 0; n < static_cast<int>(kSamplesPerFrame); ++n) {
      energy += product(n, n);
      lag1 += product(n, n - 1);
      lag2 += product(n, n - 2);
    }
    // The sums one and two samples earlier: a product more in front, one less behind.
    const qz::int64 before = energy + product(-1, -1) - product(13, 13);
    block.c00[frame] = static_cast<double>(energy);
    block.c01[frame] = static_cast<double>(lag1);
    block.c02[frame] = static_cast<double>(lag2);
    block.c11[frame] = static_cast<double>(before);
    block.c22[frame] = static_cast<double>(before + product(-2, -2) - product(12, 12));
    block.c12[frame] = static_cast<double>(lag1 + product(-1, -2) - product(13, 12));
  }
}

}  // namespace

const DesignKernels kDesignPortable = {Collect, AssignRows};

}  // namespace adpcm
