// One whole encode with its decoding, as values that tests compare and hash.
#ifndef TESTS_ADPCM_STREAM_H_
#define TESTS_ADPCM_STREAM_H_

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <vector>

#include "adpcm/adpcm.h"

// What a player holds in front of the loop start: two samples, row and exponent.
using LoopState = std::array<int, 4>;

struct EncodedStream {
  bool ok = false;
  std::vector<short> table;
  std::vector<qz::uchar> frames;
  std::vector<short> y0, y1;
  LoopState loop{};
  std::vector<short> decoded;
};

inline EncodedStream EncodeStream(std::vector<short> samples, std::optional<qz::ulong> loop) {
  EncodedStream result;
  auto count = static_cast<qz::ulong>(samples.size());
  qz::ulong loopStart = loop.value_or(0);
  qz::ulong loopLength = 1;
  _ADPCMINFO info;
  if (adpcmEncodeSample(samples.data(), &count, loop ? &loopStart : nullptr,
                        loop ? &loopLength : nullptr, &info, nullptr) != 1) {
    return result;
  }
  const qz::ulong blocks = info.numBlocks;
  result.table.assign(info.CoefTable, info.CoefTable + adpcm::kTableValues);
  result.frames.assign(info.Data, info.Data + info.DataBytes);
  result.y0.assign(info.y0, info.y0 + blocks);
  result.y1.assign(info.y1, info.y1 + blocks);
  result.loop = {info.loopY0, info.loopY1, info.loopScale, info.loopIndex};
  if (short* decoded = adpcmDecodeSample(info.Data, count, info.CoefTable, nullptr)) {
    result.decoded.assign(decoded, decoded + blocks * adpcm::kSamplesPerFrame);
    std::free(decoded);
    result.ok = info.Data != nullptr;
  }
  adpcmFreeEncoded(&info);
  return result;
}

// 64-bit FNV-1a over everything above, 16-bit values in little-endian order.
inline qz::uint64 HashStream(const EncodedStream& stream) {
  qz::uint64 hash = 0xCBF29CE484222325u;
  const auto byte = [&hash](int value) {
    hash = (hash ^ static_cast<qz::uchar>(value)) * 0x100000001B3u;
  };
  const auto word = [&byte](int value) {
    byte(value);
    byte(value >> 8);
  };
  const auto [loopY0, loopY1, loopScale, loopIndex] = stream.loop;
  std::for_each(stream.table.begin(), stream.table.end(), word);
  std::for_each(stream.frames.begin(), stream.frames.end(), byte);
  std::for_each(stream.y0.begin(), stream.y0.end(), word);
  std::for_each(stream.y1.begin(), stream.y1.end(), word);
  word(loopY0);
  word(loopY1);
  byte(loopScale);
  byte(loopIndex);
  std::for_each(stream.decoded.begin(), stream.decoded.end(), word);
  return hash;
}

#endif  // TESTS_ADPCM_STREAM_H_
