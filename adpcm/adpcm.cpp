// Whole streams: from samples to frames with the states that a player needs, and back.
#include "adpcm/adpcm.h"

#include <cstdlib>
#include <cstring>

#include "adpcm/heap_block.h"

namespace {

using adpcm::AllocateBlock;
using adpcm::HeapBlock;
using adpcm::kBytesPerFrame;
using adpcm::kOrder;
using adpcm::kSamplesPerFrame;

// The encoder overwrites samples with their reconstruction, so it works on a copy, a whole number
// of frames at a time: history first, then the samples, with some room for the zeros that fill up
// the last frame.
constexpr qz::ulong kChunkSamples = 1024 * kSamplesPerFrame;
constexpr qz::ulong kPcmBufferSize = kChunkSamples + 4;

qz::ulong FrameCount(qz::ulong samples) {
  return static_cast<qz::ulong>((qz::uint64{samples} + kSamplesPerFrame - 1) / kSamplesPerFrame);
}

// Moves the end of the former chunk to the front as history and puts `count` samples behind it.
void FillChunk(short* pcmbuffer, const short* samples, qz::ulong count) {
  std::memcpy(pcmbuffer, pcmbuffer + kChunkSamples, kOrder * sizeof(short));
  std::memcpy(pcmbuffer + kOrder, samples, count * sizeof(short));
  for (qz::ulong j = count; j < count + kSamplesPerFrame && j < kChunkSamples; ++j) {
    pcmbuffer[kOrder + j] = 0;
  }
}

}  // namespace

qz::ulong adpcmEncodeSample(short* indata, qz::ulong* numsmp, qz::ulong* loopStart,
                            qz::ulong* loopLength, _ADPCMINFO* info,
                            void (*frameCallback)(qz::uchar)) {
  *info = {};
  HeapBlock<short> table = AllocateBlock<short>(adpcm::kTableValues);
  if (!table) return 0;
  if (!adpcmCoefTableDesign(indata, *numsmp, adpcm::kTableRows, table.get(), 0, nullptr)) return 0;

  const qz::ulong loopPos = loopLength != nullptr ? *loopStart : adpcm::kNoLoop;
  info->Data = adpcmDoEncoding(table.get(), indata, *numsmp, &info->DataBytes, &info->y0, &info->y1,
                               &info->numBlocks, loopPos, &info->loopY0, &info->loopY1,
                               &info->loopScale, &info->loopIndex, frameCallback);
  if (info->Data == nullptr) return 0;
  info->CoefTable = table.release();
  info->NumCoef = adpcm::kTableRows;
  info->Order = kOrder;
  return 1;
}

qz::uchar* adpcmDoEncoding(short* coeftable, short* indata, qz::ulong numsmp, qz::ulong* dest_len,
                           short** y0, short** y1, qz::ulong* numBlocks, qz::ulong loopPos,
                           short* loopY0, short* loopY1, qz::uchar* loopScale, qz::uchar* loopIndex,
                           void (*frameCallback)(qz::uchar)) {
  *numBlocks = FrameCount(numsmp);
  *dest_len = *numBlocks * kBytesPerFrame;
  *loopY0 = *loopY1 = 0;
  *loopScale = *loopIndex = 0;
  if (y0 != nullptr) *y0 = nullptr;
  if (y1 != nullptr) *y1 = nullptr;

  HeapBlock<short> history0;
  HeapBlock<short> history1;
  if (y0 != nullptr && !(history0 = AllocateBlock<short>(*numBlocks))) return nullptr;
  if (y1 != nullptr && !(history1 = AllocateBlock<short>(*numBlocks))) return nullptr;
  const HeapBlock<short> pcmbuffer = AllocateBlock<short>(kPcmBufferSize);
  HeapBlock<qz::uchar> frames = AllocateBlock<qz::uchar>(*dest_len);
  if (!pcmbuffer || !frames) return nullptr;

  clearPcmBuffer(pcmbuffer.get());
  qz::uint64 frame = 0;
  for (qz::uint64 base = 0; base < numsmp; base += kChunkSamples) {
    const qz::uint64 left = numsmp - base;
    const auto count = static_cast<qz::ulong>(left < kChunkSamples ? left : kChunkSamples);
    FillChunk(pcmbuffer.get(), indata + base, count);
    for (qz::ulong offset = 0; offset < count; offset += kSamplesPerFrame, ++frame) {
      short* const block = pcmbuffer.get() + offset;
      if (history0) history0[frame] = block[0];
      if (history1) history1[frame] = block[1];
      if (frameCallback != nullptr) frameCallback(1);
      qz::uchar* const out = frames.get() + frame * kBytesPerFrame;
      adpcmEncodeFrame(block, out, coeftable, 1);

      // "No loop" is a position too, and the longest streams have a frame that holds it.
      const qz::uint64 pos = base + offset;
      if (loopPos != adpcm::kNoLoop && pos <= loopPos && loopPos < pos + kSamplesPerFrame) {
        *loopY0 = block[loopPos - pos];
        *loopY1 = block[loopPos - pos + 1];
        *loopIndex = out[0] & 15;
        *loopScale = out[0] >> 4;
      }
    }
  }

  if (y0 != nullptr) *y0 = history0.release();
  if (y1 != nullptr) *y1 = history1.release();
  return frames.release();
}

void clearPcmBuffer(short* pcmbuffer) {
  pcmbuffer[kChunkSamples] = 0;
  pcmbuffer[kChunkSamples + 1] = 0;
}

void adpcmFreeEncoded(_ADPCMINFO* info) {
  std::free(info->Data);
  std::free(info->CoefTable);
  std::free(info->y0);
  std::free(info->y1);
}

short* adpcmDecodeSample(qz::uchar* adpcm, qz::ulong length, short* coeftable,
                         void (*frameCallback)()) {
  const qz::ulong count = FrameCount(length);
  HeapBlock<short> result = AllocateBlock<short>(qz::uint64{count} * kSamplesPerFrame);
  if (!result) return nullptr;

  short block[kOrder + kSamplesPerFrame] = {};  // history, then one frame
  for (qz::uint64 frame = 0; frame < count; ++frame) {
    if (frameCallback != nullptr) frameCallback();
    adpcmDecodeFrame(adpcm + frame * kBytesPerFrame, block, coeftable, 1);
    std::memcpy(result.get() + frame * kSamplesPerFrame, block + kOrder,
                kSamplesPerFrame * sizeof(short));
    std::memcpy(block, block + kSamplesPerFrame, kOrder * sizeof(short));
  }
  return result.release();
}
