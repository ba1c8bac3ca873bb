#include "host/byte_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/byte_order.h"

namespace samplehost {

namespace {

constexpr std::size_t kPage = 65536;

}  // namespace

ByteSource::ByteSource(const std::string& nativePath) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(nativePath, error);
  if (!std::filesystem::is_regular_file(status)) {
    problem_ = std::filesystem::exists(status) ? "it is not a file" : "there is no such file";
    return;
  }
  size_ = std::filesystem::file_size(nativePath, error);
  file_.open(nativePath, std::ios::binary);
  if (error || !file_) problem_ = "the file cannot be opened";
}

bool ByteSource::Read(U64 position, void* bytes, std::size_t size) {
  auto* out = static_cast<char*>(bytes);
  while (size > 0) {
    if (position < pageAt_ || position - pageAt_ >= page_.size()) {
      page_.resize(kPage);
      pageAt_ = position;
      file_.clear();
      file_.seekg(static_cast<std::streamoff>(position));
      file_.read(page_.data(), kPage);
      page_.resize(static_cast<std::size_t>(std::max<std::streamsize>(file_.gcount(), 0)));
      if (page_.empty()) return false;
    }
    const auto from = static_cast<std::size_t>(position - pageAt_);
    const std::size_t part = std::min(size, page_.size() - from);
    std::memcpy(out, page_.data() + from, part);
    out += part;
    position += part;
    size -= part;
  }
  return true;
}

void ByteReader::Need(U64 size, std::string_view what) const {
  if (size > left()) {
    throw Damage{
        fmt::format("at 0x{:X}: {} needs {} bytes, {} are left", position_, what, size, left())};
  }
}

void ByteReader::Skip(U64 size, std::string_view what) {
  Need(size, what);
  position_ += size;
}

void ByteReader::Take(void* bytes, std::size_t size, std::string_view what) {
  Need(size, what);
  if (!source_->Read(position_, bytes, size)) {
    throw Damage{fmt::format("at 0x{:X}: {} cannot be read", position_, what)};
  }
  position_ += size;
}

U64 ByteReader::Number(std::size_t size, std::string_view what, bool bigEndian) {
  unsigned char bytes[8] = {};
  Take(bytes, size, what);
  if (bigEndian) std::reverse(bytes, bytes + size);
  return qz::LittleEndian(bytes, size);
}

ByteReader ByteReader::At(U64 from) const {
  ByteReader other = *this;
  other.position_ = std::min(from, end_);
  return other;
}

ByteReader ByteReader::Part(U64 size) const {
  ByteReader other = *this;
  other.end_ = position_ + std::min(size, left());
  return other;
}

}  // namespace samplehost
