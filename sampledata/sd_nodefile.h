// The framing of a stored node, alike for sample and setup nodes: chunks of a tag and a 64-bit
// size, "TYPE", "VERS" and "DATA", and in a file of its own the head "KLVO", file size, "OBJ " in
// front. docs/formats/node-file.md has the table.
#ifndef SAMPLEDATA_SD_NODEFILE_H_
#define SAMPLEDATA_SD_NODEFILE_H_

#include "PublicIncludes/kelvo_plugin.h"
#include "diskio/diskio.h"

namespace nodefile {

inline constexpr qz::ulong kVersion = 0x00010000;

// A tag as a little-endian stream reads and writes it: its characters in memory order.
constexpr qz::ulong Tag(const char (&name)[5]) {
  return static_cast<qz::ulong>(static_cast<unsigned char>(name[0])) |
         static_cast<qz::ulong>(static_cast<unsigned char>(name[1])) << 8 |
         static_cast<qz::ulong>(static_cast<unsigned char>(name[2])) << 16 |
         static_cast<qz::ulong>(static_cast<unsigned char>(name[3])) << 24;
}

enum class ReadResult { kOk, kCouldNotRead, kBadFormat };

// Writes everything in front of the payload; `startChunk` is the payload's position. With
// `ownFile` the file head too. False at the first failed step.
bool WriteHead(DIOFile* file, bool ownFile, const _GUID& type, qz::uint64& startChunk);

// Patches the payload's size and, in an own file, the file's size.
bool WriteTail(DIOFile* file, bool ownFile, qz::uint64 startChunk);

// Own files only: the head up to and with the type chunk, which must be of `type`.
ReadResult ReadFileHead(DIOFile* file, const _GUID& type);

// "VERS" and the head of "DATA"; the stream then stands at the payload. The version is not judged.
ReadResult ReadBodyHead(DIOFile* file, qz::ulong& version);

// Literal text with its zero byte: a percent sign is text.
bool WriteText(DIOFile* file, const qz::string& text);

}  // namespace nodefile

#endif  // SAMPLEDATA_SD_NODEFILE_H_
