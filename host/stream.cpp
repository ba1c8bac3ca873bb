#include "host/stream.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace samplehost {

namespace {

// A payload beyond this is refused: the database takes no larger block.
constexpr qz::uint64 kMaxBytes = 1000000000;

}  // namespace

MemoryStream::MemoryStream(Bytes bytes, DIOOpenMode mode)
    : DIOTypedStream(mode), bytes_(std::move(bytes)) {
  if (mode == OPENMODE_APPEND) position_ = bytes_.size();
}

bool MemoryStream::GetFileTime(DIOFileTime&, DIOFileTime&, DIOFileTime&) {
  return false;
}

bool MemoryStream::GetFileSize(uint64& size) {
  size = bytes_.size();
  return true;
}

bool MemoryStream::GetFileSize(ulong& size) {
  size = static_cast<ulong>(bytes_.size());  // kMaxBytes fits
  return true;
}

bool MemoryStream::GetPosition(uint64& pos) {
  pos = position_;
  return true;
}

bool MemoryStream::GetPosition(ulong& pos) {
  const ulong low = static_cast<ulong>(position_);
  if (low == 0xFFFFFFFFu) return false;
  pos = low;
  return true;
}

bool MemoryStream::SetPosition(uint64 distance, DIOSeekMode mode) {
  const uint64 origin = mode == SEEKMODE_START     ? 0
                        : mode == SEEKMODE_CURRENT ? position_
                                                   : bytes_.size();
  const uint64 target = origin + distance;                    // wraps for a negative distance
  if (target > static_cast<uint64>(INT64_MAX)) return false;  // in front of the start
  position_ = target;
  return true;
}

bool MemoryStream::SetPosition(ulong distance, DIOSeekMode mode) {
  const uint64 before = position_;
  const auto widened = static_cast<int64>(static_cast<slong>(distance));
  if (!SetPosition(static_cast<uint64>(widened), mode)) return false;
  if (static_cast<ulong>(position_) != 0xFFFFFFFFu) return true;
  position_ = before;
  return false;
}

bool MemoryStream::ReadBytes(void* buffer, ulong count, ulong& done) {
  const uint64 left = position_ < bytes_.size() ? bytes_.size() - position_ : 0;
  done = static_cast<ulong>(std::min<uint64>(count, left));
  if (done > 0) std::memcpy(buffer, bytes_.data() + position_, done);
  position_ += done;
  return true;
}

bool MemoryStream::WriteBytes(const void* buffer, ulong count, ulong& done) {
  done = 0;
  if (state.accessMode == OPENMODE_OPEN) return false;
  if (count == 0) return true;
  const uint64 end = position_ + count;
  if (end > kMaxBytes) return false;
  try {
    if (end > bytes_.size()) bytes_.resize(end);
  } catch (const std::exception&) {
    return false;
  }
  std::memcpy(bytes_.data() + position_, buffer, count);
  position_ = end;
  done = count;
  return true;
}

}  // namespace samplehost
