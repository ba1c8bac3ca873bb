// adpcmCoefTableDesign: a predictor for each frame that has signal, a codebook of the wanted size
// that stands for them, and its rows as 16-bit fixed point.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "adpcm/adpcm.h"
#include "adpcm/codebook.h"
#include "adpcm/design.h"
#include "adpcm/design_kernels.h"
#include "adpcm/estimate.h"
#include "adpcm/heap_block.h"
#include "adpcm/kernels.h"
#if defined(SAMPLEDATA_KERNEL_TWIN)
#include "common/qzassert.h"
#endif

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr double kFixedPointOne = 2048.0;

// Rows of kTaps doubles in one block, with the row pointers that the numeric routines want.
class Rows {
 public:
  bool Allocate(qz::uint64 rows) {
    values = AllocateBlock<double>(rows * kTaps);
    pointers = AllocateBlock<double*>(rows);
    if (!values || !pointers) return false;
    for (qz::uint64 i = 0; i < rows; ++i)
      pointers[i] = values.get() + i * kTaps;
    return true;
  }
  double** get() { return pointers.get(); }
  double* operator[](int row) { return pointers[static_cast<std::size_t>(row)]; }

 private:
  HeapBlock<double> values;
  HeapBlock<double*> pointers;
};

// Fills `training` from the frames in stream order; the result is the number of rows.
int CollectPredictors(const short* samples, qz::ulong nsamples, Rows& training) {
  // The frame before the current one, then the current one: zeros in front of the stream and
  // behind its end. A frame without predictor is history of the next like any other.
  short window[2 * kFrameSize] = {};
  short* const current = window + kFrameSize;
  int accepted = 0;
  for (qz::uint64 pos = 0; pos < nsamples; pos += kFrameSize) {
    std::memcpy(window, current, sizeof(short) * kFrameSize);
    const qz::uint64 left = nsamples - pos;
    const int count = left < kFrameSize ? static_cast<int>(left) : kFrameSize;
    for (int i = 0; i < kFrameSize; ++i) {
      current[i] = i < count ? samples[pos + static_cast<unsigned>(i)] : short{0};
    }
    if (FramePredictor(current, training[accepted])) ++accepted;
  }
  return accepted;
}

// The predictor of the mean autocorrelation, where the growth of the codebook starts. Without a
// training row it is not a number, and growth leaves the zero predictor in every row.
void MeanPredictor(Rows& training, int count, double* taps) {
  double scratch[kTaps * kTaps];
  double r[kTaps];
  double mean[kTaps] = {1.0};
  for (int row = 0; row < count; ++row) {
    rfroma(training[row], kDesignOrder, r, scratch);
    for (int i = 1; i <= kDesignOrder; ++i)
      mean[i] += r[i];
  }
  const double reciprocal = 1.0 / count;
  for (int i = 1; i <= kDesignOrder; ++i)
    mean[i] *= reciprocal;

  double ref[kTaps];
  stable_model(mean, kDesignOrder, ref, taps);
}

// Doubles the codebook from row 0 to 2^log2Size rows. `centroids` and `count` have that many rows.
void GrowCodebook(Rows& codebook, int log2Size, Rows& training, int trainingCount, Rows& centroids,
                  int* count) {
  double scratch[kTaps * kTaps];
  double ac[kTaps];
  for (int step = 0; step < log2Size; ++step) {
    split(codebook.get(), kSplitDirection, kDesignOrder, 1 << step, kSplitDelta);
    refine(codebook.get(), kDesignOrder, 1 << (step + 1), training.get(), trainingCount,
           kRefineIterations, 0.0, scratch, ac, count, centroids.get());
  }
}

// The design by the scalar functions alone: the reference, and what runs where there are no
// kernels.
bool DesignScalar(const short* samples, qz::ulong nsamples, int log2Size, Rows& codebook) {
  const qz::uint64 rows = qz::uint64{1} << log2Size;
  Rows training;
  Rows centroids;
  const qz::uint64 frames = (qz::uint64{nsamples} + kSamplesPerFrame - 1) / kSamplesPerFrame;
  if (!training.Allocate(frames) || !centroids.Allocate(rows)) return false;
  const HeapBlock<int> count = AllocateBlock<int>(rows);
  if (!count) return false;

  const int trainingCount = CollectPredictors(samples, nsamples, training);
  MeanPredictor(training, trainingCount, codebook[0]);
  GrowCodebook(codebook, log2Size, training, trainingCount, centroids, count.get());
  return true;
}

// Nearest, halves away from zero.
short ToFixedPoint(double value) {
  const double coef = value * kFixedPointOne;
  // NOLINTBEGIN(bugprone-incorrect-roundings): this rounding is the format's, and the values are
  // far below those where adding a half loses bits.
  if (coef > 0.0) return coef > 32767.0 ? short{32767} : static_cast<short>(coef + 0.5);
  return coef < -32768.0 ? short{-32768} : static_cast<short>(coef - 0.5);
  // NOLINTEND(bugprone-incorrect-roundings)
}

// A predictor's taps have the sign of the left side of its equation, a table's the right.
void FillTable(Rows& codebook, qz::ulong tablesize, short* coeftable) {
  for (qz::ulong i = 0; i < tablesize; ++i) {
    const double* taps = codebook[static_cast<int>(i)];
    for (qz::ulong j = 0; j < kOrder; ++j)
      coeftable[kOrder * i + j] = ToFixedPoint(-taps[j + 1]);
  }
}

#if defined(SAMPLEDATA_KERNEL_TWIN)
// The scalar design beside the kernels; see kernel_twin.h. Where memory runs out nothing is
// compared.
void CompareWithScalar(const short* samples, qz::ulong nsamples, int log2Size, qz::ulong tablesize,
                       const short* coeftable) {
  Rows codebook;
  if (!codebook.Allocate(qz::uint64{1} << log2Size) ||
      !DesignScalar(samples, nsamples, log2Size, codebook)) {
    return;
  }
  short twin[kDesignRows * kOrder];
  FillTable(codebook, tablesize, twin);
  QZ_ASSERT(std::memcmp(coeftable, twin, sizeof(short) * kOrder * tablesize) == 0,
            "same table as the twin");
}
#endif

}  // namespace

bool FramePredictor(const short* frame, double* taps) {
  double ac[kTaps];
  acvect(frame, kDesignOrder, kFrameSize, ac);
  if (!(std::fabs(ac[0]) > kSilentEnergy)) return false;

  double matrix[kTaps][kTaps];
  double* a[kTaps];
  for (int i = 0; i < kTaps; ++i)
    a[i] = matrix[i];
  double vv[kTaps];
  int indx[kTaps];
  int parity;
  acmat(frame, kDesignOrder, kFrameSize, a);
  if (lud(a, kDesignOrder, indx, &parity, vv) != 0) return false;
  lubksb(a, kDesignOrder, indx, ac);
  ac[0] = 1.0;

  double ref[kTaps];
  double tmp[kTaps];
  if (kfroma(ac, ref, kDesignOrder, tmp) != 0) return false;
  clip_reflection(ref, kDesignOrder);
  afromk(ref, taps, kDesignOrder);
  return true;
}

}  // namespace adpcm

bool adpcmCoefTableDesign(short* inptr, qz::ulong nsamples, qz::ulong tablesize, short* coeftable,
                          qz::ushort /*__channel*/, void (* /*__frameCallback*/)(qz::uchar)) {
  using namespace adpcm;
  int log2Size = 1;
  while ((qz::uint64{1} << log2Size) < tablesize)
    ++log2Size;
  const qz::uint64 rows = qz::uint64{1} << log2Size;

  Rows codebook;
  if (!codebook.Allocate(rows)) return false;
  const DesignKernels* kernels = rows <= kDesignRows ? ActiveKernels().design : nullptr;
  const bool done = kernels != nullptr
                        ? DesignByKernels(*kernels, inptr, nsamples, log2Size, codebook.get())
                        : DesignScalar(inptr, nsamples, log2Size, codebook);
  if (!done) return false;

  FillTable(codebook, tablesize, coeftable);
#if defined(SAMPLEDATA_KERNEL_TWIN)
  if (kernels != nullptr) CompareWithScalar(inptr, nsamples, log2Size, tablesize, coeftable);
#endif
  return true;
}
