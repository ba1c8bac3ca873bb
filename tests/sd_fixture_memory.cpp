// The allocator of the test program, which can fail on demand. In a file of its own: where a
// compiler sees who calls it, it takes new with malloc behind it for a mistake.
#include <cstdlib>
#include <new>

#include "tests/sd_fixture.h"

namespace {

int allocationsLeft = 0;  // 0: none fails; n: the n-th from here on does
bool allocationFailed = false;

bool FailsNow() {
  if (allocationsLeft == 0 || --allocationsLeft > 0) return false;
  allocationFailed = true;
  return true;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const block = FailsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return FailsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
// Spared: the narrow form of a text is made so, and a text without one stops the program.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
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

FailingAllocation::FailingAllocation(int n) {
  allocationFailed = false;
  allocationsLeft = n;
}
FailingAllocation::~FailingAllocation() {
  allocationsLeft = 0;
}
bool FailingAllocation::Fired() {
  allocationsLeft = 0;
  return allocationFailed;
}

}  // namespace sdtest
