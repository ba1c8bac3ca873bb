// In a file of its own: where a compiler sees who calls it, it takes new with malloc behind it for
// a mistake.
#include "tests/heap_faults.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_set>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __wrap_free(void* block);
}

namespace {

// The list of live blocks must not find itself in it.
template <class T>
struct RealHeap {
  using value_type = T;
  RealHeap() = default;
  template <class U>
  RealHeap(const RealHeap<U>&) {}  // NOLINT: as allocators convert
  T* allocate(std::size_t count) { return static_cast<T*>(__real_malloc(count * sizeof(T))); }
  void deallocate(T* block, std::size_t) { __real_free(block); }
  bool operator==(const RealHeap&) const { return true; }
};

std::mutex lock;
std::atomic<bool> armed = false;
std::atomic<bool> watching = false;
std::atomic<std::size_t> largestBlock = ~std::size_t{0};
int failing = 0;
bool goesOn = false;
int calls = 0;
int sparers = 0;
bool fired = false;
long failures = 0;

auto& LiveBlocks() {
  static std::unordered_set<void*, std::hash<void*>, std::equal_to<>, RealHeap<void*>> blocks;
  return blocks;
}

bool FailsNow(std::size_t size) {
  const bool refused = size > largestBlock;
  if (!armed && !refused) return false;
  const std::lock_guard guard(lock);
  if (sparers > 0) return false;
  if (refused) {
    ++failures;
    return true;
  }
  ++calls;
  if (failing == 0 || calls < failing || (calls > failing && !goesOn)) return false;
  fired = true;
  ++failures;
  return true;
}

void* Added(void* block) {
  if (!watching || block == nullptr) return block;
  const std::lock_guard guard(lock);
  LiveBlocks().insert(block);
  return block;
}

void* Removed(void* block) {
  if (!watching || block == nullptr) return block;
  const std::lock_guard guard(lock);
  LiveBlocks().erase(block);
  return block;
}

}  // namespace

void* __wrap_malloc(std::size_t size) {
  return FailsNow(size) ? nullptr : Added(__real_malloc(size));
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  // A product that wraps is refused by the real one.
  return FailsNow(count * size) ? nullptr : Added(__real_calloc(count, size));
}
void* __wrap_realloc(void* block, std::size_t size) {
  if (FailsNow(size)) return nullptr;
  return Added(__real_realloc(Removed(block), size));
}
void __wrap_free(void* block) {
  __real_free(Removed(block));
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) {
  void* const block = __wrap_malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return __wrap_malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return __wrap_malloc(size == 0 ? 1 : size);
}
void operator delete(void* block) noexcept {
  __wrap_free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  __wrap_free(block);
}
void operator delete[](void* block) noexcept {
  __wrap_free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  __wrap_free(block);
}

namespace heap_faults {

Failing::Failing(int n, bool forGood) {
  failing = n;
  goesOn = forGood;
  calls = 0;
  fired = false;
  armed = true;
}
Failing::~Failing() {
  armed = false;
}
bool Failing::Fired() {
  armed = false;
  return fired;
}
int Failing::Calls() const {
  return calls;
}

Limit::Limit(std::size_t largest) {
  largestBlock = largest;
}
Limit::~Limit() {
  largestBlock = ~std::size_t{0};
}

Spared::Spared() {
  const std::lock_guard guard(lock);
  ++sparers;
}
Spared::~Spared() {
  const std::lock_guard guard(lock);
  --sparers;
}
bool Spared::Any() {
  const std::lock_guard guard(lock);
  return sparers > 0;
}

Watch::Watch() {
  LiveBlocks().clear();
  watching = true;
}
Watch::~Watch() {
  watching = false;
}
std::size_t Watch::Live() const {
  return LiveBlocks().size();
}

long Failures() {
  return failures;
}

}  // namespace heap_faults
