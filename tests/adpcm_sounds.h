// Generated sounds for the codec, by integer arithmetic alone: the same samples on every machine,
// whatever its maths library does.
#ifndef TESTS_ADPCM_SOUNDS_H_
#define TESTS_ADPCM_SOUNDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sounds {

using Samples = std::vector<short>;

// A small generator with a fixed sequence for each seed.
class Random {
 public:
  explicit Random(std::uint32_t seed) : state(seed * 2654435761u + 1u) {}
  std::uint32_t Next();
  // From -magnitude to magnitude.
  int Around(int magnitude);

 private:
  std::uint32_t state;
};

Samples Ramp(std::size_t length, int start, int slope);  // clipped at the ends of the range
Samples Square(std::size_t length, int half, int high, int low);
Samples Noise(std::size_t length, int magnitude, std::uint32_t seed);
// `step` is the phase step in 1/65536 of a turn.
Samples Tone(std::size_t length, int step, int amplitude);
Samples Growing(std::size_t length, int start, int numerator, int denominator);
Samples Impulses(std::size_t length, std::size_t distance, int value);
Samples Music(std::size_t length, std::uint32_t seed);
Samples Speech(std::size_t length, std::uint32_t seed);
Samples NearSilence(std::size_t length, std::uint32_t seed);
// A short sound of a kind that the seed picks: small noise, patterns, ramps, tones, pulses.
Samples Mixed(std::uint32_t seed);

struct Sound {
  std::string name;
  Samples samples;
  std::uint32_t loopStart;
};

// The sounds of tests/data/codec_hashes.txt, in its order.
std::vector<Sound> All();

}  // namespace sounds

#endif  // TESTS_ADPCM_SOUNDS_H_
