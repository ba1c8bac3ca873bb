// What the targets for sound files share: reading as the audio library's front end does.
#ifndef FUZZ_SOUNDS_H_
#define FUZZ_SOUNDS_H_

#include "audio/audio_intern.h"
#include "audio/io.h"
#include "fuzz/fuzz.h"
#include "tests/audio_helpers.h"

namespace fuzz {

// Reads `bytes` twice, the second time with its samples into `sound`. False where the reader does
// not take them or fails.
inline bool ReadSound(const AudioReader& reader, std::string_view bytes, _AUDIO& sound) {
  const MemoryFile file(bytes);
  if (!reader.IsValid(file.Get())) return false;
  Check(std::ftell(file.Get()) == 0, "a reader asked for its opinion leaves the file at its start");

  audiotest::Sound numbers;
  const bool known = reader.ReadWave(file.Get(), &numbers, true) == AUDIO_OK;
  std::rewind(file.Get());
  const bool read = reader.ReadWave(file.Get(), &sound, false) == AUDIO_OK;
  if (!read) return false;
  Check(sound.Samples != nullptr, "a sound that was read has a block of samples");
  Touch(sound.Samples, sound.LengthInBytes);
  Check(!known || audiotest::NumbersOf(numbers) == audiotest::NumbersOf(sound),
        "numbers alone are those of the whole");
  if (sound.LengthInBytes > bytes.size()) {
    const auto* samples = static_cast<const unsigned char*>(sound.Samples);
    Check(samples[sound.LengthInBytes - 1] == 0, "what the file does not hold is zero");
  }
  return true;
}

}  // namespace fuzz

#endif  // FUZZ_SOUNDS_H_
