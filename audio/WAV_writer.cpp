#include "audio/WAV_writer.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "audio/audio_intern.h"
#include "audio/io.h"
#include "platform/platform.h"

namespace {

constexpr qz::int64 kRiffSizeOffset = 4;
constexpr qz::ulong kRiffHeadSize = 8;
constexpr qz::ulong kFormatSize = 16;
constexpr qz::ushort kTagPCM = 1;
constexpr qz::ulong kSmplSize = 36;
constexpr qz::ulong kSmplLoopSize = 24;
constexpr qz::ulong kWorkBufferSize = 0x4000;
constexpr qz::ulong kNanosecondsPerSecond = 1000000000;

struct Free {
  void operator()(void* block) const { std::free(block); }
};

void WriteTag(std::FILE* file, const char* tag) {
  std::fwrite(tag, 1, 4, file);
}

void WriteHead(std::FILE* file, const _AUDIO& audio) {
  // Both wrap for absurd records; readers don't trust them either.
  const auto blockAlign =
      static_cast<qz::ushort>(audio.NumChannels * (audio.BitsPerSample == 8 ? 1 : 2));
  WriteTag(file, "RIFF");
  audioWriteIntel32(file, 0);  // patched when the size is known
  WriteTag(file, "WAVE");
  WriteTag(file, "fmt ");
  audioWriteIntel32(file, kFormatSize);
  audioWriteIntel16(file, kTagPCM);
  audioWriteIntel16(file, audio.NumChannels);
  audioWriteIntel32(file, audio.SampleRate);
  audioWriteIntel32(file, audio.SampleRate * blockAlign);
  audioWriteIntel16(file, blockAlign);
  audioWriteIntel16(file, audio.BitsPerSample);
  WriteTag(file, "data");
  audioWriteIntel32(file, audio.LengthInBytes);
}

// WAV's bytes are unsigned. False where the work buffer cannot be had.
bool WriteSamples8(std::FILE* file, const _AUDIO& audio) {
  const std::unique_ptr<qz::uchar, Free> buffer(
      static_cast<qz::uchar*>(std::malloc(kWorkBufferSize)));
  if (!buffer) return false;
  const auto* samples = static_cast<const qz::uchar*>(audio.Samples);
  for (qz::ulong left = audio.LengthInBytes; left > 0;) {
    const qz::ulong part = std::min(left, kWorkBufferSize);
    std::transform(samples, samples + part, buffer.get(),
                   [](qz::uchar sample) { return static_cast<qz::uchar>(sample ^ 0x80); });
    std::fwrite(buffer.get(), 1, part, file);
    samples += part;
    left -= part;
  }
  return true;
}

void WriteSamples16(std::FILE* file, const _AUDIO& audio) {
  audioWriteEndian(audio.Samples, 2, audio.LengthInBytes / 2, file, false);
  if (audio.LengthInBytes % 2 != 0) {  // half a sample: kept, so that the size holds
    std::fputc(static_cast<const qz::uchar*>(audio.Samples)[audio.LengthInBytes - 1], file);
  }
}

void WriteKeyAndLoop(std::FILE* file, const _AUDIO& audio) {
  const bool loop =
      audio.LoopStart != AUDIO_NOLOOP && audio.LoopEnd != 0 && audio.LoopEnd != AUDIO_NOLOOP;
  WriteTag(file, "smpl");
  audioWriteIntel32(file, loop ? kSmplSize + kSmplLoopSize : kSmplSize);
  audioWriteIntel32(file, 0);  // manufacturer
  audioWriteIntel32(file, 0);  // product
  audioWriteIntel32(file, audio.SampleRate == 0 ? 0 : kNanosecondsPerSecond / audio.SampleRate);
  audioWriteIntel32(file, static_cast<qz::ulong>(qz::slong{audio.OriginalKey}));
  audioWriteIntel32(file, 0);  // pitch fraction
  audioWriteIntel32(file, 0);  // SMPTE format
  audioWriteIntel32(file, 0);  // SMPTE offset
  audioWriteIntel32(file, loop ? 1 : 0);
  audioWriteIntel32(file, 0);  // sampler data size
  if (!loop) return;
  audioWriteIntel32(file, 0);  // cue point id
  audioWriteIntel32(file, 0);  // type: forward
  audioWriteIntel32(file, audio.LoopStart);
  audioWriteIntel32(file, audio.LoopEnd);
  audioWriteIntel32(file, 0);  // fraction
  audioWriteIntel32(file, audio.LoopCount == -1 ? 0 : static_cast<qz::ulong>(audio.LoopCount));
}

}  // namespace

int wav_WriteWave(const char* name, _AUDIO* audio) {
  // A record that promises samples and has none: nothing is made of it, and no file replaced.
  const bool usable = audio->Samples != nullptr || audio->LengthInBytes == 0;
  std::FILE* file = usable ? platform::fopen(name, "w+b") : nullptr;
  if (file == nullptr) return audioFail(1, "Could not create file `%s'!", name);

  WriteHead(file, *audio);
  if (audio->BitsPerSample != 8) {
    WriteSamples16(file, *audio);
  } else if (!WriteSamples8(file, *audio)) {
    std::fclose(file);
    return audioFail(1, "Out of memory while writing 8 bit file `%s'!", name);
  }
  if (audio->LengthInBytes % 2 != 0) std::fputc(0, file);
  WriteKeyAndLoop(file, *audio);

  const qz::int64 fileSize = platform::ftell64(file);
  platform::fseek64(file, kRiffSizeOffset, SEEK_SET);
  audioWriteIntel32(file, static_cast<qz::ulong>(fileSize) - kRiffHeadSize);
  const bool written = std::ferror(file) == 0;
  if (std::fclose(file) != 0 || !written) return audioFail(1, "Error writing to file!");
  return 0;
}
