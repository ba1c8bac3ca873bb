// Runs a fuzz target over files and over the files of folders, in the order of their names: every
// one within a second, and all of them in little memory, whatever sizes they claim.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kLongestRun{1};
constexpr std::size_t kSpareMemory = std::size_t{64} << 20;

#if defined(FUZZ_SANITIZED)
constexpr bool kMeasured = false;  // a sanitizer takes its own time and memory
#else
constexpr bool kMeasured = true;
#endif

std::vector<std::string> FilesOf(int count, char** names) {
  std::vector<std::string> files;
  for (int i = 1; i < count; ++i) {
    if (!fs::is_directory(names[i])) {
      files.emplace_back(names[i]);
      continue;
    }
    const std::size_t first = files.size();
    for (const fs::directory_entry& entry : fs::directory_iterator(names[i]))
      files.push_back(entry.path().string());
    std::sort(files.begin() + static_cast<std::ptrdiff_t>(first), files.end());
  }
  return files;
}

std::size_t PeakMemory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main(int count, char** names) {
  const std::vector<std::string> files = FilesOf(count, names);
  fuzz::Check(!files.empty(), "there are files to run");
  const std::size_t before = PeakMemory();
  std::size_t largest = 0;
  for (const std::string& name : files) {
    // The last line in front of a crash names the file.
    std::fprintf(stderr, "%s\n", name.c_str());
    std::ifstream file(name, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    largest = std::max(largest, bytes.size());
    const auto start = std::chrono::steady_clock::now();
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    const auto end = std::chrono::steady_clock::now();
    fuzz::Check(!kMeasured || end - start < kLongestRun, "a run takes less than a second");
  }
  const std::size_t taken = PeakMemory() - before;
  std::printf("%zu files, %zu KiB of memory\n", files.size(), taken / 1024);
  fuzz::Check(!kMeasured || taken < kSpareMemory + 4 * largest, "no file takes much memory");
  return 0;
}
