#include "host/stored_node.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "host/library.h"
#include "host/paths.h"

namespace samplehost {

namespace {

constexpr qz::ulong kNodeVersion = 0x00010000;
constexpr qz::ulong kMostSamples = 0xFFFF;  // that a node's reader counts
constexpr std::size_t kTimeSize = 16;
constexpr std::size_t kUuidLength = 36;

bool ReadTag(MemoryStream& stream, const char* expected) {
  char tag[4];
  return stream.Read(tag, 1, sizeof tag) && std::memcmp(tag, expected, sizeof tag) == 0;
}

// Up to the first byte of the data.
bool ReadHead(MemoryStream& stream, const _GUID& type) {
  qz::uint64 size = 0;
  _GUID stored{};
  qz::ulong version = 0;
  return ReadTag(stream, "TYPE") && stream.Read(size) && stream.Read(&stored, 1, sizeof stored) &&
         std::memcmp(&stored, &type, sizeof type) == 0 && ReadTag(stream, "VERS") &&
         stream.Read(size) && stream.Read(version) && version == kNodeVersion &&
         ReadTag(stream, "DATA") && stream.Read(size);
}

bool ReadText(MemoryStream& stream, std::string& text) {
  qz::string wide;
  if (!stream.ReadString(wide)) return false;
  text = Narrow(wide);
  return true;
}

// The numbers of a sound and, behind them, the time of its file.
bool ReadNumbers(MemoryStream& stream, StoredNumbers& numbers) {
  qz::ulong padding = 0;
  char keyAndTime[8 + kTimeSize];
  return stream.Read(numbers.rate) && stream.Read(padding) && stream.Read(numbers.length) &&
         stream.Read(numbers.loop) && stream.Read(numbers.loopLength) &&
         stream.Read(keyAndTime, 1, sizeof keyAndTime);
}

bool ReadSample(MemoryStream& stream, StoredSample& sample) {
  std::string originalName;
  return ReadText(stream, sample.qualityClass) && ReadText(stream, originalName) &&
         ReadText(stream, sample.fileName) && stream.Read(sample.compType) &&
         stream.Read(sample.numChannels) && ReadNumbers(stream, sample.raw) &&
         ReadNumbers(stream, sample.encoded);
}

}  // namespace

std::optional<std::vector<StoredSample>> ReadStoredSamples(const MemoryStream::Bytes& payload) {
  MemoryStream stream(payload);
  std::string selected;
  qz::ulong count = 0;
  if (!ReadHead(stream, TypeOf(NodeKind::kSample)) || !ReadText(stream, selected) ||
      !stream.Read(count) || count > kMostSamples) {
    return {};
  }
  std::vector<StoredSample> samples;
  for (qz::ulong i = 0; i < count; ++i) {
    if (!ReadSample(stream, samples.emplace_back())) return {};
  }
  return samples;
}

std::optional<std::string> ReadStoredFolder(const MemoryStream::Bytes& payload) {
  MemoryStream stream(payload);
  std::string folder;
  if (!ReadHead(stream, TypeOf(NodeKind::kSetup)) || !ReadText(stream, folder)) return {};
  return folder;
}

bool IsUuid(const std::string& name) {
  if (name.size() != kUuidLength) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    const bool hex = std::isxdigit(static_cast<unsigned char>(name[i])) != 0;
    if (dash ? name[i] != '-' : !hex) return false;
  }
  return true;
}

}  // namespace samplehost
