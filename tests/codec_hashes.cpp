// Prints a line for each generated sound: its name and the hash of all that encoding and decoding
// it gives. tests/data/codec_hashes.txt is this output; scripts/check-codec-bits compares builds.
#include <cinttypes>
#include <cstdio>

#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"

int main() {
  for (const sounds::Sound& sound : sounds::All()) {
    const EncodedStream stream = EncodeStream(sound.samples, sound.loopStart);
    if (!stream.ok) return 1;
    std::printf("%s %016" PRIx64 "\n", sound.name.c_str(), HashStream(stream));
  }
  return 0;
}
