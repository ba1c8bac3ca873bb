// The byte-order helpers and the 80-bit float.
#include <cmath>
#include <cstdio>
#include <limits>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

// A scratch stream that holds `bytes` and stands at its start.
class Stream {
 public:
  explicit Stream(const Bytes& bytes = {}) : file_(std::tmpfile()) {
    std::fwrite(bytes.data(), 1, bytes.size(), file_);
    std::rewind(file_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { std::fclose(file_); }
  operator std::FILE*() { return file_; }
  Bytes All() {
    std::rewind(file_);
    Bytes bytes(1 << 20);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file_));
    return bytes;
  }

 private:
  std::FILE* file_;
};

TEST(AudioEndianReads, GiveTheNumberInTheProcessorsOrder) {
  const Bytes bytes = {0x78, 0x56, 0x34, 0x12};
  qz::ulong word = 0;
  EXPECT_EQ(audioReadIntel(&word, 4, 1, Stream(bytes)), 4u);
  EXPECT_EQ(word, 0x12345678u);
  EXPECT_EQ(audioReadMotorola(&word, 4, 1, Stream(bytes)), 4u);
  EXPECT_EQ(word, 0x78563412u);
  qz::ushort half[2] = {};
  EXPECT_EQ(audioReadIntel(half, 2, 2, Stream(bytes)), 4u);
  EXPECT_EQ(half[0], 0x5678);
  EXPECT_EQ(half[1], 0x1234);
  EXPECT_EQ(audioReadMotorola(half, 2, 2, Stream(bytes)), 4u);
  EXPECT_EQ(half[0], 0x7856);
  EXPECT_EQ(half[1], 0x3412);
}

TEST(AudioEndianReads, TouchNothingForOddElementSizes) {
  for (const qz::ulong size : {0u, 3u, 5u, 8u, 0xFFFFFFFFu}) {
    Stream stream({1, 2, 3, 4, 5, 6, 7, 8});
    Bytes buffer(8, 0xAA);
    EXPECT_EQ(audioReadIntel(buffer.data(), size, 1, stream), 0u) << size;
    EXPECT_EQ(audioReadMotorola(buffer.data(), size, 1, stream), 0u) << size;
    EXPECT_EQ(audioWriteEndian(buffer.data(), size, 1, stream, true), 0u) << size;
    EXPECT_EQ(buffer, Bytes(8, 0xAA));
    EXPECT_EQ(std::ftell(stream), 0);
  }
  EXPECT_EQ(audioReadIntel(nullptr, 4, 0, Stream({1, 2, 3, 4})), 0u);
}

// What a loop over single bytes gives, with the bytes that are missing as zeros.
TEST(AudioEndianReads, CountBytesAndZeroTheRestOfAnElementThatTheEndCuts) {
  for (const qz::ulong size : {1u, 2u, 4u}) {
    for (unsigned have = 0; have <= 12; ++have) {
      SCOPED_TRACE(testing::Message() << size << " with " << have);
      Bytes content;
      for (unsigned i = 0; i < have; ++i)
        content.push_back(static_cast<unsigned char>(0x11 + i));
      const unsigned touched = (have + size - 1) / size * size;
      Bytes intel(12, 0xAA);
      Bytes motorola(12, 0xAA);
      std::fill_n(intel.begin(), touched, 0);
      std::fill_n(motorola.begin(), touched, 0);
      for (unsigned i = 0; i < have; ++i) {
        intel[i] = content[i];
        motorola[i / size * size + size - 1 - i % size] = content[i];
      }

      Bytes buffer(12, 0xAA);
      EXPECT_EQ(audioReadIntel(buffer.data(), size, 12 / size, Stream(content)), have);
      EXPECT_EQ(buffer, intel);
      buffer.assign(12, 0xAA);
      EXPECT_EQ(audioReadMotorola(buffer.data(), size, 12 / size, Stream(content)), have);
      EXPECT_EQ(buffer, motorola);
    }
  }
}

TEST(AudioEndianWrites, AreTheTwinOfTheReadsBeyondTheWorkBlock) {
  Bytes data;
  for (const short sample : Noise(9999))
    data = data + Le(static_cast<qz::ushort>(sample), 2);
  data.resize(19996);
  for (const qz::ulong size : {1u, 2u, 4u}) {
    const auto count = static_cast<qz::ulong>(data.size() / size);
    for (const bool bigEndian : {false, true}) {
      Stream stream;
      EXPECT_EQ(audioWriteEndian(data.data(), size, count, stream, bigEndian), data.size());
      const Bytes all = stream.All();
      EXPECT_EQ(all == data, size == 1 || !bigEndian);
      Bytes back(data.size());
      std::rewind(stream);
      (bigEndian ? audioReadMotorola : audioReadIntel)(back.data(), size, count, stream);
      EXPECT_EQ(back, data);
    }
  }
}

TEST(AudioExtendedFloat, ReadsAndWritesTheSameTenBytes) {
  const struct {
    double value;
    Bytes bytes;
  } cases[] = {
      {44100.0, {0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
      {-44100.0, {0xC0, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}},
      {22050.5, {0x40, 0x0D, 0xAC, 0x45, 0, 0, 0, 0, 0, 0}},
      {1.0, {0x3F, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0}},
      {1.0 + std::ldexp(1.0, -40), {0x3F, 0xFF, 0x80, 0, 0, 0, 0, 0x80, 0, 0}},
      {0.0, Bytes(10)},
      {std::numeric_limits<double>::infinity(), {0x7F, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}},
      {-std::numeric_limits<double>::infinity(), {0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(audioConvertFromIeeeExtended(test.bytes.data()), test.value);
    Bytes bytes(10, 0xAA);
    audioConvertToIeeeExtended(test.value, bytes.data());
    EXPECT_EQ(bytes, test.bytes) << test.value;
  }
  for (const double value : {std::numeric_limits<double>::max(), std::numeric_limits<double>::min(),
                             std::numeric_limits<double>::denorm_min(), 1.0 / 3.0, -1e-300}) {
    Bytes bytes(10);
    audioConvertToIeeeExtended(value, bytes.data());
    EXPECT_EQ(audioConvertFromIeeeExtended(bytes.data()), value);
  }
}

TEST(AudioExtendedFloat, HasOneZeroAndNoNotANumber) {
  Bytes bytes(10, 0xAA);
  audioConvertToIeeeExtended(-0.0, bytes.data());
  EXPECT_EQ(bytes, Bytes(10));
  const Bytes infinity = {0x7F, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
  audioConvertToIeeeExtended(std::numeric_limits<double>::quiet_NaN(), bytes.data());
  EXPECT_EQ(bytes, infinity);
  bytes.assign(10, 0xFF);
  EXPECT_EQ(audioConvertFromIeeeExtended(bytes.data()), -std::numeric_limits<double>::infinity());
  // Beyond a double on either side.
  EXPECT_TRUE(std::isinf(
      audioConvertFromIeeeExtended(Bytes{0x7F, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0}.data())));
  EXPECT_EQ(audioConvertFromIeeeExtended(Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 1}.data()), 0.0);
}

}  // namespace
}  // namespace audiotest
