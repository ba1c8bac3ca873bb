#include "audio/MORT_codecs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "audio/MORT_format.h"
#include "audio/gsm_codec.h"

namespace {

constexpr std::size_t kBlockSize = 16;  // bytes
constexpr qz::slong kBlockSamples = 32;
constexpr unsigned char kSilentByte = 0x88;
constexpr unsigned char kMarker = 0x78;
constexpr unsigned kMarkerNibble = 7;
constexpr unsigned kFiller = 7;  // behind the last sample of the last block
constexpr std::size_t kMaxMarkerBlocks = 255;
constexpr short kSilentSample = 0x0800;  // the middle of a nibble's step
constexpr qz::slong kMaxSlong = std::numeric_limits<qz::slong>::max();

// The whole samples that the record really has.
qz::ulong SamplesGiven(const _AUDIO& audio) {
  return audio.Samples == nullptr ? 0 : std::min(audio.NumSamples, audio.LengthInBytes / 2);
}

_AUDIO* NewPlainRecord(void* samples, qz::ulong numSamples, qz::ulong sampleRate) {
  auto* plain = static_cast<_AUDIO*>(std::calloc(1, sizeof(_AUDIO)));
  if (plain == nullptr) {
    std::free(samples);
    return nullptr;
  }
  plain->Samples = samples;
  plain->NumSamples = numSamples;
  plain->LengthInBytes = numSamples * 2;
  plain->SampleRate = sampleRate;
  plain->BitsPerSample = mortBitsPerSample;
  plain->NumChannels = mortNumChannels;
  return plain;
}

unsigned NibbleOf(short sample) {
  return static_cast<qz::ushort>(sample) >> 12 ^ 8u;
}

unsigned char TwoNibbles(unsigned earlier, unsigned later) {
  return static_cast<unsigned char>(earlier << 4 | later);
}

short SampleOf(unsigned nibble) {
  return static_cast<short>(static_cast<qz::ushort>(((nibble ^ 8u) << 12) + kSilentSample));
}

bool IsMarker(const unsigned char* block) {
  return unsigned{block[0]} >> 4 == kMarkerNibble;
}

// Without a look at the first nibble: what it held is lost where the block meets another one.
bool IsSilent(const unsigned char* block) {
  return (block[0] & 0x0F) == (kSilentByte & 0x0F) &&
         std::all_of(block + 1, block + kBlockSize,
                     [](unsigned char byte) { return byte == kSilentByte; });
}

// Writes the markers of a row of `run` silent blocks; the block behind them.
unsigned char* WriteMarkers(unsigned char* out, std::size_t run) {
  while (run > 0) {
    const std::size_t part = std::min(run, kMaxMarkerBlocks);
    std::memset(out, kSilentByte, kBlockSize);
    out[0] = kMarker;
    out[1] = static_cast<unsigned char>(part - 1);
    out += kBlockSize;
    run -= part;
  }
  return out;
}

// The walk of the compaction: `silent` has a mark for each block. It ends in front of the last
// block, which only a row of silence that began earlier takes in.
std::size_t Compact(unsigned char* data, const bool* silent, std::size_t numBlocks) {
  unsigned char* out = data;
  for (std::size_t in = 0; in + 1 < numBlocks;) {
    if (silent[in] && silent[in + 1]) {
      const auto run = static_cast<std::size_t>(std::find(silent + in, silent + numBlocks, false) -
                                                (silent + in));
      out = WriteMarkers(out, run);
      in += run;
    } else {
      std::memmove(out, data + in * kBlockSize, kBlockSize);
      out += kBlockSize;
      ++in;
    }
  }
  return static_cast<std::size_t>(out - data) / kBlockSize;
}

}  // namespace

_AUDIO* mort_Decode(_AUDIO* audio) {
  switch (audio->UsesCompression) {
    case MORT_COMPRESSION_GSM:
      return mort_DecodeGSM(audio);
    case MORT_COMPRESSION_GB:
      return mort_DecodeGB(audio);
    default:
      return nullptr;
  }
}

void mort_Release(_AUDIO* audio) {
  if (audio == nullptr) return;
  std::free(audio->Samples);
  std::free(audio);
}

_AUDIO* mort_DecodeGSM(_AUDIO* audio) {
  if (audio->Samples == nullptr) return nullptr;
  void* samples = nullptr;
  gsmCodecInfo info;
  if (gsmCodec_Decode(audio->Samples, audio->LengthInBytes, &samples, &info) != GSMCODEC_OK) {
    return nullptr;
  }
  return NewPlainRecord(samples, info.numSamples, info.sampleRate);
}

_AUDIO* mort_DecodeGB(_AUDIO* audio) {
  if (audio->Samples == nullptr || audio->LengthInBytes > qz::ulong{kMaxSlong}) return nullptr;
  void* samples = nullptr;
  qz::ulong numSamples = 0;
  if (gbCodec_Decode(audio->Samples, static_cast<qz::slong>(audio->LengthInBytes), &samples,
                     &numSamples) != 0) {
    return nullptr;
  }
  return NewPlainRecord(samples, numSamples, audio->SampleRate);
}

bool mort_EncodeGSM(_AUDIO* audio, void** out, qz::ulong* outLength) {
  gsmCodecInfo info;
  const bool encoded =
      gsmCodec_EncodePadded(static_cast<const short*>(audio->Samples), SamplesGiven(*audio),
                            audio->NumSamples, audio->SampleRate, out, &info) == GSMCODEC_OK;
  *outLength = encoded ? info.compressedBytes : 0;
  return encoded;
}

bool mort_EncodeGB(_AUDIO* audio, void** out, qz::ulong* outLength) {
  *out = nullptr;
  *outLength = 0;
  // More samples than a record can hold: the promise cannot be kept.
  if (audio->NumSamples > qz::ulong{kMaxSlong - kBlockSamples}) return false;
  auto* stream = static_cast<unsigned char*>(std::calloc(audio->NumSamples / 2 + 64, 1));
  if (stream == nullptr) return false;

  const auto* samples = static_cast<const short*>(audio->Samples);
  const auto numSamples = static_cast<qz::slong>(audio->NumSamples);
  const auto numGiven = static_cast<qz::slong>(SamplesGiven(*audio));
  qz::slong length = 0;
  for (; length + 1 < numGiven; length += 2) {
    stream[length / 2] = TwoNibbles(NibbleOf(samples[length]), NibbleOf(samples[length + 1]));
  }
  const auto nibbleAt = [&](qz::slong i) {
    if (i >= numSamples) return kFiller;
    return NibbleOf(i < numGiven ? samples[i] : short{0});
  };
  for (; length < numSamples || length % kBlockSamples != 0; length += 2) {
    stream[length / 2] = TwoNibbles(nibbleAt(length), nibbleAt(length + 1));
  }

  *outLength = static_cast<qz::ulong>(MortEncode(stream, length) / 2);
  *out = stream;
  return true;
}

qz::slong MortEncode(unsigned char* data, qz::slong length) {
  // One block stays as it is, even where it looks like a marker.
  if (length <= kBlockSamples) return length;
  const auto numBlocks = static_cast<std::size_t>(length / kBlockSamples);
  auto* silent = static_cast<bool*>(std::malloc(numBlocks * sizeof(bool)));

  bool rows = false;
  for (std::size_t i = 0; i < numBlocks; ++i) {
    unsigned char* block = data + i * kBlockSize;
    if (IsMarker(block)) block[0] = TwoNibbles(8, block[0] & 0x0F);  // it is none
    if (silent == nullptr) continue;
    silent[i] = IsSilent(block);
    rows = rows || (i > 0 && silent[i] && silent[i - 1]);
  }
  if (rows) length = static_cast<qz::slong>(Compact(data, silent, numBlocks)) * kBlockSamples;
  std::free(silent);
  return length;
}

int gbCodec_Decode(const void* data, qz::slong length, void** samples, qz::ulong* numSamples) {
  *samples = nullptr;
  *numSamples = 0;
  const auto* begin = static_cast<const unsigned char*>(data);
  const std::size_t numBlocks = length > 0 ? static_cast<std::size_t>(length) / kBlockSize : 0;
  const auto* end = begin + numBlocks * kBlockSize;

  // The blocks are counted first: markers can stand for much more than their size.
  qz::uint64 count = 0;
  for (const auto* block = begin; block != end; block += kBlockSize) {
    count += kBlockSamples * (IsMarker(block) ? qz::uint64{block[1]} : 1);
  }
  if (count > qz::ulong{kMaxSlong}) return 1;
  auto* out = static_cast<short*>(std::malloc(std::max<std::size_t>(count * sizeof(short), 1)));
  if (out == nullptr) return 1;
  *samples = out;
  *numSamples = static_cast<qz::ulong>(count);

  for (const auto* block = begin; block != end; block += kBlockSize) {
    if (IsMarker(block)) {
      out = std::fill_n(out, std::size_t{block[1]} * kBlockSamples, kSilentSample);
    } else {
      for (std::size_t i = 0; i < kBlockSize; ++i) {
        *out++ = SampleOf(block[i] >> 4);
        *out++ = SampleOf(block[i] & 0x0F);
      }
    }
  }
  return 0;
}
