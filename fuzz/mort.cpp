// MORT files, decoded by the codec that they name: bytes, and one that chooses a failing
// allocation.
#include "audio/MORT_codecs.h"
#include "audio/MORT_reader.h"
#include "fuzz/sounds.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  audiotest::Sound sound;
  if (!fuzz::ReadSound({mort_IsValid, mort_ReadWave}, input.Bytes(), sound)) return 0;
  _AUDIO* const plain = mort_Decode(&sound);
  if (plain == nullptr) return 0;
  fuzz::Check(plain->UsesCompression == 0 && plain->LengthInBytes == plain->NumSamples * 2,
              "a decoded record is plain and covers its samples");

  // The other way takes its time.
  constexpr qz::ulong kMaxSamples = 2 * 160;
  plain->NumSamples = std::min(plain->NumSamples, kMaxSamples);
  void* stream = nullptr;
  qz::ulong length = 0;
  const bool gsm = sound.UsesCompression == 1;
  const bool encoded =
      gsm ? mort_EncodeGB(plain, &stream, &length) : mort_EncodeGSM(plain, &stream, &length);
  fuzz::Check(encoded || faults.Fired(), "what was decoded can be encoded by the other codec");
  fuzz::Check(encoded == (stream != nullptr), "a stream is there or not");
  std::free(stream);
  mort_Release(plain);
  return 0;
}
