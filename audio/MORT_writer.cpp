#include "audio/MORT_writer.h"

#include <cstdlib>

#include "audio/MORT_codecs.h"
#include "audio/MORT_format.h"
#include "audio/audio_intern.h"
#include "audio/io.h"
#include "platform/platform.h"

namespace {

constexpr int kFailed = 1;

// What stands behind the channels.
void WriteHeadEnd(std::FILE* file, const _AUDIO& audio) {
  audioWriteIntel32(file, audio.SampleRate);
  audioWriteIntel32(file, audio.LengthInBytes);
  audioWriteIntel32(file, audio.NumSamples);
  for (int i = 0; i < 4; ++i)
    audioWriteIntel32(file, 0);
}

int WriteEncoded(std::FILE* file, _AUDIO* audio, qz::ushort codec) {
  void* stream = nullptr;
  qz::ulong length = 0;
  const bool encoded = codec == MORT_CODEC_GSM ? mort_EncodeGSM(audio, &stream, &length)
                                               : mort_EncodeGB(audio, &stream, &length);
  if (!encoded) return audioFail(kFailed, "Error encoding file!");
  std::fwrite(stream, 1, length, file);
  std::free(stream);
  return 0;
}

// The refusals stand between the fields: the file keeps what precedes them. Writes that come out
// short are found behind the last.
int WriteFile(std::FILE* file, _AUDIO* audio, qz::ushort codec) {
  std::fwrite(mortMagic, 1, sizeof mortMagic, file);
  audioWriteIntel16(file, mortVersion);
  if (codec > MORT_CODEC_GB) return audioFail(kFailed, "Illegal codec!");
  audioWriteIntel16(file, codec);
  if (audio->BitsPerSample != mortBitsPerSample) {
    return audioFail(kFailed, "Only 16 bits/sample are allowed!");
  }
  audioWriteIntel16(file, audio->BitsPerSample);
  audioWriteIntel16(file, static_cast<qz::ushort>(audio->OriginalKey));
  if (audio->NumChannels != mortNumChannels) {
    return audioFail(kFailed, "Only 1 channel is allowed!");
  }
  audioWriteIntel16(file, audio->NumChannels);
  WriteHeadEnd(file, *audio);

  if (audio->UsesCompression == MORT_COMPRESSION_NONE) return WriteEncoded(file, audio, codec);
  const std::size_t length = audio->LengthInBytes;
  if (length != 0 && std::fwrite(audio->Samples, 1, length, file) != length) {
    return audioFail(kFailed, "Error encoding file!");
  }
  return 0;
}

bool HoldsOtherCodec(const _AUDIO& audio, qz::ushort codec) {
  return (audio.UsesCompression == MORT_COMPRESSION_GSM && codec != MORT_CODEC_GSM) ||
         (audio.UsesCompression == MORT_COMPRESSION_GB && codec != MORT_CODEC_GB);
}

}  // namespace

int mort_WriteWave(const char* name, _AUDIO* audio, qz::ushort codec) {
  // A record that promises samples and has none: nothing is made of it, and no file replaced.
  if (audio->Samples == nullptr && audio->LengthInBytes != 0) {
    return audioFail(kFailed, "Error encoding file!");
  }
  _AUDIO* plain = nullptr;
  if (HoldsOtherCodec(*audio, codec)) {
    plain = mort_Decode(audio);
    if (plain == nullptr) return audioFail(kFailed, "Error decoding sample!");
    audio = plain;
  }

  int result = kFailed;
  if (std::FILE* file = platform::fopen(name, "w+b"); file != nullptr) {
    result = WriteFile(file, audio, codec);
    const bool written = std::ferror(file) == 0;
    const bool closed = std::fclose(file) == 0;
    if (result == 0 && !(written && closed)) {
      result = audioFail(kFailed, "Error writing to file!");
    }
  } else {
    audioFail(kFailed, "Could not create file `%s'!", name);
  }
  mort_Release(plain);
  return result;
}
