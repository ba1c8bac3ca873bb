// The fixed-width types of the interfaces and files.
//
// The system headers of some platforms define `ulong` and `ushort` globally with other widths, so
// these live in their namespace; classes take them over as member aliases.
#ifndef COMMON_QZTYPES_H_
#define COMMON_QZTYPES_H_

#include <cstdint>

namespace qz {

using uchar = std::uint8_t;
using ushort = std::uint16_t;
using ulong = std::uint32_t;
using slong = std::int32_t;  // a `long` that crosses an interface or reaches a file
using int64 = std::int64_t;
using uint64 = std::uint64_t;

}  // namespace qz

#endif  // COMMON_QZTYPES_H_
