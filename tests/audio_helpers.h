// What the audio tests share: files made of bytes, and records that free themselves.
#ifndef TESTS_AUDIO_HELPERS_H_
#define TESTS_AUDIO_HELPERS_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
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

// A chunk with its pad byte, little-endian or big-endian.
inline Bytes Pad(Bytes bytes) {
  if (bytes.size() % 2 != 0) bytes.push_back(0xEE);
  return bytes;
}
inline Bytes Chunk(const std::string& name, const Bytes& data) {
  return Pad(Text(name) + Le(data.size(), 4) + data);
}
inline Bytes BeChunk(const std::string& name, const Bytes& data) {
  return Pad(Text(name) + Be(data.size(), 4) + data);
}

inline qz::ulong LeAt(const Bytes& bytes, std::size_t offset, int numBytes) {
  qz::ulong value = 0;
  for (int i = numBytes; i-- > 0;) {
    value = value << 8 | bytes.at(offset + static_cast<std::size_t>(i));
  }
  return value;
}

// A folder that goes with its object.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "audioXXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    native_ = pattern;
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
    std::ofstream file(Native(name), std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
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

// A record with the result that filled it.
struct Sound : _AUDIO {
  Sound() : _AUDIO{} {}
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
  ~Sound() { audio_FreeWave(this); }

  // A plain sound of 16-bit samples.
  void Set16(const std::vector<short>& samples, qz::ushort channels, qz::ulong rate) {
    LengthInBytes = static_cast<qz::ulong>(samples.size() * 2);
    Samples = std::malloc(samples.size() * 2 + 1);
    std::memcpy(Samples, samples.data(), samples.size() * 2);
    NumSamples = static_cast<qz::ulong>(samples.size() / channels);
    NumChannels = channels;
    SampleRate = rate;
    BitsPerSample = 16;
    LoopStart = LoopEnd = AUDIO_NOLOOP;
  }
  void Set8(const Bytes& samples, qz::ulong rate) {
    LengthInBytes = NumSamples = static_cast<qz::ulong>(samples.size());
    Samples = std::malloc(samples.size() + 1);
    std::memcpy(Samples, samples.data(), samples.size());
    NumChannels = 1;
    SampleRate = rate;
    BitsPerSample = 8;
    LoopStart = LoopEnd = AUDIO_NOLOOP;
  }

  Bytes Raw() const {
    const auto* bytes = static_cast<const unsigned char*>(Samples);
    return bytes == nullptr ? Bytes{} : Bytes(bytes, bytes + LengthInBytes);
  }
  std::vector<short> Samples16() const {
    std::vector<short> samples(LengthInBytes / 2);
    if (!samples.empty()) std::memcpy(samples.data(), Samples, samples.size() * 2);
    return samples;
  }
};

// Everything but the samples, for comparisons and messages.
inline std::vector<qz::int64> Numbers(const _AUDIO& a) {
  return {a.Reserved,      a.LengthInBytes, a.SampleRate,  a.NumSamples,
          a.BitsPerSample, a.NumChannels,   a.OriginalKey, a.UsesCompression,
          a.LoopStart,     a.LoopEnd,       a.LoopType,    a.LoopCount};
}

// Samples with some life in them, the same at every call.
inline std::vector<short> Noise(std::size_t count) {
  std::vector<short> samples;
  qz::ulong state = 12345;
  for (std::size_t i = 0; i < count; ++i) {
    state = state * 1664525u + 1013904223u;
    samples.push_back(static_cast<short>(state >> 16));
  }
  return samples;
}

}  // namespace audiotest

#endif  // TESTS_AUDIO_HELPERS_H_
