#include "host/dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string_view>
#include <vector>

#include "PublicIncludes/kelvo_tarvanesampledata.h"

namespace samplehost {
namespace {

using U64 = std::uint64_t;

// The .esmp format; the library has it in a place of its own, and docs/formats/esmp.md tells both.
constexpr U64 kSamplesPerFrame = 14;
constexpr U64 kBytesPerFrame = 8;
constexpr U64 kExtraSize = 48;
constexpr unsigned kTableRows = 8;
constexpr unsigned kHighestExponent = 12;

// How much of a run of like things is shown.
constexpr U64 kShownFrames = 8;
constexpr U64 kShownSamples = 8;
constexpr std::size_t kShownText = 260;

constexpr U64 kNodeVersion = 0x00010000;
constexpr U64 kMostSamples = 0xFFFF;  // that a node's reader counts

// Ends the reading: behind a damage of this kind nothing has a place.
struct Damage {
  std::string what;
};

// The one way to the bytes: a position that never passes an end within the file. Copies share the
// file and have positions of their own.
class Reader {
 public:
  Reader(std::istream& file, U64 end) : file_(&file), end_(end) {}

  U64 position() const { return position_; }
  U64 end() const { return end_; }
  U64 left() const { return end_ - position_; }

  // Fails unless `size` bytes are left.
  void Need(U64 size, std::string_view what) const {
    if (size > left()) {
      throw Damage{
          fmt::format("at 0x{:X}: {} needs {} bytes, {} are left", position_, what, size, left())};
    }
  }
  void Skip(U64 size, std::string_view what) {
    Need(size, what);
    position_ += size;
  }
  // At most a few bytes at a time; `size` is never a number from the file.
  void Take(void* bytes, std::size_t size, std::string_view what) {
    Need(size, what);
    file_->clear();
    file_->seekg(static_cast<std::streamoff>(position_));
    if (!file_->read(static_cast<char*>(bytes), static_cast<std::streamsize>(size))) {
      throw Damage{fmt::format("at 0x{:X}: {} cannot be read", position_, what)};
    }
    position_ += size;
  }
  U64 Number(std::size_t size, std::string_view what) {
    unsigned char bytes[8] = {};
    Take(bytes, size, what);
    U64 value = 0;
    for (std::size_t i = size; i-- > 0;)
      value = value << 8 | bytes[i];
    return value;
  }
  // A reader from `from`, of the same file and end; one behind the end reads nothing.
  Reader At(U64 from) const {
    Reader other = *this;
    other.position_ = std::min(from, end_);
    return other;
  }
  // A reader of the next `size` bytes alone, as far as there are that many.
  Reader Part(U64 size) const {
    Reader other = *this;
    other.end_ = position_ + std::min(size, left());
    return other;
  }

 private:
  std::istream* file_;
  U64 position_ = 0;
  U64 end_;
};

std::string Quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    result += code < 0x20 || code == 0x7F ? fmt::format("\\x{:02X}", code) : std::string(1, c);
  }
  return result + '"';
}

std::string HexOf(const unsigned char* bytes, std::size_t size) {
  std::string result;
  for (std::size_t i = 0; i < size; ++i) {
    result += fmt::format("{}{:02X}", i == 0 ? "" : " ", bytes[i]);
  }
  return result;
}

std::string GuidText(const unsigned char* bytes) {
  const auto number = [bytes](int from, int size) {
    unsigned value = 0;
    for (int i = size; i-- > 0;)
      value = value << 8 | bytes[from + i];
    return value;
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

// Prints fields as it reads them and keeps the first damage.
class Dumper {
 public:
  Dumper(std::ostream& out, std::string& problem) : out_(out), problem_(problem) {}

  bool sound() const { return sound_; }

  void Title(const std::string& text) { out_ << text << '\n'; }

  void Line(U64 offset, U64 size, std::string_view name, std::string_view value) {
    out_ << fmt::format("{:08X} {:>8}  {:<18} {}\n", offset, size, name, value);
  }

  // Reading goes on behind it.
  void Wrong(const std::string& what) {
    out_ << "! " << what << '\n';
    if (sound_) problem_ = what;
    sound_ = false;
  }

  U64 Unsigned(Reader& reader, std::size_t size, std::string_view name,
               std::string_view remark = {}) {
    const U64 offset = reader.position();
    const U64 value = reader.Number(size, name);
    Line(offset, size, name, fmt::format("{}{}{}", value, remark.empty() ? "" : "  ", remark));
    return value;
  }
  void Signed16(Reader& reader, std::string_view name) {
    const U64 offset = reader.position();
    Line(offset, 2, name, fmt::format("{}", static_cast<std::int16_t>(reader.Number(2, name))));
  }
  void Ignored(Reader& reader, std::size_t size, std::string_view name) {
    const U64 offset = reader.position();
    reader.Skip(size, name);
    Line(offset, size, name, "not read");
  }
  std::string Tag(Reader& reader, std::string_view name) {
    char bytes[4];
    const U64 offset = reader.position();
    reader.Take(bytes, sizeof bytes, name);
    const std::string tag(bytes, sizeof bytes);
    Line(offset, sizeof bytes, name, Quoted(tag));
    return tag;
  }
  // Ends the reading where the tag is another one: the readers skip nothing.
  void ExpectTag(Reader& reader, std::string_view tag) {
    const U64 offset = reader.position();
    const std::string found = Tag(reader, "tag");
    if (found != tag) {
      throw Damage{
          fmt::format("at 0x{:X}: the tag is {}, not {}", offset, Quoted(found), Quoted(tag))};
    }
  }
  // Zero-terminated.
  void Text(Reader& reader, std::string_view name) {
    const U64 offset = reader.position();
    std::string text;
    for (;;) {
      char piece[256];
      const auto size = static_cast<std::size_t>(std::min<U64>(sizeof piece, reader.left()));
      if (size == 0) {
        throw Damage{fmt::format("at 0x{:X}: {} has no end", offset, name)};
      }
      const U64 from = reader.position();
      reader.Take(piece, size, name);
      const auto length = static_cast<std::size_t>(std::find(piece, piece + size, '\0') - piece);
      text.append(piece, std::min(length, kShownText - std::min(kShownText, text.size())));
      if (length == size) continue;
      reader = reader.At(from + length + 1);
      break;
    }
    const U64 whole = reader.position() - offset;
    Line(offset, whole, name, Quoted(text) + (whole - 1 > text.size() ? "..." : ""));
  }

 private:
  std::ostream& out_;
  std::string& problem_;
  bool sound_ = true;
};

// --- Encoded samples ---

struct SampleHead {
  U64 channels;
  U64 format;
  U64 length;
};

SampleHead DumpSampleHead(Dumper& dump, Reader& reader) {
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

void DumpFrames(Dumper& dump, Reader reader) {
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

void DumpSamples(Dumper& dump, const Reader& data, U64 width, std::string_view name) {
  Reader reader = data;
  std::string values;
  for (U64 n = 0; n < kShownSamples && reader.left() >= width; ++n) {
    const U64 value = reader.Number(static_cast<std::size_t>(width), name);
    values += fmt::format("{}{}", n == 0 ? "" : " ",
                          width == 1 ? static_cast<int>(static_cast<std::int8_t>(value))
                                     : static_cast<int>(static_cast<std::int16_t>(value)));
  }
  dump.Line(data.position(), data.left(), name, values + (reader.left() >= width ? " ..." : ""));
}

void DumpExtra(Dumper& dump, Reader reader, bool plus) {
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
  DumpSamples(dump, reader.Part(2 * blocks), 2, "blockY0");
  reader.Skip(2 * blocks, "blockY0");
  DumpSamples(dump, reader.Part(2 * blocks), 2, "blockY1");
}

void DumpChannel(Dumper& dump, Reader reader, U64 channel, const SampleHead& head) {
  dump.Title(fmt::format("channel {}", channel));
  const U64 start = reader.position();
  const U64 dataLen = dump.Unsigned(reader, 4, "dataLen");
  const U64 extraLen = dump.Unsigned(reader, 4, "extraDataLen");
  if (dataLen != PromisedBytes(head)) {
    dump.Wrong(fmt::format("at 0x{:X}: {} samples take {} bytes, not {}", start, head.length,
                           PromisedBytes(head), dataLen));
  }
  const Reader data = reader.Part(dataLen);
  if (IsAdpcm(head.format)) {
    DumpFrames(dump, data);
  } else {
    const U64 width = head.format == SDTarvaneAccessInterface::COMPTYPE_RAW ? 2 : 1;
    DumpSamples(dump, data, width, "samples");
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

void DumpEncodedSample(Dumper& dump, Reader reader) {
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

void DumpInfo(Dumper& dump, Reader& reader, const std::string& which) {
  dump.Unsigned(reader, 4, which + ".frq", "Hz");
  dump.Ignored(reader, 4, "padding");
  dump.Unsigned(reader, 8, which + ".length");
  dump.Unsigned(reader, 8, which + ".loop");
  dump.Unsigned(reader, 8, which + ".loopLength");
  dump.Unsigned(reader, 1, which + ".orgKey");
  dump.Ignored(reader, 7, "padding");
}

void DumpTime(Dumper& dump, Reader& reader, std::string_view name) {
  const U64 offset = reader.position();
  U64 field[8];  // year, month, day of week, day, hour, minute, second, millisecond
  reader.Need(sizeof field / 4, name);
  for (U64& value : field)
    value = reader.Number(2, name);
  dump.Line(offset, 16, name,
            fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} UTC", field[0], field[1],
                        field[3], field[4], field[5], field[6], field[7]));
}

void DumpSampleNode(Dumper& dump, Reader& reader) {
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

void DumpSetupNode(Dumper& dump, Reader& reader) {
  dump.Text(reader, "sampleFolder");
  const U64 count = dump.Unsigned(reader, 2, "classes");
  for (U64 n = 0; n < count; ++n) {
    dump.Text(reader, fmt::format("class {} name", n));
    dump.Unsigned(reader, 1, "level");
    dump.Unsigned(reader, 2, "refCount");
  }
}

void DumpNode(Dumper& dump, Reader reader) {
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

// --- WAV ---

void DumpFormatChunk(Dumper& dump, Reader reader) {
  const U64 start = reader.position();
  const U64 tag = dump.Unsigned(reader, 2, "format tag");
  if (tag != 1) {
    dump.Wrong(fmt::format("at 0x{:X}: format tag {}; imports take only 1, PCM", start, tag));
  }
  dump.Unsigned(reader, 2, "channels");
  dump.Unsigned(reader, 4, "rate", "Hz");
  dump.Unsigned(reader, 4, "bytes per second");
  dump.Unsigned(reader, 2, "block align");
  const U64 bits = dump.Unsigned(reader, 2, "bits per sample");
  if (bits != 8 && bits != 16) {
    dump.Wrong(
        fmt::format("at 0x{:X}: {} bits per sample; imports take only 8 and 16", start + 14, bits));
  }
  if (reader.left() != 0) {
    dump.Line(reader.position(), reader.left(), "extension", "not read");
  }
}

void DumpSamplerChunk(Dumper& dump, Reader reader) {
  for (const char* name : {"manufacturer", "product", "sample period", "MIDI unity note",
                           "pitch fraction", "SMPTE format", "SMPTE offset"}) {
    dump.Unsigned(reader, 4, name);
  }
  const U64 loops = dump.Unsigned(reader, 4, "loops");
  dump.Unsigned(reader, 4, "sampler data");
  reader.Need(loops * 24, "the list of loops");
  for (U64 n = 0; n < loops; ++n) {
    for (const char* name : {"cue point", "type", "start", "end", "fraction", "play count"}) {
      dump.Unsigned(reader, 4, fmt::format("loop {} {}", n, name));
    }
  }
}

void DumpWav(Dumper& dump, Reader reader) {
  dump.Title("WAV sound");
  dump.Tag(reader, "tag");
  const U64 riffSize = reader.Number(4, "size");
  dump.Line(4, 4, "size",
            fmt::format("{}{}", riffSize,
                        riffSize == reader.end() - 8
                            ? ""
                            : fmt::format("  of {} in the file", reader.end() - 8)));
  dump.Tag(reader, "form");
  bool formatFound = false;
  bool dataFound = false;
  while (reader.left() != 0) {
    const U64 start = reader.position();
    reader.Need(8, "a chunk's head");
    const std::string tag = dump.Tag(reader, "chunk");
    const U64 size = dump.Unsigned(reader, 4, "size");
    // Damage inside a chunk ends there; the next chunk has its own place.
    try {
      reader.Need(size, "the chunk's data");
    } catch (const Damage& damage) {
      dump.Wrong(damage.what);
    }
    const Reader content = reader.Part(size);
    try {
      if (tag == "fmt ") DumpFormatChunk(dump, content);
      if (tag == "smpl") DumpSamplerChunk(dump, content);
    } catch (const Damage& damage) {
      dump.Wrong(damage.what);
    }
    if (tag != "fmt " && tag != "smpl") {
      dump.Line(content.position(), content.left(), tag == "data" ? "samples" : "content", "");
    }
    formatFound = formatFound || tag == "fmt ";
    dataFound = dataFound || tag == "data";
    reader = reader.At(start + 8 + size + size % 2);
  }
  if (!formatFound) dump.Wrong("there is no \"fmt \" chunk");
  if (!dataFound) dump.Wrong("there is no \"data\" chunk");
}

}  // namespace

bool DumpFile(const std::string& nativePath, std::ostream& out, std::string& problem) {
  problem.clear();
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(nativePath, error);
  if (!std::filesystem::is_regular_file(status)) {
    problem = std::filesystem::exists(status) ? "it is not a file" : "there is no such file";
    return false;
  }
  const U64 size = std::filesystem::file_size(nativePath, error);
  std::ifstream file(nativePath, std::ios::binary);
  if (error || !file) {
    problem = "the file cannot be opened";
    return false;
  }

  Dumper dump(out, problem);
  try {
    const Reader reader(file, size);
    char head[12] = {};
    Reader(reader).Take(head, static_cast<std::size_t>(std::min<U64>(sizeof head, size)), "head");
    const std::string_view start(head, sizeof head);
    if (start.substr(0, 4) == "ESMP") {
      DumpEncodedSample(dump, reader);
    } else if (start.substr(0, 4) == "KLVO") {
      DumpNode(dump, reader);
    } else if (start.substr(0, 4) == "RIFF" && start.substr(8) == "WAVE") {
      DumpWav(dump, reader);
    } else {
      problem = "it is no encoded sample, no node file and no WAV sound";
      return false;
    }
  } catch (const Damage& damage) {
    dump.Wrong(damage.what);
  }
  return dump.sound();
}

}  // namespace samplehost
