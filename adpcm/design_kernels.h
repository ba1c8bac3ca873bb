// The parts of the table design that cost time, as kernels for wide registers.
//
// A kernel runs several frames side by side, one a lane, and never splits a sum of doubles over
// lanes: each lane does what the scalar functions of adpcm/estimate.h and adpcm/codebook.h do with
// its frame, operation for operation, so every level gives their bits.
#ifndef ADPCM_DESIGN_KERNELS_H_
#define ADPCM_DESIGN_KERNELS_H_

#include "adpcm/adpcm.h"

namespace adpcm {

// All that the design needs of a frame once its predictor is known: the normalised autocorrelation
// that the predictor implies, as rfroma gives it. r[0] is 1.
struct TrainingRow {
  double r1, r2;
};

// Frames come to the kernels in groups, as many as the widest kernel takes at once.
inline constexpr int kDesignGroup = 8;
inline constexpr qz::uint64 kGroupSamples = qz::uint64{kDesignGroup} * kSamplesPerFrame;
// The most codebook rows that a kernel takes.
inline constexpr int kDesignRows = 8;

// A codebook row as the kernels want it: the autocorrelation of its taps.
struct RowModel {
  double ra0, ra1, ra2;
};

// What a pass over the training set leaves of a codebook row: how many training rows are nearest
// to it, and their sum.
struct Cell {
  double r1, r2;
  int count;
};

struct DesignKernels {
  // Appends a training row for each frame that has a predictor, in order, and adds it to `sum`.
  // The frames are `groups` * kDesignGroup at `samples`, two samples of history in front of the
  // first. `rows` needs room for all of them: those behind the last one that counts are scratch.
  // Returns the end of the rows that count.
  TrainingRow* (*collect)(const short* samples, qz::uint64 groups, TrainingRow* rows,
                          TrainingRow* sum);
  // Finds the nearest of the codebook's 2, 4 or 8 rows for each of the `count` training rows and
  // sums up the cells. Up to a full group, rows behind the last one are read, but do not count.
  void (*assign)(const TrainingRow* training, qz::uint64 count, const RowModel* codebook, int rows,
                 Cell* cells);
};

extern const DesignKernels kDesignAvx2;
extern const DesignKernels kDesignPortable;

}  // namespace adpcm

#endif  // ADPCM_DESIGN_KERNELS_H_
