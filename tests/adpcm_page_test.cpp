// The worked example of docs/formats/adpcm-frame.md, by the decoder.
#include <gtest/gtest.h>

#include <sstream>

#include "adpcm/adpcm.h"
#include "tests/format_page.h"

namespace {

TEST(FramePage, ExampleDecodesToTheSamplesThatItTells) {
  std::string bytes = format_page::Examples("adpcm-frame.md").at(0);
  ASSERT_EQ(bytes.size(), adpcm::kBytesPerFrame);
  std::istringstream told(format_page::Blocks("adpcm-frame.md", "decoded").at(0));
  std::string label;
  short table[adpcm::kTableValues] = {};
  short samples[16] = {};
  told >> label >> table[0] >> table[1] >> label >> samples[0] >> samples[1] >> label;
  adpcmDecodeFrame(reinterpret_cast<qz::uchar*>(bytes.data()), samples, table, 1);
  for (int i = 2; i < 16; ++i) {
    short expected = 0;
    ASSERT_TRUE(told >> expected);
    EXPECT_EQ(samples[i], expected) << "sample " << i - 2;
  }
}

}  // namespace
