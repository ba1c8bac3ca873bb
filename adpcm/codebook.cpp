#include "adpcm/codebook.h"

#include "adpcm/estimate.h"

namespace adpcm {
namespace {

// Farther than any real distance.
constexpr double kStartOfMinimumSearch = 1e30;

int NearestRow(double* const* codebook, int order, int n_entries, const double* frame) {
  double least = kStartOfMinimumSearch;
  int nearest = 0;
  for (int i = 0; i < n_entries; ++i) {
    const double distance = model_dist(codebook[i], frame, order);
    if (distance < least) {
      least = distance;
      nearest = i;
    }
  }
  return nearest;
}

}  // namespace

void split(double** codebook, const double* dir, int order, int n_entries, double delta) {
  for (int i = 0; i < n_entries; ++i) {
    for (int j = 0; j <= order; ++j) {
      codebook[i + n_entries][j] = codebook[i][j] + delta * dir[j];
    }
  }
}

void refine(double** codebook, int order, int n_entries, double* const* training, int nframes,
            int iterations, double /*converge*/, double* rfromaWork, double* ac, int* count,
            double** centroids) {
  for (int pass = 0; pass < iterations; ++pass) {
    for (int i = 0; i < n_entries; ++i) {
      count[i] = 0;
      for (int j = 0; j <= order; ++j)
        centroids[i][j] = 0.0;
    }
    for (int frame = 0; frame < nframes; ++frame) {
      const int row = NearestRow(codebook, order, n_entries, training[frame]);
      ++count[row];
      rfroma(training[frame], order, ac, rfromaWork);
      for (int j = 0; j <= order; ++j)
        centroids[row][j] += ac[j];
    }
    for (int i = 0; i < n_entries; ++i) {
      if (count[i] <= 0) continue;
      for (int j = 0; j <= order; ++j)
        centroids[i][j] /= static_cast<double>(count[i]);
    }
    for (int i = 0; i < n_entries; ++i) {
      stable_model(centroids[i], order, ac, codebook[i]);
    }
  }
}

}  // namespace adpcm
