// Numbers whose bytes stand in the other order.
#ifndef COMMON_BYTE_ORDER_H_
#define COMMON_BYTE_ORDER_H_

#include <cstddef>
#include <cstring>

#include "common/qztypes.h"

namespace qz {

constexpr ushort Swapped(ushort value) {
  return __builtin_bswap16(value);
}
constexpr ulong Swapped(ulong value) {
  return __builtin_bswap32(value);
}
constexpr uint64 Swapped(uint64 value) {
  return __builtin_bswap64(value);
}

// The number whose `size` bytes, at most 8, stand with the lowest in front.
inline uint64 LittleEndian(const uchar* bytes, std::size_t size) {
  uint64 value = 0;
  for (std::size_t i = 0; i < size; ++i)
    value |= uint64{bytes[i]} << (8 * i);
  return value;
}

// Turns the bytes of each of the numbers of type T round that stand in `size` bytes at any
// alignment; a last part of a number is left alone. In one place, because compilers make vector
// code only of a loop whose ends cannot overlap; not inline, because g++ 12 warns of lengths that
// no caller gives.
template <typename T>
[[gnu::noinline]] void SwapAll(void* numbers, std::size_t size) {
  auto* bytes = static_cast<uchar*>(numbers);
  for (std::size_t at = 0; at + sizeof(T) <= size; at += sizeof(T)) {
    T value;
    std::memcpy(&value, bytes + at, sizeof value);
    value = Swapped(value);
    std::memcpy(bytes + at, &value, sizeof value);
  }
}

}  // namespace qz

#endif  // COMMON_BYTE_ORDER_H_
