// Imports of a WAV of 100 MB by samplehost, whole processes with the save, against what cannot be
// saved: two copies of the file for PCM16, and the encode besides for ADPCM. Rivals take turns in
// one run, whose first round is not counted. Peak memory is that of the process.
//
//   import_bench [--json] SAMPLEHOST [ROUNDS]      TMPDIR: where the files go
#include "adpcm/adpcm.h"
#include "audio/audio.h"
#include "bench/bench_support.h"

namespace {

using bench::Series;

constexpr std::uint32_t kBytes = 100'000'000;
constexpr double kPeakBound = 2.5 * (kBytes + 44) + 8 * 1048576;

struct Timed {
  Series wall, cpu;
  double peak = 0;

  void Add(const bench::Cost& cost) {
    wall.Add(cost.wall);
    cpu.Add(cost.cpu);
    peak = std::max(peak, cost.peak);
  }
};

struct Results {
  Timed copies, syncedCopies, encode, pcm16, syncedPcm16, adpcm;

  static double OfMedians(const Timed& a, const Timed& b) {
    return a.wall.Median() / b.wall.Median();
  }
  static double OfBests(const Timed& a, const Timed& b) { return a.wall.Best() / b.wall.Best(); }
  double AdpcmRatio() const {
    return adpcm.wall.Median() / (encode.wall.Median() + copies.wall.Median());
  }
  double AdpcmRatioOfBest() const {
    return adpcm.wall.Best() / (encode.wall.Best() + copies.wall.Best());
  }
};

// What only the disk can have: with it, a save waits for the disk, and so does its rival.
enum class Sync { kNo, kYes };

bench::Cost Copies(const bench::TempFolder& folder, const std::string& wav, Sync sync) {
  bench::Prepare(folder / "copies");
  bench::fs::create_directory(folder / "copies");
  const std::string first = folder / "copies/1.wav";
  const std::string second = folder / "copies/2.wav";
  bench::Cost sum = bench::Copy(wav, first);
  const auto add = [&sum](const bench::Cost& cost) {
    sum.wall += cost.wall;
    sum.cpu += cost.cpu;
  };
  add(bench::Copy(wav, second));
  if (sync == Sync::kYes) add(bench::Run({"sync", first, second, folder / "copies"}));
  bench::Prepare(folder / "copies");
  return sum;
}

bench::Cost Import(const std::string& host, const bench::TempFolder& folder, const std::string& wav,
                   const char* format, Sync sync) {
  bench::Prepare(folder / "base");
  bench::fs::create_directory(folder / "base");
  const std::string database = folder / "base/game.db";
  bench::Run({host, "new", database, "--class", "High=1"});
  ::sync();
  std::vector<std::string> command = {host,      "import", database,   wav,
                                      "--class", "High",   "--format", format};
  if (sync == Sync::kNo) command.insert(command.begin() + 1, "--no-sync");
  const bench::Cost cost = bench::Run(command);
  bench::Prepare(folder / "base");
  return cost;
}

// The encode alone, of samples that are in memory: time of the call in a process of its own, so
// that this one stays small.
bench::Cost Encode(const std::string& wav) {
  int ends[2];
  if (pipe(ends) != 0) bench::Fail("no pipe");
  bench::InChild([&] {
    _AUDIO sound{};
    if (audio_ReadWave(bench::LibraryPath(wav).c_str(), &sound, false) != AUDIO_OK) _exit(1);
    _ADPCMINFO info{};
    qz::ulong loop = 0;
    qz::ulong loopLength = 0;
    bench::Cost cost;
    const std::clock_t start = std::clock();
    cost.wall = bench::Milliseconds([&] {
      if (adpcmEncodeSample(static_cast<short*>(sound.Samples), &sound.NumSamples, &loop,
                            &loopLength, &info, nullptr) == 0) {
        _exit(1);
      }
    });
    cost.cpu = static_cast<double>(std::clock() - start) * 1e3 / CLOCKS_PER_SEC;
    if (write(ends[1], &cost, sizeof cost) != sizeof cost) _exit(1);
  });
  bench::Cost cost;
  if (read(ends[0], &cost, sizeof cost) != sizeof cost) bench::Fail("no time of the encode");
  close(ends[0]);
  close(ends[1]);
  return cost;
}

void Measure(const std::string& host, int rounds, Results& results) {
  const bench::TempFolder folder;
  const std::string wav = folder / "sound.wav";
  bench::MakeWav(wav, kBytes);
  Results warmUp;
  for (int round = 0; round <= rounds; ++round) {
    Results& into = round == 0 ? warmUp : results;
    into.copies.Add(Copies(folder, wav, Sync::kNo));
    into.pcm16.Add(Import(host, folder, wav, "PCM16", Sync::kNo));
    into.syncedCopies.Add(Copies(folder, wav, Sync::kYes));
    into.syncedPcm16.Add(Import(host, folder, wav, "PCM16", Sync::kYes));
    into.encode.Add(Encode(wav));
    into.adpcm.Add(Import(host, folder, wav, "ADPCM", Sync::kYes));
  }
}

void Show(const char* what, const Timed& timed) {
  std::printf("%-22s%10.0f%10.0f%10.0f%10.0f\n", what, timed.wall.Best(), timed.wall.Median(),
              timed.wall.Worst(), timed.cpu.Median());
}

void Print(const Results& results) {
  std::printf("%-22s%10s%10s%10s%10s\n", "ms for 100 MB", "best", "median", "worst", "CPU");
  Show("two copies", results.copies);
  Show("PCM16, --no-sync", results.pcm16);
  Show("two copies, synced", results.syncedCopies);
  Show("PCM16", results.syncedPcm16);
  Show("encode alone", results.encode);
  Show("ADPCM", results.adpcm);
  std::printf("PCM16 import to two copies, neither synced: %.2f, of the best %.2f (bound 3)\n",
              Results::OfMedians(results.pcm16, results.copies),
              Results::OfBests(results.pcm16, results.copies));
  std::printf("PCM16 import to two copies, both synced: %.2f, of the best %.2f (bound 3)\n",
              Results::OfMedians(results.syncedPcm16, results.syncedCopies),
              Results::OfBests(results.syncedPcm16, results.syncedCopies));
  std::printf("ADPCM import to encode and two copies: %.2f, of the best %.2f (bound 1.3)\n",
              results.AdpcmRatio(), results.AdpcmRatioOfBest());
  std::printf("peak memory of the ADPCM import: %.1f MB (bound %.1f)\n", results.adpcm.peak / 1e6,
              kPeakBound / 1e6);
}

void PrintJson(const char* name, const Timed& timed) {
  std::printf(" \"%s\": {\"wall\": %s, \"cpu\": %s, \"peak_bytes\": %.0f},\n", name,
              timed.wall.Json().c_str(), timed.cpu.Json().c_str(), timed.peak);
}

void PrintJson(const Results& results) {
  std::printf("{\"bytes\": %u, \"unit\": \"ms\",\n", kBytes);
  PrintJson("two_copies", results.copies);
  PrintJson("import_pcm16_no_sync", results.pcm16);
  PrintJson("two_copies_synced", results.syncedCopies);
  PrintJson("import_pcm16", results.syncedPcm16);
  PrintJson("encode", results.encode);
  PrintJson("import_adpcm", results.adpcm);
  std::printf(" \"pcm16_to_copies\": %.3f, \"pcm16_to_copies_synced\": %.3f,\n",
              Results::OfMedians(results.pcm16, results.copies),
              Results::OfMedians(results.syncedPcm16, results.syncedCopies));
  std::printf(" \"adpcm_to_encode_and_copies\": %.3f,\n", results.AdpcmRatio());
  std::printf(" \"adpcm_peak_to_file\": %.3f}\n", results.adpcm.peak / (kBytes + 44.0));
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Arguments arguments(argc, argv, "import_bench [--json] SAMPLEHOST [ROUNDS]");
  Results results;
  Measure(arguments.host, arguments.rounds, results);
  if (arguments.json)
    PrintJson(results);
  else
    Print(results);
  return 0;
}
