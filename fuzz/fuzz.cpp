#include "fuzz/fuzz.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace fuzz {

namespace {

#if defined(FUZZ_SANITIZED)
constexpr std::size_t kLargestBlock = 100 * 1024;
#else
constexpr std::size_t kLargestBlock = ~std::size_t{0};
#endif

constexpr int kForGood = 0x80;
constexpr int kOneByOne = 48;  // beyond, a choice stands for a step of 6

int AllocationOf(std::uint8_t choice) {
  const int n = choice & (kForGood - 1);
  return n <= kOneByOne ? n : kOneByOne + (n - kOneByOne) * 6;
}

long failuresBefore = 0;

}  // namespace

void Check(bool holds, const char* text) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", text);
  std::abort();
}

void Touch(const void* block, std::size_t size) {
  const volatile char* bytes = static_cast<const char*>(block);
  if (size == 0) return;
  static_cast<void>(bytes[0]);
  static_cast<void>(bytes[size - 1]);
}

std::uint8_t Input::TakeByte() {
  if (bytes_.empty()) return 0;
  const auto byte = static_cast<std::uint8_t>(bytes_.back());
  bytes_.remove_suffix(1);
  return byte;
}

std::string_view Input::TakeText() {
  const std::size_t length = std::min(bytes_.find('\0'), bytes_.size());
  const std::string_view text = bytes_.substr(0, length);
  bytes_.remove_prefix(std::min(length + 1, bytes_.size()));
  return text;
}

Faults::Faults(std::uint8_t choice)
    : failing_(AllocationOf(choice), (choice & kForGood) != 0), limit_(kLargestBlock) {
  failuresBefore = heap_faults::Failures();
}

bool Faults::Fired() {
  return heap_faults::Failures() != failuresBefore;
}

// The calls of the C library's custom streams.
struct MemoryFile::Cookie {
  static ssize_t Read(void* cookie, char* buffer, std::size_t size) {
    auto& file = *static_cast<MemoryFile*>(cookie);
    const auto end = static_cast<std::int64_t>(file.bytes_.size());
    const auto left = static_cast<std::size_t>(std::max<std::int64_t>(end - file.position_, 0));
    const std::size_t count = std::min(size, left);
    if (count != 0) std::memcpy(buffer, file.bytes_.data() + file.position_, count);
    file.position_ += static_cast<std::int64_t>(count);
    return static_cast<ssize_t>(count);
  }

  static int Seek(void* cookie, off64_t* offset, int origin) {
    auto& file = *static_cast<MemoryFile*>(cookie);
    std::int64_t target = *offset;
    if (origin == SEEK_CUR) target += file.position_;
    if (origin == SEEK_END) target += static_cast<std::int64_t>(file.bytes_.size());
    if (target < 0) return -1;
    *offset = file.position_ = target;
    return 0;
  }
};

MemoryFile::MemoryFile(std::string_view bytes) : bytes_(bytes) {
  file_ = fopencookie(this, "rb", {Cookie::Read, nullptr, Cookie::Seek, nullptr});
  Check(file_ != nullptr, "a file in memory can be opened");
  std::setvbuf(file_, buffer_, _IOFBF, sizeof buffer_);
}

}  // namespace fuzz
