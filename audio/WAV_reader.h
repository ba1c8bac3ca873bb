// Reads RIFF WAVE files: plain PCM of 8 or 16 bits, with the key and the first loop of a "smpl"
// chunk. Chunks may stand in any order.
#ifndef AUDIO_WAV_READER_H_
#define AUDIO_WAV_READER_H_

#include <cstdio>

#include "audio/audio.h"

// Whether the 12 bytes at the file's position begin a RIFF WAVE file. Leaves it at offset 0.
bool wav_IsValid(std::FILE* file);

// Finds a chunk by its 4-character name. True: the file stands on the first byte of its data.
bool wav_FindChunk(std::FILE* file, const char* id);

// Fills the zeroed record; a result code. Where it fails, the record holds what was read by then.
int wav_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly);

#endif  // AUDIO_WAV_READER_H_
