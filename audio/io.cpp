#include "audio/io.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "audio/audio.h"
#include "common/byte_order.h"
#include "platform/platform.h"

namespace {

constexpr qz::int64 kFirstChunk = 12;
constexpr qz::int64 kChunkHead = 8;
constexpr std::size_t kNameSize = 4;

bool SwapNeeded(bool bigEndian) {
  return bigEndian != (std::endian::native == std::endian::big);
}

bool IsElementSize(qz::ulong elemSize) {
  return elemSize == 1 || elemSize == 2 || elemSize == 4;
}

// Turns the bytes of each element round.
void Swap(void* elements, qz::ulong elemSize, std::size_t size) {
  if (elemSize == 2) qz::SwapAll<qz::ushort>(elements, size);
  if (elemSize == 4) qz::SwapAll<qz::ulong>(elements, size);
}

// Passes over `distance` bytes to `target`. Short ways are read, because a seek throws the stream's
// buffer away, and a hostile file can have millions of them.
bool PassOver(std::FILE* file, qz::int64 distance, qz::int64 target) {
  qz::uchar passed[256];
  if (distance > std::ssize(passed)) return platform::fseek64(file, target, SEEK_SET) == 0;
  const auto size = static_cast<std::size_t>(distance);
  return std::fread(passed, 1, size, file) == size;
}

qz::ulong ReadElements(void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file,
                       bool bigEndian) {
  if (!IsElementSize(elemSize) || count == 0) return 0;
  auto* bytes = static_cast<qz::uchar*>(buffer);
  const std::size_t done = std::fread(bytes, 1, std::size_t{count} * elemSize, file);

  // The end of the file may have cut an element.
  const std::size_t cut = (elemSize - done % elemSize) % elemSize;
  std::memset(bytes + done, 0, cut);
  if (SwapNeeded(bigEndian)) Swap(bytes, elemSize, done + cut);
  return static_cast<qz::ulong>(done);
}

}  // namespace

qz::ulong audioReadIntel(void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file) {
  return ReadElements(buffer, elemSize, count, file, false);
}

qz::ulong audioReadMotorola(void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file) {
  return ReadElements(buffer, elemSize, count, file, true);
}

qz::ulong audioWriteEndian(const void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file,
                           bool bigEndian) {
  if (!IsElementSize(elemSize) || count == 0) return 0;
  const auto* bytes = static_cast<const qz::uchar*>(buffer);
  if (elemSize == 1 || !SwapNeeded(bigEndian)) {
    return static_cast<qz::ulong>(std::fwrite(bytes, 1, std::size_t{count} * elemSize, file));
  }

  qz::uchar block[4096];
  std::size_t done = 0;
  for (std::size_t left = std::size_t{count} * elemSize; left > 0;) {
    const std::size_t part = std::min(left, sizeof block);
    std::memcpy(block, bytes + done, part);
    Swap(block, elemSize, part);
    const std::size_t written = std::fwrite(block, 1, part, file);
    done += written;
    if (written != part) break;
    left -= part;
  }
  return static_cast<qz::ulong>(done);
}

qz::ushort audioReadIntel16(std::FILE* file) {
  qz::ushort value = 0;
  audioReadIntel(&value, 2, 1, file);
  return value;
}

qz::ulong audioReadIntel32(std::FILE* file) {
  qz::ulong value = 0;
  audioReadIntel(&value, 4, 1, file);
  return value;
}

qz::ushort audioReadMotorola16(std::FILE* file) {
  qz::ushort value = 0;
  audioReadMotorola(&value, 2, 1, file);
  return value;
}

qz::ulong audioReadMotorola32(std::FILE* file) {
  qz::ulong value = 0;
  audioReadMotorola(&value, 4, 1, file);
  return value;
}

void audioWriteIntel16(std::FILE* file, qz::ushort value) {
  audioWriteEndian(&value, 2, 1, file, false);
}

void audioWriteIntel32(std::FILE* file, qz::ulong value) {
  audioWriteEndian(&value, 4, 1, file, false);
}

void audioSkip(std::FILE* file, qz::ulong distance) {
  platform::fseek64(file, distance, SEEK_CUR);
}

qz::int64 audioFileSize(std::FILE* file) {
  if (platform::fseek64(file, 0, SEEK_END) != 0) return -1;
  return platform::ftell64(file);
}

bool audioIsForm(std::FILE* file, const char* form, const char* type) {
  char head[kFirstChunk];
  const bool valid = std::fread(head, 1, sizeof head, file) == sizeof head &&
                     std::memcmp(head, form, kNameSize) == 0 &&
                     std::memcmp(head + kChunkHead, type, kNameSize) == 0;
  platform::fseek64(file, 0, SEEK_SET);
  return valid;
}

bool audioFindChunk(std::FILE* file, const char* id, bool bigEndian, qz::ulong* size) {
  const qz::int64 fileSize = audioFileSize(file);
  qz::int64 start = kFirstChunk;
  if (platform::fseek64(file, start, SEEK_SET) != 0) return false;
  while (start < fileSize) {
    char name[kNameSize];
    if (std::fread(name, 1, kNameSize, file) != kNameSize) return false;
    *size = bigEndian ? audioReadMotorola32(file) : audioReadIntel32(file);
    if (std::memcmp(name, id, kNameSize) == 0) {
      // The end of the file may have cut the size; the data begins behind where it would end.
      return platform::fseek64(file, start + kChunkHead, SEEK_SET) == 0;
    }
    const qz::int64 dataSize = qz::int64{*size} + (*size & 1);
    start += kChunkHead + dataSize;
    if (!PassOver(file, dataSize, start)) return false;
  }
  return false;
}
