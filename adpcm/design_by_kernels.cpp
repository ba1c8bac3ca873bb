// The table design around its kernels: where the groups of frames come from, and what happens to
// a codebook between two passes over the training set.
#include <cstring>

#include "adpcm/codebook.h"
#include "adpcm/design.h"
#include "adpcm/design_kernels.h"
#include "adpcm/estimate.h"
#include "adpcm/heap_block.h"

namespace adpcm {
namespace {

struct TrainingSet {
  HeapBlock<TrainingRow> rows;
  qz::uint64 count = 0;
  TrainingRow sum = {0.0, 0.0};
};

// Collects one group through a copy, for the ends of a stream: zeros stand in front of the first
// sample and behind the last one. Frames of zeros are silent and leave no row.
TrainingRow* CollectCopied(const DesignKernels& kernels, const short* samples, qz::uint64 nsamples,
                           qz::uint64 group, TrainingRow* rows, TrainingRow* sum) {
  short copy[kOrder + kGroupSamples] = {};
  const qz::uint64 position = group * kGroupSamples;
  const qz::uint64 history = group == 0 ? 0 : kOrder;
  const qz::uint64 left = nsamples - position;
  const qz::uint64 count = left < kGroupSamples ? left : kGroupSamples;
  std::memcpy(copy + kOrder - history, samples + position - history,
              sizeof(short) * (history + count));
  return kernels.collect(copy + kOrder, 1, rows, sum);
}

// False when memory runs out.
bool CollectTrainingSet(const DesignKernels& kernels, const short* samples, qz::uint64 nsamples,
                        TrainingSet& set) {
  const qz::uint64 groups = (nsamples + kGroupSamples - 1) / kGroupSamples;
  const qz::uint64 whole = nsamples / kGroupSamples;
  set.rows = AllocateBlock<TrainingRow>(groups * kDesignGroup);
  if (!set.rows) return false;

  TrainingRow* end = set.rows.get();
  if (groups > 0) end = CollectCopied(kernels, samples, nsamples, 0, end, &set.sum);
  if (whole > 1) end = kernels.collect(samples + kGroupSamples, whole - 1, end, &set.sum);
  if (groups > 1 && groups > whole) {
    end = CollectCopied(kernels, samples, nsamples, whole, end, &set.sum);
  }
  set.count = static_cast<qz::uint64>(end - set.rows.get());
  return true;
}

// The predictor of the mean autocorrelation, where the growth of the codebook starts. Without a
// training row it is not a number, and growth leaves the zero predictor in every row.
void MeanPredictor(const TrainingSet& set, double* taps) {
  const double reciprocal = 1.0 / static_cast<double>(set.count);
  const double mean[kTaps] = {1.0, set.sum.r1 * reciprocal, set.sum.r2 * reciprocal};
  double ref[kTaps];
  stable_model(mean, kDesignOrder, ref, taps);
}

// One pass of `refine`.
void RefineOnce(const DesignKernels& kernels, const TrainingSet& set, int rows, double** codebook) {
  RowModel models[kDesignRows] = {};
  for (int row = 0; row < rows; ++row) {
    const double* taps = codebook[row];
    models[row] = {tap_correlation(taps, kDesignOrder, 0), tap_correlation(taps, kDesignOrder, 1),
                   tap_correlation(taps, kDesignOrder, 2)};
  }
  Cell cells[kDesignRows];
  kernels.assign(set.rows.get(), set.count, models, rows, cells);
  for (int row = 0; row < rows; ++row) {
    const Cell& cell = cells[row];
    double centroid[kTaps] = {};
    if (cell.count > 0) {
      centroid[0] = 1.0;
      centroid[1] = cell.r1 / cell.count;
      centroid[2] = cell.r2 / cell.count;
    }
    double ref[kTaps];
    stable_model(centroid, kDesignOrder, ref, codebook[row]);
  }
}

}  // namespace

bool DesignByKernels(const DesignKernels& kernels, const short* samples, qz::ulong nsamples,
                     int log2Size, double** codebook) {
  TrainingSet set;
  if (!CollectTrainingSet(kernels, samples, nsamples, set)) return false;
  MeanPredictor(set, codebook[0]);
  for (int step = 0; step < log2Size; ++step) {
    split(codebook, kSplitDirection, kDesignOrder, 1 << step, kSplitDelta);
    for (int pass = 0; pass < kRefineIterations; ++pass)
      RefineOnce(kernels, set, 2 << step, codebook);
  }
  return true;
}

}  // namespace adpcm
