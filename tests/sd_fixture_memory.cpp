// The allocators of the test program, which can fail on demand: operator new, and malloc and calloc
// as our code calls them (the linker sends those calls here). In a file of its own: where a
// compiler sees who calls it, it takes new with malloc behind it for a mistake.
#include <cstdlib>
#include <new>

#include "tests/sd_fixture.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
}

namespace {

int allocationsLeft = 0;  // 0: none fails; n: the n-th from here on does
bool allocationFailed = false;
int sparers = 0;

bool FailsNow() {
  if (sparers > 0 || allocationsLeft == 0 || --allocationsLeft > 0) return false;
  allocationFailed = true;
  return true;
}

}  // namespace

void* __wrap_malloc(std::size_t size) {
  return FailsNow() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return FailsNow() ? nullptr : __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) {
  void* const block = FailsNow() ? nullptr : __real_malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return FailsNow() ? nullptr : __real_malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
// Spared: the narrow form of a text is made so, and a text without one stops the program.
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

namespace sdtest {

FailingAllocation::FailingAllocation(int n)
    : former_(qz::SetAssertHandler([](const char*, const char*, int) { throw std::bad_alloc(); })) {
  allocationFailed = false;
  allocationsLeft = n;
}
FailingAllocation::~FailingAllocation() {
  allocationsLeft = 0;
  qz::SetAssertHandler(former_);
}
SparedAllocations::SparedAllocations() {
  ++sparers;
}
SparedAllocations::~SparedAllocations() {
  --sparers;
}
bool FailingAllocation::Fired() {
  allocationsLeft = 0;
  return allocationFailed;
}

}  // namespace sdtest
