// samplehost on large databases and with several jobs: whole processes, saves included.
//
// Time per node at 2,000 nodes against 200 (import of all, a save, opening and listing); opening,
// saving and importing one more at 10,000 nodes against 1,000; import of 60 files of 60 s with two
// jobs against one. Rivals take turns in one run, each into a folder of its own that stays to the
// end: a file system that has just lost thousands of files takes its time to give out new ones.
//
//   host_bench [--json] SAMPLEHOST [ROUNDS]      TMPDIR: where the files go
#include "bench/bench_support.h"

namespace {

using bench::Series;

constexpr std::uint32_t kSmallSound = 2000;  // bytes of samples
constexpr std::uint32_t kMinute = 60 * bench::kWavRate * 2;
constexpr int kManyFiles = 60;

struct Ratio {
  const char* name;
  double scale;  // what the second series is divided by in front of the comparison
  double bound;
  bool atLeast;
  Series first, second;

  double Value() const {
    return atLeast ? first.Median() / second.Median() : second.Median() / scale / first.Median();
  }
};

class HostBench {
 public:
  HostBench(std::string host, int rounds) : host_(std::move(host)), rounds_(rounds) {}

  void MeasureImports(Ratio& growth) {
    const std::string few = Sounds(200);
    const std::string many = Sounds(2000);
    for (int round = 0; round < rounds_; ++round) {
      growth.first.Add(ImportAll(few));
      growth.second.Add(ImportAll(many));
    }
  }

  void MeasureUse(Ratio& open, Ratio& save, Ratio& import) {
    const std::string databases[] = {NewDatabase(), NewDatabase()};
    Host({"import", databases[0], Sounds(1000)}, kAs);
    Host({"import", databases[1], Sounds(10000)}, kAs);
    const std::string one = folder_ / "one.wav";
    bench::MakeWav(one, kSmallSound);
    for (int round = 0; round < rounds_; ++round) {
      for (int i = 0; i < 2; ++i) {
        const auto series = [i](Ratio& ratio) -> Series& { return i ? ratio.second : ratio.first; };
        sync();
        series(open).Add(Host({"list", databases[i]}));
        series(save).Add(Host({round % 2 ? "unlock" : "lock", databases[i], "s1"}));
        series(import).Add(Host({"import", databases[i], one}, kAs));
      }
    }
  }

  void MeasureJobs(Ratio& jobs) {
    const std::string sounds = folder_ / "minutes";
    bench::fs::create_directory(sounds);
    for (int i = 0; i < kManyFiles; ++i)
      bench::MakeWav(sounds + "/s" + std::to_string(i) + ".wav", kMinute);
    for (int round = 0; round < rounds_; ++round) {
      for (const char* number : {"1", "2"}) {
        const std::string database = NewDatabase();
        sync();
        (*number == '1' ? jobs.first : jobs.second)
            .Add(Host({"import", database, sounds, "--jobs", number},
                      {kClass, "High", kFormat, "ADPCM"}));
        bench::fs::remove_all(bench::fs::path(database).parent_path());
      }
    }
  }

 private:
  using Words = std::vector<std::string>;
  static constexpr const char* kClass = "--class";
  static constexpr const char* kFormat = "--format";
  const Words kAs = {kClass, "High", kFormat, "PCM16"};

  double Host(Words words, const Words& more = {}) {
    words.insert(words.begin(), host_);
    words.insert(words.end(), more.begin(), more.end());
    return bench::Run(words).wall;
  }

  std::string NewDatabase() {
    const std::string folder = folder_ / std::to_string(databases_++);
    bench::fs::create_directory(folder);
    Host({"new", folder + "/game.db"}, {kClass, "High=1"});
    return folder + "/game.db";
  }

  std::string Sounds(int count) {
    const std::string folder = folder_ / ("sounds" + std::to_string(count));
    bench::fs::create_directory(folder);
    bench::MakeWav(folder + "/s0.wav", kSmallSound);
    for (int i = 1; i < count; ++i)
      bench::fs::copy_file(folder + "/s0.wav", folder + "/s" + std::to_string(i) + ".wav");
    return folder;
  }

  double ImportAll(const std::string& sounds) {
    const std::string database = NewDatabase();
    sync();
    return Host({"import", database, sounds}, kAs) + Host({"lock", database, "s0"}) +
           Host({"list", database});
  }

  std::string host_;
  int rounds_;
  int databases_ = 0;
  bench::TempFolder folder_;
};

void Print(const Ratio& ratio) {
  std::printf("%-30s%8.2f  (%s %g)   medians %.0f and %.0f ms, ranges %.0f-%.0f and %.0f-%.0f\n",
              ratio.name, ratio.Value(), ratio.atLeast ? "at least" : "at most", ratio.bound,
              ratio.first.Median(), ratio.second.Median(), ratio.first.Best(), ratio.first.Worst(),
              ratio.second.Best(), ratio.second.Worst());
}

void PrintJson(const Ratio& ratio, const char* separator) {
  std::printf("%s\"%s\": {\"ratio\": %.3f, \"bound\": %g, \"ms\": [%s, %s]}", separator, ratio.name,
              ratio.Value(), ratio.bound, ratio.first.Json().c_str(), ratio.second.Json().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Arguments arguments(argc, argv, "host_bench [--json] SAMPLEHOST [ROUNDS]");
  Ratio ratios[] = {{"per_node_2000_to_200", 10, 1.5, false, {}, {}},
                    {"open_10000_to_1000", 10, 1.3, false, {}, {}},
                    {"save_10000_to_1000", 10, 1.3, false, {}, {}},
                    {"import_one_10000_to_1000", 10, 1.3, false, {}, {}},
                    {"jobs_1_to_2", 1, 1.8, true, {}, {}}};
  HostBench bench(arguments.host, arguments.rounds);
  bench.MeasureJobs(ratios[4]);
  bench.MeasureImports(ratios[0]);
  bench.MeasureUse(ratios[1], ratios[2], ratios[3]);
  const char* separator = "{";
  for (const Ratio& ratio : ratios) {
    if (arguments.json) {
      PrintJson(ratio, separator);
      separator = ",\n ";
    } else {
      Print(ratio);
    }
  }
  if (arguments.json) std::printf("}\n");
  return 0;
}
