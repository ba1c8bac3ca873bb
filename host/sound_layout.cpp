#include "host/sound_layout.h"

#include <algorithm>

#include "audio/MORT_format.h"
#include "audio/audio.h"

namespace samplehost {

namespace {

constexpr U64 kFirstChunk = 12;
constexpr U64 kChunkHead = 8;
constexpr U64 kSoundHead = 8;  // in "SSND", in front of the samples
constexpr U64 kRateInCommon = 8;
constexpr std::size_t kMostChunks = 256;

// Chunks that are kept however many stand in front of them.
constexpr std::string_view kWanted[] = {"fmt ", "smpl", "data", "COMM", "INST", "MARK", "SSND"};

void Keep(SoundLayout& layout, const ChunkPlace& chunk) {
  const bool wanted =
      std::find(std::begin(kWanted), std::end(kWanted), chunk.tag) != std::end(kWanted);
  if (layout.chunks.size() < kMostChunks || (wanted && layout.Find(chunk.tag) == nullptr)) {
    layout.chunks.push_back(chunk);
  } else {
    ++layout.moreChunks;
  }
}

void LookIntoFormat(const ByteReader& file, SoundLayout& layout) {
  if (const ChunkPlace* format = layout.Find("fmt "); format != nullptr && format->held >= 2) {
    layout.formatTag = file.At(format->data()).Number(2, "the format tag");
  }
  const ChunkPlace* common = layout.Find("COMM");
  unsigned char rate[10];
  if (common == nullptr || common->held < kRateInCommon + sizeof rate) return;
  file.At(common->data() + kRateInCommon).Take(rate, sizeof rate, "the rate");
  layout.rate = audioConvertFromIeeeExtended(rate);
}

void LookIntoMort(const ByteReader& file, SoundLayout& layout) {
  if (file.end() >= mortOffsetVersion + 2) {
    layout.version = file.At(mortOffsetVersion).Number(2, "the version");
  }
  if (file.end() < mortHeadSize) return;
  layout.codec = file.At(mortOffsetCodec).Number(2, "the codec");
  const ByteReader stream = file.At(mortHeadSize);
  if (layout.codec == MORT_CODEC_GSM) layout.stream = WalkGsm(stream);
  if (layout.codec == MORT_CODEC_GB) layout.stream = WalkGb(stream);
}

}  // namespace

const ChunkPlace* SoundLayout::Find(const std::string& tag) const {
  const auto found = std::find_if(chunks.begin(), chunks.end(),
                                  [&tag](const ChunkPlace& chunk) { return chunk.tag == tag; });
  return found == chunks.end() ? nullptr : &*found;
}

std::optional<U64> SoundLayout::SampleBytes() const {
  if (container == Container::kMort) {
    return fileSize < mortHeadSize ? 0 : fileSize - mortHeadSize;
  }
  const bool aiff = container == Container::kAiff;
  const ChunkPlace* chunk = Find(aiff ? "SSND" : "data");
  if (chunk == nullptr) return {};
  const U64 head = aiff ? kSoundHead : 0;
  return chunk->held < head ? 0 : chunk->held - head;
}

Container ContainerOf(std::string_view start) {
  const std::string_view form = start.size() < kFirstChunk ? "" : start.substr(8, 4);
  if (start.starts_with("RIFF") && form == "WAVE") return Container::kWav;
  if (start.starts_with("FORM") && form == "AIFF") return Container::kAiff;
  if (start.starts_with(std::string_view(mortMagic, sizeof mortMagic))) return Container::kMort;
  return Container::kUnknown;
}

U64 WalkChunks(const ByteReader& file, bool bigEndian,
               const std::function<void(const ChunkPlace&)>& onChunk) {
  U64 position = std::min(kFirstChunk, file.end());
  while (file.end() - position >= kChunkHead) {
    ByteReader reader = file.At(position);
    char tag[4];
    reader.Take(tag, sizeof tag, "a chunk's name");
    ChunkPlace chunk{std::string(tag, sizeof tag), position, 0, 0};
    chunk.size = reader.Number(4, "a chunk's size", bigEndian);
    chunk.held = std::min(chunk.size, reader.left());
    onChunk(chunk);
    position = std::min(chunk.data() + chunk.size + chunk.size % 2, file.end());
  }
  return file.end() - position;
}

SoundLayout LayoutOf(const std::string& nativePath) {
  ByteSource source(nativePath);
  if (!source.open()) throw Damage{source.problem()};
  const ByteReader file(source);
  SoundLayout layout;
  layout.fileSize = source.size();
  char start[kFirstChunk] = {};
  const auto size = static_cast<std::size_t>(std::min<U64>(sizeof start, source.size()));
  ByteReader(file).Take(start, size, "the file's head");
  layout.magic.assign(start, std::min<std::size_t>(size, 4));
  if (size == sizeof start) layout.form.assign(start + 8, 4);
  layout.container = ContainerOf(std::string_view(start, size));
  if (layout.container == Container::kMort) {
    LookIntoMort(file, layout);
  } else if (layout.container != Container::kUnknown) {
    layout.trailing = WalkChunks(file, layout.container == Container::kAiff,
                                 [&layout](const ChunkPlace& chunk) { Keep(layout, chunk); });
    LookIntoFormat(file, layout);
  }
  return layout;
}

}  // namespace samplehost
