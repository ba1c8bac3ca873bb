// Prints a line for each generated sound: its name and the hash of all that encoding and decoding
// it gives. tests/data/codec_hashes.txt is this output; scripts/check-codec-bits compares builds.
//
//   codec_hashes            by the kernels that the codec picks
//   codec_hashes LEVEL      by those of one level, "scalar", "portable" or "avx2"; status 3 where
//                           the machine lacks it
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "adpcm/kernels.h"
#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"

namespace {

// Whether the machine has the level of that name, which is then the one in use.
bool UseLevel(const char* name) {
  for (const adpcm::KernelLevel level : adpcm::kKernelLevels) {
    const adpcm::Kernels* kernels = adpcm::KernelsOf(level);
    if (kernels == nullptr || std::strcmp(kernels->name, name) != 0) continue;
    adpcm::CapKernels(level);
    return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && !UseLevel(argv[1])) return 3;
  for (const sounds::Sound& sound : sounds::All()) {
    const EncodedStream stream = EncodeStream(sound.samples, sound.loopStart);
    if (!stream.ok) return 1;
    std::printf("%s %016" PRIx64 "\n", sound.name.c_str(), HashStream(stream));
  }
  return 0;
}
