// One whole encode with its decoding, as values that tests compare and hash.
#ifndef TESTS_ADPCM_STREAM_H_
#define TESTS_ADPCM_STREAM_H_

#include <cstdlib>
#include <optional>
#include <vector>

#include "adpcm/adpcm.h"

struct EncodedStream {
  bool ok = false;
  std::vector<short> table;
  std::vector<qz::uchar> frames;
  std::vector<short> y0, y1;
  short loopY0 = 0, loopY1 = 0;
  qz::uchar loopScale = 0, loopIndex = 0;
  std::vector<short> decoded;
};

inline EncodedStream EncodeStream(std::vector<short> samples, std::optional<qz::ulong> loop) {
  EncodedStream result;
  auto count = static_cast<qz::ulong>(samples.size());
  qz::ulong loopStart = loop.value_or(0);
  qz::ulong loopLength = 1;
  _ADPCMINFO info;
  if (adpcmEncodeSample(samples.data(), &count, &loopStart, loop ? &loopLength : nullptr, &info,
                        nullptr) != 1) {
    return result;
  }
  const qz::ulong blocks = info.numBlocks;
  result.table.assign(info.CoefTable, info.CoefTable + adpcm::kTableValues);
  result.frames.assign(info.Data, info.Data + info.DataBytes);
  result.y0.assign(info.y0, info.y0 + blocks);
  result.y1.assign(info.y1, info.y1 + blocks);
  result.loopY0 = info.loopY0;
  result.loopY1 = info.loopY1;
  result.loopScale = info.loopScale;
  result.loopIndex = info.loopIndex;
  if (short* decoded = adpcmDecodeSample(info.Data, count, info.CoefTable, nullptr)) {
    result.decoded.assign(decoded, decoded + blocks * adpcm::kSamplesPerFrame);
    std::free(decoded);
    result.ok = true;
  }
  adpcmFreeEncoded(&info);
  return result;
}

// 64-bit FNV-1a over everything above, 16-bit values in little-endian order.
inline qz::uint64 HashStream(const EncodedStream& stream) {
  qz::uint64 hash = 0xCBF29CE484222325u;
  const auto byte = [&hash](unsigned value) { hash = (hash ^ (value & 0xFFu)) * 0x100000001B3u; };
  const auto word = [&byte](short value) {
    byte(static_cast<qz::ushort>(value));
    byte(static_cast<unsigned>(static_cast<qz::ushort>(value)) >> 8);
  };
  for (const short value : stream.table)
    word(value);
  for (const qz::uchar value : stream.frames)
    byte(value);
  for (const short value : stream.y0)
    word(value);
  for (const short value : stream.y1)
    word(value);
  word(stream.loopY0);
  word(stream.loopY1);
  byte(stream.loopScale);
  byte(stream.loopIndex);
  for (const short value : stream.decoded)
    word(value);
  return hash;
}

#endif  // TESTS_ADPCM_STREAM_H_
