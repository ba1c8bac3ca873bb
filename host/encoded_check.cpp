#include "host/encoded_check.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "adpcm/adpcm.h"
#include "common/byte_order.h"

namespace samplehost {

namespace {

using U64 = std::uint64_t;
using Bytes = std::vector<unsigned char>;
using Format = SDTarvaneAccessInterface::SDCompType;

constexpr U64 kHeadSize = 40;
constexpr U64 kChunkHeadSize = 8;
constexpr U64 kExtraSize = 48;
constexpr U64 kFrameSamples = 14;
constexpr U64 kFrameBytes = 8;
constexpr unsigned kRows = 8;
constexpr unsigned kHighestExponent = 12;
constexpr U64 kMostSamples = U64{1} << 40;  // keeps the sums below in range

// Where things stand in the extra data.
constexpr std::size_t kCoefs = 16;
constexpr U64 kRowCount = 32;
constexpr U64 kOrder = 34;
constexpr U64 kLoopY0 = 36;
constexpr U64 kLoopY1 = 38;
constexpr U64 kLoopPS = 40;
constexpr U64 kInitialPS = 41;
constexpr U64 kBlockCount = 44;

using qz::LittleEndian;

short Value(const unsigned char* bytes) {
  return static_cast<short>(LittleEndian(bytes, 2));
}

struct Broken {
  std::string what;
};

U64 FramesOf(U64 length) {
  return (length + kFrameSamples - 1) / kFrameSamples;
}

U64 DataSize(const EncodedHead& head) {
  switch (head.compType) {
    case Format::COMPTYPE_RAW:
      return head.numbers.length * 2;
    case Format::COMPTYPE_RAW8:
      return head.numbers.length;
    default:
      return FramesOf(head.numbers.length) * kFrameBytes;
  }
}

U64 ExtraSize(const EncodedHead& head) {
  if (head.compType == Format::COMPTYPE_RAW || head.compType == Format::COMPTYPE_RAW8) return 0;
  const bool plus = head.compType == Format::COMPTYPE_ADPCMPLUS;
  return kExtraSize + (plus ? FramesOf(head.numbers.length) * 4 : 0);
}

// One channel of an ADPCM format: frames and extra data, sizes checked.
class Frames {
 public:
  Frames(const EncodedHead& head, unsigned channel, unsigned char* data, const unsigned char* extra)
      : head_(head), channel_(channel), data_(data), extra_(extra) {}

  void Check() {
    const U64 count = FramesOf(head_.numbers.length);
    Require(LittleEndian(extra_ + kRowCount, 2) == kRows && LittleEndian(extra_ + kOrder, 2) == 2,
            "the table has another shape");
    if (head_.compType == Format::COMPTYPE_ADPCMPLUS) {
      Require(LittleEndian(extra_ + kBlockCount, 4) == count, "not every frame has its state");
    }
    if (count > 0) Require(extra_[kInitialPS] == data_[0], "the first frame is not as noted");
    short coefs[kCoefs];
    for (std::size_t i = 0; i < kCoefs; ++i)
      coefs[i] = Value(extra_ + 2 * i);
    short block[2 + kFrameSamples] = {};
    for (U64 frame = 0; frame < count; ++frame) {
      unsigned char* const bytes = data_ + frame * kFrameBytes;
      Require(bytes[0] >> 4 < kRows && (bytes[0] & 15) <= kHighestExponent,
              fmt::format("frame {} has the header {:02X}", frame, bytes[0]));
      CheckState(frame, count, block);
      adpcmDecodeFrame(bytes, block, coefs, 1);
      CheckLoop(frame, bytes[0], block);
      block[0] = block[kFrameSamples];
      block[1] = block[kFrameSamples + 1];
    }
  }

 private:
  void Require(bool holds, const std::string& what) const {
    if (!holds) throw Broken{fmt::format("channel {}: {}", channel_, what)};
  }

  void CheckState(U64 frame, U64 count, const short* block) const {
    if (head_.compType != Format::COMPTYPE_ADPCMPLUS) return;
    const unsigned char* const first = extra_ + kExtraSize + 2 * frame;
    Require(block[0] == Value(first) && block[1] == Value(first + 2 * count),
            fmt::format("frame {} does not decode to its state", frame));
  }

  void CheckLoop(U64 frame, unsigned char header, const short* block) const {
    const StoredNumbers& numbers = head_.numbers;
    if (numbers.loopLength == 0 || numbers.loop / kFrameSamples != frame) return;
    const U64 at = numbers.loop % kFrameSamples;
    Require(extra_[kLoopPS] == header && block[at] == Value(extra_ + kLoopY0) &&
                block[at + 1] == Value(extra_ + kLoopY1),
            "the loop start does not decode to its state");
  }

  const EncodedHead& head_;
  unsigned channel_;
  unsigned char* data_;
  const unsigned char* extra_;
};

// The whole file with one read; nothing where it cannot be read.
std::optional<Bytes> ReadAll(const std::string& native, std::ifstream& stream) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(native, error);
  if (error) return {};
  Bytes file(static_cast<std::size_t>(size));
  stream.read(reinterpret_cast<char*>(file.data()), static_cast<std::streamsize>(size));
  if (stream.bad()) return {};
  file.resize(static_cast<std::size_t>(stream.gcount()));
  return file;
}

void ReadHead(const Bytes& file, EncodedHead& head) {
  if (file.size() < kHeadSize) throw Broken{"it ends in its head"};
  if (std::memcmp(file.data(), "ESMP", 4) != 0) throw Broken{"it is no encoded sample"};
  head.numChannels = static_cast<std::uint32_t>(LittleEndian(file.data() + 4, 2));
  head.compType = static_cast<std::uint32_t>(LittleEndian(file.data() + 6, 2));
  head.numbers = {static_cast<std::uint32_t>(LittleEndian(file.data() + 8, 4)),
                  LittleEndian(file.data() + 16, 8), LittleEndian(file.data() + 24, 8),
                  LittleEndian(file.data() + 32, 8)};
  if (head.compType < Format::COMPTYPE_RAW || head.compType > Format::COMPTYPE_ADPCMVS) {
    throw Broken{fmt::format("its format {} is none", head.compType)};
  }
  if (head.numChannels == 0) throw Broken{"it has no channel"};
  if (head.numbers.length > kMostSamples) throw Broken{"its length is beyond all bounds"};
}

void CheckChannel(Bytes& file, const EncodedHead& head, unsigned channel) {
  const U64 entry = kHeadSize + U64{4} * channel;
  const U64 table = kHeadSize + U64{4} * head.numChannels;
  if (table > file.size()) throw Broken{"it ends in its channel table"};
  const U64 at = LittleEndian(file.data() + entry, 4);
  if (at < table || at + kChunkHeadSize > file.size()) {
    throw Broken{fmt::format("channel {} lies outside the file", channel)};
  }
  const U64 dataSize = LittleEndian(file.data() + at, 4);
  const U64 extraSize = LittleEndian(file.data() + at + 4, 4);
  if (dataSize != DataSize(head) || extraSize != ExtraSize(head)) {
    throw Broken{fmt::format("channel {} has {} + {} bytes where {} + {} belong", channel, dataSize,
                             extraSize, DataSize(head), ExtraSize(head))};
  }
  // One that follows too soon lies over the end of the one in front of it, which was cut.
  if (at != table + channel * (kChunkHeadSize + dataSize + extraSize)) {
    throw Broken{fmt::format("channel {} does not begin where the one before it ends", channel)};
  }
  if (at + kChunkHeadSize + dataSize + extraSize > file.size()) {
    throw Broken{fmt::format("it ends in channel {}", channel)};
  }
  unsigned char* const data = file.data() + at + kChunkHeadSize;
  if (extraSize != 0) Frames(head, channel, data, data + dataSize).Check();
}

}  // namespace

std::string CheckEncodedFile(const std::string& native, EncodedHead& head) {
  std::ifstream stream(native, std::ios::binary);
  if (!stream) return "it cannot be opened";
  std::optional<Bytes> file = ReadAll(native, stream);
  if (!file) return "it cannot be read";
  try {
    ReadHead(*file, head);
    for (unsigned channel = 0; channel < head.numChannels; ++channel)
      CheckChannel(*file, head, channel);
  } catch (const Broken& broken) {
    return broken.what;
  }
  return {};
}

}  // namespace samplehost
