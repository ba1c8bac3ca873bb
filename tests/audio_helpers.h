// What the audio tests share: files made of bytes, and records that free themselves.
#ifndef TESTS_AUDIO_HELPERS_H_
#define TESTS_AUDIO_HELPERS_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "audio/audio.h"
#include "platform/native.h"

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

// A folder that goes with its object; in memory where the machine has such a place.
class TempFolder {
 public:
  TempFolder() {
    native_ = std::filesystem::exists("/dev/shm") ? "/dev/shm/audioXXXXXX" : "/tmp/audioXXXXXX";
    if (mkdtemp(native_.data()) == nullptr) std::abort();
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() { std::filesystem::remove_all(native_); }

  std::string Native(const std::string& name) const { return native_ + "/" + name; }
  std::string Path(const std::string& name) const {
    std::string path;
    std::string why;
    EXPECT_TRUE(platform::FromNative(Native(name), path, why)) << why;
    return path;
  }
  std::string Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream(Native(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
    return Path(name);
  }
  Bytes Read(const std::string& name) const {
    std::ifstream file(Native(name), std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }

 private:
  std::string native_;
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
inline std::vector<qz::int64> Numbers(const _AUDIO& a) {
  return {a.Reserved,      a.LengthInBytes, a.SampleRate,  a.NumSamples,
          a.BitsPerSample, a.NumChannels,   a.OriginalKey, a.UsesCompression,
          a.LoopStart,     a.LoopEnd,       a.LoopType,    a.LoopCount};
}
inline std::vector<qz::int64> KeyAndLoop(const _AUDIO& a) {
  return {a.OriginalKey, a.LoopStart, a.LoopEnd, a.LoopType, a.LoopCount};
}

}  // namespace audiotest

#endif  // TESTS_AUDIO_HELPERS_H_
