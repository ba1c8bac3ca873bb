// The arithmetic of the design kernels, for any number of lanes. Only the kernel files include
// this, each in its own width; all of it has internal linkage, so that no copy made for a wide
// instruction set serves anyone else. Of the including file it wants:
//
//   kLanes, Doubles, Mask     lanes of a register, vectors of so many doubles and 64-bit integers
//   Correlate                 the sums of sample products of a group
//   kLaneOf[], Deinterleave   kLanes training rows as vectors of r1 and r2, row i in lane
//   kLaneOf[i] Interleave                the reverse, lane i to pair i Repeat                    a
//   training row in all places of a vector
//
// Why the bits are the scalar's:
// - A product of two samples and a sum of 14 such are integers far below 2^53: exact in any order
//   and in any representation. Everything else keeps the scalar's operands and order per lane;
//   vector division, multiplication and addition round as the scalar ones do.
// - The equations are solved for the negated taps: rounding to nearest is symmetric, so each
//   intermediate is the scalar's with the other sign. Tests of magnitude do not see it, and a zero
//   of the wrong sign gets lost in the sums that give r1 and r2, which start at +0.0.
// - The scalar tests for rows and pivots of 0 early. A lane goes on with infinities and NaN
//   instead, until the spread of the pivots, judged by a comparison that NaN fails, turns it away.
// - The sum of a cell starts at +0.0, so it is never -0.0, and adding +0.0 for the training rows of
//   the other cells changes no bit.
#include "adpcm/codebook.h"
#include "adpcm/design.h"
#include "adpcm/design_kernels.h"
#include "adpcm/estimate.h"

namespace adpcm {
namespace {

// The steps from samples to predictors hang on each other through eight divisions; a block of
// frames goes through them together so that the processor has several to work on.
constexpr int kBlockFrames = 8 * kDesignGroup;

// Sums of in[n - i] * in[n - j] over the 14 samples of a frame, for each frame of a block.
struct Correlations {
  alignas(sizeof(Doubles)) double c00[kBlockFrames], c01[kBlockFrames], c02[kBlockFrames];
  alignas(sizeof(Doubles)) double c11[kBlockFrames], c12[kBlockFrames], c22[kBlockFrames];
};

Doubles Splat(double value) {
  return value - Doubles{};
}

Doubles Load(const double* values) {
  Doubles result;
  __builtin_memcpy(&result, values, sizeof result);
  return result;
}

Doubles Masked(Doubles values, Mask mask) {
  return reinterpret_cast<Doubles>(reinterpret_cast<Mask>(values) & mask);
}

Doubles Magnitude(Doubles values) {
  return reinterpret_cast<Doubles>(reinterpret_cast<Mask>(values) & INT64_MAX);
}

Doubles Clip(Doubles reflection) {
  const Mask sign = reinterpret_cast<Mask>(reflection) & INT64_MIN;
  const auto limit =
      reinterpret_cast<Doubles>(reinterpret_cast<Mask>(Splat(kReflectionLimit)) | sign);
  return Magnitude(reflection) >= 1.0 ? limit : reflection;
}

// What lud and lubksb make of a frame's equations, in lanes.
struct Solution {
  Doubles n1, n2;  // the negated taps
  Mask regular;    // the system is not singular, nor nearly
};

Solution Solve(Doubles c01, Doubles c02, Doubles c11, Doubles c12, Doubles c22) {
  const Doubles off = Magnitude(c12);
  const Doubles scale1 = 1.0 / (off > c11 ? off : c11);
  const Doubles scale2 = 1.0 / (c22 > off ? c22 : off);
  const Mask swap = scale2 * off >= scale1 * c11;
  const Doubles pivot = swap ? c12 : c11;
  const Doubles beside = swap ? c22 : c12;
  const Doubles below = (swap ? c11 : c12) * (1.0 / pivot);
  const Doubles last = (swap ? c12 : c22) - below * beside;

  const Doubles pivotSize = Magnitude(pivot);
  const Doubles lastSize = Magnitude(last);
  const Doubles start = Splat(kLargestSmallPivot);
  Doubles smallest = pivotSize < start ? pivotSize : start;
  smallest = lastSize < smallest ? lastSize : smallest;
  const Doubles largest = lastSize > pivotSize ? lastSize : pivotSize;

  const Doubles b1 = swap ? c02 : c01;
  const Doubles b2 = (swap ? c01 : c02) - below * b1;
  const Doubles n2 = b2 / last;
  return {(b1 - beside * n2) / pivot, n2, smallest / largest >= kSmallestPivotRatio};
}

// r1 and r2 of the frames in lanes, 0 where a frame has no predictor.
struct Predicted {
  Doubles r1, r2;
  Mask accepted;
};

Predicted Predict(const Correlations& c, int frame) {
  const Solution taps = Solve(Load(c.c01 + frame), Load(c.c02 + frame), Load(c.c11 + frame),
                              Load(c.c12 + frame), Load(c.c22 + frame));
  // kfroma, clip_reflection, afromk
  const Doubles den = 1.0 - taps.n2 * taps.n2;
  const Doubles lower = (taps.n1 + taps.n2 * taps.n1) / den;
  const Mask accepted = (Load(c.c00 + frame) > kSilentEnergy) & taps.regular & (den != 0.0) &
                        ~(Magnitude(lower) > 1.0);
  const Doubles k1 = Clip(lower);
  const Doubles k2 = Clip(taps.n2);
  const Doubles p1 = k1 - k2 * k1;
  // rfroma
  const Doubles reciprocal = 1.0 / (1.0 - k2 * k2);
  const Doubles r1 = 0.0 + (p1 + k2 * p1) * reciprocal;
  const Doubles r2 = (0.0 + p1 * r1) + k2;
  return {Masked(r1, accepted), Masked(r2, accepted), accepted};
}

TrainingRow* Collect(const short* samples, qz::uint64 groups, TrainingRow* rows, TrainingRow* sum) {
  Correlations block;
  Pair total;
  __builtin_memcpy(&total, sum, sizeof total);
  while (groups != 0) {
    int frames = 0;
    for (; frames < kBlockFrames && groups != 0; frames += kDesignGroup, --groups) {
      Correlate(samples, block, frames);
      samples += kDesignGroup * kSamplesPerFrame;
    }
    for (int frame = 0; frame < frames; frame += kLanes) {
      const Predicted predicted = Predict(block, frame);
      Pair pairs[kLanes];
      Interleave(predicted.r1, predicted.r2, pairs);
      for (int lane = 0; lane < kLanes; ++lane) {
        total += pairs[lane];  // 0 from a frame without predictor, whose row the next one takes
        __builtin_memcpy(rows, &pairs[lane], sizeof *rows);
        rows -= predicted.accepted[lane];
      }
    }
  }
  __builtin_memcpy(sum, &total, sizeof total);
  return rows;
}

// The number of the nearest row for each of kLanes training rows.
template <int kRows>
Mask NearestRows(Doubles r1, Doubles r2, const Doubles (*codebook)[3]) {
  const Doubles twice1 = 2.0 * r1;
  const Doubles twice2 = 2.0 * r2;
  Doubles least = Splat(kStartOfMinimumSearch);
  Mask nearest{};
  for (int row = 0; row < kRows; ++row) {
    const Doubles* ra = codebook[row];
    const Doubles distance = (ra[0] + twice1 * ra[1]) + twice2 * ra[2];
    const Mask closer = distance < least;
    least = closer ? distance : least;
    nearest = closer ? Mask{} + row : nearest;
  }
  return nearest;
}

template <int kRows>
void Assign(const TrainingRow* training, qz::uint64 count, const RowModel* codebook, Cell* cells) {
  constexpr int kRowsPerVector = kLanes / 2;
  constexpr int kVectors = kRows / kRowsPerVector;
  Doubles ra[kRows][3];
  Mask owner[kRows][kVectors] = {};  // ones in the two places of the row
  for (int row = 0; row < kRows; ++row) {
    ra[row][0] = Splat(codebook[row].ra0);
    ra[row][1] = Splat(codebook[row].ra1);
    ra[row][2] = Splat(codebook[row].ra2);
    for (int place = 0; place < 2; ++place)
      owner[row][row / kRowsPerVector][row % kRowsPerVector * 2 + place] = -1;
  }

  Doubles sums[kVectors] = {};
  int counts[kDesignGroup][kRows] = {};  // by place in the group, so that none waits for another
  const auto add = [&](int place, qz::int64 row) {
    const Doubles values = Repeat(training[place]);
    for (int v = 0; v < kVectors; ++v)
      sums[v] += Masked(values, owner[row][v]);
    ++counts[place][row];
  };
  while (count != 0) {
    alignas(sizeof(Mask)) qz::int64 nearest[kDesignGroup];
    for (int first = 0; first < kDesignGroup; first += kLanes) {
      Doubles r1, r2;
      Deinterleave(training + first, r1, r2);
      const Mask rows = NearestRows<kRows>(r1, r2, ra);
      __builtin_memcpy(nearest + first, &rows, sizeof rows);
    }
    if (count < kDesignGroup) {
      for (int place = 0; place < static_cast<int>(count); ++place)
        add(place, nearest[place / kLanes * kLanes + kLaneOf[place % kLanes]]);
      break;
    }
    for (int place = 0; place < kDesignGroup; ++place)
      add(place, nearest[place / kLanes * kLanes + kLaneOf[place % kLanes]]);
    training += kDesignGroup;
    count -= kDesignGroup;
  }

  for (int row = 0; row < kRows; ++row) {
    const Doubles& rowSums = sums[row / kRowsPerVector];
    const int first = row % kRowsPerVector * 2;
    cells[row] = {rowSums[first], rowSums[first + 1], 0};
    for (const auto& ofPlace : counts)
      cells[row].count += ofPlace[row];
  }
}

void AssignRows(const TrainingRow* training, qz::uint64 count, const RowModel* codebook, int rows,
                Cell* cells) {
  switch (rows) {
    case 2:
      return Assign<2>(training, count, codebook, cells);
    case 4:
      return Assign<4>(training, count, codebook, cells);
    default:
      return Assign<8>(training, count, codebook, cells);
  }
}

}  // namespace
}  // namespace adpcm
