// Reads MORT files. The sound stays compressed: the record gets the codec's stream, marked in
// `UsesCompression`, and mort_Decode (MORT_codecs.h) makes a plain record of it on demand.
#ifndef AUDIO_MORT_READER_H_
#define AUDIO_MORT_READER_H_

#include <cstdio>

#include "audio/audio.h"

// Whether the file begins as a MORT file of the version that is read here. Resets the error state;
// another version sets audio_ErrorCode to 7. Leaves the file at offset 0.
bool mort_IsValid(std::FILE* file);

// Fills the zeroed record; a result code. `Samples` stays null with `infoOnly`. A record's stream
// isn't looked at: the file is read whole.
int mort_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly);

#endif  // AUDIO_MORT_READER_H_
