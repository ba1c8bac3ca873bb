// What the front end, the readers and the writers of the audio library share: the error report, the
// allocation rule and the chain of readers.
#ifndef AUDIO_AUDIO_INTERN_H_
#define AUDIO_AUDIO_INTERN_H_

#include <cstdio>

#include "audio/AIFF_reader.h"
#include "audio/MORT_reader.h"
#include "audio/WAV_reader.h"
#include "audio/audio.h"

// One file type that the library reads.
struct AudioReader {
  // Whether `file`, which stands at its start, is of this type. Leaves it at its start.
  bool (*IsValid)(std::FILE* file);
  // Fills the zeroed record; a result code. Never closes the file. With `infoOnly` the sample
  // bytes are not read.
  int (*ReadWave)(std::FILE* file, _AUDIO* audio, bool infoOnly);
};

// The readers in the order in which they are asked; the first that says yes gets the file. A new
// file type is a line here.
inline constexpr AudioReader audioReaders[] = {
    {aiff_IsValid, aiff_ReadWave},
    {wav_IsValid, wav_ReadWave},
    {mort_IsValid, mort_ReadWave},
};

// Clears the error state.
void audioResetError();

// Puts the text, cut to the buffer, into AudioErrorMsg and gives `code` back.
[[gnu::format(printf, 2, 3)]] int audioFail(int code, const char* format, ...);

// Allocates LengthInBytes bytes into `Samples`; false, with the message, where they cannot be had.
// The bytes are zero because a file may hold fewer than it promises, and they come from calloc
// because pages that nobody fills then cost nothing. Nobody reads the buffer of an information-only
// read: it isn't even cleared.
bool audioAllocSamples(_AUDIO* audio, bool infoOnly);

#endif  // AUDIO_AUDIO_INTERN_H_
