// The worked examples of the pages in docs/formats.
#ifndef TESTS_FORMAT_PAGE_H_
#define TESTS_FORMAT_PAGE_H_

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace format_page {

// The contents of the page's fenced blocks of a kind ("```kind"), in order.
inline std::vector<std::string> Blocks(const std::string& page, const std::string& kind) {
  std::ifstream file(std::string(TEST_DATA) + "/../../docs/formats/" + page);
  EXPECT_TRUE(file) << page;
  std::vector<std::string> blocks;
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line == "```" + kind) {
      inside = true;
      blocks.emplace_back();
    } else if (line.starts_with("```")) {
      inside = false;
    } else if (inside) {
      blocks.back() += line + '\n';
    }
  }
  return blocks;
}

// Bytes of the lines "offset: hex bytes", whose offsets must be right.
inline std::string Bytes(const std::string& block) {
  std::string bytes;
  std::istringstream lines(block);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::size_t offset = 0;
    char colon = 0;
    fields >> std::hex >> offset >> colon;
    EXPECT_EQ(colon, ':') << line;
    EXPECT_EQ(offset, bytes.size()) << line;
    for (unsigned value = 0; fields >> value;)
      bytes += static_cast<char>(value);
  }
  return bytes;
}

// The hex examples of a page.
inline std::vector<std::string> Examples(const std::string& page) {
  std::vector<std::string> examples;
  for (const std::string& block : Blocks(page, "hex"))
    examples.push_back(Bytes(block));
  EXPECT_FALSE(examples.empty()) << page;
  return examples;
}

}  // namespace format_page

#endif  // TESTS_FORMAT_PAGE_H_
