// Sound files against what moving their bytes costs: reading a WAV of 100 MB beside libsndfile's
// read of the same file, and writing its samples as a PCM16 encoded file beside a copy of that
// file. Rivals take turns in one run, whose first round is not counted.
//
//   sound_file_bench [--json] [ROUNDS]      TMPDIR: where the files go
#include <cstring>
#include <memory>

#include "audio/audio.h"
#include "bench/bench_support.h"
#include "sampledata/sd_access_tarvane_encode.h"

#ifdef BENCH_SNDFILE
#include <sndfile.h>
#endif

namespace {

using bench::Series;

constexpr std::uint32_t kBytes = 100'000'000;

struct Results {
  Series read, write, copy;
#ifdef BENCH_SNDFILE
  Series sndfile, sndfileWarm;  // into a fresh block, and into one that has been filled before
#endif
};

void Read(const std::string& wav, _AUDIO& sound) {
  if (audio_ReadWave(bench::LibraryPath(wav).c_str(), &sound, false) != AUDIO_OK) {
    bench::Fail("the sound cannot be read");
  }
}

#ifdef BENCH_SNDFILE
void ReadBySndfile(const std::string& wav, short* block) {
  SF_INFO info{};
  SNDFILE* file = sf_open(wav.c_str(), SFM_READ, &info);
  if (file == nullptr || sf_readf_short(file, block, kBytes / 2) != kBytes / 2) {
    bench::Fail("libsndfile cannot read the sound");
  }
  sf_close(file);
}

void MeasureSndfile(const std::string& wav, Results& results) {
  short* block = nullptr;
  const auto fresh = [&] {
    block = static_cast<short*>(std::malloc(kBytes));
    if (block == nullptr) bench::Fail("out of memory");
    ReadBySndfile(wav, block);
  };
  const double took = bench::Milliseconds(fresh);
  results.sndfileWarm.Add(bench::Milliseconds([&] { ReadBySndfile(wav, block); }));
  results.sndfile.Add(took + bench::Milliseconds([&] { std::free(block); }));
}
#endif

void MeasureWrite(const _AUDIO& sound, const bench::TempFolder& folder, Results& results) {
  SDSample sample;
  sample.compType = SDAccess::COMPTYPE_RAW;
  sample.numChannels = sound.NumChannels;
  sample.info.frq = sound.SampleRate;
  sample.info.length = sound.NumSamples;
  const std::string target = folder / "sound.esmp";
  const qz::string name = bench::LibraryPath(target).c_str();
  bench::Prepare(target);
  results.write.Add(bench::Milliseconds([&] {
    if (WriteEncodedFile(name, sample, sound) != SDAccess::ERROR_OK) bench::Fail("not written");
  }));
  if (bench::fs::file_size(target) != 40 + 12 + kBytes) bench::Fail("the file is not whole");
  const std::string copy = folder / "copy.esmp";
  bench::Prepare(copy);
  results.copy.Add(bench::Copy(target, copy).wall);
}

void Measure(const bench::TempFolder& folder, int rounds, Results& results) {
  const std::string wav = folder / "sound.wav";
  bench::MakeWav(wav, kBytes);
  Results warmUp;
  for (int round = 0; round <= rounds; ++round) {
    Results& into = round == 0 ? warmUp : results;
#ifdef BENCH_SNDFILE
    MeasureSndfile(wav, into);
#endif
    _AUDIO sound{};
    const double took = bench::Milliseconds([&] { Read(wav, sound); });
    MeasureWrite(sound, folder, into);
    into.read.Add(took + bench::Milliseconds([&] { audio_FreeWave(&sound); }));
  }
}

void Show(const char* what, const Series& series) {
  std::printf("%-34s%10.1f%10.1f%10.1f\n", what, series.Best(), series.Median(), series.Worst());
}

void Print(const Results& results) {
  std::printf("%-34s%10s%10s%10s\n", "ms for 100 MB", "best", "median", "worst");
  Show("WAV read", results.read);
#ifdef BENCH_SNDFILE
  Show("  libsndfile", results.sndfile);
  Show("  libsndfile, memory used before", results.sndfileWarm);
  std::printf("  read to libsndfile's: %.2f (bound 1)\n",
              results.read.Median() / results.sndfile.Median());
#endif
  Show("PCM16 encoded file written", results.write);
  Show("  cp of that file", results.copy);
  std::printf("  write to copy: %.2f (bound 1.5)\n",
              results.write.Median() / results.copy.Median());
}

void PrintJson(const Results& results) {
  std::printf("{\"bytes\": %u, \"unit\": \"ms\",\n \"wav_read\": %s,\n", kBytes,
              results.read.Json().c_str());
#ifdef BENCH_SNDFILE
  std::printf(" \"sndfile_read\": %s,\n \"sndfile_read_into_used_memory\": %s,\n",
              results.sndfile.Json().c_str(), results.sndfileWarm.Json().c_str());
  std::printf(" \"read_to_sndfile\": %.3f,\n", results.read.Median() / results.sndfile.Median());
#endif
  std::printf(" \"pcm16_write\": %s,\n \"copy\": %s,\n \"write_to_copy\": %.3f}\n",
              results.write.Json().c_str(), results.copy.Json().c_str(),
              results.write.Median() / results.copy.Median());
}

}  // namespace

int main(int argc, char** argv) {
  bool json = false;
  int rounds = 7;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0)
      json = true;
    else
      rounds = std::atoi(argv[i]);
  }
  if (rounds < 1) bench::Fail("usage: sound_file_bench [--json] [ROUNDS]");
  Results results;
  {
    const bench::TempFolder folder;
    Measure(folder, rounds, results);
  }
  if (json)
    PrintJson(results);
  else
    Print(results);
  return 0;
}
