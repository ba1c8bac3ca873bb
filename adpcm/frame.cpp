// One frame, both ways: adpcmEncodeFrame and adpcmDecodeFrame.
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "adpcm/adpcm.h"
#include "adpcm/frame_kernels.h"

namespace adpcm {
namespace {

constexpr int kFrameSize = static_cast<int>(kSamplesPerFrame);
constexpr int kBlockSize = kFrameSize + static_cast<int>(kOrder);  // two samples of history first
constexpr int kFractionBits = 11;                                  // of a table coefficient
constexpr int kOne = 1 << kFractionBits;
constexpr int kHalf = kOne / 2;
constexpr int kMinResidual = -8;
constexpr int kMaxResidual = 7;
constexpr int kMaxExponent = 12;

struct Coefficients {
  int previous;  // for the sample just before
  int earlier;   // for the one before that
};

Coefficients Row(const short* coeftable, std::ptrdiff_t row) {
  return {coeftable[2 * row], coeftable[2 * row + 1]};
}

struct Candidate {
  int prediction[kBlockSize];  // what a decoder will hold
  int quantum[kFrameSize];
  int scale;
  double error;
};

// The tables that the design makes keep every sum within 32 bits. With tables from elsewhere sums
// wrap, and encoder and decoder wrap alike.
int WrappingAdd(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
int WrappingSubtract(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

int Clamp16(int value) {
  return value < -32768 ? -32768 : value > 32767 ? 32767 : value;
}

// The prediction with its fraction bits. `history` are two samples, the older first.
int Predict(const int* history, Coefficients c) {
  return WrappingAdd(history[1] * c.previous, history[0] * c.earlier);
}

// The residual of largest magnitude when the input predicts itself, the first among equals.
int LargestOpenLoopResidual(const int* in, Coefficients c) {
  int largest = 0;
  for (int j = 0; j < kFrameSize; ++j) {
    // The division rounds toward zero, where the closed loop's shift rounds down.
    const int residual = Clamp16(in[j + 2] - Predict(in + j, c) / kOne);
    if (std::abs(residual) > std::abs(largest)) largest = residual;
  }
  return largest;
}

// One below the exponent at which the residual, of 16 bits, would fit: clipping by one step is
// accepted.
int FirstExponent(int residual) {
  int halvings = 0;
  while (residual < kMinResidual || residual > kMaxResidual) {
    residual /= 2;
    ++halvings;
  }
  return halvings > 0 ? halvings - 1 : 0;
}

// Truncation after adding a little less than a half: exact halves go toward zero.
int Quantise(int residual, double unit) {
  const double scaled = residual * unit;
  return static_cast<int>(residual > 0 ? scaled + 0.4999999 : scaled - 0.4999999);
}

// Encodes the frame at the candidate's exponent, predicting from what a decoder will hold. The
// result is the largest number of steps by which a residual was clipped.
int ClosedLoopPass(const int* in, Coefficients c, Candidate& candidate) {
  const double unit = 1.0 / (1 << candidate.scale);  // a power of two: multiplying by it is exact
  int maxClip = 0;
  candidate.error = 0.0;
  for (int j = 0; j < kFrameSize; ++j) {
    const int predicted = Predict(candidate.prediction + j, c);
    const int residual = WrappingSubtract(in[j + 2] * kOne, predicted) / kOne;
    int q = Quantise(residual, unit);
    if (q < kMinResidual) {
      if (kMinResidual - q > maxClip) maxClip = kMinResidual - q;
      q = kMinResidual;
    } else if (q > kMaxResidual) {
      if (q - kMaxResidual > maxClip) maxClip = q - kMaxResidual;
      q = kMaxResidual;
    }
    candidate.quantum[j] = q;
    const int restored = WrappingAdd(predicted, q * (1 << candidate.scale) * kOne + kHalf);
    candidate.prediction[j + 2] = Clamp16(restored >> kFractionBits);
    const double e = in[j + 2] - candidate.prediction[j + 2];
    candidate.error += e * e;
  }
  return maxClip;
}

// The frame by one table row, at the first exponent tried whose clipping is acceptable.
void EncodeWithRow(const int* in, Coefficients c, Candidate& candidate) {
  candidate.prediction[0] = in[0];
  candidate.prediction[1] = in[1];
  candidate.scale = FirstExponent(LargestOpenLoopResidual(in, c));
  for (;;) {
    const int maxClip = ClosedLoopPass(in, c, candidate);
    // The exponent grows with each pass, so there are 13 at most whatever the table is. With a
    // hostile one the clipping can be large even at the highest exponent.
    if (maxClip <= 1 || candidate.scale >= kMaxExponent) return;
    ++candidate.scale;
    // Heavy clipping skips exponents, up to the highest.
    for (int k = maxClip + 8; k > 256 && candidate.scale < kMaxExponent; k >>= 1) {
      ++candidate.scale;
    }
  }
}

void EncodeFrame(short* inbuffer, qz::uchar* outbuffer, const short* coeftable, qz::uchar step) {
  int in[kBlockSize];
  for (int i = 0; i < kBlockSize; ++i)
    in[i] = inbuffer[static_cast<std::ptrdiff_t>(i) * step];

  Candidate candidates[2];
  Candidate* best = &candidates[0];
  Candidate* next = &candidates[1];
  int bestRow = 0;
  for (int row = 0; row < static_cast<int>(kTableRows); ++row) {
    Candidate* const tried = row == 0 ? best : next;
    EncodeWithRow(in, Row(coeftable, row), *tried);
    // Ties are frequent, and the lower row stays.
    if (row > 0 && tried->error < best->error) {
      next = best;
      best = tried;
      bestRow = row;
    }
  }

  for (int j = 2; j < kBlockSize; ++j) {
    inbuffer[static_cast<std::ptrdiff_t>(j) * step] = static_cast<short>(best->prediction[j]);
  }
  outbuffer[0] = static_cast<qz::uchar>(bestRow * 16 | best->scale);
  for (std::ptrdiff_t m = 0; m < kFrameSize / 2; ++m) {
    outbuffer[1 + m] =
        static_cast<qz::uchar>((best->quantum[2 * m] & 15) * 16 | (best->quantum[2 * m + 1] & 15));
  }
}

void DecodeFrame(const qz::uchar* aramaddr, short* outbuffer, const short* coeftable,
                 qz::uchar step) {
  const int row = (aramaddr[0] >> 4) & static_cast<int>(kTableRows - 1);
  const Coefficients c = Row(coeftable, row);
  // 16 bits wide: exponent 15, which no encoder writes, is a gain of -32768.
  const int gain = static_cast<short>(static_cast<qz::ushort>(1u << (aramaddr[0] & 15)));

  int history[2] = {outbuffer[0], outbuffer[step]};
  short* out = outbuffer + 2 * static_cast<std::ptrdiff_t>(step);
  for (int j = 0; j < kFrameSize; ++j, out += step) {
    const int packed = aramaddr[1 + j / 2];
    int residual = j % 2 == 0 ? packed >> 4 : packed & 15;
    if (residual > kMaxResidual) residual -= 16;
    const int mac = WrappingAdd(Predict(history, c), residual * gain * kOne + kHalf);
    history[0] = history[1];
    history[1] = Clamp16(mac >> kFractionBits);
    *out = static_cast<short>(history[1]);
  }
}

}  // namespace

void EncodeFramesScalar(short* samples, std::size_t count, qz::uchar* frames, const short* table) {
  for (std::size_t i = 0; i < count; ++i) {
    EncodeFrame(samples + i * kSamplesPerFrame, frames + i * kBytesPerFrame, table, 1);
  }
}

void DecodeFramesScalar(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                        const short* table) {
  short block[kBlockSize] = {history[0], history[1]};
  for (std::size_t i = 0; i < count; ++i) {
    DecodeFrame(frames + i * kBytesPerFrame, block, table, 1);
    std::memcpy(samples + i * kSamplesPerFrame, block + kOrder, kSamplesPerFrame * sizeof(short));
    std::memcpy(block, block + kSamplesPerFrame, kOrder * sizeof(short));
  }
  std::memcpy(history, block, kOrder * sizeof(short));
}

}  // namespace adpcm

void adpcmEncodeFrame(short* inbuffer, qz::uchar* outbuffer, short* coeftable, qz::uchar step) {
  adpcm::EncodeFrame(inbuffer, outbuffer, coeftable, step);
}

void adpcmDecodeFrame(qz::uchar* aramaddr, short* outbuffer, short* coeftable, qz::uchar step) {
  adpcm::DecodeFrame(aramaddr, outbuffer, coeftable, step);
}
