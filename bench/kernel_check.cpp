// Holds every kernel that this machine has against the scalar one: the same results, nothing
// written beside them, and how much faster.
//
//   kernel_check [--seed N] [--frames N]    equality on N random frames (a million) and on the
//                                           generated sounds; status 1 where something differs
//   kernel_check --hashes LEVEL             a line for each generated sound: its name and the hash
//   of
//                                           all that this level makes of it, as they stand in
//                                           tests/data/codec_hashes.txt; status 3 where the machine
//                                           lacks the level
//   kernel_check --bench [--json] [--samples N]
//                                           samples per second and ratios on N samples (10 million)
//                                           of each signal
//
// A new kernel is a Case, which runs it for one random Input and returns what it made, and a
// Benchmark.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "adpcm/adpcm.h"
#include "adpcm/codebook.h"
#include "adpcm/design.h"
#include "adpcm/design_kernels.h"
#include "adpcm/estimate.h"
#include "adpcm/kernels.h"
#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"

namespace {

using adpcm::kBytesPerFrame;
using adpcm::KernelLevel;
using adpcm::Kernels;
using adpcm::kOrder;
using adpcm::kSamplesPerFrame;
using adpcm::kTableValues;
using sounds::Samples;
using Bytes = std::vector<qz::uchar>;

constexpr std::size_t kMostFrames = 40;

// What the kernels get: a table, a signal with history in front, and frames that nobody encoded.
struct Input {
  short table[kTableValues];
  std::size_t frames;
  Samples samples;  // kOrder of history, then the frames
  Bytes encoded;
};

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed) {}

  Input Next() {
    Input input;
    input.frames = 1 + Below(kMostFrames);
    const std::size_t length = kOrder + input.frames * kSamplesPerFrame;
    for (input.samples.clear(); input.samples.size() < length;)
      AppendRun(input.samples, length - input.samples.size());
    if (Below(2) == 0) {  // a history that the signal does not continue
      for (std::size_t i = 0; i < kOrder; ++i)
        input.samples[i] = AnySample();
    }
    FillTable(input);
    // Decoders take long streams apart: blocks of some thousand frames at most, and of 64 at least.
    const std::size_t most = Below(64) == 0 ? 20000 : Below(4) == 0 ? 300 : kMostFrames;
    const std::size_t streamFrames = 1 + Below(most);
    while (input.encoded.size() < streamFrames * kBytesPerFrame)
      AppendFrames(input.encoded, 1 + Below(streamFrames - input.encoded.size() / kBytesPerFrame));
    return input;
  }

 private:
  std::uint32_t Below(std::size_t limit) {
    return static_cast<std::uint32_t>(random_() % static_cast<std::uint64_t>(limit));
  }
  int Within(int magnitude) {
    return static_cast<int>(Below(2 * static_cast<std::size_t>(magnitude) + 1)) - magnitude;
  }
  static short Clip(int value) { return static_cast<short>(std::clamp(value, -32768, 32767)); }
  short AnySample() { return static_cast<short>(random_()); }

  // Up to a few frames of one character.
  void AppendRun(Samples& samples, std::size_t room) {
    const std::size_t length = std::min<std::size_t>(room, 1 + Below(60));
    const int magnitude = 1 << Below(16);
    const int level = Below(3) == 0 ? Within(32767) : 0;
    const std::uint32_t half = 1 + Below(9);
    const std::uint32_t kind = Below(6);
    const auto wave = static_cast<double>(Below(314)) / 100;
    for (std::size_t i = 0; i < length; ++i) {
      switch (kind) {
        case 0:
          samples.push_back(Clip(level + Within(magnitude)));
          break;
        case 1:
          samples.push_back(Below(2) == 0 ? short{-32768} : short{32767});
          break;
        case 2:
          samples.push_back(i / half % 2 == 0 ? Clip(level + magnitude) : Clip(level - magnitude));
          break;
        case 3:
          samples.push_back(
              Clip(static_cast<int>(magnitude * std::sin(wave * static_cast<double>(i)))));
          break;
        case 4:
          samples.push_back(Clip(level + static_cast<int>(i) * Within(magnitude)));
          break;
        default:
          samples.push_back(Clip(Below(2) == 0 ? 32767 - Within(magnitude) : level));
          break;
      }
    }
  }

  // Any bytes, or with headers as an encoder writes them, of small exponents for the most part; of
  // one header, with a table from below, decoders that start from different histories never meet.
  void AppendFrames(Bytes& encoded, std::size_t count) {
    const std::uint32_t kind = Below(4);
    const auto one = static_cast<qz::uchar>(Below(16) * 16 + Below(4));
    for (std::size_t i = 0; i < count * kBytesPerFrame; ++i) {
      auto byte = static_cast<qz::uchar>(random_());
      if (i % kBytesPerFrame == 0 && kind == 1) byte = one;
      if (i % kBytesPerFrame == 0 && kind > 1)
        byte = static_cast<qz::uchar>(Below(adpcm::kTableRows) * 16 + Below(1 + Below(13)));
      encoded.push_back(byte);
    }
  }

  // Within the bounds that the kernels ask for, and up to them.
  void FillTable(Input& input) {
    const std::uint32_t kind = Below(5);
    if (kind == 0) {
      const auto count = static_cast<qz::ulong>(input.samples.size());
      if (!adpcmCoefTableDesign(input.samples.data(), count, adpcm::kTableRows, input.table, 0,
                                nullptr)) {
        std::abort();
      }
      if (adpcm::TableIsBounded(input.table)) return;
    }
    for (std::size_t i = 0; i < kTableValues; ++i) {
      const int bound = i % 2 == 0 ? 4096 : 2048;
      const int extreme = Below(2) == 0 ? bound : -bound;
      input.table[i] = Clip(kind == 1 ? extreme : Within(bound >> Below(kind == 2 ? 12 : 2)));
      if (kind == 4 && i % 2 == 1) input.table[i] = -2048;  // tones that do not die away
    }
  }

  std::mt19937_64 random_;
};

// A block with bytes around it that nobody may change.
template <typename T>
class Guarded {
 public:
  explicit Guarded(std::size_t count) : bytes_(2 * kGuard + count * sizeof(T), kPattern) {}
  explicit Guarded(const std::vector<T>& content) : Guarded(content.size()) {
    std::copy(content.begin(), content.end(), data());
  }
  T* data() { return reinterpret_cast<T*>(bytes_.data() + kGuard); }
  bool Intact() const {
    const auto untouched = [](qz::uchar byte) { return byte == kPattern; };
    return std::all_of(bytes_.begin(), bytes_.begin() + kGuard, untouched) &&
           std::all_of(bytes_.end() - kGuard, bytes_.end(), untouched);
  }

 private:
  static constexpr std::ptrdiff_t kGuard = 64;
  static constexpr qz::uchar kPattern = 0xA5;
  std::vector<qz::uchar> bytes_;
};

// What a kernel made.
struct Output {
  std::vector<long> values;
  bool intact = true;

  template <typename T>
  void Take(Guarded<T>& block, std::size_t count) {
    values.insert(values.end(), block.data(), block.data() + count);
    intact = intact && block.Intact();
  }
};

// The kernels of one level, and the level for what goes through the codec's own dispatch.
struct Level {
  KernelLevel level;
  const Kernels* kernels;
};

Output EncodeFrames(const Level& level, const Input& input) {
  Guarded<short> samples(input.samples);
  Guarded<qz::uchar> frames(input.frames * kBytesPerFrame);
  level.kernels->encodeFrames(samples.data(), input.frames, frames.data(), input.table);
  Output output;
  output.Take(frames, input.frames * kBytesPerFrame);
  output.Take(samples, input.samples.size());
  return output;
}

Output DecodeFrames(const Level& level, const Input& input) {
  Guarded<short> history(Samples(input.samples.begin(), input.samples.begin() + kOrder));
  const std::size_t frames = input.encoded.size() / kBytesPerFrame;
  Guarded<short> samples(frames * kSamplesPerFrame);
  level.kernels->decodeFrames(input.encoded.data(), frames, history.data(), samples.data(),
                              input.table);
  Output output;
  output.Take(samples, frames * kSamplesPerFrame);
  output.Take(history, kOrder);
  return output;
}

Output DesignTable(const Level& level, const Input& input) {
  adpcm::CapKernels(level.level);
  Guarded<short> samples(input.samples);
  // Now and then one of another size than the codec's.
  const std::size_t rows = input.frames % 4 == 0 ? 1 + input.frames % 9 : adpcm::kTableRows;
  Guarded<short> table(2 * rows);
  if (!adpcmCoefTableDesign(samples.data(), static_cast<qz::ulong>(input.samples.size()),
                            static_cast<qz::ulong>(rows), table.data(), 0, nullptr)) {
    std::abort();
  }
  Output output;
  output.Take(table, 2 * rows);
  return output;
}

// The parts of the design to the last bit, which the table's rounding hides.

using adpcm::TrainingRow;
using Taps = std::array<double, adpcm::kTaps>;

void TakeBits(Output& output, double value) {
  output.values.push_back(0);
  static_assert(sizeof output.values.back() == sizeof value);
  std::memcpy(&output.values.back(), &value, sizeof value);
}

struct Training {
  std::vector<Taps> taps;
  std::vector<TrainingRow> rows;
};

// By the scalar functions, of as many whole groups of frames as there are.
Training CollectScalar(const Input& input) {
  Training training;
  const std::size_t groups = input.frames / adpcm::kDesignGroup;
  for (std::size_t i = 0; i < groups * adpcm::kDesignGroup; ++i) {
    Taps taps;
    double r[adpcm::kTaps], scratch[adpcm::kTaps * adpcm::kTaps];
    const short* const frame = &input.samples[kOrder + i * kSamplesPerFrame];
    if (!adpcm::FramePredictor(frame, taps.data())) continue;
    adpcm::rfroma(taps.data(), adpcm::kDesignOrder, r, scratch);
    training.taps.push_back(taps);
    training.rows.push_back({r[1], r[2]});
  }
  return training;
}

Output CollectRows(const Level& level, const Input& input) {
  const std::size_t groups = input.frames / adpcm::kDesignGroup;
  Guarded<TrainingRow> rows(groups * adpcm::kDesignGroup);
  TrainingRow sum = {0.0, 0.0};
  const TrainingRow* end = nullptr;
  if (const adpcm::DesignKernels* kernels = level.kernels->design) {
    end = kernels->collect(&input.samples[kOrder], groups, rows.data(), &sum);
  } else {
    const Training training = CollectScalar(input);
    end = std::copy(training.rows.begin(), training.rows.end(), rows.data());
    for (const TrainingRow& row : training.rows)
      sum = {sum.r1 + row.r1, sum.r2 + row.r2};
  }
  Output output;
  for (const TrainingRow* row = rows.data(); row != end; ++row) {
    TakeBits(output, row->r1);
    TakeBits(output, row->r2);
  }
  TakeBits(output, sum.r1);
  TakeBits(output, sum.r2);
  output.intact = rows.Intact();
  return output;
}

// Rows that lie close together, some equal and some a bit apart.
std::vector<Taps> SomeCodebook(const Training& training, sounds::Random& random) {
  std::vector<Taps> book(std::size_t{2} << random.Next() % 3);
  for (std::size_t i = 0; i < book.size(); ++i) {
    book[i] = i > 0 && random.Next() % 2 == 0 ? book[random.Next() % i]
                                              : training.taps[random.Next() % training.taps.size()];
    if (random.Next() % 2 == 0) book[i][1] -= adpcm::kSplitDelta;
    if (random.Next() % 2 == 0) book[i][2] = std::nextafter(book[i][2], random.Around(1));
  }
  return book;
}

std::vector<double*> Pointers(std::vector<Taps>& rows) {
  std::vector<double*> pointers;
  for (Taps& row : rows)
    pointers.push_back(row.data());
  return pointers;
}

// How many training rows each row of a codebook has, and their mean.
Output AssignRows(const Level& level, const Input& input) {
  Training training = CollectScalar(input);
  Output output;
  if (training.rows.empty()) return output;
  sounds::Random random(static_cast<std::uint32_t>(input.encoded.size() * 41 + input.frames));
  std::vector<Taps> book = SomeCodebook(training, random);
  training.taps.resize(1 + random.Next() % training.taps.size());
  const auto entries = static_cast<int>(book.size());
  const auto take = [&output](int count, double r1, double r2) {
    output.values.push_back(count);
    if (count == 0) return;
    TakeBits(output, r1);
    TakeBits(output, r2);
  };
  if (const adpcm::DesignKernels* kernels = level.kernels->design) {
    std::vector<adpcm::RowModel> models;
    for (const Taps& row : book) {
      models.push_back({adpcm::tap_correlation(row.data(), adpcm::kDesignOrder, 0),
                        adpcm::tap_correlation(row.data(), adpcm::kDesignOrder, 1),
                        adpcm::tap_correlation(row.data(), adpcm::kDesignOrder, 2)});
    }
    training.rows.resize(training.rows.size() + adpcm::kDesignGroup, {12345.0, -6789.0});
    adpcm::Cell cells[adpcm::kDesignRows];
    kernels->assign(training.rows.data(), training.taps.size(), models.data(), entries, cells);
    for (int i = 0; i < entries; ++i)
      take(cells[i].count, cells[i].r1 / cells[i].count, cells[i].r2 / cells[i].count);
    return output;
  }
  std::vector<Taps> means(book.size());
  int counts[adpcm::kDesignRows];
  double scratch[adpcm::kTaps * adpcm::kTaps], correlation[adpcm::kTaps];
  adpcm::refine(Pointers(book).data(), adpcm::kDesignOrder, entries, Pointers(training.taps).data(),
                static_cast<int>(training.taps.size()), 1, 0.0, scratch, correlation, counts,
                Pointers(means).data());
  for (int i = 0; i < entries; ++i)
    take(counts[i], means[static_cast<std::size_t>(i)][1], means[static_cast<std::size_t>(i)][2]);
  return output;
}

struct Case {
  const char* name;
  Output (*run)(const Level&, const Input&);
};
constexpr Case kCases[] = {
    {"encode frames", EncodeFrames},      {"decode frames", DecodeFrames},
    {"design table", DesignTable},        {"collect training rows", CollectRows},
    {"assign training rows", AssignRows},
};

// The levels of this machine, the scalar one first.
std::vector<Level> Levels() {
  std::vector<Level> levels;
  for (const KernelLevel level : adpcm::kKernelLevels) {
    if (const Kernels* kernels = adpcm::KernelsOf(level)) levels.push_back({level, kernels});
  }
  return levels;
}

// Prints what differs; the result is the number of kernels that do.
int Compare(const std::vector<Level>& levels, const Input& input, std::uint64_t seed) {
  int differing = 0;
  for (const Case& test : kCases) {
    const Output expected = test.run(levels[0], input);
    for (std::size_t i = 1; i < levels.size(); ++i) {
      const Output output = test.run(levels[i], input);
      if (output.values == expected.values && output.intact) continue;
      const auto at = std::mismatch(output.values.begin(), output.values.end(),
                                    expected.values.begin(), expected.values.end());
      std::printf("%s: %s %s at value %td of %zu\n  repeat with: kernel_check --seed %" PRIu64
                  " --frames 1\n",
                  levels[i].kernels->name, test.name,
                  output.intact ? "differs" : "writes outside its output, differs",
                  at.first - output.values.begin(), output.values.size(), seed);
      ++differing;
    }
  }
  return differing;
}

int CompareSounds(const std::vector<Level>& levels) {
  int differing = 0;
  for (const sounds::Sound& sound : sounds::All()) {
    adpcm::CapKernels(KernelLevel::kScalar);
    const qz::uint64 expected = HashStream(EncodeStream(sound.samples, sound.loopStart));
    for (std::size_t i = 1; i < levels.size(); ++i) {
      adpcm::CapKernels(levels[i].level);
      if (HashStream(EncodeStream(sound.samples, sound.loopStart)) == expected) continue;
      std::printf("%s: the stream of %s differs\n", levels[i].kernels->name, sound.name.c_str());
      ++differing;
    }
  }
  return differing;
}

int Check(std::uint64_t seed, std::uint64_t frames) {
  const std::vector<Level> levels = Levels();
  std::printf("seed %" PRIu64 ", %" PRIu64 " random frames, scalar against", seed, frames);
  for (std::size_t i = 1; i < levels.size(); ++i)
    std::printf(" %s", levels[i].kernels->name);
  std::printf("\n");
  int differing = 0;
  for (std::uint64_t done = 0; done < frames && differing < 10; ++seed) {
    const Input input = Generator(seed).Next();
    differing += Compare(levels, input, seed);
    done += input.frames;
  }
  differing += CompareSounds(levels);
  std::printf(differing == 0 ? "all the same\n" : "some differ\n");
  return differing == 0 ? 0 : 1;
}

int PrintHashes(const std::string& name) {
  for (const Level& level : Levels()) {
    if (name != level.kernels->name) continue;
    adpcm::CapKernels(level.level);
    for (const sounds::Sound& sound : sounds::All()) {
      const EncodedStream stream = EncodeStream(sound.samples, sound.loopStart);
      if (!stream.ok) return 1;
      std::printf("%s %016" PRIx64 "\n", sound.name.c_str(), HashStream(stream));
    }
    return 0;
  }
  return 3;
}

// Benchmarks: one run of the kernel over a whole signal.
constexpr std::size_t kChunk = std::size_t{1024} * kSamplesPerFrame;

struct Signal {
  const char* name;
  Samples samples;  // whole chunks
  short table[kTableValues];
  Bytes frames;
};

void RunEncode(const Level& level, Signal& signal) {
  Samples chunk(kOrder + kChunk);
  for (std::size_t done = 0; done < signal.samples.size(); done += kChunk) {
    std::copy(chunk.end() - kOrder, chunk.end(), chunk.begin());
    std::memcpy(&chunk[kOrder], &signal.samples[done], kChunk * sizeof(short));
    level.kernels->encodeFrames(chunk.data(), kChunk / kSamplesPerFrame,
                                &signal.frames[done / kSamplesPerFrame * kBytesPerFrame],
                                signal.table);
  }
}

void RunDecode(const Level& level, Signal& signal) {
  static Samples decoded;
  decoded.resize(signal.samples.size());
  short history[kOrder] = {};
  level.kernels->decodeFrames(signal.frames.data(), signal.frames.size() / kBytesPerFrame, history,
                              decoded.data(), signal.table);
}

void RunDesign(const Level& level, Signal& signal) {
  adpcm::CapKernels(level.level);
  short table[kTableValues];
  adpcmCoefTableDesign(signal.samples.data(), static_cast<qz::ulong>(signal.samples.size()),
                       adpcm::kTableRows, table, 0, nullptr);
}

void RunWhole(const Level& level, Signal& signal) {
  adpcm::CapKernels(level.level);
  auto count = static_cast<qz::ulong>(signal.samples.size());
  _ADPCMINFO info;
  if (adpcmEncodeSample(signal.samples.data(), &count, nullptr, nullptr, &info, nullptr) == 0) {
    std::abort();
  }
  adpcmFreeEncoded(&info);
}

struct Benchmark {
  const char* name;
  void (*run)(const Level&, Signal&);
};
constexpr Benchmark kBenchmarks[] = {{"encode_frames", RunEncode},
                                     {"decode_frames", RunDecode},
                                     {"design_table", RunDesign},
                                     {"whole_encode", RunWhole}};

// Of this thread, so that other work on the machine counts little.
double CpuSeconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// The runs of a level, in the order of the rounds.
struct Runs {
  std::vector<double> seconds;
  std::vector<double> ratios;  // to the scalar level in the same round
};

void PrintJson(const Runs& runs, double rate) {
  std::printf("\"samples_per_second\": %.0f, \"ratio\": %.2f, \"best_ratio\": %.2f, \"ratios\": [",
              rate, Median(runs.ratios), *std::max_element(runs.ratios.begin(), runs.ratios.end()));
  const char* separator = "";
  for (const double ratio : runs.ratios) {
    std::printf("%s%.2f", separator, ratio);
    separator = ", ";
  }
  std::printf("]}");
}

void Measure(const Benchmark& benchmark, const std::vector<Level>& levels, Signal& signal,
             bool json, const char*& separator) {
  constexpr int kRounds = 5;
  std::vector<Runs> runs(levels.size());
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < levels.size(); ++i) {
      const double start = CpuSeconds();
      benchmark.run(levels[i], signal);
      runs[i].seconds.push_back(CpuSeconds() - start);
      runs[i].ratios.push_back(runs[0].seconds.back() / runs[i].seconds.back());
    }
  }
  for (std::size_t i = 0; i < levels.size(); ++i) {
    const double rate = static_cast<double>(signal.samples.size()) / Median(runs[i].seconds);
    if (json) {
      std::printf("%s{\"kernel\": \"%s\", \"signal\": \"%s\", \"level\": \"%s\", ", separator,
                  benchmark.name, signal.name, levels[i].kernels->name);
      PrintJson(runs[i], rate);
      separator = ",\n";
    } else {
      std::printf("%-15s%-14s%-10s%14.0f%8.2f%8.2f\n", benchmark.name, signal.name,
                  levels[i].kernels->name, rate, Median(runs[i].ratios),
                  *std::max_element(runs[i].ratios.begin(), runs[i].ratios.end()));
    }
  }
}

int Bench(bool json, std::uint64_t samples) {
  const std::size_t length =
      std::max<std::size_t>(1, static_cast<std::size_t>(samples) / kChunk) * kChunk;
  const std::vector<Level> levels = Levels();
  std::vector<Signal> signals = {{"music", sounds::Music(length, 1), {}, {}},
                                 {"speech", sounds::Speech(length, 1), {}, {}},
                                 {"noise", sounds::Noise(length, 32767, 1), {}, {}},
                                 {"near_silence", sounds::Noise(length, 2, 1), {}, {}}};
  const char* separator = "";
  if (json) std::printf("[");
  if (!json) {
    std::printf("%-15s%-14s%-10s%14s%8s%8s\n", "kernel", "signal", "level", "samples/s", "ratio",
                "best");
  }
  for (Signal& signal : signals) {
    adpcmCoefTableDesign(signal.samples.data(), static_cast<qz::ulong>(length), adpcm::kTableRows,
                         signal.table, 0, nullptr);
    signal.frames.resize(length / kSamplesPerFrame * kBytesPerFrame);
  }
  for (const Benchmark& benchmark : kBenchmarks) {
    for (Signal& signal : signals)
      Measure(benchmark, levels, signal, json, separator);
  }
  if (json) std::printf("]\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  bool bench = false;
  bool json = false;
  std::uint64_t seed = 1;
  std::uint64_t frames = 1000000;
  std::uint64_t samples = 10000000;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--bench") {
      bench = true;
    } else if (argument == "--json") {
      json = true;
    } else if (argument == "--seed" && i + 1 < argc) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (argument == "--frames" && i + 1 < argc) {
      frames = std::strtoull(argv[++i], nullptr, 10);
    } else if (argument == "--hashes" && i + 1 < argc) {
      return PrintHashes(argv[++i]);
    } else if (argument == "--samples" && i + 1 < argc) {
      samples = std::strtoull(argv[++i], nullptr, 10);
    } else {
      std::fprintf(stderr,
                   "usage: kernel_check [--seed N] [--frames N] | --hashes LEVEL | "
                   "--bench [--json] [--samples N]\n");
      return 2;
    }
  }
  return bench ? Bench(json, samples) : Check(seed, frames);
}
