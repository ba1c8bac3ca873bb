// What tests of sound files share: files made of bytes, and records that free themselves.
#ifndef TESTS_AUDIO_HELPERS_H_
#define TESTS_AUDIO_HELPERS_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "audio/audio.h"
#include "tests/platform_folder.h"

namespace audiotest {

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

inline Bytes Part(const Bytes& bytes, std::size_t from, std::size_t to) {
  return Bytes(bytes.begin() + static_cast<long>(from), bytes.begin() + static_cast<long>(to));
}

// `numBytes` bytes of `value`, least significant first, or most significant first.
inline Bytes Le(qz::uint64 value, int numBytes) {
  Bytes bytes;
  for (int i = 0; i < numBytes; ++i)
    bytes.push_back(static_cast<unsigned char>(value >> 8 * i));
  return bytes;
}
inline Bytes Be(qz::uint64 value, int numBytes) {
  const Bytes bytes = Le(value, numBytes);
  return Bytes(bytes.rbegin(), bytes.rend());
}

inline Bytes Words(std::initializer_list<qz::ulong> words) {
  Bytes bytes;
  for (const qz::ulong word : words)
    bytes = bytes + Le(word, 4);
  return bytes;
}

inline Bytes Samples(const std::vector<short>& samples) {
  Bytes bytes;
  for (const short sample : samples)
    bytes = bytes + Le(static_cast<qz::ushort>(sample), 2);
  return bytes;
}

// Bytes with some life in them, the same at every call.
inline Bytes Noise(std::size_t count) {
  Bytes bytes;
  for (qz::ulong state = 12345; bytes.size() < count; state = state * 1664525u + 1013904223u) {
    bytes.push_back(static_cast<unsigned char>(state >> 20));
  }
  return bytes;
}

// A chunk with its pad byte, little-endian or big-endian.
inline Bytes Chunk(const std::string& name, const Bytes& data) {
  return Text(name) + Le(data.size(), 4) + data + Bytes(data.size() % 2, 0xEE);
}
inline Bytes BeChunk(const std::string& name, const Bytes& data) {
  return Text(name) + Be(data.size(), 4) + data + Bytes(data.size() % 2, 0xEE);
}

inline Bytes RiffFile(const Bytes& chunks) {
  return Text("RIFF") + Le(chunks.size() + 4, 4) + Text("WAVE") + chunks;
}

// The parts of an AIFF file. Its markers count by their order, not by their numbers.
inline Bytes AiffFile(const Bytes& chunks) {
  return Text("FORM") + Be(chunks.size() + 4, 4) + Text("AIFF") + chunks;
}
inline Bytes AiffCommon(qz::ushort channels, qz::ulong frames, qz::ushort bits, double rate) {
  Bytes extended(10);
  audioConvertToIeeeExtended(rate, extended.data());
  return BeChunk("COMM", Be(channels, 2) + Be(frames, 4) + Be(bits, 2) + extended);
}
inline Bytes AiffMarks(const std::vector<std::pair<qz::ulong, std::string>>& marks,
                       std::size_t count) {
  Bytes list = Be(count, 2);
  for (const auto& [position, name] : marks) {
    list = list + Be(77, 2) + Be(position, 4) + Be(name.size(), 1) + Text(name) +
           Bytes((name.size() + 1) % 2);
  }
  return BeChunk("MARK", list);
}
// `sustainEnd` and `releaseEnd` are 0 where there is no such loop.
inline Bytes AiffInst(unsigned char key, qz::ushort sustainEnd, qz::ushort releaseEnd) {
  return BeChunk("INST", Bytes{key} + Bytes(8, 1) + Bytes(2) + Be(1, 1) + Be(sustainEnd, 2) +
                             Bytes(4) + Be(releaseEnd, 2));
}
inline Bytes AiffSamples(const Bytes& samples) {
  return BeChunk("SSND", Bytes(8) + samples);
}

struct TempFolder : platform_test::TempFolder {
  TempFolder() : platform_test::TempFolder(platform_test::FastPlace()) {}

  std::string Write(const std::string& name, const Bytes& bytes) const {
    Put(name, {bytes.begin(), bytes.end()});
    return Path(name);
  }
  Bytes Read(const std::string& name) const {
    EXPECT_TRUE(std::filesystem::exists(Native(name))) << name;
    return Text(Get(name));
  }
};

// A record: empty to begin with, or a plain sound.
struct Sound : _AUDIO {
  Sound() : _AUDIO() {}
  Sound(const Bytes& raw, qz::ushort bits, qz::ushort channels, qz::ulong rate) : Sound() {
    LengthInBytes = static_cast<qz::ulong>(raw.size());
    Samples = std::malloc(raw.size() + 1);
    std::copy(raw.begin(), raw.end(), static_cast<unsigned char*>(Samples));
    NumSamples = LengthInBytes / (channels * bits / 8u);
    NumChannels = channels;
    SampleRate = rate;
    BitsPerSample = bits;
    LoopStart = LoopEnd = AUDIO_NOLOOP;
  }
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
  ~Sound() { audio_FreeWave(this); }

  Bytes Raw() const {
    const auto* bytes = static_cast<const unsigned char*>(Samples);
    return bytes == nullptr ? Bytes{} : Bytes(bytes, bytes + LengthInBytes);
  }
};

// Everything but the samples, for comparisons and messages.
using Numbers = std::array<qz::int64, 12>;
inline Numbers NumbersOf(const _AUDIO& a) {
  return {a.Reserved,      a.LengthInBytes, a.SampleRate,  a.NumSamples,
          a.BitsPerSample, a.NumChannels,   a.OriginalKey, a.UsesCompression,
          a.LoopStart,     a.LoopEnd,       a.LoopType,    a.LoopCount};
}

}  // namespace audiotest

#endif  // TESTS_AUDIO_HELPERS_H_
