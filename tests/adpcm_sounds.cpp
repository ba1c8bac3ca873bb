#include "tests/adpcm_sounds.h"

#include <utility>

namespace sounds {
namespace {

short Clip(std::int64_t value) {
  return static_cast<short>(value < -32768 ? -32768 : value > 32767 ? 32767 : value);
}

// A turn in two parabolas, -32767 to 32767.
int Wave(std::uint32_t phase) {
  const auto half = static_cast<int>(phase & 0x7FFF);
  const int arch = static_cast<int>(std::int64_t{half} * (32768 - half) * 32767 / (16384 * 16384));
  return (phase & 0x8000) != 0 ? -arch : arch;
}

template <typename Next>
Samples Generate(std::size_t length, Next next) {
  Samples result(length);
  for (std::size_t i = 0; i < length; ++i)
    result[i] = Clip(next(static_cast<std::int64_t>(i)));
  return result;
}

// A resonator of two poles in 1/4096.
class Resonator {
 public:
  Resonator(int first, int second) : c1(first), c2(second) {}
  std::int64_t Next(std::int64_t in) {
    const std::int64_t out = in + (y1 * c1 - y2 * c2) / 4096;
    y2 = std::exchange(y1, out);
    return out;
  }

 private:
  std::int64_t c1, c2, y1 = 0, y2 = 0;
};

}  // namespace

std::uint32_t Random::Next() {
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return state;
}

int Random::Around(int magnitude) {
  const auto span = static_cast<std::uint32_t>(2 * magnitude + 1);
  return static_cast<int>((Next() >> 8) % span) - magnitude;
}

Samples Ramp(std::size_t length, int start, int slope) {
  return Generate(length, [=](std::int64_t i) { return start + i * slope; });
}

Samples Square(std::size_t length, int half, int high, int low) {
  return Generate(length, [=](std::int64_t i) { return i / half % 2 == 0 ? high : low; });
}

Samples Noise(std::size_t length, int magnitude, std::uint32_t seed) {
  Random random(seed);
  return Generate(length, [&](std::int64_t) { return random.Around(magnitude); });
}

Samples Tone(std::size_t length, int step, int amplitude) {
  return Generate(length, [=](std::int64_t i) {
    return std::int64_t{Wave(static_cast<std::uint32_t>(i * step))} * amplitude / 32767;
  });
}

Samples Growing(std::size_t length, int start, int numerator, int denominator) {
  std::int64_t value = start;
  return Generate(length, [&](std::int64_t) {
    const std::int64_t now = value;
    value = value * numerator / denominator;
    if (value > 40000 || value < -40000) value = start;
    return now;
  });
}

Samples Impulses(std::size_t length, std::size_t distance, int value) {
  return Generate(length, [=](std::int64_t i) {
    return i % static_cast<std::int64_t>(distance) == 0 ? value : 0;
  });
}

Samples Music(std::size_t length, std::uint32_t seed) {
  Random random(seed);
  std::int64_t step[5];
  std::int64_t level[5];
  return Generate(length, [&](std::int64_t i) {
    if (i % 2500 == 0) {  // a new chord
      for (int n = 0; n < 5; ++n) {
        step[n] = 300 + random.Next() % 4000;
        level[n] = 9000 / (n + 1);
      }
    }
    std::int64_t sum = random.Around(60);
    for (int n = 0; n < 5; ++n) {
      sum += Wave(static_cast<std::uint32_t>(i * step[n])) * level[n] / 32767;
      if (i % 64 == 0) level[n] -= level[n] / 100;
    }
    return sum;
  });
}

Samples Speech(std::size_t length, std::uint32_t seed) {
  Random random(seed);
  Resonator low(7700, 3900);
  Resonator high(5200, 3700);
  std::int64_t untilPulse = 0;
  return Generate(length, [&](std::int64_t i) {
    const std::int64_t phase = i % 4000;  // voiced, unvoiced, pause
    std::int64_t drive = random.Around(2);
    if (phase < 2400 && --untilPulse <= 0) {
      drive += 900;
      untilPulse = 90 + random.Around(4);
    } else if (phase >= 2400 && phase < 3200) {
      drive += random.Around(250);
    }
    return low.Next(high.Next(drive)) / 2;
  });
}

Samples NearSilence(std::size_t length, std::uint32_t seed) {
  Random random(seed);
  return Generate(length, [&](std::int64_t i) {
    return i / 200 % 3 == 0 ? 0 : random.Around(1) * static_cast<int>(random.Next() % 2);
  });
}

Samples Mixed(std::uint32_t seed) {
  Random random(seed);
  const std::size_t length = 14 + random.Next() % 70;
  const auto to = [&random](std::uint32_t limit) {
    return static_cast<int>(random.Next() % limit);
  };
  switch (random.Next() % 7) {
    case 0:
      return Noise(length, 1 + to(4), seed);
    case 1: {
      const auto period = static_cast<std::size_t>(1 + to(9));
      const Samples pattern = Noise(period, 1 << to(15), seed);
      return Generate(length, [&](std::int64_t i) {
        return pattern[static_cast<std::size_t>(i) % pattern.size()];
      });
    }
    case 2: {
      const int start = random.Around(3000);
      return Ramp(length, start, random.Around(500));
    }
    case 3: {
      const int start = random.Around(9);
      const int numerator = random.Around(9);
      return Growing(length, start, numerator, 1 + to(6));
    }
    case 4: {
      const int step = to(65536);
      return Tone(length, step, 1 << to(15));
    }
    case 5: {
      const int half = 1 + to(9);
      const int high = random.Around(4);
      return Square(length, half, high, random.Around(4));
    }
    default: {
      const auto distance = static_cast<std::size_t>(1 + to(20));
      return Impulses(length, distance, random.Around(300));
    }
  }
}

namespace {

// Sounds, found by search, whose result hangs on one detail of the arithmetic.
const std::pair<const char*, std::vector<std::uint32_t>> kTelling[] = {
    {"last-pivot-of-equals", {11, 24, 50, 58}},
    {"pivot-reciprocal", {484, 587, 598, 617}},
    {"row-scale-reciprocal", {8, 338, 599, 686}},
    {"solve-divides", {84, 178, 184, 209}},
    {"step-down-divides", {230, 1228, 2890, 3087}},
    {"step-down-1-minus-square", {12, 73, 108, 118}},
    {"step-down-reciprocal", {945, 1043, 1211, 1689}},
    {"step-down-of-model-1-minus-square", {869, 892, 1719, 2007}},
    {"levinson-1-minus-square", {118458, 233044}},
    {"levinson-divides", {3213, 181906, 189681}},
    {"reflection-of-exactly-1", {109547, 207644, 3010}},
    {"nearly-singular", {4935, 8164, 9760}},
    {"first-of-equal-distances", {872, 1192, 3000, 3176}},
    {"no-fused-multiply", {2, 80, 81}},
    {"halving-toward-zero", {634, 1741, 3619}},
    {"open-loop-toward-zero", {1021, 14990, 17220}},
    {"clip-at-256", {23046, 25236, 61037}},
};

}  // namespace

std::vector<Sound> All() {
  std::vector<Sound> all;
  const auto add = [&all](const std::string& name, Samples samples) {
    const auto loop = static_cast<std::uint32_t>(samples.size() / 3);
    all.push_back({name, std::move(samples), loop});
  };
  const auto number = [](auto value) { return std::to_string(value); };

  add("empty", {});
  add("silence", Samples(100));
  for (const short value : Samples{1, -2, 3, -47, 1000, -3000, 32767, -32768}) {
    add("constant-" + number(value), Samples(500, value));
    add("one-frame-of-" + number(value), Samples(14, value));
  }
  for (const int slope : {1, 7, -13, 450, -1000, 4000}) {
    add("ramp-" + number(slope), Ramp(400, 0, slope));
    add("ramp-from-below-" + number(slope), Ramp(70, -9 * slope, slope));
  }
  for (const int half : {1, 2, 3, 7, 14, 33}) {
    add("square-full-" + number(half), Square(700, half, 32767, -32768));
    add("square-small-" + number(half), Square(300, half, 5, -5));
    add("pulse-" + number(half), Square(300, half, 2000, 0));
  }
  // Whole divisors of the turn repeat exactly, the others drift.
  for (const int step : {65536 / 4, 65536 / 8, 65536 / 16, 65536 / 64, 1000, 4681, 9362, 30000}) {
    add("tone-" + number(step), Tone(900, step, 1000));
    add("tone-full-" + number(step), Tone(900, step, 32767));
    add("tone-clipped-" + number(step), Tone(600, step, 70000));
    add("tone-faint-" + number(step), Tone(300, step, 3));
  }
  for (const std::size_t length : {1u, 2u, 13u, 14u, 15u, 27u, 28u, 29u, 14335u, 14336u, 14337u}) {
    add("noise-of-length-" + number(length),
        Noise(length, 30000, static_cast<std::uint32_t>(length)));
  }
  for (const int magnitude : {1, 2, 4, 16, 300, 5000, 32767}) {
    add("noise-" + number(magnitude), Noise(3000, magnitude, 77));
  }
  // Few frames of small numbers: ties of distances and errors, empty cells, odd pivots.
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    Random random(seed + 1000);
    const std::size_t length = 20 + random.Next() % 220;
    add("random-" + number(seed), Noise(length, 1 << random.Next() % 6, seed));
  }
  for (const auto& [difference, seeds] : kTelling) {
    for (const std::uint32_t seed : seeds)
      add(std::string(difference) + "-" + number(seed), Mixed(seed));
  }
  for (const std::size_t distance : {5u, 14u, 31u, 1000u}) {
    add("impulses-" + number(distance), Impulses(700, distance, 32767));
    add("impulses-small-" + number(distance), Impulses(700, distance, -9));
  }
  add("growing", Growing(700, 4, 5, 4));
  add("growing-fast", Growing(700, 3, 7, 3));
  add("growing-alternating", Growing(700, 5, -6, 5));
  for (const std::uint32_t seed : {1u, 2u, 3u, 4u}) {
    add("music-" + number(seed), Music(12000, seed));
    add("speech-" + number(seed), Speech(12000, seed));
    add("near-silence-" + number(seed), NearSilence(4000, seed));
  }
  add("music-long", Music(60000, 9));
  add("speech-long", Speech(60000, 9));
  return all;
}

}  // namespace sounds
