#include "audio/MORT_reader.h"

#include <cstring>

#include "audio/MORT_format.h"
#include "audio/audio_intern.h"
#include "audio/io.h"
#include "common/byte_order.h"
#include "platform/platform.h"

namespace {

struct Head {
  unsigned char bytes[mortHeadSize];
  std::size_t given;  // bytes of it that the file holds

  // A number that the file doesn't hold whole is 0.
  qz::ulong Number(std::size_t offset, std::size_t size) const {
    if (offset + size > given) return 0;
    return static_cast<qz::ulong>(qz::LittleEndian(bytes + offset, size));
  }
  qz::ushort Short(std::size_t offset) const { return static_cast<qz::ushort>(Number(offset, 2)); }
};

Head ReadHead(std::FILE* file) {
  Head head = {};
  platform::fseek64(file, 0, SEEK_SET);
  head.given = std::fread(head.bytes, 1, mortHeadSize, file);
  return head;
}

qz::ushort CompressionOf(qz::ushort codec) {
  switch (codec) {
    case MORT_CODEC_GSM:
      return MORT_COMPRESSION_GSM;
    case MORT_CODEC_GB:
      return MORT_COMPRESSION_GB;
    default:
      return MORT_COMPRESSION_NONE;  // the stream is then taken for plain samples
  }
}

}  // namespace

bool mort_IsValid(std::FILE* file) {
  audioResetError();
  const Head head = ReadHead(file);
  platform::fseek64(file, 0, SEEK_SET);
  if (head.given < mortOffsetVersion + 2) return false;
  if (std::memcmp(head.bytes, mortMagic, sizeof mortMagic) != 0) return false;
  if (head.Short(mortOffsetVersion) == mortVersion) return true;
  audio_ErrorCode = AUDIO_BADMORTVERSION;
  audioFail(AUDIO_BADMORTVERSION, "Illegal MORT file version!");
  return false;
}

int mort_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly) {
  const qz::int64 fileSize = audioFileSize(file);
  const Head head = ReadHead(file);
  if (head.Short(mortOffsetVersion) != mortVersion) {
    return audioFail(AUDIO_BADMORTVERSION, "Unsupported MORT file version!");
  }
  audio->UsesCompression = CompressionOf(head.Short(mortOffsetCodec));
  audio->BitsPerSample = head.Short(mortOffsetBits);
  audio->OriginalKey = static_cast<short>(head.Short(mortOffsetKey));
  audio->NumChannels = head.Short(mortOffsetChannels);
  audio->SampleRate = head.Number(mortOffsetRate, 4);
  audio->NumSamples = head.Number(mortOffsetNumSamples, 4);
  audio->LoopStart = AUDIO_NOLOOP;
  audio->LoopEnd = AUDIO_NOLOOP;
  constexpr auto kHeadSize = static_cast<qz::int64>(mortHeadSize);
  // Of a file of 4 GiB and more the low 32 bits, which is all that the record can say.
  audio->LengthInBytes = fileSize > kHeadSize ? static_cast<qz::ulong>(fileSize - kHeadSize) : 0;

  if (audio->BitsPerSample != mortBitsPerSample) {
    return audioFail(AUDIO_BADCONTENT, "MORT samples must have 16 bits/sample");
  }
  if (audio->NumChannels != mortNumChannels) {
    return audioFail(AUDIO_BADCONTENT, "MORT samples must have only 1 channel");
  }
  if (infoOnly) return AUDIO_OK;
  if (head.given < mortHeadSize) {
    return audioFail(AUDIO_DATAENDED, "Error while reading sample!");
  }
  if (!audioAllocSamples(audio, false)) return AUDIO_NOMEMORY;
  if (std::fread(audio->Samples, 1, audio->LengthInBytes, file) != audio->LengthInBytes) {
    return audioFail(AUDIO_DATAENDED, "Error while reading sample!");
  }
  return AUDIO_OK;
}
