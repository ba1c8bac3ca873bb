// The encoding driver: the one place that knows what each format does to the samples.
#include "sampledata/sd_access_tarvane_encode.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "adpcm/adpcm.h"
#include "sampledata/sd_heap.h"
#include "sampledata/sd_sound.h"
#include "sampledata/sd_stream.h"

namespace {

using SDError = SDAccess::SDError;
using SDExtraDataFileChunk = SDAccess::SDExtraDataFileChunk;

// Samples go from the record to the file in blocks of this many.
constexpr qz::ulong kBlockSamples = 32768;

// A record of the codec with its end.
class EncodedStream {
 public:
  EncodedStream() = default;
  EncodedStream(const EncodedStream&) = delete;
  EncodedStream& operator=(const EncodedStream&) = delete;
  ~EncodedStream() {
    if (encoded_) adpcmFreeEncoded(&info_);
  }

  bool Encode(short* samples, qz::ulong length, qz::ulong loop, qz::ulong loopLength) {
    encoded_ = adpcmEncodeSample(samples, &length, &loop, &loopLength, &info_, nullptr) != 0;
    return encoded_;
  }

  const _ADPCMINFO& Info() const { return info_; }

 private:
  _ADPCMINFO info_{};
  bool encoded_ = false;
};

qz::uint64 Frames(qz::uint64 samples) {
  return samples / adpcm::kSamplesPerFrame + (samples % adpcm::kSamplesPerFrame != 0 ? 1 : 0);
}

// Bytes of one channel's chunk in the file, its two lengths included.
qz::uint64 ChunkBytes(const SDSample& sample, const _AUDIO& record) {
  constexpr qz::uint64 kLengths = 8;
  const qz::uint64 frames = Frames(static_cast<qz::ulong>(sample.info.length));
  switch (sample.compType) {
    case SDAccess::COMPTYPE_RAW:
      return kLengths + qz::uint64{record.NumSamples} * 2;
    case SDAccess::COMPTYPE_RAW8:
      return kLengths + record.NumSamples;
    case SDAccess::COMPTYPE_ADPCMPLUS:
      return kLengths + sizeof(SDExtraDataFileChunk) + frames * 12;
    default:
      return kLengths + sizeof(SDExtraDataFileChunk) + frames * 8;
  }
}

// Offsets and lengths in the file have 32 bits.
bool FitsFile(const SDSample& sample, const _AUDIO& record) {
  const qz::uint64 chunk = ChunkBytes(sample, record);
  const qz::uint64 lastOffset = sizeof(SDAccess::SDEncodedDataHeader) +
                                qz::uint64{4} * record.NumChannels +
                                chunk * (record.NumChannels == 0 ? 0u : record.NumChannels - 1u);
  constexpr qz::uint64 kMax = std::numeric_limits<qz::ulong>::max();
  return chunk <= kMax && lastOffset <= kMax;
}

qz::string ChannelLabel(qz::ulong channel) {
  return qz::string("ch") + std::to_string(channel).c_str();
}

// What the ADPCM formats have in common of their extra data. The last bytes, in which the two
// forms differ, are zero.
SDExtraDataFileChunk ExtraData(const SDSample& sample, const _ADPCMINFO& info) {
  SDExtraDataFileChunk chunk;
  std::memset(&chunk, 0, sizeof chunk);
  auto& adpcm = chunk.data.adpcm;
  std::copy_n(info.CoefTable, std::min<qz::ulong>(info.NumCoef * info.Order, adpcm::kTableValues),
              adpcm.coefTable);
  adpcm.numCoef = info.NumCoef;
  adpcm.order = info.Order;
  if (info.DataBytes != 0) adpcm.initialPS = info.Data[0];
  if (sample.info.loopLength != 0) {
    adpcm.loopY0 = info.loopY0;
    adpcm.loopY1 = info.loopY1;
    adpcm.loopPS = static_cast<qz::uchar>(info.loopScale * 16 | info.loopIndex);
  }
  return chunk;
}

// The write results are not looked at here and below: an encoded file is derived data, and one
// that came out short is found by its readers.
void WriteAdpcmChunk(DIOFile* file, const SDSample& sample, const _ADPCMINFO& info) {
  SDExtraDataFileChunk chunk = ExtraData(sample, info);
  const bool plus = sample.compType == SDAccess::COMPTYPE_ADPCMPLUS;
  if (plus) chunk.data.adpcmp.numBlocks = info.numBlocks;
  const qz::ulong blockArrays = plus ? info.numBlocks * 4 : 0;
  file->Write(info.DataBytes);
  file->Write(static_cast<qz::ulong>(sizeof chunk) + blockArrays);
  file->Write(info.Data, 1, info.DataBytes);
  file->Write(&chunk, 1, sizeof chunk);
  if (!plus) return;
  file->Write(info.y0, sizeof(short), info.numBlocks);
  file->Write(info.y1, sizeof(short), info.numBlocks);
}

SDError WriteAdpcm(DIOFile* file, const SDSample& sample, const ChannelView& channel) {
  const auto length = static_cast<qz::ulong>(sample.info.length);
  SampleBlock gathered;
  short* raw = channel.InPlace(length);
  if (raw == nullptr) {
    gathered = AllocateSamples(length);
    if (gathered == nullptr) return SDAccess::ERROR_NOMEMORY;
    raw = gathered.get();
    channel.Take16(0, std::min(length, channel.Held()), raw);  // the block is zero already
  }
  EncodedStream stream;
  if (!stream.Encode(raw, length, static_cast<qz::ulong>(sample.info.loop),
                     static_cast<qz::ulong>(sample.info.loopLength))) {
    return SDAccess::ERROR_NOMEMORY;
  }
  WriteAdpcmChunk(file, sample, stream.Info());
  return SDAccess::ERROR_OK;
}

// Calls `write(first, count)` for all samples of the channel, a block at a time.
template <class Write>
void ForEachBlock(const ChannelView& channel, Write write) {
  for (qz::ulong first = 0; first < channel.Size();) {
    const qz::ulong count = std::min(kBlockSamples, channel.Size() - first);
    write(first, count);
    first += count;
  }
}

void WritePcm16(DIOFile* file, const ChannelView& channel) {
  file->Write(channel.Size() * 2);
  file->Write(qz::ulong{0});
  if (const short* samples = channel.InPlace(channel.Size())) {
    file->Write(samples, sizeof(short), channel.Size());
    return;
  }
  short block[kBlockSamples];
  ForEachBlock(channel, [&](qz::ulong first, qz::ulong count) {
    channel.Take16(first, count, block);
    file->Write(block, sizeof(short), count);
  });
}

void WritePcm8(DIOFile* file, const ChannelView& channel) {
  file->Write(channel.Size());
  file->Write(qz::ulong{0});
  signed char block[kBlockSamples];
  ForEachBlock(channel, [&](qz::ulong first, qz::ulong count) {
    channel.Take8(first, count, block);
    file->Write(block, 1, count);
  });
}

SDError WriteChunk(DIOFile* file, const SDSample& sample, const ChannelView& channel) {
  switch (sample.compType) {
    case SDAccess::COMPTYPE_RAW:
      WritePcm16(file, channel);
      return SDAccess::ERROR_OK;
    case SDAccess::COMPTYPE_RAW8:
      WritePcm8(file, channel);
      return SDAccess::ERROR_OK;
    default:
      return WriteAdpcm(file, sample, channel);
  }
}

SDAccess::SDEncodedDataHeader Head(const SDSample& sample, const _AUDIO& record) {
  SDAccess::SDEncodedDataHeader head;
  std::memset(&head, 0, sizeof head);
  std::memcpy(head.id, SDAccess::kEncodedFileId, sizeof head.id);
  head.numChannels = record.NumChannels;
  head.compType = static_cast<qz::ushort>(sample.compType);
  head.frq = sample.info.frq;
  head.length = sample.info.length;
  head.loop = sample.info.loop;
  head.loopLength = sample.info.loopLength;
  return head;
}

// Failed writes are not looked at, but a label that memory did not suffice for would leave a table
// that leads nowhere in a file that looks whole: it is told by a field that can be written all the
// same.
bool LayTable(DIOFile* file, qz::ulong channels) {
  for (qz::ulong i = 0; i < channels; ++i) {
    if (!file->WriteLabel(ChannelLabel(i)) && file->Write(qz::ulong{0})) return false;
  }
  return true;
}

// A channel that fails does not keep the others from being written. The first failure counts.
SDError WriteChannels(DIOFile* file, const SDSample& sample, const _AUDIO& record) {
  const SDAccess::SDEncodedDataHeader head = Head(sample, record);
  file->Write(&head, 1, sizeof head);
  if (!LayTable(file, record.NumChannels)) return SDAccess::ERROR_NOMEMORY;
  SDError err = SDAccess::ERROR_OK;
  for (qz::ulong i = 0; i < record.NumChannels; ++i) {
    if (!file->SetLabel(ChannelLabel(i))) return SDAccess::ERROR_NOMEMORY;
    const SDError channelErr = WriteChunk(file, sample, ChannelView(record, i));
    if (err == SDAccess::ERROR_OK) err = channelErr;
  }
  return err;
}

}  // namespace

SDError WriteEncodedFile(const qz::string& name, const SDSample& sample, const _AUDIO& record) {
  if (!FitsFile(sample, record)) return SDAccess::ERROR_UNSUPPORTEDFORMAT;
  Stream file(name, DIOFile::OPENMODE_CREATE);
  if (!file) return SDAccess::ERROR_COULDNOTWRITE;
  SDError err = SDAccess::ERROR_NOMEMORY;
  try {
    err = WriteChannels(file.get(), sample, record);
  } catch (const std::bad_alloc&) {
    err = SDAccess::ERROR_NOMEMORY;
  }
  file.Close();  // fills the channel table
  if (err != SDAccess::ERROR_OK) DIOFile::Delete(name);
  return err;
}

SDError SDAccess::GenerateEncodedData(SDSample& sample, const _AUDIO* aInfo) const {
  if (!IsKnownCompType(sample.compType)) return SetError(ERROR_UNSUPPORTEDFORMAT);
  // Callers have changed the sample's format by now, so exhausted memory is an answer here and no
  // exception.
  try {
    return SetError(
        WriteEncodedFile(BuildEncodedSampleDataFileName(sample.fileName), sample, *aInfo));
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}
