// Blocks that go to the host, who releases them with free.
#ifndef SAMPLEDATA_SD_HEAP_H_
#define SAMPLEDATA_SD_HEAP_H_

#include <cstdlib>
#include <limits>
#include <memory>

#include "common/qztypes.h"
#include "platform/platform.h"

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};
using HeapBlock = std::unique_ptr<void, FreeBlock>;
using SampleBlock = std::unique_ptr<short[], FreeBlock>;

// `bytes` bytes without a value. An empty block is one byte: null means that memory ran out.
inline HeapBlock AllocateBytes(qz::ulong bytes) {
  HeapBlock block(std::malloc(bytes == 0 ? 1 : bytes));
  if (block != nullptr) platform::ExpectFilled(block.get(), bytes);
  return block;
}

// `count` samples, all zero. Pages that nobody writes cost no memory. Null when memory runs out.
inline SampleBlock AllocateSamples(qz::uint64 count) {
  if (count > std::numeric_limits<std::size_t>::max() / sizeof(short)) return nullptr;
  const auto elements = static_cast<std::size_t>(count == 0 ? 1 : count);
  SampleBlock block(static_cast<short*>(std::calloc(elements, sizeof(short))));
  if (block != nullptr) platform::ExpectFilled(block.get(), elements * sizeof(short));
  return block;
}

#endif  // SAMPLEDATA_SD_HEAP_H_
