// The one way of the host to the bytes of a file that it does not trust: a position that never
// passes an end within the file, and sizes in 64 bits that are tried before anything is read.
#ifndef HOST_BYTE_READER_H_
#define HOST_BYTE_READER_H_

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace samplehost {

using U64 = std::uint64_t;

// Ends the reading: behind a damage of this kind nothing has a place.
struct Damage {
  std::string what;
};

// An open file and the page of it that was read last, because walks over hostile files take a few
// bytes at a time.
class ByteSource {
 public:
  explicit ByteSource(const std::string& nativePath);

  // False where the path is no regular file, or one that cannot be opened; `problem` then says so.
  bool open() const { return problem_.empty(); }
  const std::string& problem() const { return problem_; }
  U64 size() const { return size_; }

  // False where the file does not give the bytes.
  bool Read(U64 position, void* bytes, std::size_t size);

 private:
  std::string problem_;
  std::ifstream file_;
  U64 size_ = 0;
  U64 pageAt_ = 0;
  std::vector<char> page_;
};

// A position in a source and the end of what it may read. Copies share the source, which outlives
// them, and have positions of their own. What fails throws Damage with the place and `what`.
class ByteReader {
 public:
  explicit ByteReader(ByteSource& source) : source_(&source), end_(source.size()) {}

  U64 position() const { return position_; }
  U64 end() const { return end_; }
  U64 left() const { return end_ - position_; }

  // Fails unless `size` bytes are left.
  void Need(U64 size, std::string_view what) const;
  void Skip(U64 size, std::string_view what);
  // `size` is bounded by the caller, never a number from the file.
  void Take(void* bytes, std::size_t size, std::string_view what);
  // 1 to 8 bytes, least significant first, or most significant first.
  U64 Number(std::size_t size, std::string_view what, bool bigEndian = false);

  // A reader from `from`, of the same end; one behind the end reads nothing.
  ByteReader At(U64 from) const;
  // A reader of the next `size` bytes alone, as far as there are that many.
  ByteReader Part(U64 size) const;

 private:
  ByteSource* source_;
  U64 position_ = 0;
  U64 end_;
};

}  // namespace samplehost

#endif  // HOST_BYTE_READER_H_
