// What the targets for sound files share: reading as the audio library's front end does.
#ifndef FUZZ_SOUNDS_H_
#define FUZZ_SOUNDS_H_

#include <cstdlib>
#include <tuple>

#include "audio/audio_intern.h"
#include "audio/io.h"
#include "fuzz/fuzz.h"

namespace fuzz {

inline auto Numbers(const _AUDIO& sound) {
  return std::tuple(sound.LengthInBytes, sound.SampleRate, sound.NumSamples, sound.BitsPerSample,
                    sound.NumChannels, sound.OriginalKey, sound.UsesCompression, sound.LoopStart,
                    sound.LoopEnd, sound.LoopType, sound.LoopCount);
}

// Frees its samples.
struct Sound : _AUDIO {
  Sound() : _AUDIO() {}
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
  ~Sound() { audio_FreeWave(this); }

  unsigned char Byte(std::size_t at) const { return static_cast<unsigned char*>(Samples)[at]; }
};

// Reads `bytes` twice, the second time with its samples into `sound`. False where the reader does
// not take them or fails.
inline bool ReadSound(const AudioReader& reader, std::string_view bytes, Sound& sound) {
  const MemoryFile file(bytes);
  if (!reader.IsValid(file.Get())) return false;
  Check(std::ftell(file.Get()) == 0, "a reader asked for its opinion leaves the file at its start");

  Sound numbers;
  const bool known = reader.ReadWave(file.Get(), &numbers, true) == AUDIO_OK;
  std::rewind(file.Get());
  const bool read = reader.ReadWave(file.Get(), &sound, false) == AUDIO_OK;
  if (!read) return false;
  Check(sound.Samples != nullptr, "a sound that was read has a block of samples");
  Touch(sound.Samples, sound.LengthInBytes);
  Check(!known || Numbers(numbers) == Numbers(sound), "numbers alone are those of the whole");
  if (sound.LengthInBytes > bytes.size()) {
    Check(sound.Byte(sound.LengthInBytes - 1) == 0, "what the file does not hold is zero");
  }
  return true;
}

}  // namespace fuzz

#endif  // FUZZ_SOUNDS_H_
