// The two steps of the codebook design of Linde, Buzo and Gray (1980): splitting and refinement.
//
// A codebook is `n_entries` rows of order + 1 taps (see adpcm/estimate.h). All storage is the
// caller's; nothing is allocated and no state is kept. The order of operations is part of the
// contract as in adpcm/estimate.h, down to which of two equally distant rows takes a frame.
#ifndef ADPCM_CODEBOOK_H_
#define ADPCM_CODEBOOK_H_

namespace adpcm {

// Doubles the codebook: row i + n_entries is row i moved by delta * dir. Rows 0 to n_entries - 1
// stay. `dir` has order + 1 places; `codebook` must have room for 2 * n_entries rows.
void split(double** codebook, const double* dir, int order, int n_entries, double delta);

// Moves each row to the centroid of the `nframes` training rows that are nearest to it, by
// model_dist, `iterations` times; on equal distances the lowest row wins. A row that no training
// row is nearest to becomes the zero predictor [1, 0, ..].
//
// Scratch: `rfromaWork` of (order + 1)^2, `ac` of order + 1, `count` of n_entries, `centroids` of
// n_entries rows of order + 1. `converge` is not used: the number of iterations alone decides.
void refine(double** codebook, int order, int n_entries, double* const* training, int nframes,
            int iterations, double converge, double* rfromaWork, double* ac, int* count,
            double** centroids);

}  // namespace adpcm

#endif  // ADPCM_CODEBOOK_H_
