// Whole streams: from samples to frames with the states that a player needs, and back.
#include "adpcm/adpcm.h"

#include <cstdlib>
#include <cstring>

#include "adpcm/heap_block.h"
#include "adpcm/kernels.h"

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

const adpcm::Kernels& KernelsFor(const short* table) {
  return adpcm::TableIsBounded(table) ? adpcm::ActiveKernels()
                                      : *adpcm::KernelsOf(adpcm::KernelLevel::kScalar);
}

// Encodes the first `count` frames of the buffer, in one go unless somebody counts them.
void EncodeChunk(const adpcm::Kernels& kernels, short* pcmbuffer, qz::ulong count,
                 qz::uchar* frames, const short* table, void (*frameCallback)(qz::uchar)) {
  const qz::ulong step = frameCallback != nullptr ? 1 : count;
  for (qz::ulong frame = 0; frame < count; frame += step) {
    if (frameCallback != nullptr) frameCallback(1);
    kernels.encodeFrames(pcmbuffer + frame * kSamplesPerFrame, step,
                         frames + frame * kBytesPerFrame, table);
  }
}

// One of the two samples in front of each frame, out of an encoded chunk.
void CopyHistory(const short* pcmbuffer, qz::ulong count, short* history) {
  for (qz::ulong frame = 0; frame < count; ++frame)
    history[frame] = pcmbuffer[frame * kSamplesPerFrame];
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

  const adpcm::Kernels& kernels = KernelsFor(coeftable);
  clearPcmBuffer(pcmbuffer.get());
  qz::uchar* out = frames.get();
  qz::uint64 done = 0;  // frames
  for (qz::uint64 base = 0; base < numsmp; base += kChunkSamples) {
    const qz::uint64 left = numsmp - base;
    const auto samples = static_cast<qz::ulong>(left < kChunkSamples ? left : kChunkSamples);
    const qz::ulong count = FrameCount(samples);
    FillChunk(pcmbuffer.get(), indata + base, samples);
    EncodeChunk(kernels, pcmbuffer.get(), count, out, coeftable, frameCallback);
    if (history0) CopyHistory(pcmbuffer.get(), count, history0.get() + done);
    if (history1) CopyHistory(pcmbuffer.get() + 1, count, history1.get() + done);

    // "No loop" is a position too, and the longest streams have a frame that holds it.
    if (loopPos != adpcm::kNoLoop && base <= loopPos &&
        loopPos - base < qz::uint64{count} * kSamplesPerFrame) {
      const qz::uint64 offset = loopPos - base;
      const qz::uchar header = out[offset / kSamplesPerFrame * kBytesPerFrame];
      *loopY0 = pcmbuffer[offset];
      *loopY1 = pcmbuffer[offset + 1];
      *loopIndex = header & 15;
      *loopScale = header >> 4;
    }
    out += count * kBytesPerFrame;
    done += count;
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

  const adpcm::Kernels& kernels = KernelsFor(coeftable);
  short history[kOrder] = {};
  const qz::ulong step = frameCallback != nullptr ? 1 : count;
  for (qz::uint64 frame = 0; frame < count; frame += step) {
    if (frameCallback != nullptr) frameCallback();
    kernels.decodeFrames(adpcm + frame * kBytesPerFrame, step, history,
                         result.get() + frame * kSamplesPerFrame, coeftable);
  }
  return result.release();
}
