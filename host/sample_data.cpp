#include "host/sample_data.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "audio/audio.h"
#include "host/advice.h"
#include "host/failure.h"
#include "host/paths.h"

namespace samplehost {

namespace {

constexpr std::uint64_t kFrameSamples = 14;
constexpr std::uint64_t kFrameBytes = 8;

[[noreturn]] void FailWithNode(const Node& node, const std::string& qualityClass) {
  qz::ulong code = 0;
  const std::string text = node.LastError(code);
  throw Failure(fmt::format("Node \"{}\", class \"{}\": {}.", node.name(), qualityClass, text),
                AdviceFor(static_cast<SDAccessInterface::SDError>(code)));
}

bool IsPcm16(const SampleFacts& facts) {
  return facts.info.type == "PCM16";
}
bool IsPcm8(const SampleFacts& facts) {
  return facts.info.type == "PCM8";
}

std::uint64_t BytesPerChannel(const SampleFacts& facts) {
  const std::uint64_t length = facts.info.length;
  if (IsPcm16(facts)) return length * 2;
  if (IsPcm8(facts)) return length;
  return (length + kFrameSamples - 1) / kFrameSamples * kFrameBytes;
}

}  // namespace

SampleFacts FactsOf(Session& session, Node& node, const std::string& qualityClass) {
  SampleFacts facts;
  facts.qualityClass = qualityClass;
  if (node.sample().GetSampleInformation(qualityClass.c_str(), facts.info) == nullptr) {
    FailWithNode(node, qualityClass);
  }
  facts.rawPath = Expand(session.folder(), facts.info.fileName);
  facts.rawBytes = FileSize(facts.rawPath);
  facts.encodedBytes = FileSize(EncodedPathOf(facts.rawPath));
  return facts;
}

std::vector<SampleFacts> AllFactsOf(Session& session, Node& node) {
  std::vector<SampleFacts> all;
  for (const qz::string& name : node.sample().GetQualityClasses()) {
    all.push_back(FactsOf(session, node, Narrow(name)));
  }
  return all;
}

std::optional<double> RatioOf(const SampleFacts& facts) {
  if (!facts.rawBytes || facts.encodedBytes.value_or(0) == 0) return {};
  return static_cast<double>(*facts.rawBytes) / static_cast<double>(*facts.encodedBytes);
}

RawFile ReadRawFile(const SampleFacts& facts) {
  _AUDIO audio{};
  const int code = audio_GetFileInfo(facts.rawPath.c_str(), &audio);
  const std::string reason = AudioErrorMsg;
  RawFile file;
  file.length = audio.NumSamples;
  // A compressed file widens to 16 bits when the library decodes it.
  file.bits = audio.UsesCompression == 0 ? audio.BitsPerSample : 16;
  if (audio.LoopType != 0) file.loopCount = audio.LoopCount;
  audio_FreeWave(&audio);
  if (code != AUDIO_OK) {
    throw Failure(fmt::format("The raw file cannot be read: {}", reason),
                  AdviceFor(SDAccessInterface::ERROR_COULDNOTREAD));
  }
  return file;
}

Channel RawChannel(Node& node, const SampleFacts& facts, const RawFile& file, unsigned channel) {
  Channel result;
  result.samples.reset(
      node.sample().GetRawData(facts.qualityClass.c_str(), static_cast<qz::uchar>(channel)));
  if (result.samples == nullptr) FailWithNode(node, facts.qualityClass);
  result.length = std::min<std::uint64_t>(facts.info.length, file.length);
  return result;
}

Channel DecodedChannel(Node& node, const SampleFacts& facts, unsigned channel) {
  Channel result;
  result.samples.reset(
      node.sample().GetDecodedData(facts.qualityClass.c_str(), static_cast<qz::uchar>(channel)));
  if (result.samples == nullptr) FailWithNode(node, facts.qualityClass);
  result.length = facts.info.length;
  return result;
}

std::vector<unsigned char> EncodedChannel(Node& node, const SampleFacts& facts, unsigned channel) {
  qz::ulong size = 0;
  const std::unique_ptr<void, decltype(&std::free)> block(
      node.sample().GetEncodedData(facts.qualityClass.c_str(), static_cast<qz::uchar>(channel),
                                   size),
      &std::free);
  if (block == nullptr) FailWithNode(node, facts.qualityClass);
  const auto* bytes = static_cast<const unsigned char*>(block.get());
  return {bytes, bytes + size};
}

std::vector<ChannelNoise> NoiseOf(Node& node, const SampleFacts& facts) {
  const RawFile file = ReadRawFile(facts);
  std::vector<ChannelNoise> all;
  for (unsigned channel = 0; channel < facts.info.numChannels; ++channel) {
    const Channel raw = RawChannel(node, facts, file, channel);
    const Channel decoded = DecodedChannel(node, facts, channel);
    std::uint64_t signal = 0;
    std::uint64_t noise = 0;
    for (std::uint64_t i = 0; i < std::min(raw.length, decoded.length); ++i) {
      const std::int64_t value = raw.samples.get()[i];
      const std::int64_t error = value - decoded.samples.get()[i];
      signal += static_cast<std::uint64_t>(value * value);
      noise += static_cast<std::uint64_t>(error * error);
    }
    ChannelNoise result;
    result.exact = noise == 0;
    if (signal > 0 && noise > 0) {
      result.db = 10.0 * std::log10(static_cast<double>(signal) / static_cast<double>(noise));
    }
    all.push_back(result);
  }
  return all;
}

bool EncodedIsWhole(Node& node, const SampleFacts& facts) {
  const std::uint64_t data = BytesPerChannel(facts) * facts.info.numChannels;
  if (facts.encodedBytes.value_or(0) <= data) return false;
  if (IsPcm16(facts) || IsPcm8(facts)) return true;
  // The last channel's extra data is the last thing in the file.
  const auto last = static_cast<qz::uchar>(facts.info.numChannels - 1);
  const std::unique_ptr<SDTarvaneAccessInterface::SDExtraData> extra(
      node.sample().GetExtraData(facts.qualityClass.c_str(), last));
  return extra != nullptr;
}

}  // namespace samplehost
