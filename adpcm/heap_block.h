// Blocks from malloc that free themselves: the codec hands out malloc memory and reports exhausted
// memory by a null, so containers that throw are of no use to it.
#ifndef ADPCM_HEAP_BLOCK_H_
#define ADPCM_HEAP_BLOCK_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <type_traits>

#include "common/qztypes.h"
#include "platform/platform.h"

namespace adpcm {

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

template <typename T>
using HeapBlock = std::unique_ptr<T[], FreeBlock>;

inline void* AllocateElements(qz::uint64 count, std::size_t elementSize) {
  if (count > SIZE_MAX / elementSize) return nullptr;
  const std::size_t size = static_cast<std::size_t>(count) * elementSize;
  void* const block = std::malloc(size != 0 ? size : 1);
  if (block != nullptr) platform::ExpectFilled(block, size);
  return block;
}

// Room for `count` values without content. Null when memory runs out or when the size is beyond
// the address space. Null means failure alone: an empty block is 1 byte.
template <typename T>
HeapBlock<T> AllocateBlock(qz::uint64 count) {
  static_assert(std::is_trivial_v<T>);
  return HeapBlock<T>(static_cast<T*>(AllocateElements(count, sizeof(T))));
}

}  // namespace adpcm

#endif  // ADPCM_HEAP_BLOCK_H_
