// The allocators of a fuzz target: operator new, and malloc, calloc and realloc as our code calls
// them (the linker sends those calls here). In a file of its own: where a compiler sees who calls
// it, it takes new with malloc behind it for a mistake.
#include <cstdlib>
#include <new>

#include "common/qzassert.h"
#include "fuzz/fuzz.h"

#if defined(__SANITIZE_ADDRESS__)
#define FUZZ_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_ADDRESS_SANITIZER 1
#endif
#endif

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
}

namespace {

#if defined(FUZZ_ADDRESS_SANITIZER)
constexpr std::size_t kLargestBlock = 100 * 1024;
#else
constexpr std::size_t kLargestBlock = ~std::size_t{0};
#endif

bool armed = false;
bool fired = false;
bool failsForGood = false;
int allocationsLeft = 0;  // 0: none fails; n: the n-th from here on does
int sparers = 0;

bool Fails(std::size_t size) {
  if (!armed || sparers > 0) return false;
  if (size > kLargestBlock) return fired = true;
  if (allocationsLeft == 0) return false;
  if (allocationsLeft > 1) {
    --allocationsLeft;
    return false;
  }
  if (!failsForGood) allocationsLeft = 0;
  return fired = true;
}

void* New(std::size_t size) {
  return Fails(size) ? nullptr : __real_malloc(size == 0 ? 1 : size);
}

}  // namespace

void* __wrap_malloc(std::size_t size) {
  return Fails(size) ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  return Fails(bytes) ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  return Fails(size) ? nullptr : __real_realloc(block, size);
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) {
  void* const block = New(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return New(size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return __real_malloc(size == 0 ? 1 : size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}

namespace fuzz {

namespace {

constexpr int kForGood = 0x80;
constexpr int kOneByOne = 48;  // beyond, a choice stands for a step of 6

void ThrowNoMemory(const char*, const char*, int) {
  throw std::bad_alloc();
}

}  // namespace

Faults::Faults(std::uint8_t choice) {
  const int n = choice & (kForGood - 1);
  allocationsLeft = n <= kOneByOne ? n : kOneByOne + (n - kOneByOne) * 6;
  failsForGood = (choice & kForGood) != 0;
  fired = false;
  armed = true;
  // Without a failure to come every assertion that stops is a finding.
  if (n != 0) qz::SetAssertHandler(ThrowNoMemory);
}

Faults::~Faults() {
  armed = false;
  qz::SetAssertHandler(nullptr);
}

bool Faults::Fired() {
  return fired;
}

void Spare(int by) {
  sparers += by;
}

}  // namespace fuzz
