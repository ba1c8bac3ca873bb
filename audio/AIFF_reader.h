// Reads AIFF files: uncompressed sound of 8 or 16 bits, with the key of "INST" and the first two
// points of "MARK". Compressed AIFF isn't taken. Chunks may stand in any order.
#ifndef AUDIO_AIFF_READER_H_
#define AUDIO_AIFF_READER_H_

#include <cstdio>

#include "audio/audio.h"

// Whether the 12 bytes at the file's position begin an AIFF file. Leaves it at offset 0.
bool aiff_IsValid(std::FILE* file);

// Finds a chunk by its 4-character name. True: the file stands on the first byte of its data.
bool aiff_FindChunk(std::FILE* file, const char* id);

// Fills the zeroed record; a result code. Where it fails, the record holds what was read by then.
// `NumSamples` is what the head says: the sound data may hold fewer.
int aiff_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly);

#endif  // AUDIO_AIFF_READER_H_
