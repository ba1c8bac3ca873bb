// Linear prediction arithmetic of the table design: from samples to predictor taps, and between
// taps, reflection coefficients and autocorrelations.
//
// The methods are textbook ones: the covariance normal equations, LU decomposition by Crout's
// method with implicit scaled partial pivoting, the step-up and step-down recursions, the
// Levinson-Durbin recursion, and the distance of Itakura (1975). What is not textbook is that the
// order of every floating-point operation is part of the contract: degenerate frames hang on the
// last bit (is a denominator exactly 0, is a coefficient 1 or one step above), so a sum runs from
// its first term to its last, a reciprocal is multiplied where one is multiplied and a quotient is
// divided where one is divided. Faster code must give the same bits.
//
// A predictor of order p is p + 1 taps [1, a1 .. ap] of the polynomial 1 + a1 z^-1 + .. + ap z^-p;
// x[n] is predicted as -a1 x[n-1] - .. - ap x[n-p]. Reflection coefficients count from 1; index 0
// is neither read nor written. Matrices and vectors of the equation solver count from 1 too.
//
// Nothing here allocates or keeps state; all storage is the caller's and nothing may overlap.
#ifndef ADPCM_ESTIMATE_H_
#define ADPCM_ESTIMATE_H_

namespace adpcm {

// The highest order that model_dist takes; its scratch is on the stack.
inline constexpr int kMaxModelOrder = 8;

// Where clip_reflection sets coefficients of magnitude 1 and more.
inline constexpr double kReflectionLimit = 0.9999999999;

// Pivots whose spread, smallest by largest, is below this make a system nearly singular for lud.
inline constexpr double kSmallestPivotRatio = 1e-10;

// Right-hand side of the normal equations: a[i] = -sum of in[n - i] * in[n], i = 0 to order, over
// the `length` samples at `in_buffer`. a[0] is minus the energy. The `order` samples in front of
// `in_buffer` are read.
void acvect(const short* in_buffer, int order, int length, double* a);

// Covariance matrix: a[i][j] = sum of in[n - i] * in[n - j], i and j = 1 to order. Reads the
// `order` samples in front of `in_buffer`.
void acmat(const short* in_buffer, int order, int length, double** a);

// LU decomposition in place. `indx` receives the row swaps, *d their parity (1 or -1), `vv` is
// scratch of n + 1. Nonzero for a matrix that is singular or, by the spread of the pivots, nearly.
int lud(double** a, int n, int* indx, int* d, double* vv);

// Solves for right-hand side b, in place, with what lud left in `a` and `indx`.
void lubksb(double** a, int n, const int* indx, double* b);

// Step-down recursion, taps to reflection coefficients. Overwrites `taps`; `tmp` is scratch of
// order + 1. Nonzero means unusable: a denominator of exactly 0, or a coefficient below the last
// one that exceeds 1 in magnitude. The last one is not judged: callers clip it.
int kfroma(double* taps, double* ref, int order, double* tmp);

// Step-up recursion, reflection coefficients to taps.
void afromk(const double* ref, double* taps, int order);

// Brings each coefficient of magnitude 1 or more to just below 1, so that the filter is stable.
void clip_reflection(double* ref, int order);

// Levinson-Durbin recursion, autocorrelation to taps and reflection coefficients; *e2 is the
// error energy left. The result counts coefficients beyond 1 in magnitude. From an energy that is
// not positive the taps are 0.
int durbin(const double* ac, int order, double* ref, double* taps, double* e2);

// The taps of the predictor of an autocorrelation, made stable: durbin, with clipped reflection
// coefficients, which end in `ref`.
void stable_model(const double* ac, int order, double* ref, double* taps);

// The autocorrelation that taps imply, normalised to r[0] = 1. `aa` is scratch of (n + 1)^2.
void rfroma(const double* a, int n, double* r, double* aa);

// The autocorrelation of the taps themselves: the sum of ta[j] * ta[j + lag].
double tap_correlation(const double* ta, int order, int lag);

// Itakura's distance of model `ta` from the predictor `sa`: the error energy that `ta` leaves on a
// signal with the autocorrelation of `sa`. Not symmetric, can be slightly negative, ties often.
double model_dist(const double* ta, const double* sa, int order);

}  // namespace adpcm

#endif  // ADPCM_ESTIMATE_H_
