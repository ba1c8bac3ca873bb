// The GSM block codec of MORT: 16-bit mono sound as GSM 06.10 parameters in blocks of 160 samples,
// bit-packed, with near silence reduced to a count.
//
// A stream is a sequence of 32-bit words, most significant byte first; fields fill a word from its
// lowest bit and run on into the next one:
//
//   word 0         "MORT"
//   word 1         bits 0 to 15 the sample rate, 16 to 31 the number of blocks, the low 16 of each
//   word 2         the number of words in the stream
//   word 3 and on  runs: 1 bit kind; silent (1): 4 bits, blocks less 1; coded (0): 7 bits, blocks
//                  less 1, then 260 bits a block
//
// Zero bits, at least one, fill the last word.
#ifndef AUDIO_GSM_CODEC_H_
#define AUDIO_GSM_CODEC_H_

#include "common/qztypes.h"

enum GsmCodecResult {
  GSMCODEC_OK = 0,
  GSMCODEC_NOMEMORY = 1,  // also where the build has no speech coder
  GSMCODEC_NOMORT = 2,
  GSMCODEC_MANGLED = 3,
  GSMCODEC_DATAENDED = 4
};

// The statistics of one encode or decode; all 0 after a failed decode.
struct gsmCodecInfo {
  qz::ulong numBlocks;
  qz::ulong numSamples;  // numBlocks * 160
  qz::ulong sampleRate;
  qz::ulong compressedBytes;    // the stream's size
  qz::ulong uncompressedBytes;  // numBlocks * 320
  qz::ulong unusedBlocks;       // stored as silence
  qz::ulong usedBlocks;         // stored as parameters
};

// `out` gets the stream, due to `free`, or null with a failure; a null `out` discards it. `info`
// may be null. More than 65535 blocks or 65535 Hz make a stream that says less than it holds.
int gsmCodec_Encode(const short* samples, qz::ulong numSamples, qz::ulong sampleRate, void** out,
                    gsmCodecInfo* info);
// The same for a sound of `numSamples` of which only the first `numGiven` are there: the others
// are 0.
int gsmCodec_EncodePadded(const short* samples, qz::ulong numGiven, qz::ulong numSamples,
                          qz::ulong sampleRate, void** out, gsmCodecInfo* info);

// `samples` gets info->uncompressedBytes bytes of 16-bit samples, due to `free`, or null with a
// failure; a null `samples` discards them. `info` may be null.
int gsmCodec_Decode(const void* data, qz::ulong length, void** samples, gsmCodecInfo* info);

// The text of a GsmCodecResult.
const char* gsmCodec_ErrorDescription(qz::slong code);

// A stream of bits in words as above.
struct bitIO {
  qz::ulong word;     // bits that are not in the buffer yet, or not read yet; the lowest come first
  qz::ulong numBits;  // in `word`
  unsigned char* buffer;
  qz::ulong index;      // in `buffer`
  qz::ulong capacity;   // of `buffer` in bytes
  qz::ulong totalBits;  // moved so far
};

// With a buffer of `length` bytes for reading; with null for writing into one that grows, which is
// the caller's to free.
void bitIO_Init(bitIO* io, void* buffer, qz::ulong length);
// Adds the low `count` bits, 0 to 32, of `value`. 0; 1 when the buffer cannot grow, and nothing is
// added.
int bitIO_Write(bitIO* io, qz::ulong value, qz::slong count);
// Fills the word with zero bits: a whole one where it is empty.
int bitIO_WriteFlush(bitIO* io);
// Gives the next `count` bits, 1 to 32. 0; 2 when a word is needed and fewer than 4 bytes remain,
// and `value` is unchanged.
int bitIO_Read(bitIO* io, qz::ulong* value, qz::slong count);

#endif  // AUDIO_GSM_CODEC_H_
