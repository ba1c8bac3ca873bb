// The whole encode beside general programs that a user knows: what they cost, how near their sound
// is, and how many bits a sample takes. All work on the same 10 million samples, take turns in one
// run and use one thread. Times are user CPU time: of ours the call alone, of the others the
// process, less that of the same program copying the samples where it can.
//
//   rivals_bench [--json] [ROUNDS]      TMPDIR: where the files go
#include <cmath>
#include <cstring>
#include <iterator>
#include <optional>
#include <sstream>

#include "adpcm/adpcm.h"
#include "bench/bench_support.h"
#include "tests/adpcm_sounds.h"

namespace {

using bench::Series;
using sounds::Samples;

constexpr std::size_t kLength = 10'000'000;

struct Program {
  const char* name;
  // Shell-free command lines with IN.raw, IN.wav, OUT and BACK in place of files. Empty ones: there
  // is nothing to take off; `encode` has made OUT; nothing is lost.
  const char* encode;  // timed
  const char* copy;    // timed, and taken off
  const char* write;   // makes OUT
  const char* back;    // OUT to the samples BACK
};

#define FFMPEG "ffmpeg -y -v error -threads 1 "
#define FFMPEG_RAW FFMPEG "-f s16le -ar 48000 -ac 1 -i IN.raw "
#define FFMPEG_BACK FFMPEG "-i OUT.wav -f s16le BACK"
#define SOX_BACK "sox -D OUT.wav -t raw -e signed -b 16 BACK"
constexpr Program kPrograms[] = {
    {"ffmpeg IMA ADPCM", FFMPEG_RAW "-c:a adpcm_ima_wav -f null -",
     FFMPEG_RAW "-c:a pcm_s16le -f null -", FFMPEG_RAW "-c:a adpcm_ima_wav OUT.wav", FFMPEG_BACK},
    {"ffmpeg MS ADPCM", FFMPEG_RAW "-c:a adpcm_ms -f null -", FFMPEG_RAW "-c:a pcm_s16le -f null -",
     FFMPEG_RAW "-c:a adpcm_ms OUT.wav", FFMPEG_BACK},
    {"sox IMA ADPCM", "sox -D IN.wav -e ima-adpcm OUT.wav", "sox -D IN.wav OUT.wav",
     "sox -D IN.wav -e ima-adpcm OUT.wav", SOX_BACK},
    {"sox MS ADPCM", "sox -D IN.wav -e ms-adpcm OUT.wav", "sox -D IN.wav OUT.wav",
     "sox -D IN.wav -e ms-adpcm OUT.wav", SOX_BACK},
    {"libsndfile MS ADPCM", "sndfile-convert -ms-adpcm IN.wav OUT.wav",
     "sndfile-convert -pcm16 IN.wav OUT.wav", "sndfile-convert -ms-adpcm IN.wav OUT.wav",
     "sndfile-convert -pcm16 OUT.wav BACK.wav"},
    {"flac -5", "flac -s -f -5 IN.wav -o OUT.flac", "", "", ""},
    {"flac -8", "flac -s -f -8 IN.wav -o OUT.flac", "", "", ""},
};
#undef FFMPEG
#undef FFMPEG_RAW
#undef FFMPEG_BACK
#undef SOX_BACK

struct Result {
  std::string name;
  Series cpu;  // ms
  double bits = 0;
  std::optional<double> noise;  // dB; none: lossless
};

// Signal to noise in dB; what is missing at the end counts as silence.
double SignalToNoise(const Samples& before, const Samples& after) {
  double signal = 0, noise = 0;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const double x = before[i];
    const double e = x - (i < after.size() ? after[i] : 0);
    signal += x * x;
    noise += e * e;
  }
  return 10 * std::log10(signal / noise);
}

class Rivals {
 public:
  Rivals(const Samples& samples, int rounds) : samples_(samples), rounds_(rounds) {
    bench::WriteWav(folder_ / "in.wav", samples);
    std::ofstream raw(folder_ / "in.raw", std::ios::binary);
    raw.write(reinterpret_cast<const char*>(samples.data()), Bytes(samples.size()));
  }

  std::vector<Result> Measure() {
    std::vector<Result> results(1 + std::size(kPrograms));
    results[0].name = "this library";
    for (int round = 0; round < rounds_; ++round) {
      Ours(results[0]);
      for (std::size_t i = 0; i < std::size(kPrograms); ++i)
        Rival(kPrograms[i], round == 0, results[i + 1]);
    }
    return results;
  }

 private:
  static std::streamsize Bytes(std::size_t samples) {
    return static_cast<std::streamsize>(samples * sizeof(short));
  }
  double BitsPerSample(double bytes) const {
    return bytes * 8 / static_cast<double>(samples_.size());
  }

  void Ours(Result& result) {
    Samples input = samples_;
    auto count = static_cast<qz::ulong>(input.size());
    _ADPCMINFO info;
    const double start = bench::UserMilliseconds();
    const bool done =
        adpcmEncodeSample(input.data(), &count, nullptr, nullptr, &info, nullptr) != 0;
    result.cpu.Add(bench::UserMilliseconds() - start);
    if (!done) bench::Fail("out of memory");
    short* const back = adpcmDecodeSample(info.Data, count, info.CoefTable, nullptr);
    if (back == nullptr) bench::Fail("out of memory");
    result.bits = BitsPerSample(info.DataBytes + 32.0);
    result.noise = SignalToNoise(samples_, Samples(back, back + count));
    std::free(back);
    adpcmFreeEncoded(&info);
  }

  void Rival(const Program& program, bool first, Result& result) {
    result.name = program.name;
    const double copy = *program.copy != 0 ? Run(program.copy).user : 0.0;
    const double encode = Run(program.encode).user;
    result.cpu.Add(encode - copy);
    if (!first) return;
    if (*program.write != 0) Run(program.write);
    const bool flac = std::strstr(program.encode, ".flac") != nullptr;
    const std::string out = folder_ / (flac ? "out.flac" : "out.wav");
    result.bits = BitsPerSample(static_cast<double>(bench::fs::file_size(out)));
    if (*program.back == 0) return;
    Run(program.back);
    const bool raw = std::strstr(program.back, "BACK.wav") == nullptr;
    result.noise =
        SignalToNoise(samples_, Read(folder_ / (raw ? "back" : "back.wav"), raw ? 0 : 44));
  }

  bench::Cost Run(std::string line) {
    for (const auto& [word, file] :
         {std::pair("IN.", "in."), std::pair("OUT.", "out."), std::pair("BACK", "back")}) {
      const std::size_t at = line.find(word);
      if (at != std::string::npos) line.replace(at, std::strlen(word), folder_ / file);
    }
    std::istringstream words(line);
    return bench::Run({std::istream_iterator<std::string>(words), {}});
  }

  static Samples Read(const std::string& path, std::size_t head) {
    Samples samples((bench::fs::file_size(path) - head) / sizeof(short));
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(head));
    file.read(reinterpret_cast<char*>(samples.data()), Bytes(samples.size()));
    return samples;
  }

  const Samples& samples_;
  int rounds_;
  bench::TempFolder folder_;
};

void Print(const char* signal, const std::vector<Result>& results) {
  std::printf("%s, %zu samples%*s%10s%10s%10s%10s%12s\n", signal, kLength,
              static_cast<int>(12 - std::strlen(signal)), "", "best ms", "median", "SNR dB", "bits",
              "ours takes");
  for (const Result& result : results) {
    std::printf("  %-26s%10.1f%10.1f", result.name.c_str(), result.cpu.Best(), result.cpu.Median());
    if (result.noise) {
      std::printf("%10.1f", *result.noise);
    } else {
      std::printf("%10s", "lossless");
    }
    std::printf("%10.2f%11.2fx\n", result.bits, results[0].cpu.Median() / result.cpu.Median());
  }
}

void PrintJson(const char* signal, const std::vector<Result>& results, const char* separator) {
  std::printf("%s\"%s\": {", separator, signal);
  separator = "";
  for (const Result& result : results) {
    std::printf("%s\n  \"%s\": {\"user_ms\": %s, \"bits_per_sample\": %.3f", separator,
                result.name.c_str(), result.cpu.Json().c_str(), result.bits);
    if (result.noise) std::printf(", \"snr_db\": %.2f", *result.noise);
    std::printf("}");
    separator = ",";
  }
  std::printf("}");
}

}  // namespace

int main(int argc, char** argv) {
  bool json = false;
  int rounds = 5;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else {
      rounds = std::atoi(argv[i]);
    }
  }
  if (rounds < 1) bench::Fail("usage: rivals_bench [--json] [ROUNDS]");
  const struct {
    const char* name;
    Samples samples;
  } signals[] = {{"music", sounds::Music(kLength, 1)},
                 {"speech", sounds::Speech(kLength, 1)},
                 {"noise", sounds::Noise(kLength, 32767, 1)}};
  const char* separator = "{";
  for (const auto& [name, samples] : signals) {
    const std::vector<Result> results = Rivals(samples, rounds).Measure();
    if (json) {
      PrintJson(name, results, separator);
    } else {
      Print(name, results);
    }
    separator = ",\n ";
  }
  if (json) std::printf("}\n");
  return 0;
}
