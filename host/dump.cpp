#include "host/dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string_view>
#include <vector>

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "common/byte_order.h"
#include "host/dump_intern.h"
#include "host/sound_layout.h"

namespace samplehost {
namespace {

// The .esmp format; the library has it in a place of its own, and docs/formats/esmp.md tells both.
constexpr U64 kSamplesPerFrame = 14;
constexpr U64 kBytesPerFrame = 8;
constexpr U64 kExtraSize = 48;
constexpr unsigned kTableRows = 8;
constexpr unsigned kHighestExponent = 12;

// How much of a run of like things is shown.
constexpr U64 kShownFrames = 8;

constexpr U64 kNodeVersion = 0x00010000;
constexpr U64 kMostSamples = 0xFFFF;  // that a node's reader counts

std::string GuidText(const unsigned char* bytes) {
  const auto number = [bytes](std::size_t from, std::size_t size) {
    return qz::LittleEndian(bytes + from, size);
  };
  std::string tail;
  for (int i = 8; i < 16; ++i)
    tail += fmt::format("{}{:02X}", i == 10 ? "-" : "", bytes[i]);
  return fmt::format("{{{:08X}-{:04X}-{:04X}-{}}}", number(0, 4), number(4, 2), number(6, 2), tail);
}

bool IsGuid(const unsigned char* bytes, const _GUID& guid) {
  return std::memcmp(bytes, &guid, sizeof guid) == 0;
}

std::string_view FormatName(U64 compType) {
  using Library = SDTarvaneAccessInterface;
  switch (compType) {
    case Library::COMPTYPE_ADPCM:
      return "ADPCM";
    case Library::COMPTYPE_ADPCMPLUS:
      return "ADPCM+";
    case Library::COMPTYPE_ADPCMVS:
      return "ADPCMVS";
    case Library::COMPTYPE_RAW:
      return "PCM16";
    case Library::COMPTYPE_RAW8:
      return "PCM8";
    default:
      return {};
  }
}

bool IsAdpcm(U64 compType) {
  return FormatName(compType).substr(0, 5) == "ADPCM";
}

U64 FrameCount(U64 samples) {
  return samples / kSamplesPerFrame + (samples % kSamplesPerFrame != 0 ? 1 : 0);
}

// --- Encoded samples ---

struct SampleHead {
  U64 channels;
  U64 format;
  U64 length;
};

SampleHead DumpSampleHead(Dumper& dump, ByteReader& reader) {
  SampleHead head{};
  dump.Title("encoded sample");
  dump.Tag(reader, "id");
  head.channels = dump.Unsigned(reader, 2, "numChannels");
  const U64 offset = reader.position();
  head.format = reader.Number(2, "compType");
  const std::string_view name = FormatName(head.format);
  dump.Line(offset, 2, "compType", fmt::format("{}  {}", head.format, name));
  if (name.empty()) dump.Wrong(fmt::format("at 0x{:X}: no format has this number", offset));
  dump.Unsigned(reader, 4, "frq", "Hz");
  dump.Ignored(reader, 4, "padding");
  head.length = dump.Unsigned(reader, 8, "length", "samples per channel");
  dump.Unsigned(reader, 8, "loop");
  dump.Unsigned(reader, 8, "loopLength");
  return head;
}

// Bytes of encoded data that the head promises for a channel.
U64 PromisedBytes(const SampleHead& head) {
  if (IsAdpcm(head.format)) return FrameCount(head.length) * kBytesPerFrame;
  const U64 width = head.format == SDTarvaneAccessInterface::COMPTYPE_RAW ? 2 : 1;
  return head.length > UINT64_MAX / width ? UINT64_MAX : head.length * width;
}

void DumpFrames(Dumper& dump, ByteReader reader) {
  const U64 count = reader.left() / kBytesPerFrame;
  for (U64 n = 0; n < std::min(count, kShownFrames); ++n) {
    const U64 offset = reader.position();
    unsigned char frame[kBytesPerFrame];
    reader.Take(frame, sizeof frame, "frame");
    const unsigned row = frame[0] >> 4;
    const unsigned exponent = frame[0] & 15;
    dump.Line(offset, sizeof frame, fmt::format("frame {}", n),
              fmt::format("row {}, exponent {}, {}", row, exponent, HexOf(frame + 1, 7)));
    if (row >= kTableRows || exponent > kHighestExponent) {
      dump.Wrong(fmt::format("at 0x{:X}: no encoder writes the frame head 0x{:02X}", offset,
                             static_cast<unsigned>(frame[0])));
    }
  }
  if (reader.left() > 0) {
    dump.Line(reader.position(), reader.left(), "...",
              count > kShownFrames ? fmt::format("{} more frames", count - kShownFrames) : "");
  }
}

void DumpExtra(Dumper& dump, ByteReader reader, bool plus) {
  for (unsigned row = 0; row < kTableRows; ++row) {
    const U64 offset = reader.position();
    const auto previous = static_cast<std::int16_t>(reader.Number(2, "coefTable"));
    const auto earlier = static_cast<std::int16_t>(reader.Number(2, "coefTable"));
    dump.Line(offset, 4, fmt::format("coefTable {}", row), fmt::format("{} {}", previous, earlier));
  }
  dump.Unsigned(reader, 2, "numCoef");
  dump.Unsigned(reader, 2, "order");
  dump.Signed16(reader, "loopY0");
  dump.Signed16(reader, "loopY1");
  for (const std::string_view name : {"loopPS", "initialPS"}) {
    const U64 offset = reader.position();
    const U64 value = reader.Number(1, name);
    dump.Line(offset, 1, name, fmt::format("row {}, exponent {}", value >> 4, value & 15));
  }
  if (!plus) {
    dump.Ignored(reader, 6, "padding");
    return;
  }
  dump.Ignored(reader, 2, "padding");
  const U64 offset = reader.position();
  const U64 blocks = dump.Unsigned(reader, 4, "numBlocks");
  if (reader.left() < 4 * blocks) {
    dump.Wrong(fmt::format("at 0x{:X}: {} blocks need {} bytes of states, {} are left", offset,
                           blocks, 4 * blocks, reader.left()));
    return;
  }
  dump.Samples(reader.Part(2 * blocks), 2, "blockY0");
  reader.Skip(2 * blocks, "blockY0");
  dump.Samples(reader.Part(2 * blocks), 2, "blockY1");
}

void DumpChannel(Dumper& dump, ByteReader reader, U64 channel, const SampleHead& head) {
  dump.Title(fmt::format("channel {}", channel));
  const U64 start = reader.position();
  const U64 dataLen = dump.Unsigned(reader, 4, "dataLen");
  const U64 extraLen = dump.Unsigned(reader, 4, "extraDataLen");
  if (dataLen != PromisedBytes(head)) {
    dump.Wrong(fmt::format("at 0x{:X}: {} samples take {} bytes, not {}", start, head.length,
                           PromisedBytes(head), dataLen));
  }
  const ByteReader data = reader.Part(dataLen);
  if (IsAdpcm(head.format)) {
    DumpFrames(dump, data);
  } else {
    const U64 width = head.format == SDTarvaneAccessInterface::COMPTYPE_RAW ? 2 : 1;
    dump.Samples(data, width, "samples");
  }
  reader.Skip(dataLen, "the encoded data");
  reader.Need(extraLen, "the extra data");
  const bool wanted = IsAdpcm(head.format);
  if (wanted && extraLen < kExtraSize) {
    dump.Wrong(fmt::format("at 0x{:X}: {} bytes of extra data, {} are the least", reader.position(),
                           extraLen, kExtraSize));
  } else if (wanted) {
    DumpExtra(dump, reader.Part(extraLen),
              head.format == SDTarvaneAccessInterface::COMPTYPE_ADPCMPLUS);
  } else if (extraLen != 0) {
    dump.Line(reader.position(), extraLen, "extra data", "of no meaning in this format");
  }
}

void DumpEncodedSample(Dumper& dump, ByteReader reader) {
  const SampleHead head = DumpSampleHead(dump, reader);
  reader.Need(4 * head.channels, "the channel table");
  std::vector<U64> offsets;
  for (U64 n = 0; n < head.channels; ++n) {
    offsets.push_back(dump.Unsigned(reader, 4, fmt::format("channel {}", n)));
  }
  for (U64 n = 0; n < head.channels; ++n) {
    // A channel that is lost takes no other with it: each has its own place.
    try {
      DumpChannel(dump, reader.At(offsets[n]), n, head);
    } catch (const Damage& damage) {
      dump.Wrong(fmt::format("channel {}: {}", n, damage.what));
    }
  }
}

// --- Node files ---

void DumpInfo(Dumper& dump, ByteReader& reader, const std::string& which) {
  dump.Unsigned(reader, 4, which + ".frq", "Hz");
  dump.Ignored(reader, 4, "padding");
  dump.Unsigned(reader, 8, which + ".length");
  dump.Unsigned(reader, 8, which + ".loop");
  dump.Unsigned(reader, 8, which + ".loopLength");
  dump.Unsigned(reader, 1, which + ".orgKey");
  dump.Ignored(reader, 7, "padding");
}

void DumpTime(Dumper& dump, ByteReader& reader, std::string_view name) {
  const U64 offset = reader.position();
  U64 field[8];  // year, month, day of week, day, hour, minute, second, millisecond
  reader.Need(sizeof field / 4, name);
  for (U64& value : field)
    value = reader.Number(2, name);
  dump.Line(offset, 16, name,
            fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} UTC", field[0], field[1],
                        field[3], field[4], field[5], field[6], field[7]));
}

void DumpSampleNode(Dumper& dump, ByteReader& reader) {
  dump.Text(reader, "selQualityClass");
  const U64 offset = reader.position();
  const U64 count = dump.Unsigned(reader, 4, "samples");
  if (count > kMostSamples) {
    dump.Wrong(fmt::format("at 0x{:X}: {} samples are more than a node holds", offset, count));
  }
  for (U64 n = 0; n < count; ++n) {
    dump.Title(fmt::format("sample {}", n));
    dump.Text(reader, "qualClass");
    dump.Text(reader, "originalName");
    dump.Text(reader, "fileName");
    const U64 at = reader.position();
    const U64 format = reader.Number(4, "compType");
    dump.Line(at, 4, "compType", fmt::format("{}  {}", format, FormatName(format)));
    dump.Unsigned(reader, 4, "numChannels");
    DumpInfo(dump, reader, "raw");
    DumpTime(dump, reader, "raw time");
    DumpInfo(dump, reader, "enc");
    DumpTime(dump, reader, "encoded time");
  }
}

void DumpSetupNode(Dumper& dump, ByteReader& reader) {
  dump.Text(reader, "sampleFolder");
  const U64 count = dump.Unsigned(reader, 2, "classes");
  for (U64 n = 0; n < count; ++n) {
    dump.Text(reader, fmt::format("class {} name", n));
    dump.Unsigned(reader, 1, "level");
    dump.Unsigned(reader, 2, "refCount");
  }
}

void DumpNode(Dumper& dump, ByteReader reader) {
  dump.Title("node file");
  dump.ExpectTag(reader, "KLVO");
  const U64 sizeAt = reader.position();
  const U64 fileSize = dump.Unsigned(reader, 8, "file size");
  if (fileSize != reader.end()) {
    dump.Wrong(
        fmt::format("at 0x{:X}: the file has {} bytes, not {}", sizeAt, reader.end(), fileSize));
  }
  dump.ExpectTag(reader, "OBJ ");
  dump.ExpectTag(reader, "TYPE");
  dump.Unsigned(reader, 8, "size");
  unsigned char guid[16];
  const U64 guidAt = reader.position();
  reader.Take(guid, sizeof guid, "the node's type");
  const bool sample = IsGuid(guid, hdbTypeSampleData);
  const bool setup = IsGuid(guid, hdbTypeSampleDataSetup);
  dump.Line(guidAt, sizeof guid, "type",
            fmt::format("{}  {}", GuidText(guid),
                        sample  ? "sample node"
                        : setup ? "setup node"
                                : "unknown"));
  dump.ExpectTag(reader, "VERS");
  dump.Unsigned(reader, 8, "size");
  const U64 versionAt = reader.position();
  const U64 version = reader.Number(4, "version");
  dump.Line(versionAt, 4, "version", fmt::format("0x{:08X}", version));
  dump.ExpectTag(reader, "DATA");
  const U64 dataAt = reader.position();
  const U64 dataSize = dump.Unsigned(reader, 8, "size");
  if (!sample && !setup) {
    throw Damage{fmt::format("at 0x{:X}: no node has this type", guidAt)};
  }
  if (version != kNodeVersion) {
    throw Damage{fmt::format("at 0x{:X}: the version is 0x{:08X}, and only 0x{:08X} exists",
                             versionAt, version, kNodeVersion)};
  }
  if (dataSize != reader.left()) {
    dump.Wrong(fmt::format("at 0x{:X}: the payload has {} bytes, not {}", dataAt, reader.left(),
                           dataSize));
  }
  if (sample) {
    DumpSampleNode(dump, reader);
  } else {
    DumpSetupNode(dump, reader);
  }
  if (reader.left() != 0) {
    dump.Wrong(fmt::format("at 0x{:X}: {} bytes behind the end", reader.position(), reader.left()));
  }
}

}  // namespace

bool DumpFile(const std::string& nativePath, std::ostream& out, std::string& problem) {
  problem.clear();
  ByteSource source(nativePath);
  problem = source.problem();
  if (!source.open()) return false;
  Dumper dump(out, problem);
  try {
    const ByteReader reader(source);
    char head[12] = {};
    const auto size = static_cast<std::size_t>(std::min<U64>(sizeof head, source.size()));
    ByteReader(reader).Take(head, size, "head");
    const std::string_view start(head, size);
    const Container container = ContainerOf(start);
    if (container == Container::kWav) {
      DumpWav(dump, reader);
    } else if (container == Container::kAiff) {
      DumpAiff(dump, reader);
    } else if (container == Container::kMort) {
      DumpMort(dump, reader);
    } else if (start.starts_with("ESMP")) {
      DumpEncodedSample(dump, reader);
    } else if (start.starts_with("KLVO")) {
      DumpNode(dump, reader);
    } else {
      problem = "it is no encoded sample, no node file and no WAV, AIFF or MORT sound";
      return false;
    }
  } catch (const Damage& damage) {
    dump.Wrong(damage.what);
  }
  return dump.sound();
}

}  // namespace samplehost
