#include "audio/WAV_reader.h"

#include "audio/audio_intern.h"
#include "audio/io.h"

namespace {

constexpr qz::ushort kTagPCM = 1;
constexpr short kDefaultKey = 60;

// The "smpl" chunk is a row of 32-bit words; these are the ones that matter. One loop, the first,
// is taken.
enum SmplWord {
  kUnityNote = 3,
  kNumLoops = 7,
  kFirstLoopStart = 11,
  kFirstLoopEnd = 12,
  kFirstLoopPlayCount = 14,
  kNumSmplWords = 15
};

int ReadFormat(std::FILE* file, _AUDIO* audio) {
  if (!wav_FindChunk(file, "fmt ")) {
    return audioFail(AUDIO_BADCONTENT, "Error locating `fmt ' chunk!");
  }
  const qz::ushort tag = audioReadIntel16(file);
  if (tag != kTagPCM) {
    return audioFail(AUDIO_BADCONTENT, "Unsupported compression scheme (%d)!", tag);
  }
  audio->NumChannels = audioReadIntel16(file);
  audio->SampleRate = audioReadIntel32(file);
  audioSkip(file, 4 + 2);  // bytes per second, block align
  audio->BitsPerSample = audioReadIntel16(file);
  return AUDIO_OK;
}

void ReadKeyAndLoop(std::FILE* file, _AUDIO* audio) {
  audio->OriginalKey = kDefaultKey;
  audio->LoopStart = AUDIO_NOLOOP;
  audio->LoopEnd = AUDIO_NOLOOP;
  if (!wav_FindChunk(file, "smpl")) return;

  qz::ulong words[kNumSmplWords] = {};
  audioReadIntel(words, 4, kNumSmplWords, file);
  audio->OriginalKey = static_cast<short>(words[kUnityNote] & 0xFFFF);
  if (words[kNumLoops] == 0) return;
  audio->LoopStart = words[kFirstLoopStart];
  audio->LoopEnd = words[kFirstLoopEnd];
  audio->LoopType = 1;  // whichever way the file's loop runs
  const auto playCount = static_cast<qz::slong>(words[kFirstLoopPlayCount]);
  audio->LoopCount = playCount == 0 ? -1 : playCount;
}

// WAV's bytes are unsigned. Only what the file gave is flipped: the rest is silence as it is.
void ReadSamples8(std::FILE* file, _AUDIO* audio) {
  auto* samples = static_cast<qz::uchar*>(audio->Samples);
  const qz::ulong done = audioReadIntel(samples, 1, audio->LengthInBytes, file);
  for (qz::ulong i = 0; i < done; ++i)
    samples[i] ^= 0x80;
}

}  // namespace

bool wav_IsValid(std::FILE* file) {
  return audioIsForm(file, "RIFF", "WAVE");
}

bool wav_FindChunk(std::FILE* file, const char* id) {
  qz::ulong size = 0;
  return audioFindChunk(file, id, false, &size);
}

int wav_ReadWave(std::FILE* file, _AUDIO* audio, bool infoOnly) {
  if (const int error = ReadFormat(file, audio); error != AUDIO_OK) return error;
  ReadKeyAndLoop(file, audio);

  if (!audioFindChunk(file, "data", false, &audio->LengthInBytes)) {
    return audioFail(AUDIO_BADCONTENT, "Error locating `data' chunk!");
  }
  const qz::ulong width = audio->BitsPerSample > 8 ? 2 : 1;
  const qz::ulong frameSize = audio->NumChannels * width;
  audio->NumSamples = frameSize == 0 ? 0 : audio->LengthInBytes / frameSize;

  if (audio->Stream != nullptr) {
    return audioFail(AUDIO_NOSTREAMING, "Streaming not yet implemented!");
  }
  if (!audioAllocSamples(audio, infoOnly)) return AUDIO_NOMEMORY;
  switch (audio->BitsPerSample) {
    case 8:
      if (!infoOnly) ReadSamples8(file, audio);
      return AUDIO_OK;
    case 16:
      if (!infoOnly) audioReadIntel(audio->Samples, 2, audio->LengthInBytes / 2, file);
      return AUDIO_OK;
    default:
      return audioFail(AUDIO_BADCONTENT, "Unsupported bits per sample (%d)!", audio->BitsPerSample);
  }
}
