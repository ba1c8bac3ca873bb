// Sound files in memory as one record, and back.
//
// Plain functions on the run-time library's FILE streams; paths are in the platform layer's
// notation. Result codes are 0 for success. Files are taken as hostile: no reader reads or writes
// outside its buffers, loops without end, or commits memory that the file cannot fill; what a file
// promises and does not hold reads as zeros.
//
// The error state is global and has no lock: calls into the library must not overlap.
#ifndef AUDIO_AUDIO_H_
#define AUDIO_AUDIO_H_

#include <cstdio>

#include "common/qztypes.h"

// Result codes of the entry points.
enum AudioResult {
  AUDIO_OK = 0,
  AUDIO_NOTFOUND = 1,     // cannot be opened for reading
  AUDIO_UNKNOWNTYPE = 2,  // no reader knows the file; on writing: no such save format
  AUDIO_NOMEMORY = 3,
  AUDIO_BADCONTENT = 4,  // the file's content cannot be used
  AUDIO_NOSTREAMING = 5,
  AUDIO_WRITEFAILED = 6,
  AUDIO_BADMORTVERSION = 7,
  AUDIO_DATAENDED = 8  // the MORT data ended early
};

enum AudioFormat { AUDIO_FORMAT_WAV = 0, AUDIO_FORMAT_MORT_GSM = 2, AUDIO_FORMAT_MORT_GB = 3 };

// Kept for the record's layout: streaming is refused by every reader that looks at it.
struct _AUDIO_STREAM {
  std::FILE* fhandle;
  qz::ulong CurrentOffset;
  qz::ulong BlockSize;
  void* Buffer;
};

inline constexpr qz::ulong AUDIO_NOLOOP = 0xFFFFFFFFu;

// One sound.
struct _AUDIO {
  qz::ushort Reserved;
  qz::ulong LengthInBytes;   // bytes in `Samples`
  qz::ulong SampleRate;      // sample frames per second
  qz::ulong NumSamples;      // sample frames, one per channel group
  qz::ushort BitsPerSample;  // 8 or 16 in what the readers accept
  qz::ushort NumChannels;
  short OriginalKey;           // MIDI note of the sound's own pitch; 60 when the file doesn't say
  qz::ushort UsesCompression;  // 0 plain; 1 MORT GSM block stream; 2 MORT GB stream
  qz::ulong LoopStart;         // first sample frame of the loop, or AUDIO_NOLOOP
  qz::ulong LoopEnd;           // last sample frame of the loop, inclusive, or AUDIO_NOLOOP
  qz::ushort LoopType;         // 0: no loop
  qz::slong LoopCount;         // plays of the loop; -1 without end; 0 without a loop
  void* Samples;               // signed, interleaved, 16-bit little-endian or 8-bit; from malloc
  _AUDIO_STREAM* Stream;
};

// The error state: the text of the last failure (empty after success), a pointer at it, and 7 where
// a MORT file's version was refused, else 0. Every entry point resets it, audio_FreeWave included.
inline constexpr std::size_t AUDIO_ERRORMSGSIZE = 512;
extern char AudioErrorMsg[AUDIO_ERRORMSGSIZE];
extern char* audio_ErrorMsg;
extern qz::slong audio_ErrorCode;

// Fills `audio` with the whole sound. The record is due to audio_FreeWave whatever the result.
int audio_ReadWave(const char* name, _AUDIO* audio, bool stream);

// As audio_ReadWave without the sample bytes: `Samples` is then an untouched buffer or null.
int audio_GetFileInfo(const char* name, _AUDIO* audio);

// Frees the record's samples, not the record; once per record. Null is legal. Always 0.
int audio_FreeWave(_AUDIO* audio);

// Writes the record to `name`, replacing it. `format` is an AudioFormat.
int audio_WriteWave(const char* name, _AUDIO* audio, int format);

// `count` elements of `elemSize` 1, 2 or 4 bytes, least significant byte first in the file (Intel)
// or most significant first (Motorola). The result is the number of bytes read; 0 for another size.
qz::ulong audioReadIntel(void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file);
qz::ulong audioReadMotorola(void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file);
// The writing twin; the result is the number of bytes written.
qz::ulong audioWriteEndian(const void* buffer, qz::ulong elemSize, qz::ulong count, std::FILE* file,
                           bool bigEndian);

// The 80-bit extended float of AIFF: 10 bytes, most significant first.
double audioConvertFromIeeeExtended(const unsigned char* bytes);
void audioConvertToIeeeExtended(double value, unsigned char* bytes);

#endif  // AUDIO_AUDIO_H_
