// What the benchmarks of files and processes share: commands with what they cost, repeats, and a
// sound file to work on.
#ifndef BENCH_BENCH_SUPPORT_H_
#define BENCH_BENCH_SUPPORT_H_

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace bench {

namespace fs = std::filesystem;

[[noreturn]] inline void Fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

// [--json] SAMPLEHOST [ROUNDS]
struct Arguments {
  Arguments(int argc, char** argv, const char* usage) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
      if (std::string(argv[i]) == "--json") {
        json = true;
      } else {
        words.emplace_back(argv[i]);
      }
    }
    if (words.size() > 1) rounds = std::atoi(words[1].c_str());
    if (words.empty() || rounds < 1) Fail(std::string("usage: ") + usage);
    host = words[0];
  }

  bool json = false;
  std::string host;
  int rounds = 5;
};

template <class Work>
double Milliseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

inline double AsMilliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

// User CPU time of this process so far.
inline double UserMilliseconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  return AsMilliseconds(used.ru_utime);
}

// Repeats of one measurement.
class Series {
 public:
  void Add(double value) { values_.push_back(value); }
  double Best() const { return *std::min_element(values_.begin(), values_.end()); }
  double Worst() const { return *std::max_element(values_.begin(), values_.end()); }
  double Median() const {
    std::vector<double> sorted = values_;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t half = sorted.size() / 2;
    return sorted.size() % 2 != 0 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
  }
  std::string Json() const {
    std::string text = "[";
    for (const double value : values_) {
      char number[32];
      std::snprintf(number, sizeof number, "%s%.1f", text.size() > 1 ? ", " : "", value);
      text += number;
    }
    return text + "]";
  }

 private:
  std::vector<double> values_;
};

// What a process took.
struct Cost {
  double wall = 0;  // ms, start and end of the process included
  double cpu = 0;   // ms, user and system
  double user = 0;  // ms, user alone
  double peak = 0;  // bytes of resident memory
};

// Runs a child to its end: a command, or `work` in a copy of this process. The peak of a command is
// at least that of this process, so nothing large may live here. Ends the program where it fails.
template <class Work>
Cost InChild(Work work) {
  Cost cost;
  rusage used{};
  cost.wall = Milliseconds([&] {
    const pid_t child = fork();
    if (child < 0) Fail("fork failed");
    if (child == 0) {
      work();
      _exit(0);
    }
    int status = 0;
    if (wait4(child, &status, 0, &used) != child || status != 0) Fail("a measured process failed");
  });
  cost.user = AsMilliseconds(used.ru_utime);
  cost.cpu = cost.user + AsMilliseconds(used.ru_stime);
  cost.peak = static_cast<double>(used.ru_maxrss) * 1024;
  return cost;
}

inline Cost Run(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& argument : command)
    arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  return InChild([&] {
    const int nothing = open("/dev/null", O_WRONLY);
    if (nothing >= 0) dup2(nothing, STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  });
}

// A plain copy by the program that users have for it.
inline Cost Copy(const std::string& from, const std::string& to) {
  return Run({"cp", "--reflink=never", from, to});
}

// A folder of our own under TMPDIR that goes with the object.
class TempFolder {
 public:
  TempFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string name = std::string(base != nullptr ? base : "/tmp") + "/bench.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) Fail("no folder can be made in TMPDIR");
    path_ = name;
  }
  ~TempFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// An idle disk, without the file that the next measurement makes.
inline void Prepare(const std::string& target) {
  std::error_code error;
  fs::remove_all(target, error);
  sync();
}

inline constexpr std::uint32_t kWavRate = 48000;

// The head of a mono WAV of 16 bits and kWavRate Hz with `bytes` of samples behind it.
inline void WriteWavHead(std::ofstream& file, std::uint32_t bytes) {
  const auto number = [&](std::uint32_t value, int size) {
    for (; size > 0; --size, value >>= 8)
      file.put(static_cast<char>(value & 0xFF));
  };
  file << "RIFF";
  number(36 + bytes, 4);
  file << "WAVEfmt ";
  number(16, 4);
  number(1, 2);
  number(1, 2);
  number(kWavRate, 4);
  number(2 * kWavRate, 4);
  number(2, 2);
  number(16, 2);
  file << "data";
  number(bytes, 4);
}

inline void WriteWav(const std::string& path, const std::vector<short>& samples) {
  std::ofstream file(path, std::ios::binary);
  const auto bytes = static_cast<std::uint32_t>(samples.size() * sizeof(short));
  WriteWavHead(file, bytes);
  file.write(reinterpret_cast<const char*>(samples.data()), bytes);
}

// Tones that come and go in noise, `bytes` of samples.
inline void MakeWav(const std::string& path, std::uint32_t bytes) {
  std::ofstream file(path, std::ios::binary);
  WriteWavHead(file, bytes);
  std::minstd_rand random(7);
  double y1 = 0, y2 = 0;
  std::vector<std::int16_t> block(32768);
  for (std::uint32_t left = bytes; left > 0;) {
    const double resonance = 1.2 + 0.7 * static_cast<double>(random() % 1000) / 1000;
    for (std::int16_t& sample : block) {
      const double drive = static_cast<double>(random() % 2001) - 1000;
      const double y = std::clamp(drive + resonance * y1 - 0.95 * y2, -32768.0, 32767.0);
      y2 = y1, y1 = y;
      sample = static_cast<std::int16_t>(y);
    }
    const auto part = std::min<std::uint32_t>(left, static_cast<std::uint32_t>(block.size()) * 2);
    file.write(reinterpret_cast<const char*>(block.data()), part);
    left -= part;
  }
  file.close();
  if (!file) Fail("the sound file cannot be written");
}

// A native absolute path as the library takes it.
inline std::string LibraryPath(std::string native) {
  std::replace(native.begin(), native.end(), '/', '\\');
  return "C:" + native;
}

}  // namespace bench

#endif  // BENCH_BENCH_SUPPORT_H_
