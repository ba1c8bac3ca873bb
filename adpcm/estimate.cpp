#include "adpcm/estimate.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "common/qzassert.h"

namespace adpcm {
namespace {

// A product of two samples fits 32 bits.
double Product(short a, short b) {
  return static_cast<double>(a * b);
}

bool ScaleRows(double** a, int n, double* vv) {
  for (int i = 1; i <= n; ++i) {
    double largest = 0.0;
    for (int j = 1; j <= n; ++j) {
      if (std::fabs(a[i][j]) > largest) largest = std::fabs(a[i][j]);
    }
    if (largest == 0.0) return false;
    vv[i] = 1.0 / largest;
  }
  return true;
}

// Takes the first `terms` products of row i and column j off the element.
void Reduce(double** a, int i, int j, int terms) {
  double value = a[i][j];
  for (int k = 1; k <= terms; ++k)
    value -= a[i][k] * a[k][j];
  a[i][j] = value;
}

bool NearlySingular(double** a, int n) {
  double smallest = 1e10;
  double largest = 0.0;
  for (int i = 1; i <= n; ++i) {
    const double magnitude = std::fabs(a[i][i]);
    if (magnitude < smallest) smallest = magnitude;
    if (magnitude > largest) largest = magnitude;
  }
  return smallest / largest < kSmallestPivotRatio;
}

}  // namespace

void acvect(const short* in_buffer, int order, int length, double* a) {
  for (int i = 0; i <= order; ++i) {
    double sum = 0.0;
    for (int n = 0; n < length; ++n)
      sum += Product(in_buffer[n - i], in_buffer[n]);
    a[i] = -sum;
  }
}

void acmat(const short* in_buffer, int order, int length, double** a) {
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= order; ++j) {
      double sum = 0.0;
      for (int n = 0; n < length; ++n)
        sum += Product(in_buffer[n - i], in_buffer[n - j]);
      a[i][j] = sum;
    }
  }
}

int lud(double** a, int n, int* indx, int* d, double* vv) {
  *d = 1;
  if (!ScaleRows(a, n, vv)) return 1;
  for (int j = 1; j <= n; ++j) {
    for (int i = 1; i < j; ++i)
      Reduce(a, i, j, i - 1);

    double best = 0.0;
    int pivot = j;
    for (int i = j; i <= n; ++i) {
      Reduce(a, i, j, j - 1);
      const double merit = vv[i] * std::fabs(a[i][j]);
      // Equal rows are usual (constants, pure tones), and the last of them has to be the pivot.
      if (merit >= best) {
        best = merit;
        pivot = i;
      }
    }
    if (pivot != j) {
      for (int k = 1; k <= n; ++k)
        std::swap(a[pivot][k], a[j][k]);
      *d = -*d;
      vv[pivot] = vv[j];
    }
    indx[j] = pivot;
    if (a[j][j] == 0.0) return 1;
    if (j != n) {
      const double reciprocal = 1.0 / a[j][j];
      for (int i = j + 1; i <= n; ++i)
        a[i][j] *= reciprocal;
    }
  }
  return NearlySingular(a, n) ? 1 : 0;
}

void lubksb(double** a, int n, const int* indx, double* b) {
  int firstNonzero = 0;
  for (int i = 1; i <= n; ++i) {
    double sum = b[indx[i]];
    b[indx[i]] = b[i];
    if (firstNonzero != 0) {
      for (int j = firstNonzero; j < i; ++j)
        sum -= a[i][j] * b[j];
    } else if (sum != 0.0) {
      firstNonzero = i;
    }
    b[i] = sum;
  }
  for (int i = n; i >= 1; --i) {
    double sum = b[i];
    for (int j = i + 1; j <= n; ++j)
      sum -= a[i][j] * b[j];
    b[i] = sum / a[i][i];
  }
}

int kfroma(double* taps, double* ref, int order, double* tmp) {
  int beyondOne = 0;
  ref[order] = taps[order];
  for (int i = order - 1; i >= 1; --i) {
    for (int j = 0; j <= i; ++j) {
      const double den = 1.0 - ref[i + 1] * ref[i + 1];
      if (den == 0.0) return 1;
      tmp[j] = (taps[j] - ref[i + 1] * taps[i + 1 - j]) / den;
    }
    for (int j = 0; j <= i; ++j)
      taps[j] = tmp[j];
    ref[i] = tmp[i];
    if (std::fabs(ref[i]) > 1.0) ++beyondOne;
  }
  return beyondOne;
}

void afromk(const double* ref, double* taps, int order) {
  taps[0] = 1.0;
  for (int i = 1; i <= order; ++i) {
    taps[i] = ref[i];
    for (int j = 1; j < i; ++j)
      taps[j] = taps[j] + taps[i] * taps[i - j];
  }
}

void clip_reflection(double* ref, int order) {
  for (int i = 1; i <= order; ++i) {
    if (ref[i] >= 1.0) ref[i] = kReflectionLimit;
    if (ref[i] <= -1.0) ref[i] = -kReflectionLimit;
  }
}

int durbin(const double* ac, int order, double* ref, double* taps, double* e2) {
  int beyondOne = 0;
  double e = ac[0];
  taps[0] = 1.0;
  for (int i = 1; i <= order; ++i) {
    double m = 0.0;
    for (int j = 1; j < i; ++j)
      m += taps[j] * ac[i - j];
    taps[i] = e > 0.0 ? -(m + ac[i]) / e : 0.0;
    ref[i] = taps[i];
    if (std::fabs(ref[i]) > 1.0) ++beyondOne;
    for (int j = 1; j < i; ++j)
      taps[j] = taps[j] + taps[i] * taps[i - j];
    e = e * (1.0 - taps[i] * taps[i]);
  }
  *e2 = e;
  return beyondOne;
}

void stable_model(const double* ac, int order, double* ref, double* taps) {
  double errorLeft;
  durbin(ac, order, ref, taps, &errorLeft);
  clip_reflection(ref, order);
  afromk(ref, taps, order);
}

void rfroma(const double* a, int n, double* r, double* aa) {
  const auto at = [aa, n](int row, int column) -> double& {
    return aa[static_cast<std::ptrdiff_t>(row) * (n + 1) + column];
  };
  at(0, n) = 1.0;
  for (int i = 1; i <= n; ++i)
    at(i, n) = -a[i];
  // Step down: column i is the predictor of order i.
  for (int i = n; i >= 1; --i) {
    const double iref = 1.0 / (1.0 - at(i, i) * at(i, i));
    for (int j = 1; j < i; ++j)
      at(j, i - 1) = (at(j, i) + at(i, i) * at(i - j, i)) * iref;
  }
  r[0] = 1.0;
  for (int i = 1; i <= n; ++i) {
    r[i] = 0.0;
    for (int j = 1; j <= i; ++j)
      r[i] += at(j, i) * r[i - j];
  }
}

double tap_correlation(const double* ta, int order, int lag) {
  double sum = 0.0;
  for (int j = 0; j <= order - lag; ++j)
    sum += ta[j] * ta[j + lag];
  return sum;
}

double model_dist(const double* ta, const double* sa, int order) {
  QZ_ASSERT(order <= kMaxModelOrder, "model_dist: the order fits the scratch");
  double r[kMaxModelOrder + 1];
  double scratch[(kMaxModelOrder + 1) * (kMaxModelOrder + 1)];
  rfroma(sa, order, r, scratch);

  double distance = 0.0;
  for (int i = 0; i <= order; ++i) {
    const double ra = tap_correlation(ta, order, i);
    distance = i == 0 ? r[0] * ra : distance + 2.0 * r[i] * ra;
  }
  return distance;
}

}  // namespace adpcm
