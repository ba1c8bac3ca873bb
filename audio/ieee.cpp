#include <cmath>
#include <limits>

#include "audio/audio.h"

namespace {

// 10 bytes: sign and 15 exponent bits, then 64 mantissa bits of which the highest is the integer
// bit. The exponent is biased such that it belongs to that integer bit.
constexpr int kBias = 16383;
constexpr int kExponentOfHigh = kBias + 31;  // of the lowest bit of the mantissa's upper half
constexpr int kExponentOfLow = kBias + 63;
constexpr int kInfinity = 0x7FFF;

qz::ulong Load32(const unsigned char* bytes) {
  return qz::ulong{bytes[0]} << 24 | qz::ulong{bytes[1]} << 16 | qz::ulong{bytes[2]} << 8 |
         qz::ulong{bytes[3]};
}

void Store(qz::ulong value, int numBytes, unsigned char* bytes) {
  for (int i = 0; i < numBytes; ++i) {
    bytes[i] = static_cast<unsigned char>(value >> 8 * (numBytes - 1 - i));
  }
}

}  // namespace

double audioConvertFromIeeeExtended(const unsigned char* bytes) {
  const int exponent = (bytes[0] & 0x7F) << 8 | bytes[1];
  const qz::ulong high = Load32(bytes + 2);
  const qz::ulong low = Load32(bytes + 6);

  double value = 0.0;
  if (exponent == kInfinity) {
    value = std::numeric_limits<double>::infinity();
  } else if (exponent != 0 || high != 0 || low != 0) {
    value = std::ldexp(static_cast<double>(high), exponent - kExponentOfHigh) +
            std::ldexp(static_cast<double>(low), exponent - kExponentOfLow);
  } else {
    return 0.0;  // minus nothing is nothing
  }
  return (bytes[0] & 0x80) != 0 ? -value : value;
}

void audioConvertToIeeeExtended(double value, unsigned char* bytes) {
  qz::ulong sign = 0;
  if (value < 0) {
    sign = 0x8000;
    value = -value;
  }

  qz::ulong exponentWord = 0;
  qz::ulong high = 0;
  qz::ulong low = 0;
  if (value != 0) {
    int exponent = 0;
    double mantissa = std::frexp(value, &exponent);
    if (!(mantissa < 1)) {  // infinity and not-a-number
      exponentWord = sign | kInfinity;
    } else {
      // frexp's mantissa is below 1, this form's below 2. The exponent of a double always fits.
      exponentWord = sign | static_cast<qz::ulong>(exponent + kBias - 1);
      mantissa = std::ldexp(mantissa, 32);
      high = static_cast<qz::ulong>(std::floor(mantissa));
      mantissa = std::ldexp(mantissa - std::floor(mantissa), 32);
      low = static_cast<qz::ulong>(std::floor(mantissa));
    }
  }
  Store(exponentWord, 2, bytes);
  Store(high, 4, bytes + 2);
  Store(low, 4, bytes + 6);
}
