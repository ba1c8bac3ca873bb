// The runs of a MORT file's stream, without the sound in them: what the stream can give at most,
// and what dump shows. docs/formats/gsm-stream.md and gb-stream.md tell the layouts.
#ifndef HOST_MORT_STREAM_H_
#define HOST_MORT_STREAM_H_

#include <functional>
#include <string>

#include "host/byte_reader.h"

namespace samplehost {

inline constexpr U64 kGsmHeadSize = 12;
inline constexpr U64 kGbBlockSize = 16;
inline constexpr U64 kGbBlockSamples = 32;

struct GsmHead {
  U64 sampleRate = 0;
  U64 numBlocks = 0;
  U64 numWords = 0;
};

// A row of blocks of one kind.
struct MortRun {
  U64 bit = 0;  // where it starts: bits from the start of the stream
  bool silent = false;
  U64 blocks = 0;
};
using OnMortRun = std::function<void(const MortRun&)>;

struct MortStream {
  U64 most = 0;  // no sound of more samples can have given this stream
  U64 runs = 0;
  std::string problem;  // why it cannot be decoded; empty where it can
};

// Damage where the stream is shorter than its head, or another one.
GsmHead ReadGsmHead(ByteReader stream);

// Walk the stream from its first byte, calling `onRun` for each run where one is given. They throw
// nothing of their own.
MortStream WalkGsm(const ByteReader& stream, const OnMortRun& onRun = {});
// A silent run is a marker, whose `blocks` is its count byte: the blocks that it decodes to.
MortStream WalkGb(const ByteReader& stream, const OnMortRun& onRun = {});

}  // namespace samplehost

#endif  // HOST_MORT_STREAM_H_
