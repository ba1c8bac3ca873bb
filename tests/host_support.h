// What the tests of samplehost share: a folder of their own, sound files made byte by byte, and the
// program run as a user runs it.
#ifndef TESTS_HOST_SUPPORT_H_
#define TESTS_HOST_SUPPORT_H_

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/shell.h"
#include "tests/audio_helpers.h"

namespace host_test {

using Json = nlohmann::json;
using ::testing::HasSubstr;

struct Folder : platform_test::TempFolder {
  std::string operator/(const std::string& name) const { return Native(name); }
};

inline std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The encoded file beside a raw one.
inline std::string EncodedOf(const std::string& raw) {
  return std::filesystem::path(raw).replace_extension("esmp");
}

inline void ExpectParts(const std::string& text, std::initializer_list<const char*> parts) {
  for (const char* part : parts)
    EXPECT_THAT(text, HasSubstr(part));
}

// Paths of all files under a folder.
inline std::set<std::string> FilesIn(const std::string& folder) {
  std::set<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
    if (entry.is_regular_file()) files.insert(entry.path().string());
  }
  return files;
}

inline std::string AsText(const audiotest::Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

inline std::string Little(std::uint32_t value, int bytes) {
  return AsText(audiotest::Le(value, bytes));
}

struct WavOptions {
  unsigned channels = 1;
  unsigned length = 1000;  // samples per channel
  unsigned bits = 16;
  std::uint32_t loopStart = 0;
  std::uint32_t loopEnd = 0;  // inclusive; 0: no loop
  unsigned key = 60;
  std::uint32_t promised = 0;  // size that the data chunk claims; 0: the true one
};

// A tone for each channel, no two alike.
inline std::string WavSamples(const WavOptions& o) {
  std::string data;
  for (unsigned i = 0; i < o.length * o.channels; ++i) {
    const double phase = (i / o.channels) * 0.05 * (1 + i % o.channels);
    const int value = static_cast<int>(std::lround(12000 * std::sin(phase)));
    data += o.bits == 8 ? Little(static_cast<std::uint32_t>((value >> 8) + 128), 1)
                        : Little(static_cast<std::uint32_t>(value), 2);
  }
  return data;
}

inline std::string Wav(const WavOptions& o) {
  using namespace audiotest;
  const unsigned frame = o.channels * o.bits / 8;
  const Bytes format =
      Le(1, 2) + Le(o.channels, 2) + Words({32000, 32000 * frame}) + Le(frame, 2) + Le(o.bits, 2);
  const bool loop = o.loopEnd != 0;
  Bytes sampler = Words({0, 0, 31250, o.key, 0, 0, 0, loop, 0});
  if (loop) sampler = sampler + Words({0, 0, o.loopStart, o.loopEnd, 0, 0});
  Bytes data = Chunk("data", audiotest::Text(WavSamples(o)));
  if (o.promised != 0) data = Part(data, 0, 4) + Le(o.promised, 4) + Part(data, 8, data.size());
  return AsText(RiffFile(Chunk("fmt ", format) + Chunk("smpl", sampler) + data));
}

// The data of a chunk of a WAV file; empty where it is missing.
inline std::string ChunkOf(const std::string& wav, const std::string& name) {
  std::uint32_t size = 0;
  for (std::size_t at = 12; at + 8 <= wav.size(); at += 8 + size + (size & 1)) {
    std::memcpy(&size, wav.data() + at + 4, sizeof size);
    if (wav.compare(at, 4, name) == 0) return wav.substr(at + 8, size);
  }
  return {};
}

inline unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

struct RunResult {
  int code = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

// Starts samplehost with `folder` as its current folder; its outputs go to files there.
// With a `fileLimit` (bytes) every write beyond that size of a file fails, as on a full disk. A
// `traced` one waits at its start for this process to let it go on.
inline pid_t Start(const std::string& folder, std::vector<std::string> arguments,
                   rlim_t fileLimit = RLIM_INFINITY, bool traced = false) {
  arguments.insert(arguments.begin(), SAMPLEHOST);
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{fileLimit, fileLimit};
  setrlimit(RLIMIT_FSIZE, &limit);
  const bool placed = chdir(folder.c_str()) == 0;
  for (const auto& [name, target] : {std::pair(".out", 1), std::pair(".err", 2)}) {
    const int file = open(name, O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(file, target);
  }
  // A sanitized build's leak check looks at thread-local data of libraries that are unloaded by
  // then.
  setenv("ASAN_OPTIONS", "intercept_tls_get_addr=0", 1);
  if (traced) setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // it cannot look for leaks then
  if (traced) ptrace(PTRACE_TRACEME);
  if (placed) execv(argv[0], argv.data());
  _exit(127);
}

inline RunResult RunHost(const Folder& folder, const std::vector<std::string>& arguments,
                         rlim_t fileLimit = RLIM_INFINITY) {
  const pid_t child = Start(folder.path, arguments, fileLimit);
  int status = 0;
  waitpid(child, &status, 0);
  RunResult result;
  result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = BytesOf(folder / ".out");
  result.err = BytesOf(folder / ".err");
  return result;
}

// A database game.db with the classes High and Low in a folder of its own, and a sound beside it.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Run(0, "new game.db --class High=100 --class Low=10");
    folder.Put("kick.wav", Wav({}));
  }

  RunResult Expect(int code, const std::vector<std::string>& arguments) {
    const RunResult result = RunHost(folder, arguments);
    EXPECT_EQ(result.code, code) << ::testing::PrintToString(arguments) << '\n' << result.err;
    return result;
  }

  // Imports `file` into the class High; the exit code is `code`.
  RunResult Import(const std::string& file, const std::string& format = "PCM16", int code = 0) {
    return Expect(code, {"import", "game.db", file, "--class", "High", "--format", format});
  }

  // Expect with the arguments on one line, split as those of a script are.
  RunResult Run(int code, const std::string& line) {
    return Expect(code, samplehost::SplitLine(line));
  }

  // What the line with "--json" prints.
  Json Told(int code, const std::string& line) {
    return Json::parse(Run(code, line + " --json").out, nullptr, false);
  }

  Json List(int code = 0) { return Told(code, "list game.db"); }
  Json Info(const std::string& node) {
    return Told(0, "info game.db " + samplehost::QuoteWord(node));
  }
  // The path of the raw file of a node's n-th class.
  std::string RawFile(const std::string& node, std::size_t n = 0) {
    return Info(node)["classes"][n]["raw_file"];
  }

  // A session of these lines.
  RunResult Script(int code, const std::string& lines, const std::string& database = "game.db",
                   const std::string& option = {}) {
    folder.Put("script.txt", lines);
    return Run(code, "open " + database + " --script script.txt " + option);
  }

  Folder folder;
};

}  // namespace host_test

#endif  // TESTS_HOST_SUPPORT_H_
