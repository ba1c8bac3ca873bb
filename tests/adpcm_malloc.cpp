#include "tests/adpcm_malloc.h"

#include <algorithm>
#include <cstddef>

extern "C" {
void* __real_malloc(std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void __wrap_free(void* block);
}

namespace {

bool armed = false;
int failing = 0;
bool goesOn = false;
int calls = 0;
void* blocks[64];
int live = 0;

}  // namespace

void* __wrap_malloc(std::size_t size) {
  if (!armed) return __real_malloc(size);
  ++calls;
  if (failing != 0 && (calls == failing || (goesOn && calls > failing))) return nullptr;
  void* block = __real_malloc(size);
  if (block != nullptr && live < 64) blocks[live++] = block;
  return block;
}

void __wrap_free(void* block) {
  void** const end = blocks + live;
  void** const found = std::find(blocks, end, block);
  if (block != nullptr && found != end) *found = blocks[--live];
  __real_free(block);
}

namespace malloc_fault {

void Arm(int n, bool forGood) {
  armed = true;
  failing = n;
  goesOn = forGood;
  calls = 0;
  live = 0;
}

int Disarm() {
  armed = false;
  return calls;
}

int LiveBlocks() {
  return live;
}

}  // namespace malloc_fault
