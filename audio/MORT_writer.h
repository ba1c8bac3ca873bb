// Writes MORT files from plain or compressed records.
#ifndef AUDIO_MORT_WRITER_H_
#define AUDIO_MORT_WRITER_H_

#include "audio/audio.h"

// Writes the record to `name`, replacing it; `codec` is a MortCodec. A plain record is encoded, one
// that holds the codec's stream is passed on, one that holds the other codec's is recoded, which
// loses its key. 0 for success; 1, with the message, for failure, where a file that was begun stays
// with what it holds. Only 16 bits and one channel can be written. The record is never changed.
int mort_WriteWave(const char* name, _AUDIO* audio, qz::ushort codec);

#endif  // AUDIO_MORT_WRITER_H_
