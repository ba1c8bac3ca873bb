// Sample data for the host: raw, encoded, decoded and extra data, and the bringing up to date of a
// sample's records and encoded file. Every call reads its file afresh; nothing is cached.
#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "adpcm/adpcm.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_heap.h"
#include "sampledata/sd_sound.h"

namespace {

using SDExtraData = SDTarvaneAccessInterface::SDExtraData;
using SDExtraDataFileChunk = SDAccess::SDExtraDataFileChunk;

constexpr qz::ulong kNoLoopType = 0;

bool IsAdpcm(SDCompType type) {
  return type == SDAccess::COMPTYPE_ADPCM || type == SDAccess::COMPTYPE_ADPCMPLUS ||
         type == SDAccess::COMPTYPE_ADPCMVS;
}

// The fields that both forms share.
template <class Form>
void FillForm(const SDExtraDataFileChunk& chunk, Form& form) {
  const auto& adpcm = chunk.data.adpcm;
  std::memset(&form, 0, sizeof form);
  form.numCoef = adpcm.numCoef;
  form.order = adpcm.order;
  form.loopY0 = adpcm.loopY0;
  form.loopY1 = adpcm.loopY1;
  form.loopPS = adpcm.loopPS;
  form.initialPS = adpcm.initialPS;
  const qz::ulong values = qz::ulong{adpcm.numCoef} * adpcm.order;
  std::copy_n(adpcm.coefTable, std::min(values, adpcm::kTableValues), form.coefTable);
}

// The block arrays behind the chunk. Their count is the number of entries that are really there
// in both: a file that was cut must not make the host read on.
bool FillBlocks(const SDExtraDataFileChunk& chunk, const unsigned char* data, qz::ulong dataSize,
                SDExtraData::ADPCMPLUS& form) {
  const qz::uint64 promised = chunk.data.adpcmp.numBlocks;
  const qz::uint64 values = dataSize > sizeof chunk ? (dataSize - sizeof chunk) / sizeof(short) : 0;
  const qz::uint64 blocks =
      std::min(promised, values > promised ? values - promised : qz::uint64{0});
  SampleBlock y0 = AllocateSamples(blocks);
  SampleBlock y1 = AllocateSamples(blocks);
  if (y0 == nullptr || y1 == nullptr) return false;
  if (blocks != 0) {
    const unsigned char* arrays = data + sizeof chunk;
    std::memcpy(y0.get(), arrays, blocks * sizeof(short));
    std::memcpy(y1.get(), arrays + promised * sizeof(short), blocks * sizeof(short));
  }
  form.numBlocks = static_cast<qz::ulong>(blocks);
  form.blockY0 = y0.release();
  form.blockY1 = y1.release();
  return true;
}

// All values behind what the data holds are zero.
SampleBlock DecodePcm8(const void* data, qz::ulong size, qz::uint64 length) {
  SampleBlock samples = AllocateSamples(length);
  if (samples == nullptr) return samples;
  const qz::uchar* bytes = static_cast<const qz::uchar*>(data);
  const qz::uint64 count = std::min<qz::uint64>(size, length);
  for (qz::uint64 i = 0; i < count; ++i)
    samples[i] = RepeatByte(bytes[i]);
  return samples;
}

// `length` rounded up to whole frames. Frames that the data does not hold are zeros.
SampleBlock DecodeAdpcm(void* data, qz::ulong size, qz::uint64 length, short* table) {
  constexpr qz::uint64 kFrame = adpcm::kSamplesPerFrame;
  const qz::uint64 frames = length / kFrame + (length % kFrame != 0 ? 1 : 0);
  // A length from a stored node can be anything; rounded up it must not start again at 0.
  if (frames > std::numeric_limits<qz::uint64>::max() / kFrame) return nullptr;
  constexpr qz::uint64 kMostFrames = std::numeric_limits<qz::ulong>::max() / kFrame;
  const qz::uint64 framesThere =
      std::min({frames, qz::uint64{size / adpcm::kBytesPerFrame}, kMostFrames});
  const auto samplesThere = static_cast<qz::ulong>(framesThere * kFrame);
  SampleBlock decoded(
      adpcmDecodeSample(static_cast<qz::uchar*>(data), samplesThere, table, nullptr));
  if (decoded == nullptr || framesThere == frames) return decoded;
  SampleBlock padded = AllocateSamples(frames * kFrame);
  if (padded != nullptr) std::copy_n(decoded.get(), samplesThere, padded.get());
  return padded;
}

// The encoded block as it is, or a longer one where it holds less than the sample promises.
SampleBlock DecodePcm16(HeapBlock data, qz::ulong size, qz::uint64 length) {
  if (size / sizeof(short) >= length) return SampleBlock(static_cast<short*>(data.release()));
  SampleBlock padded = AllocateSamples(length);
  if (padded != nullptr) std::memcpy(padded.get(), data.get(), size);
  return padded;
}

}  // namespace

// --- Data ---

short* SDAccess::GetRawData(const qz::string& qualClass, uchar channel) const {
  try {
    const SDSample* sample = FindQualityClass(qualClass);
    if (sample == nullptr) return nullptr;
    if (!IsKnownCompType(sample->compType)) {
      SetError(ERROR_UNSUPPORTEDFORMAT);
      return nullptr;
    }
    Sound sound;
    if (!sound.Read(ExpandSamplePath(sample->fileName))) {
      SetError(ERROR_COULDNOTREAD);
      return nullptr;
    }
    const ulong numSamples = sound.Record().NumSamples;
    // The caller knows the length that was recorded, and the file may have been cut since.
    SampleBlock samples = AllocateSamples(std::max<qz::uint64>(numSamples, sample->info.length));
    if (samples == nullptr) {
      SetError(ERROR_NOMEMORY);
      return nullptr;
    }
    // The block is zero already: pages behind what the file holds stay untouched.
    const ChannelView view(sound.Record(), channel);
    view.TakeRepeated(0, view.Held(), samples.get());
    return samples.release();
  } catch (const std::bad_alloc&) {
    SetError(ERROR_NOMEMORY);
    return nullptr;
  }
}

void* SDAccess::GetEncodedData(const qz::string& qualClass, uchar channel, ulong& size) const {
  try {
    const SDSample* sample = FindQualityClass(qualClass);
    if (sample == nullptr) return nullptr;
    size = 0;
    if (!IsKnownCompType(sample->compType)) {
      SetError(ERROR_UNSUPPORTEDFORMAT);
      return nullptr;
    }
    void* data = nullptr;
    return ReadEncodedSampleData(*sample, channel, data, size) == ERROR_OK ? data : nullptr;
  } catch (const std::bad_alloc&) {
    size = 0;
    SetError(ERROR_NOMEMORY);
    return nullptr;
  }
}

SDTarvaneAccessInterface::SDExtraData* SDAccess::GetExtraData(const qz::string& qualClass,
                                                              uchar channel) const {
  try {
    const SDSample* sample = FindQualityClass(qualClass);
    if (sample == nullptr) return nullptr;
    if (!IsKnownCompType(sample->compType)) {
      SetError(ERROR_UNSUPPORTEDFORMAT);
      return nullptr;
    }
    void* data = nullptr;
    ulong dataSize = 0;
    if (ReadEncodedExtraSampleData(*sample, channel, data, dataSize) != ERROR_OK) {
      SetError(ERROR_COULDNOTREAD);
      return nullptr;
    }
    const HeapBlock block(data);
    if (!IsAdpcm(sample->compType)) {
      SetError(ERROR_NOEXTRADATA);
      return nullptr;
    }
    // No extra data at all is no failure.
    return data == nullptr ? nullptr : MakeExtraData(sample->compType, data, dataSize);
  } catch (const std::bad_alloc&) {
    SetError(ERROR_NOMEMORY);
    return nullptr;
  }
}

SDTarvaneAccessInterface::SDExtraData* SDAccess::MakeExtraData(SDCompType compType,
                                                               const void* data,
                                                               ulong dataSize) const {
  auto extra = std::make_unique<SDExtraData>();
  SDExtraDataFileChunk chunk;
  std::memset(&chunk, 0, sizeof chunk);
  std::memcpy(&chunk, data, std::min<std::size_t>(dataSize, sizeof chunk));
  if (compType != COMPTYPE_ADPCMPLUS) {
    FillForm(chunk, extra->data.adpcm);
    extra->type = EXTRADATA_ADPCM;
    return extra.release();
  }
  FillForm(chunk, extra->data.adpcmp);
  if (!FillBlocks(chunk, static_cast<const unsigned char*>(data), dataSize, extra->data.adpcmp)) {
    SetError(ERROR_NOMEMORY);
    return nullptr;
  }
  extra->type = EXTRADATA_ADPCMPLUS;
  return extra.release();
}

short* SDAccess::GetDecodedData(const qz::string& qualClass, uchar channel) const {
  const SDSample* sample = FindQualityClass(qualClass);
  if (sample == nullptr) return nullptr;
  ulong size = 0;
  HeapBlock encoded(GetEncodedData(qualClass, channel, size));
  if (encoded == nullptr) return nullptr;
  // The PCM formats have none, and their ERROR_NOEXTRADATA stays behind although all went well.
  const std::unique_ptr<SDExtraData> extra(GetExtraData(qualClass, channel));

  SampleBlock decoded;
  if (sample->compType == COMPTYPE_RAW) {
    decoded = DecodePcm16(std::move(encoded), size, sample->encodedInfo.length);
  } else if (sample->compType == COMPTYPE_RAW8) {
    decoded =
        DecodePcm8(encoded.get(), size, std::max(sample->info.length, sample->encodedInfo.length));
  } else if (extra == nullptr) {
    if (lastError == ERROR_OK) SetError(ERROR_COULDNOTDECODE);
    return nullptr;
  } else {
    short* table = extra->type == EXTRADATA_ADPCMPLUS ? extra->data.adpcmp.coefTable
                                                      : extra->data.adpcm.coefTable;
    decoded = DecodeAdpcm(encoded.get(), size, sample->encodedInfo.length, table);
  }
  if (decoded == nullptr) SetError(ERROR_NOMEMORY);
  return decoded.release();
}

// --- Bringing up to date ---

SDAccess::SDError SDAccess::ReadSampleInformation(const qz::string& qualClass) {
  if (!baseNode->RequestModifyData()) return SetError(ERROR_READONLY);
  SDSample* sample = FindQualityClass(qualClass);
  if (sample == nullptr) return lastError;
  const qz::string rawName = ExpandSamplePath(sample->fileName);
  if (!ReadRawNumbers(rawName, *sample)) return SetError(ERROR_COULDNOTLOAD);

  SDError err = SetError(ERROR_OK);
  bool regenerate = !IsEncodedDataUpToDate(*sample);
  // A file in the wrong format is out of date however fresh it is; one regeneration has to cure
  // that.
  for (bool lastPass = false;; lastPass = true, regenerate = true) {
    if (regenerate) {
      Sound sound;
      if (sound.Read(rawName)) {
        err = GenerateEncodedData(*sample, &sound.Record());
      } else if (lastPass) {
        err = SetError(ERROR_COULDNOTREAD);
      }
    }
    if (err != ERROR_OK) return err;
    SDCompType fileType = COMPTYPE_NONE;
    err = ReadEncodedSampleInfo(*sample, &sample->encodedInfo, fileType);
    if (err != ERROR_OK || fileType == sample->compType) return err;
    if (lastPass) return SetError(ERROR_COULDNOTREAD);
  }
}

bool SDAccess::ReadRawNumbers(const qz::string& rawName, SDSample& sample) const {
  Sound sound;
  if (!sound.ReadInformation(rawName)) return false;
  const _AUDIO& record = sound.Record();
  sample.numChannels = record.NumChannels;
  sample.info.frq = record.SampleRate;
  sample.info.orgKey = static_cast<uchar>(record.OriginalKey & 0xFF);
  sample.info.length = record.NumSamples;
  if (record.LoopType == kNoLoopType) {
    sample.info.loop = 0;
    sample.info.loopLength = 0;
  } else {
    sample.info.loop = record.LoopStart;
    // The record's end is inclusive. In 32 bits, as the record counts.
    sample.info.loopLength = record.LoopEnd + 1u - record.LoopStart;
  }
  return true;
}

bool SDAccess::IsEncodedDataUpToDate(const SDSample& sample) const {
  DIOFile::DIOFileInfo rawInfo;
  if (!DIOFile::FindFirst(ExpandSamplePath(sample.fileName), rawInfo)) return false;
  DIOFile::FindClose(rawInfo);
  DIOFile::DIOFileInfo encodedInfo;
  if (!DIOFile::FindFirst(BuildEncodedSampleDataFileName(sample.fileName), encodedInfo)) {
    return false;
  }
  DIOFile::FindClose(encodedInfo);
  return rawInfo.timeWrite <= encodedInfo.timeWrite;
}
