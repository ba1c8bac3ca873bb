// The GSM codec's streams: bytes to decode or, where they are no stream, samples to encode; and one
// byte that chooses a failing allocation.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "audio/gsm_codec.h"
#include "fuzz/fuzz.h"

namespace {

constexpr std::size_t kBlockSamples = 160;

void EncodeAndDecode(std::string_view bytes) {
  short samples[kBlockSamples * 2] = {};
  const std::size_t count = std::min(bytes.size() / 2, std::size(samples));
  if (count != 0) std::memcpy(samples, bytes.data(), count * 2);
  void* stream = nullptr;
  gsmCodecInfo info = {};
  if (gsmCodec_Encode(samples, static_cast<qz::ulong>(count), 8000, &stream, &info) != 0) {
    fuzz::Check(fuzz::Faults::Fired(), "every sound can be encoded");
    return;
  }
  gsmCodecInfo decoded = {};
  const int result = gsmCodec_Decode(stream, info.compressedBytes, nullptr, &decoded);
  std::free(stream);
  if (result == GSMCODEC_NOMEMORY) return;
  fuzz::Check(result == GSMCODEC_OK, "an encoded stream can be decoded");
  fuzz::Check(decoded.numSamples == info.numSamples && decoded.usedBlocks == info.usedBlocks &&
                  decoded.unusedBlocks == info.unusedBlocks,
              "a decoder counts what the encoder counted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  void* samples = nullptr;
  gsmCodecInfo info = {};
  const auto length = static_cast<qz::ulong>(input.Bytes().size());
  const int result = gsmCodec_Decode(input.Bytes().data(), length, &samples, &info);
  fuzz::Check((result == GSMCODEC_OK) == (samples != nullptr), "samples are there or not");
  fuzz::Touch(samples, info.uncompressedBytes);
  std::free(samples);
  if (result == GSMCODEC_NOMORT) EncodeAndDecode(input.Bytes());
  return 0;
}
