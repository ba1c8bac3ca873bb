// Numbers and chunks on FILE streams, for readers and writers of either byte order.
//
// Readers take every file as hostile: a number that the file's end cuts has its missing bytes 0,
// and nothing here depends on the width of `long`.
#ifndef AUDIO_IO_H_
#define AUDIO_IO_H_

#include <cstdio>

#include "common/qztypes.h"

// One number at the file's position.
qz::ushort audioReadIntel16(std::FILE* file);
qz::ulong audioReadIntel32(std::FILE* file);
qz::ushort audioReadMotorola16(std::FILE* file);
qz::ulong audioReadMotorola32(std::FILE* file);

// Failed writes go unnoticed.
void audioWriteIntel16(std::FILE* file, qz::ushort value);
void audioWriteIntel32(std::FILE* file, qz::ulong value);

// Moves the position forward, beyond the end too: reads there give nothing.
void audioSkip(std::FILE* file, qz::ulong distance);

// The size in bytes; -1 for a file that cannot be positioned. Leaves the file at its end.
qz::int64 audioFileSize(std::FILE* file);

// Whether the file, from its position on, begins with the name `form`, a size that isn't looked at,
// and the name `type` (4 characters each). Leaves the file at offset 0.
bool audioIsForm(std::FILE* file, const char* form, const char* type);

// Finds the first chunk of the name `id` (4 characters) among those that begin at offset 12, each a
// name, a 32-bit size and that many bytes of data rounded up to an even number. True: the file
// stands on the chunk's data and `size` is what its size field says, which the file may not hold.
// A chunk that is passed over must lie in the file whole, otherwise the search ends there.
bool audioFindChunk(std::FILE* file, const char* id, bool bigEndian, qz::ulong* size);

#endif  // AUDIO_IO_H_
