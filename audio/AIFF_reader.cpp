#include "audio/AIFF_reader.h"

#include <cmath>

#include "audio/audio_intern.h"
#include "audio/io.h"
#include "platform/platform.h"

namespace {

constexpr short kDefaultKey = 60;
constexpr std::size_t kInstSize = 20;
constexpr std::size_t kInstSustainEnd = 12;
constexpr std::size_t kInstReleaseEnd = 18;
constexpr qz::ulong kSoundHead = 8;  // offset and block size, in front of the sound data

// Whole hertz modulo 65536, all that this reader has ever handed out: 96000 becomes 30464. Rates
// below zero wrap as whole numbers do.
qz::ulong RateOf(double rate) {
  if (!std::isfinite(rate)) return 0;
  return static_cast<qz::ulong>(static_cast<qz::slong>(std::fmod(std::trunc(rate), 65536.0))) &
         0xFFFF;
}

int ReadCommon(std::FILE* file, _AUDIO* audio) {
  if (!aiff_FindChunk(file, "COMM")) {
    return audioFail(AUDIO_BADCONTENT, "Error locating `COMM' chunk!");
  }
  audio->NumChannels = audioReadMotorola16(file);
  audio->NumSamples = audioReadMotorola32(file);
  audio->BitsPerSample = audioReadMotorola16(file);
  unsigned char rate[10] = {};
  audioReadMotorola(rate, 1, sizeof rate, file);
  audio->SampleRate = RateOf(audioConvertFromIeeeExtended(rate));
  return AUDIO_OK;
}

// The loop's kind comes from whether the end markers are named; the play modes aren't looked at.
void ReadInstrument(std::FILE* file, _AUDIO* audio) {
  if (!aiff_FindChunk(file, "INST")) return;
  unsigned char inst[kInstSize] = {};
  audioReadMotorola(inst, 1, sizeof inst, file);
  audio->OriginalKey = inst[0];
  const bool sustain = inst[kInstSustainEnd] != 0 || inst[kInstSustainEnd + 1] != 0;
  const bool release = inst[kInstReleaseEnd] != 0 || inst[kInstReleaseEnd + 1] != 0;
  if (!sustain) return;
  audio->LoopType = release ? 2 : 1;
  audio->LoopCount = -1;
}

// The position of the marker at which the file stands; moves on to the next one.
qz::ulong ReadMarker(std::FILE* file) {
  audioReadMotorola16(file);  // id
  const qz::ulong position = audioReadMotorola32(file);
  unsigned char nameLength = 0;
  audioReadMotorola(&nameLength, 1, 1, file);
  audioSkip(file, nameLength);
  if (platform::ftell64(file) % 2 != 0) audioSkip(file, 1);
  return position;
}

// The loop's points are the first two markers in file order, whatever their ids.
void ReadMarkers(std::FILE* file, _AUDIO* audio) {
  if (!aiff_FindChunk(file, "MARK")) return;
  const qz::ushort numMarkers = audioReadMotorola16(file);
  if (numMarkers >= 1) audio->LoopStart = ReadMarker(file);
  if (numMarkers >= 2) audio->LoopEnd = ReadMarker(file) - 1;  // ours is in the loop
}

}  // namespace

bool aiff_IsValid(std::FILE* file) {
  return audioIsForm(file, "FORM", "AIFF");
}

bool aiff_FindChunk(std::FILE* file, const char* id) {
  qz::ulong size = 0;
  return audioFindChunk(file, id, true, &size);
}

int aiff_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly) {
  if (const int error = ReadCommon(file, audio); error != AUDIO_OK) return error;
  audio->OriginalKey = kDefaultKey;
  audio->LoopStart = AUDIO_NOLOOP;
  audio->LoopEnd = AUDIO_NOLOOP;
  ReadInstrument(file, audio);
  ReadMarkers(file, audio);

  qz::ulong chunkSize = 0;
  if (!audioFindChunk(file, "SSND", true, &chunkSize)) {
    return audioFail(AUDIO_BADCONTENT, "Error locating `SSND' chunk!");
  }
  audio->LengthInBytes = chunkSize - kSoundHead;
  audioSkip(file, kSoundHead);

  if (audio->Stream != nullptr) {
    return audioFail(AUDIO_NOSTREAMING, "Streaming not yet implemented!");
  }
  // The length has wrapped to nearly 4 GiB, which an allocator may well grant.
  if (chunkSize < kSoundHead) return audioFail(AUDIO_NOMEMORY, "Out of memory!");
  if (!audioAllocSamples(audio, infoOnly)) return AUDIO_NOMEMORY;
  switch (audio->BitsPerSample) {
    case 8:
      if (!infoOnly) audioReadMotorola(audio->Samples, 1, audio->LengthInBytes, file);
      return AUDIO_OK;
    case 16:
      if (!infoOnly) audioReadMotorola(audio->Samples, 2, audio->LengthInBytes / 2, file);
      return AUDIO_OK;
    default:
      return audioFail(AUDIO_BADCONTENT, "Unsupported bits per sample (%d)!", audio->BitsPerSample);
  }
}
