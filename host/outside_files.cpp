#include "host/outside_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "host/paths.h"
#include "host/sample_data.h"

namespace samplehost {

namespace {

constexpr std::size_t kCompareBlock = 1 << 16;

}  // namespace

bool OutsideFile::IsThere() const {
  std::error_code error;
  return std::filesystem::exists(outside, error);
}

std::vector<OutsideFile> OutsideFiles(Session& session, Node& node, const std::string& folder) {
  std::vector<OutsideFile> files;
  for (const SampleFacts& facts : AllFactsOf(session, node)) {
    const std::string name =
        fmt::format("{} ({}).{}", node.name(), facts.qualityClass, ExtensionOf(facts.rawPath));
    // A name in another case is the same file to the library.
    const std::string outside = NativePath(FullPathFrom(folder, name));
    files.push_back({facts.qualityClass, NativePath(facts.rawPath), outside});
  }
  return files;
}

bool SameBytes(const std::string& a, const std::string& b) {
  std::error_code error;
  if (std::filesystem::file_size(a, error) != std::filesystem::file_size(b, error)) return false;
  std::ifstream first(a, std::ios::binary);
  std::ifstream second(b, std::ios::binary);
  std::string blockA(kCompareBlock, '\0');
  std::string blockB(kCompareBlock, '\0');
  while (first && second) {
    first.read(blockA.data(), kCompareBlock);
    second.read(blockB.data(), kCompareBlock);
    if (first.gcount() != second.gcount()) return false;
    if (!std::equal(blockA.begin(), blockA.begin() + first.gcount(), blockB.begin())) return false;
  }
  return first.eof() && second.eof();
}

}  // namespace samplehost
