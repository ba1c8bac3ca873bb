// The console's ADPCM: 14 signed 16-bit samples in a frame of 8 bytes.
//
// A frame is a header byte (high nibble: row of the predictor table, 0 to 7; low nibble: scale
// exponent, 0 to 12) and 14 residuals of 4 bits, the first in the high nibble. A table has 8 rows
// of 2 coefficients with 11 fractional bits: row i is coeftable[2i] for the previous sample and
// coeftable[2i + 1] for the one before it.
//
// Plain functions on memory without global state: calls on separate data may run side by side.
// Results are heap blocks from malloc; exhausted memory is the only failure. The same samples give
// the same bytes on every compiler, build type and processor.
#ifndef ADPCM_ADPCM_H_
#define ADPCM_ADPCM_H_

#include "common/qztypes.h"

namespace adpcm {
inline constexpr qz::ulong kSamplesPerFrame = 14;
inline constexpr qz::ulong kBytesPerFrame = 8;
inline constexpr qz::ulong kTableRows = 8;
inline constexpr qz::ulong kOrder = 2;
inline constexpr qz::ulong kTableValues = kTableRows * kOrder;
inline constexpr qz::ulong kNoLoop = 0xFFFFFFFFu;
}  // namespace adpcm

// One encoded stream of one channel.
struct _ADPCMINFO {
  qz::uchar* Data;      // the frames, `DataBytes` long
  qz::ulong DataBytes;  // numBlocks * 8
  short* CoefTable;     // 16 values
  qz::ushort NumCoef;   // rows, 8
  qz::ushort Order;     // 2
  short* y0;            // per frame: the reconstructed sample two before its first sample
  short* y1;            // per frame: the reconstructed sample just before its first sample
  qz::ulong numBlocks;  // frames, (samples + 13) / 14
  short loopY0;         // reconstructed sample two before the loop start
  short loopY1;         // reconstructed sample just before the loop start
  qz::uchar loopScale;  // high nibble of the header byte of the loop start's frame (its table row)
  qz::uchar loopIndex;  // low nibble of that byte (its exponent)
};

// Designs the table of a stream (Linde-Buzo-Gray with a spectral distance of the Itakura kind) and
// encodes it. `*numsmp` samples at `indata`, which are only read. With a null `loopLength` no loop
// state is captured; otherwise *loopStart is the loop start, a sample position; a position behind
// the last frame leaves the loop values 0. `info` needs no initial content. Result 1, or 0 when
// memory runs out; `info` then owns nothing and its four pointers are null. `frameCallback` may be
// null; it is called with 1 in front of each frame.
qz::ulong adpcmEncodeSample(short* indata, qz::ulong* numsmp, qz::ulong* loopStart,
                            qz::ulong* loopLength, _ADPCMINFO* info,
                            void (*frameCallback)(qz::uchar));

// Encodes with a given table. The result is *dest_len bytes of frames, or null when memory runs
// out, and then nothing stays allocated and *y0 and *y1 are null. `y0` and `y1` may be null. For an
// empty stream the result is a block of 1 byte, *dest_len 0. `loopPos` adpcm::kNoLoop: no loop.
qz::uchar* adpcmDoEncoding(short* coeftable, short* indata, qz::ulong numsmp, qz::ulong* dest_len,
                           short** y0, short** y1, qz::ulong* numBlocks, qz::ulong loopPos,
                           short* loopY0, short* loopY1, qz::uchar* loopScale, qz::uchar* loopIndex,
                           void (*frameCallback)(qz::uchar));

// Zeroes the two samples of the working buffer that become the first chunk's history.
void clearPcmBuffer(short* pcmbuffer);

// Releases the four blocks of a record that adpcmEncodeSample filled. The pointers stay.
void adpcmFreeEncoded(_ADPCMINFO* info);

// Decodes (length + 13) / 14 frames to as many times 14 samples, padding included. Null when memory
// runs out; a block of at least 1 byte otherwise. Release with free.
short* adpcmDecodeSample(qz::uchar* adpcm, qz::ulong length, short* coeftable,
                         void (*frameCallback)());

// Encodes one frame in closed loop. `inbuffer` holds 16 samples at a stride of `step`: two of
// history and the 14 of the frame, which are replaced by what a decoder will hold. `outbuffer`
// gets 8 bytes. `coeftable` has rows of at most 4096 and 2048 in magnitude, as the design makes
// them; with any table the call ends and stays in its bounds.
void adpcmEncodeFrame(short* inbuffer, qz::uchar* outbuffer, short* coeftable, qz::uchar step);

// Decodes one frame of 8 bytes. Positions 0 and 1 of `outbuffer` (stride `step`) are the history,
// 2 to 15 are written. The table row is masked to the 8 that exist; sums of tables from elsewhere
// wrap.
void adpcmDecodeFrame(qz::uchar* aramaddr, short* outbuffer, short* coeftable, qz::uchar step);

// Designs a table of 2 * tablesize coefficients for `nsamples` samples. False when memory runs out.
// Silence gives a table of zeros. `__channel` and `__frameCallback` are not used.
bool adpcmCoefTableDesign(short* inptr, qz::ulong nsamples, qz::ulong tablesize, short* coeftable,
                          qz::ushort __channel, void (*__frameCallback)(qz::uchar));

#endif  // ADPCM_ADPCM_H_
