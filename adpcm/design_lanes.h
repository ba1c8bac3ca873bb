// The arithmetic of the design kernels, for any number of lanes. Only the kernel files include
// this, each in its own width; all of it has internal linkage, so that no copy made for a wide
// instruction set serves anyone else. Of the including file it wants
//
// - kLanes, and vectors of so many doubles and 64-bit integers, Doubles and Mask; Pair, of two;
// - Correlate: the sums of sample products of a group;
// - Deinterleave: kLanes training rows as vectors of r1 and r2, in any order of the rows, and
//   InOrder: the order of the rows for what is computed from them;
// - Interleave: a pair from each lane of two vectors; Repeat: a training row in all places of one;
// - Bits: a bit from each lane of a mask.
//
// Why the bits are the scalar's:
//
// - A product of two samples and a sum of 14 such are integers far below 2^53: exact in any order
//   and in any representation. Everything else keeps the scalar's operands and order per lane, and
//   vectors round as scalars do.
// - The equations are solved for the negated taps: rounding to nearest is symmetric, so each
//   intermediate is the scalar's with the other sign. Tests of magnitude do not see it, and a zero
//   of the wrong sign gets lost in the sums that give r1 and r2, which start at +0.0. For the same
//   reason lubksb's shortcut for a right-hand side that starts with 0 is not needed.
// - The scalar tests for rows and pivots of 0 early. A lane goes on with infinities and NaN
//   instead, until the spread of the pivots, judged by a comparison that NaN fails, turns it away.
//   The 1e10 where the scalar starts to look for the smallest pivot decides nothing: two pivots
//   beyond it are at most 2 * 14 * 2^30, far from any spread that counts.
// - The distance r0 * ra0 + 2 r1 * ra1 + 2 r2 * ra2 is summed from the left, with r0 = 1; a factor
//   of 2 moves between the operands of a product without changing it.
// - Clipped reflection coefficients keep r1, r2 and the taps of the codebook small, so a distance
//   is never NaN nor near the 1e30 where the scalar search starts, and the search may start at row
//   0.
// - The sum of a cell starts at +0.0, so it is never -0.0, and adding +0.0 for the training rows of
//   the other cells changes no bit.
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
  return value - Doubles{};  // not a sum, which would lose the sign of -0.0
}

Doubles Load(const double* values) {
  Doubles result;
  __builtin_memcpy(&result, values, sizeof result);
  return result;
}

Mask LoadMask(const qz::int64* values) {
  Mask result;
  __builtin_memcpy(&result, values, sizeof result);
  return result;
}

template <typename Vector, typename Value>
void Store(Vector vector, Value* to) {
  __builtin_memcpy(to, &vector, sizeof vector);
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

// The equations of a block of frames after elimination.
struct Triangles {
  alignas(sizeof(Doubles)) double pivot[kBlockFrames], beside[kBlockFrames], b1[kBlockFrames];
  alignas(sizeof(Doubles)) double last[kBlockFrames], b2[kBlockFrames];
  alignas(sizeof(Mask)) qz::int64 usable[kBlockFrames];  // there is signal, and no near singularity
};

// lud, and what lubksb does on its way forward.
void Eliminate(const Correlations& c, int frame, Triangles& to) {
  const Doubles c01 = Load(c.c01 + frame), c02 = Load(c.c02 + frame);
  const Doubles c11 = Load(c.c11 + frame), c12 = Load(c.c12 + frame), c22 = Load(c.c22 + frame);
  const Doubles off = Magnitude(c12);
  const Doubles scale1 = 1.0 / (off > c11 ? off : c11);
  const Doubles scale2 = 1.0 / (c22 > off ? c22 : off);
  const Mask swap = scale2 * off >= scale1 * c11;
  const Doubles pivot = swap ? c12 : c11;
  const Doubles beside = swap ? c22 : c12;
  const Doubles below = (swap ? c11 : c12) * (1.0 / pivot);
  const Doubles last = (swap ? c12 : c22) - below * beside;
  const Doubles b1 = swap ? c02 : c01;
  const Doubles b2 = (swap ? c01 : c02) - below * b1;

  const Doubles pivotSize = Magnitude(pivot);
  const Doubles lastSize = Magnitude(last);
  const Doubles smallest = lastSize < pivotSize ? lastSize : pivotSize;
  const Doubles largest = lastSize > pivotSize ? lastSize : pivotSize;
  const Mask usable =
      (Load(c.c00 + frame) > kSilentEnergy) & (smallest / largest >= kSmallestPivotRatio);
  Store(pivot, to.pivot + frame);
  Store(beside, to.beside + frame);
  Store(b1, to.b1 + frame);
  Store(last, to.last + frame);
  Store(b2, to.b2 + frame);
  Store(usable, to.usable + frame);
}

// Their solutions, the negated taps.
struct Solutions {
  alignas(sizeof(Doubles)) double n1[kBlockFrames], n2[kBlockFrames];
};

// The way back of lubksb.
void Substitute(const Triangles& t, int frame, Solutions& to) {
  const Doubles n2 = Load(t.b2 + frame) / Load(t.last + frame);
  const Doubles n1 = (Load(t.b1 + frame) - Load(t.beside + frame) * n2) / Load(t.pivot + frame);
  Store(n1, to.n1 + frame);
  Store(n2, to.n2 + frame);
}

// r1 and r2 of the frames in lanes, 0 where a frame has no predictor.
struct Predicted {
  Doubles r1, r2;
  Mask accepted;
};

// kfroma, clip_reflection, afromk and rfroma.
Predicted Predict(const Solutions& s, const Triangles& t, int frame) {
  const Doubles n1 = Load(s.n1 + frame), n2 = Load(s.n2 + frame);
  const Doubles den = 1.0 - n2 * n2;
  const Doubles lower = (n1 + n2 * n1) / den;
  const Mask accepted = LoadMask(t.usable + frame) & (den != 0.0) & ~(Magnitude(lower) > 1.0);
  const Doubles k1 = Clip(lower);
  const Doubles k2 = Clip(n2);
  const Doubles p1 = k1 - k2 * k1;
  const Doubles reciprocal = 1.0 / (1.0 - k2 * k2);
  const Doubles r1 = 0.0 + (p1 + k2 * p1) * reciprocal;
  const Doubles r2 = (0.0 + p1 * r1) + k2;
  return {Masked(r1, accepted), Masked(r2, accepted), accepted};
}

TrainingRow* Collect(const short* samples, qz::uint64 groups, TrainingRow* rows, TrainingRow* sum) {
  Correlations correlations;
  Triangles triangles;
  Solutions solutions;
  Pair total;
  __builtin_memcpy(&total, sum, sizeof total);
  while (groups != 0) {
    int frames = 0;
    for (; frames < kBlockFrames && groups != 0; frames += kDesignGroup, --groups) {
      Correlate(samples, correlations, frames);
      samples += kDesignGroup * kSamplesPerFrame;
    }
    for (int frame = 0; frame < frames; frame += kLanes)
      Eliminate(correlations, frame, triangles);
    for (int frame = 0; frame < frames; frame += kLanes)
      Substitute(triangles, frame, solutions);
    for (int frame = 0; frame < frames; frame += kLanes) {
      const Predicted predicted = Predict(solutions, triangles, frame);
      const int accepted = Bits(predicted.accepted);
      Pair pairs[kLanes];
      Interleave(predicted.r1, predicted.r2, pairs);
#pragma GCC unroll 8
      for (int lane = 0; lane < kLanes; ++lane) {
        total += pairs[lane];  // 0 from a frame without predictor, whose row the next one takes
        __builtin_memcpy(rows, &pairs[lane], sizeof *rows);
        rows += accepted >> lane & 1;
      }
    }
  }
  __builtin_memcpy(sum, &total, sizeof total);
  return rows;
}

// One pass over the training set with a codebook of kRows rows.
template <int kRows>
class Pass {
 public:
  explicit Pass(const RowModel* codebook) {
    for (int row = 0; row < kRows; ++row) {
      ra[row][0] = Splat(codebook[row].ra0);
      ra[row][1] = Splat(2.0 * codebook[row].ra1);
      ra[row][2] = Splat(2.0 * codebook[row].ra2);
      for (int place = 0; place < 2; ++place)
        owner[row][row / kRowsPerVector][row % kRowsPerVector * 2 + place] = -1;
    }
  }

  // A block is first assigned, then added up: in turns, each frame's sums would wait for its
  // nearest row, and the processor does not see far enough ahead to do others meanwhile.
  void Run(const TrainingRow* training, qz::uint64 count) {
    Doubles total[kVectors] = {};
    while (count != 0) {
      const int frames = count < kBlockFrames ? static_cast<int>(count) : kBlockFrames;
      alignas(sizeof(Mask)) qz::int64 nearest[kBlockFrames];
      for (int frame = 0; frame < frames; frame += kDesignGroup)
        FindNearest(training + frame, nearest + frame);
      qz::uint64 tally = 0;  // a byte for each row
      for (int frame = 0; frame < frames; ++frame) {
        const qz::int64 row = nearest[frame];
        const Doubles values = Repeat(training[frame]);
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v)
          total[v] += Masked(values, owner[row][v]);
        tally += qz::uint64{1} << (8 * row);
      }
      for (int row = 0; row < kRows; ++row)
        counts[row] += static_cast<int>(tally >> (8 * row) & 0xFF);
      training += frames;
      count -= static_cast<qz::uint64>(frames);
    }
    __builtin_memcpy(sums, total, sizeof sums);
  }

  void Finish(Cell* cells) const {
    for (int row = 0; row < kRows; ++row)
      cells[row] = {sums[row][0], sums[row][1], counts[row]};
  }

 private:
  static constexpr int kRowsPerVector = kLanes / 2;
  static constexpr int kVectors = kRows / kRowsPerVector;

  // The numbers of the nearest rows of a group. Two vectors at a time, so that each number of the
  // codebook is loaded half as often.
  void FindNearest(const TrainingRow* training, qz::int64* nearest) const {
#pragma GCC unroll 8
    for (int frame = 0; frame < kDesignGroup; frame += 2 * kLanes) {
      Doubles a1, a2, b1, b2;
      Deinterleave(training + frame, a1, a2);
      Deinterleave(training + frame + kLanes, b1, b2);
      const auto distances = [&](int row, Doubles& ofA, Doubles& ofB) {
        const Doubles ra0 = ra[row][0], ra1 = ra[row][1], ra2 = ra[row][2];
        ofA = (ra0 + a1 * ra1) + a2 * ra2;
        ofB = (ra0 + b1 * ra1) + b2 * ra2;
      };
      Doubles leastOfA, leastOfB;
      distances(0, leastOfA, leastOfB);
      Mask rowOfA{}, rowOfB{};
#pragma GCC unroll 8
      for (int row = 1; row < kRows; ++row) {
        Doubles ofA, ofB;
        distances(row, ofA, ofB);
        TakeIfCloser(ofA, row, leastOfA, rowOfA);
        TakeIfCloser(ofB, row, leastOfB, rowOfB);
      }
      rowOfA = InOrder(rowOfA);
      rowOfB = InOrder(rowOfB);
      __builtin_memcpy(nearest + frame, &rowOfA, sizeof rowOfA);
      __builtin_memcpy(nearest + frame + kLanes, &rowOfB, sizeof rowOfB);
    }
  }

  static void TakeIfCloser(Doubles distance, int row, Doubles& least, Mask& nearest) {
    const Mask closer = distance < least;
    least = closer ? distance : least;
    nearest = closer ? Mask{} + row : nearest;
  }

  Doubles ra[kRows][3];              // ra0, 2 * ra1, 2 * ra2
  Mask owner[kRows][kVectors] = {};  // ones in the two places of the row
  int counts[kRows] = {};
  double sums[kRows][2];
};

template <int kRows>
void Assign(const TrainingRow* training, qz::uint64 count, const RowModel* codebook, Cell* cells) {
  Pass<kRows> pass(codebook);
  pass.Run(training, count);
  pass.Finish(cells);
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
