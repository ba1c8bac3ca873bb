// Facts and data of one sample: what `list` and `info` show and what `export` writes.
//
// Data comes through the library's interface; the host reads a raw file itself only for what that
// interface does not tell: the width of its samples, how often its loop plays, and how many samples
// it has at this moment, which bounds what the library hands out.
#ifndef HOST_SAMPLE_DATA_H_
#define HOST_SAMPLE_DATA_H_

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/nodes.h"
#include "host/session.h"

namespace samplehost {

// What the library and the database know of a sample without reading its data.
struct SampleFacts {
  std::string qualityClass;
  SDInfo info;
  std::string rawPath;                    // full path
  std::optional<std::uint64_t> rawBytes;  // sizes of the two files; nothing for a missing one
  std::optional<std::uint64_t> encodedBytes;
};

// How far the decoded samples of one channel are from the raw ones.
struct ChannelNoise {
  bool exact = false;        // not one sample differs
  std::optional<double> db;  // signal to noise; nothing where exact or where the sound is silence
};

// The samples of one channel.
struct Channel {
  std::unique_ptr<short, decltype(&std::free)> samples{nullptr, &std::free};
  std::uint64_t length = 0;
};

// What the raw file says of itself.
struct RawFile {
  std::uint64_t length = 0;  // samples per channel
  unsigned bits = 16;
  std::int32_t loopCount = -1;  // -1: without end
};

// Failure where the node has no such class.
SampleFacts FactsOf(Session& session, Node& node, const std::string& qualityClass);
// The node's classes in import order.
std::vector<SampleFacts> AllFactsOf(Session& session, Node& node);

// Raw size against encoded size; nothing where one is missing or empty.
std::optional<double> RatioOf(const SampleFacts& facts);

// Failure where the raw file cannot be read.
RawFile ReadRawFile(const SampleFacts& facts);

// Failure with the library's text. A decoded channel is cut to the sample's length.
Channel RawChannel(Node& node, const SampleFacts& facts, const RawFile& file, unsigned channel);
Channel DecodedChannel(Node& node, const SampleFacts& facts, unsigned channel);
std::vector<unsigned char> EncodedChannel(Node& node, const SampleFacts& facts, unsigned channel);

// One entry a channel. Failure where a file cannot be read.
std::vector<ChannelNoise> NoiseOf(Node& node, const SampleFacts& facts);

// Is the encoded file as long as the sample needs? A full disk can cut it behind the library's
// back.
bool EncodedIsWhole(Node& node, const SampleFacts& facts);

}  // namespace samplehost

#endif  // HOST_SAMPLE_DATA_H_
