// What the dumps of all kinds of files share: fields printed as they are read, and the dumps of
// sound files.
#ifndef HOST_DUMP_INTERN_H_
#define HOST_DUMP_INTERN_H_

#include <ostream>
#include <string>
#include <string_view>

#include "host/byte_reader.h"

namespace samplehost {

std::string Quoted(std::string_view text);
std::string HexOf(const unsigned char* bytes, std::size_t size);

// Prints fields as it reads them and keeps the first damage.
class Dumper {
 public:
  Dumper(std::ostream& out, std::string& problem) : out_(out), problem_(problem) {}

  bool sound() const { return sound_; }
  // The order of the bytes in the numbers from here on.
  void set_bigEndian(bool bigEndian) { bigEndian_ = bigEndian; }

  void Title(const std::string& text) { out_ << text << '\n'; }
  void Line(U64 offset, U64 size, std::string_view name, std::string_view value);
  // Reading goes on behind it.
  void Wrong(const std::string& what);

  U64 Unsigned(ByteReader& reader, std::size_t size, std::string_view name,
               std::string_view remark = {});
  void Signed16(ByteReader& reader, std::string_view name);
  void Ignored(ByteReader& reader, std::size_t size, std::string_view name);
  std::string Tag(ByteReader& reader, std::string_view name);
  // Ends the reading where the tag is another one: the readers skip nothing.
  void ExpectTag(ByteReader& reader, std::string_view tag);
  // Zero-terminated.
  void Text(ByteReader& reader, std::string_view name);
  // The first of the samples of `width` bytes that fill `data`, in one line.
  void Samples(const ByteReader& data, U64 width, std::string_view name);

 private:
  std::ostream& out_;
  std::string& problem_;
  bool sound_ = true;
  bool bigEndian_ = false;
};

// Whole files, whose magic is there.
void DumpWav(Dumper& dump, ByteReader reader);
void DumpAiff(Dumper& dump, ByteReader reader);
void DumpMort(Dumper& dump, ByteReader reader);

}  // namespace samplehost

#endif  // HOST_DUMP_INTERN_H_
