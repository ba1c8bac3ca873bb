#include "host/export.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "audio/audio.h"
#include "host/failure.h"
#include "host/paths.h"

namespace samplehost {

namespace {

using Extra = SDTarvaneAccessInterface::SDExtraData;

// Sizes of the writer's file, which does not report a full disk by itself.
constexpr std::uint64_t kWavHead = 44;
constexpr std::uint64_t kWavSampler = 8 + 36;
constexpr std::uint64_t kWavLoop = 24;

constexpr unsigned kTableRows = 8;

// The channels of a sample, interleaved as a record of the audio library.
class WavSound {
 public:
  WavSound(const SampleFacts& facts, const RawFile& file, unsigned bits,
           const std::vector<Channel>& channels);
  // Writes the sound to a full path and sees that it is there whole.
  void Write(const std::string& path);

 private:
  template <typename T>
  void Interleave(const std::vector<Channel>& channels, std::uint64_t length);
  std::uint64_t FileBytes() const;

  std::vector<unsigned char> bytes_;
  _AUDIO audio_{};
};

WavSound::WavSound(const SampleFacts& facts, const RawFile& file, unsigned bits,
                   const std::vector<Channel>& channels) {
  std::uint64_t length = channels.front().length;
  for (const Channel& channel : channels)
    length = std::min(length, channel.length);
  const std::uint64_t size = length * channels.size() * (bits == 8 ? 1 : 2);
  if (size > std::numeric_limits<qz::ulong>::max()) {
    throw Failure("The sound is too long for one WAV file.");
  }
  // A record without samples still needs a block: null means failure to the writer.
  bytes_.resize(std::max<std::uint64_t>(size, 1));
  if (bits == 8) {
    Interleave<signed char>(channels, length);
  } else {
    Interleave<short>(channels, length);
  }
  audio_.LengthInBytes = static_cast<qz::ulong>(size);
  audio_.SampleRate = facts.info.frq;
  audio_.NumSamples = static_cast<qz::ulong>(length);
  audio_.BitsPerSample = static_cast<qz::ushort>(bits);
  audio_.NumChannels = static_cast<qz::ushort>(channels.size());
  audio_.OriginalKey = facts.info.orgKey;
  audio_.LoopStart = audio_.LoopEnd = AUDIO_NOLOOP;
  if (facts.info.loopLength > 0) {
    audio_.LoopType = 1;
    audio_.LoopCount = file.loopCount;
    audio_.LoopStart = static_cast<qz::ulong>(facts.info.loop);
    audio_.LoopEnd = static_cast<qz::ulong>(facts.info.loop + facts.info.loopLength - 1);
  }
  audio_.Samples = bytes_.data();
}

template <typename T>
void WavSound::Interleave(const std::vector<Channel>& channels, std::uint64_t length) {
  auto* out = reinterpret_cast<T*>(bytes_.data());
  for (std::size_t c = 0; c < channels.size(); ++c) {
    const short* in = channels[c].samples.get();
    for (std::uint64_t i = 0; i < length; ++i) {
      // The library widens 8 bits by repeating them, so the high byte is the sample.
      out[i * channels.size() + c] = static_cast<T>(sizeof(T) == 1 ? in[i] >> 8 : in[i]);
    }
  }
}

std::uint64_t WavSound::FileBytes() const {
  // The writer takes a loop that ends at 0 for none.
  const bool loop =
      audio_.LoopStart != AUDIO_NOLOOP && audio_.LoopEnd != AUDIO_NOLOOP && audio_.LoopEnd != 0;
  return kWavHead + audio_.LengthInBytes + (audio_.LengthInBytes & 1) + kWavSampler +
         (loop ? kWavLoop : 0);
}

void WavSound::Write(const std::string& path) {
  if (audio_WriteWave(path.c_str(), &audio_, AUDIO_FORMAT_WAV) != AUDIO_OK) {
    throw Failure(AudioErrorMsg);
  }
  if (FileSize(path) != FileBytes()) {
    throw Failure("The WAV file could not be written whole.", "Make room on the disk.");
  }
}

void ExportWav(Node& node, const SampleFacts& facts, bool raw, const ExportOptions& options) {
  PendingFile target(options.target, options.overwrite);
  RawFile file;
  file.length = facts.info.length;
  if (raw) {
    file = ReadRawFile(facts);
  } else {
    try {
      file.loopCount = ReadRawFile(facts).loopCount;
    } catch (const Failure&) {
      // What is decoded does not need the raw file; an endless loop is the common one.
    }
  }
  std::vector<Channel> channels;
  for (unsigned c = 0; c < facts.info.numChannels; ++c) {
    channels.push_back(raw ? RawChannel(node, facts, file, c) : DecodedChannel(node, facts, c));
  }
  if (channels.empty()) throw Failure("The sample has no channels.");
  WavSound(facts, file, raw ? file.bits : 16, channels).Write(target.path());
  target.Commit();
}

std::string WithChannel(const std::string& path, unsigned channel) {
  const std::string extension = ExtensionOf(path);
  const std::string tail = extension.empty() ? std::string() : "." + extension;
  return path.substr(0, path.size() - tail.size()) + fmt::format(".ch{}", channel) + tail;
}

std::vector<std::string> ExportEncoded(Node& node, const SampleFacts& facts,
                                       const ExportOptions& options) {
  std::vector<std::string> written;
  for (unsigned c = 0; c < facts.info.numChannels; ++c) {
    if (options.channel && *options.channel != c) continue;
    const bool single = options.channel || facts.info.numChannels == 1;
    const std::string path = single ? options.target : WithChannel(options.target, c);
    PendingFile target(path, options.overwrite);
    const std::vector<unsigned char> bytes = EncodedChannel(node, facts, c);
    WriteWhole(target.native(), bytes.data(), bytes.size());
    target.Commit();
    written.push_back(NativePath(path));
  }
  return written;
}

// Both records begin alike; the one for ADPCM+ goes on with the history of each block.
template <typename T>
nlohmann::ordered_json ChannelToJson(unsigned channel, const T& extra) {
  nlohmann::ordered_json json;
  nlohmann::ordered_json table = nlohmann::ordered_json::array();
  const unsigned rows = std::min<unsigned>(extra.numCoef, kTableRows);
  for (unsigned row = 0; row < rows; ++row) {
    table.push_back({extra.coefTable[2 * row], extra.coefTable[2 * row + 1]});
  }
  json["channel"] = channel;
  json["coefficients"] = table;
  json["order"] = extra.order;
  json["initial_ps"] = extra.initialPS;
  json["loop_ps"] = extra.loopPS;
  json["loop_y0"] = extra.loopY0;
  json["loop_y1"] = extra.loopY1;
  return json;
}

nlohmann::ordered_json ExtraToJson(unsigned channel, const Extra& extra) {
  if (extra.type == SDTarvaneAccessInterface::EXTRADATA_ADPCM) {
    return ChannelToJson(channel, extra.data.adpcm);
  }
  nlohmann::ordered_json json = ChannelToJson(channel, extra.data.adpcmp);
  nlohmann::ordered_json blocks = nlohmann::ordered_json::array();
  for (qz::ulong i = 0; i < extra.data.adpcmp.numBlocks; ++i) {
    blocks.push_back({extra.data.adpcmp.blockY0[i], extra.data.adpcmp.blockY1[i]});
  }
  json["blocks"] = blocks;
  return json;
}

void ExportExtra(Node& node, const SampleFacts& facts, const ExportOptions& options) {
  PendingFile target(options.target, options.overwrite);
  nlohmann::ordered_json json;
  json["format"] = Narrow(facts.info.type);
  json["channels"] = nlohmann::ordered_json::array();
  for (unsigned c = 0; c < facts.info.numChannels; ++c) {
    if (options.channel && *options.channel != c) continue;
    const std::unique_ptr<Extra> extra(
        node.sample().GetExtraData(facts.qualityClass.c_str(), static_cast<qz::uchar>(c)));
    if (extra == nullptr) {
      throw Failure(fmt::format("Node \"{}\", class \"{}\": {}.", node.name(), facts.qualityClass,
                                node.LastError()));
    }
    json["channels"].push_back(ExtraToJson(c, *extra));
  }
  const std::string text = json.dump(2) + "\n";
  WriteWhole(target.native(), text.data(), text.size());
  target.Commit();
}

}  // namespace

std::vector<std::string> ExportSample(Session& session, Node& node, const std::string& qualityClass,
                                      const ExportOptions& options) {
  const SampleFacts facts = FactsOf(session, node, qualityClass);
  if (options.channel && *options.channel >= facts.info.numChannels) {
    throw UsageFailure(
        fmt::format("The sample has {} channel(s); they count from 0.", facts.info.numChannels));
  }
  switch (options.as) {
    case ExportAs::kEncoded:
      return ExportEncoded(node, facts, options);
    case ExportAs::kExtra:
      ExportExtra(node, facts, options);
      break;
    case ExportAs::kRaw:
    case ExportAs::kDecoded:
      ExportWav(node, facts, options.as == ExportAs::kRaw, options);
      break;
  }
  return {NativePath(options.target)};
}

}  // namespace samplehost
