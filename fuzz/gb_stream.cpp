// The GB codec's streams: bytes to decode, taken as samples to encode as well; and one byte that
// chooses a failing allocation.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "audio/MORT_codecs.h"
#include "fuzz/fuzz.h"

namespace {

// The number of samples in a stream; 0 where it cannot be decoded.
qz::ulong Decode(const void* stream, qz::ulong length) {
  void* samples = nullptr;
  qz::ulong count = 0;
  const int result = gbCodec_Decode(stream, static_cast<qz::slong>(length), &samples, &count);
  fuzz::Check((result == 0) == (samples != nullptr), "samples are there or not");
  if (count != 0) {
    const short last = static_cast<short*>(samples)[count - 1];
    fuzz::Check((last & 0x0FFF) == 0x0800, "every sample is the middle of a nibble's step");
  }
  std::free(samples);
  return count;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  const std::string_view bytes = input.Bytes();
  Decode(bytes.data(), static_cast<qz::ulong>(bytes.size()));

  // Aligned, and without a byte to spare behind it.
  std::vector<short> samples;
  {
    const heap_faults::Spared ofTheTarget;
    samples.resize(bytes.size() / 2);
  }
  std::copy_n(bytes.data(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
  _AUDIO sound = {};
  sound.Samples = samples.data();
  sound.LengthInBytes = static_cast<qz::ulong>(samples.size() * 2);
  // Samples that the record does not hold are 0.
  sound.NumSamples = static_cast<qz::ulong>(samples.size()) + input.TakeByte();
  void* stream = nullptr;
  qz::ulong length = 0;
  const bool encoded = mort_EncodeGB(&sound, &stream, &length);
  fuzz::Check(encoded == (stream != nullptr) && (encoded || faults.Fired()),
              "every sound can be encoded");
  // A single block stays as it is even where it looks like a marker.
  fuzz::Check(Decode(stream, length) <= sound.NumSamples + 31 || sound.NumSamples <= 32,
              "no samples come of nothing but those that fill the last block");
  std::free(stream);
  return 0;
}
