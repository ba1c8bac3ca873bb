#include "host/dump_intern.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

namespace samplehost {

namespace {

// How much of a run of like things is shown.
constexpr U64 kShownSamples = 8;
constexpr std::size_t kShownText = 260;

}  // namespace

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

void Dumper::Line(U64 offset, U64 size, std::string_view name, std::string_view value) {
  out_ << fmt::format("{:08X} {:>8}  {:<18} {}\n", offset, size, name, value);
}

void Dumper::Wrong(const std::string& what) {
  out_ << "! " << what << '\n';
  if (sound_) problem_ = what;
  sound_ = false;
}

U64 Dumper::Unsigned(ByteReader& reader, std::size_t size, std::string_view name,
                     std::string_view remark) {
  const U64 offset = reader.position();
  const U64 value = reader.Number(size, name, bigEndian_);
  Line(offset, size, name, fmt::format("{}{}{}", value, remark.empty() ? "" : "  ", remark));
  return value;
}

void Dumper::Signed16(ByteReader& reader, std::string_view name) {
  const U64 offset = reader.position();
  Line(offset, 2, name,
       fmt::format("{}", static_cast<std::int16_t>(reader.Number(2, name, bigEndian_))));
}

void Dumper::Ignored(ByteReader& reader, std::size_t size, std::string_view name) {
  const U64 offset = reader.position();
  reader.Skip(size, name);
  Line(offset, size, name, "not read");
}

std::string Dumper::Tag(ByteReader& reader, std::string_view name) {
  char bytes[4];
  const U64 offset = reader.position();
  reader.Take(bytes, sizeof bytes, name);
  const std::string tag(bytes, sizeof bytes);
  Line(offset, sizeof bytes, name, Quoted(tag));
  return tag;
}

void Dumper::ExpectTag(ByteReader& reader, std::string_view tag) {
  const U64 offset = reader.position();
  const std::string found = Tag(reader, "tag");
  if (found != tag) {
    throw Damage{
        fmt::format("at 0x{:X}: the tag is {}, not {}", offset, Quoted(found), Quoted(tag))};
  }
}

void Dumper::Text(ByteReader& reader, std::string_view name) {
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

void Dumper::Samples(const ByteReader& data, U64 width, std::string_view name) {
  ByteReader reader = data;
  std::string values;
  for (U64 n = 0; n < kShownSamples && reader.left() >= width; ++n) {
    const U64 value = reader.Number(static_cast<std::size_t>(width), name, bigEndian_);
    values += fmt::format("{}{}", n == 0 ? "" : " ",
                          width == 1 ? static_cast<int>(static_cast<std::int8_t>(value))
                                     : static_cast<int>(static_cast<std::int16_t>(value)));
  }
  Line(data.position(), data.left(), name, values + (reader.left() >= width ? " ..." : ""));
}

}  // namespace samplehost
