// MORT, this library's own container for compressed mono sound: a head of 44 bytes, numbers least
// significant byte first, and behind it one codec's stream to the end of the file.
//
//   offset  bytes  content
//        0      4  "MORT"
//        4      2  0
//        6      2  version, 1
//        8      2  codec: 0 GSM blocks, 1 GB
//       10      2  bits per sample of the sound, 16
//       12      2  original key
//       14      2  channels, 1
//       16      4  sample rate
//       20      4  LengthInBytes of the record that was written; readers ignore it
//       24      4  sample frames of the sound
//       28     16  0
#ifndef AUDIO_MORT_FORMAT_H_
#define AUDIO_MORT_FORMAT_H_

#include <cstddef>

#include "common/qztypes.h"

inline constexpr char mortMagic[6] = {'M', 'O', 'R', 'T', 0, 0};
inline constexpr qz::ushort mortVersion = 1;
inline constexpr qz::ushort mortBitsPerSample = 16;
inline constexpr qz::ushort mortNumChannels = 1;

enum MortCodec : qz::ushort { MORT_CODEC_GSM = 0, MORT_CODEC_GB = 1 };

// `UsesCompression` of a record.
enum MortCompression : qz::ushort {
  MORT_COMPRESSION_NONE = 0,
  MORT_COMPRESSION_GSM = 1,
  MORT_COMPRESSION_GB = 2
};

inline constexpr std::size_t mortOffsetVersion = 6;
inline constexpr std::size_t mortOffsetCodec = 8;
inline constexpr std::size_t mortOffsetBits = 10;
inline constexpr std::size_t mortOffsetKey = 12;
inline constexpr std::size_t mortOffsetChannels = 14;
inline constexpr std::size_t mortOffsetRate = 16;
inline constexpr std::size_t mortOffsetNumSamples = 24;
inline constexpr std::size_t mortHeadSize = 44;

#endif  // AUDIO_MORT_FORMAT_H_
