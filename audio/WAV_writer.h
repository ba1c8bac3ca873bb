// Writes RIFF WAVE files: a plain sound with its key and loop in a "smpl" chunk.
#ifndef AUDIO_WAV_WRITER_H_
#define AUDIO_WAV_WRITER_H_

#include "audio/audio.h"

// Writes the plain record (`UsesCompression` isn't looked at) to `name`, replacing it. 0 for
// success; 1, with the message, where the file cannot be made or a buffer not be had. Failed
// writes, as on a full disk, go unnoticed.
int wav_WriteWave(const char* name, _AUDIO* audio);

#endif  // AUDIO_WAV_WRITER_H_
