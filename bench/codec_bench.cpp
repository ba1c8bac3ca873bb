// Speed of the codec in samples per second: whole encode, table design, frames, decode, on seeded
// signals of four kinds.
//
//   codec_bench [--json] [seconds of sound per signal, default 20 at 32 kHz]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "adpcm/adpcm.h"

namespace {

using Samples = std::vector<short>;

constexpr double kRate = 32000.0;
constexpr int kRounds = 3;  // the best one counts: other work on the machine only ever slows

short Clip(double value) {
  return static_cast<short>(std::clamp(value, -32768.0, 32767.0));
}

Samples Music(std::size_t length) {
  std::mt19937 random(1);
  std::normal_distribution<double> hiss(0.0, 40.0);
  std::vector<double> frequency(6);
  Samples samples(length);
  for (std::size_t i = 0; i < length; ++i) {
    const std::size_t inChord = i % 16000;
    if (inChord == 0) {
      for (double& f : frequency)
        f = 80.0 * std::pow(2.0, static_cast<double>(random() % 60) / 12);
    }
    double sum = hiss(random);
    for (std::size_t n = 0; n < frequency.size(); ++n) {
      sum += 6000.0 / (1.0 + static_cast<double>(n)) *
             std::exp(-static_cast<double>(inChord) / 9000.0) *
             std::sin(6.283185307 * frequency[n] * static_cast<double>(i) / kRate);
    }
    samples[i] = Clip(sum);
  }
  return samples;
}

Samples Speech(std::size_t length) {
  std::mt19937 random(2);
  std::normal_distribution<double> noise(0.0, 1.0);
  double y1 = 0, y2 = 0, z1 = 0, z2 = 0;
  Samples samples(length);
  for (std::size_t i = 0; i < length; ++i) {
    const std::size_t phase = i % 12000;
    double drive = 2.0 * noise(random);
    if (phase < 7000) drive += i % 260 == 0 ? 3000.0 : 0.0;
    if (phase >= 7000 && phase < 9500) drive += 400.0 * noise(random);
    const double y = drive + 1.88 * y1 - 0.95 * y2;
    y2 = y1, y1 = y;
    const double z = 0.3 * y + 1.2 * z1 - 0.9 * z2;
    z2 = z1, z1 = z;
    samples[i] = Clip(z);
  }
  return samples;
}

Samples Noise(std::size_t length, int magnitude) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> value(-magnitude, magnitude);
  Samples samples(length);
  for (short& sample : samples)
    sample = static_cast<short>(value(random));
  return samples;
}

template <typename Work>
double SamplesPerSecond(std::size_t samples, Work work) {
  double best = 1e30;
  for (int round = 0; round < kRounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count());
  }
  return static_cast<double>(samples) / best;
}

struct Result {
  double encode, design, frames, decode;
};

Result Measure(Samples& samples) {
  auto count = static_cast<qz::ulong>(samples.size());
  Result result{};
  result.encode = SamplesPerSecond(samples.size(), [&] {
    _ADPCMINFO info;
    if (adpcmEncodeSample(samples.data(), &count, nullptr, nullptr, &info, nullptr) == 0) {
      std::abort();
    }
    adpcmFreeEncoded(&info);
  });
  short table[adpcm::kTableValues];
  result.design = SamplesPerSecond(samples.size(), [&] {
    if (!adpcmCoefTableDesign(samples.data(), count, adpcm::kTableRows, table, 0, nullptr)) {
      std::abort();
    }
  });
  qz::ulong size, blocks;
  short y0, y1;
  qz::uchar scale, index;
  std::unique_ptr<qz::uchar, void (*)(void*)> frames(nullptr, std::free);
  result.frames = SamplesPerSecond(samples.size(), [&] {
    frames.reset(adpcmDoEncoding(table, samples.data(), count, &size, nullptr, nullptr, &blocks,
                                 adpcm::kNoLoop, &y0, &y1, &scale, &index, nullptr));
  });
  result.decode = SamplesPerSecond(
      samples.size(), [&] { std::free(adpcmDecodeSample(frames.get(), count, table, nullptr)); });
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  bool json = false;
  double seconds = 20.0;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else {
      seconds = std::atof(argv[i]);
    }
  }
  const auto length = static_cast<std::size_t>(seconds * kRate);
  if (!(seconds > 0.0)) {
    std::fprintf(stderr, "usage: codec_bench [--json] [seconds]\n");
    return 2;
  }

  std::pair<const char*, Samples> signals[] = {{"music", Music(length)},
                                               {"speech", Speech(length)},
                                               {"noise", Noise(length, 32767)},
                                               {"near_silence", Noise(length, 2)}};
  if (json) {
    std::printf("{\"samples\": %zu, \"unit\": \"samples/s\", \"results\": {", length);
  } else {
    std::printf("%zu samples a signal, million samples per second, best of %d\n", length, kRounds);
    std::printf("%-14s%10s%10s%10s%10s\n", "", "encode", "design", "frames", "decode");
  }
  const char* separator = "";
  for (auto& [name, samples] : signals) {
    const Result r = Measure(samples);
    if (json) {
      std::printf(
          "%s\"%s\": {\"encode\": %.0f, \"design\": %.0f, \"frames\": %.0f, \"decode\": %.0f}",
          separator, name, r.encode, r.design, r.frames, r.decode);
      separator = ", ";
    } else {
      std::printf("%-14s%10.2f%10.2f%10.2f%10.2f\n", name, r.encode / 1e6, r.design / 1e6,
                  r.frames / 1e6, r.decode / 1e6);
    }
  }
  if (json) std::printf("}}\n");
  return 0;
}
