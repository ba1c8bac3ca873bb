// WAV files: bytes, and one that chooses a failing allocation.
#include "audio/WAV_reader.h"
#include "fuzz/sounds.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  audiotest::Sound sound;
  fuzz::ReadSound({wav_IsValid, wav_ReadWave}, input.Bytes(), sound);
  return 0;
}
