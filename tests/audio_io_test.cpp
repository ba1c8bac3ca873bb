// The byte-order helpers and the 80-bit float.
#include <cmath>
#include <limits>
#include <memory>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// A scratch stream that holds `bytes` and stands at its start.
Stream Scratch(const Bytes& bytes = {}) {
  Stream stream(std::tmpfile(), std::fclose);
  std::fwrite(bytes.data(), 1, bytes.size(), stream.get());
  std::rewind(stream.get());
  return stream;
}

TEST(AudioEndian, OddElementSizesAndNoElementsTouchNothing) {
  for (const qz::ulong size : {0u, 3u, 8u, 0xFFFFFFFFu}) {
    const Stream scratch = Scratch(Bytes(8, 0x11));
    std::FILE* const stream = scratch.get();
    Bytes buffer(8, 0xAA);
    EXPECT_EQ(audioReadIntel(buffer.data(), size, 1, stream), 0u) << size;
    EXPECT_EQ(audioReadMotorola(buffer.data(), size, 1, stream), 0u) << size;
    EXPECT_EQ(audioWriteEndian(buffer.data(), size, 1, stream, true), 0u) << size;
    EXPECT_EQ(audioReadIntel(nullptr, 4, 0, stream), 0u);
    EXPECT_EQ(audioWriteEndian(nullptr, 4, 0, stream, false), 0u);
    EXPECT_EQ(buffer, Bytes(8, 0xAA));
    EXPECT_EQ(std::ftell(stream), 0);
  }
}

// What a loop over single bytes gives, with the bytes that are missing as zeros.
TEST(AudioEndian, ReadsCountBytesAndZeroTheRestOfAnElementThatTheEndCuts) {
  for (const qz::ulong size : {1u, 2u, 4u}) {
    for (unsigned have = 0; have <= 12; ++have) {
      SCOPED_TRACE(testing::Message() << size << " with " << have);
      const Bytes content = Noise(have);
      Bytes intel(12, 0xAA);
      std::fill_n(intel.begin(), (have + size - 1) / size * size, 0);
      Bytes motorola = intel;
      for (unsigned i = 0; i < have; ++i) {
        intel[i] = content[i];
        motorola[i / size * size + size - 1 - i % size] = content[i];
      }

      Bytes buffer(12, 0xAA);
      EXPECT_EQ(audioReadIntel(buffer.data(), size, 12 / size, Scratch(content).get()), have);
      EXPECT_EQ(buffer, intel);
      buffer.assign(12, 0xAA);
      EXPECT_EQ(audioReadMotorola(buffer.data(), size, 12 / size, Scratch(content).get()), have);
      EXPECT_EQ(buffer, motorola);
    }
  }
  qz::ulong word = 0;
  audioReadMotorola(&word, 4, 1, Scratch({0x78, 0x56, 0x34, 0x12}).get());
  EXPECT_EQ(word, 0x78563412u);
}

TEST(AudioEndian, WritesAreTheTwinOfTheReads) {
  const Bytes data = Noise(20004);  // more than one work block
  for (const qz::ulong size : {1u, 2u, 4u}) {
    const auto count = static_cast<qz::ulong>(data.size()) / size;
    for (const bool bigEndian : {false, true}) {
      const Stream scratch = Scratch();
      std::FILE* const stream = scratch.get();
      EXPECT_EQ(audioWriteEndian(data.data(), size, count, stream, bigEndian), data.size());
      std::rewind(stream);
      EXPECT_EQ(std::fgetc(stream), data[bigEndian ? size - 1 : 0]);
      std::rewind(stream);
      Bytes back(data.size());
      (bigEndian ? audioReadMotorola : audioReadIntel)(back.data(), size, count, stream);
      EXPECT_EQ(back, data);
    }
  }
}

TEST(AudioExtendedFloat, ReadsAndWritesTheSameTenBytes) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    Bytes bytes;
  } cases[] = {
      {44100.0, {0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
      {-44100.0, {0xC0, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
      {1.0 + std::ldexp(1.0, -40), {0x3F, 0xFF, 0x80, 0, 0, 0, 0, 0x80, 0, 0}},
      {0.0, Bytes(10)},
      {-0.0, Bytes(10)},
      {kInfinity, {0x7F, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}},
      {-kInfinity, {0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(audioConvertFromIeeeExtended(test.bytes.data()), test.value);
    Bytes bytes(10, 0xAA);
    audioConvertToIeeeExtended(test.value, bytes.data());
    EXPECT_EQ(bytes, test.bytes) << test.value;
  }
  Bytes bytes(10);
  for (const double value : {std::numeric_limits<double>::max(), -1e-300, 1.0 / 3.0,
                             std::numeric_limits<double>::denorm_min()}) {
    audioConvertToIeeeExtended(value, bytes.data());
    EXPECT_EQ(audioConvertFromIeeeExtended(bytes.data()), value);
  }
  audioConvertToIeeeExtended(std::numeric_limits<double>::quiet_NaN(), bytes.data());
  EXPECT_EQ(bytes[0] & 0x7F, 0x7F);
  EXPECT_EQ(Part(bytes, 1, 10), Bytes{0xFF} + Bytes(8, 0));
  // Beyond a double on either side.
  bytes = {0x7F, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(audioConvertFromIeeeExtended(bytes.data()), kInfinity);
  EXPECT_EQ(audioConvertFromIeeeExtended((Bytes(9) + Bytes{1}).data()), 0.0);
}

}  // namespace
}  // namespace audiotest
