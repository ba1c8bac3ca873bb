// Where things lie in a sound file: its container by content, and its chunks with offsets and
// sizes. The audio library tells what a sound is; this tells what the file holds, also of files
// that the library refuses.
#ifndef HOST_SOUND_LAYOUT_H_
#define HOST_SOUND_LAYOUT_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/byte_reader.h"
#include "host/mort_stream.h"

namespace samplehost {

enum class Container { kUnknown, kWav, kAiff, kMort };

struct ChunkPlace {
  std::string tag;
  U64 offset = 0;  // of its head, 8 bytes in front of its data
  U64 size = 0;    // as the head says
  U64 held = 0;    // as much of that as the file has

  U64 data() const { return offset + 8; }
};

struct SoundLayout {
  Container container = Container::kUnknown;
  std::string magic;  // first 4 bytes
  std::string form;   // bytes 8 to 11 of a RIFF or FORM file and its like
  U64 fileSize = 0;

  // WAV and AIFF. Of a file of very many chunks only the first are kept, and the rest counted.
  std::vector<ChunkPlace> chunks;
  U64 moreChunks = 0;
  U64 trailing = 0;              // bytes behind the last chunk, too few for another one
  std::optional<U64> formatTag;  // of "fmt "
  std::optional<double> rate;    // of "COMM", which the library cuts to 16 bits

  // MORT.
  std::optional<U64> version;
  std::optional<U64> codec;
  MortStream stream;

  // The first chunk of that name, the one that readers take; null without one.
  const ChunkPlace* Find(const std::string& tag) const;
  // Bytes of samples, or of the codec's stream, that the file has; nothing where it has none.
  std::optional<U64> SampleBytes() const;
};

// Which container begins with these bytes, up to the first 12 of a file.
Container ContainerOf(std::string_view start);

// Calls `onChunk` for each chunk from offset 12 of the reader on, to its end or to the first chunk
// that passes it. The result is the number of bytes behind the last one.
U64 WalkChunks(const ByteReader& file, bool bigEndian,
               const std::function<void(const ChunkPlace&)>& onChunk);

// Damage where the file cannot be read.
SoundLayout LayoutOf(const std::string& nativePath);

}  // namespace samplehost

#endif  // HOST_SOUND_LAYOUT_H_
