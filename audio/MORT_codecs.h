// The two codecs of a MORT file on records, and the GB codec itself: 16-bit mono samples cut to
// their top four bits, in blocks of 16 bytes, with rows of silent blocks reduced to a marker.
#ifndef AUDIO_MORT_CODECS_H_
#define AUDIO_MORT_CODECS_H_

#include "audio/audio.h"

// A new plain record of 16 bits and one channel from a compressed one, by its `UsesCompression`;
// null for a plain one, for a stream that cannot be decoded and without memory. Key and loop points
// are 0 whatever the source says. `NumSamples` is what the stream holds, which for GSM is a
// multiple of 160 and can differ from the source's. The error state stays as it is. The record and
// its samples are the caller's, each due to `free`; mort_Release does both.
_AUDIO* mort_Decode(_AUDIO* audio);
_AUDIO* mort_DecodeGSM(_AUDIO* audio);
_AUDIO* mort_DecodeGB(_AUDIO* audio);

// Frees a record of mort_Decode with its samples. Null is legal; the error state stays as it is.
void mort_Release(_AUDIO* audio);

// Encodes the first `NumSamples` of the record's 16-bit samples; those that `LengthInBytes` does
// not cover are 0. `out` gets the stream, due to `free`. False without memory: `out` is then null
// and `outLength` 0.
bool mort_EncodeGSM(_AUDIO* audio, void** out, qz::ulong* outLength);
bool mort_EncodeGB(_AUDIO* audio, void** out, qz::ulong* outLength);

// Reduces rows of silent blocks in `data`, in place, and gives the new length. Lengths count
// nibbles and are multiples of 32. A sound that gets reduced loses its last block unless a row has
// taken it in. Without memory for its marks the length is unchanged.
qz::slong MortEncode(unsigned char* data, qz::slong length);

// Decodes `length` bytes, whole blocks of 16 only. 0: `samples` is due to `free`. 1: without
// memory, or for streams of 2 GiB of samples and more; `samples` is then null. A marker for n
// blocks gives n - 1: its count byte is taken as it stands.
int gbCodec_Decode(const void* data, qz::slong length, void** samples, qz::ulong* numSamples);

#endif  // AUDIO_MORT_CODECS_H_
