// Hints about memory.
#include <sys/mman.h>
#include <unistd.h>

#include "platform/platform.h"

namespace platform {

namespace {

// Smaller blocks hold hardly a large page of their own.
constexpr std::size_t kLeastSize = 0x400000;

}  // namespace

void ExpectFilled(void* block, std::size_t size) {
#if defined(MADV_HUGEPAGE)
  if (size < kLeastSize) return;
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto start = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (start + page - 1) / page * page;
  const std::uintptr_t end = (start + size) / page * page;
  // A kernel without large pages refuses, and nothing is lost.
  madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
  static_cast<void>(block);
  static_cast<void>(size);
#endif
}

}  // namespace platform
