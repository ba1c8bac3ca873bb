// Frames and tables that no encoder makes, and a heap that gives out.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "adpcm/heap_block.h"
#include "adpcm/kernels.h"
#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"
#include "tests/heap_faults.h"

namespace {

using sounds::Random;

TEST(HostileFrames, RowsAreMaskedExtremesClampedAndSumsBeyond32BitsWrap) {
  struct {
    const char* what;
    short row, history;
    qz::uchar frame[8];
    std::vector<short> samples;
  } cases[] = {
      {"exponent 14", 0, 0, {0x0E, 0x1F}, {16384, -16384}},
      {"exponent 15 is a gain of -32768", 0, 0, {0x0F, 0x1F, 0x78}, {-32768, 32767, -32768, 32767}},
      {"row 8 is row 0", 2048, 100, {0x80}, {200, 300, 500}},
      {"2^31 wraps to the other end", -32768, -32768, {}, {-32768}},
  };
  for (auto& test : cases) {
    short table[16] = {test.row, test.row};
    short out[16] = {test.history, test.history};
    adpcmDecodeFrame(test.frame, out, table, 1);
    EXPECT_EQ(std::vector<short>(out + 2, out + 2 + test.samples.size()), test.samples)
        << test.what;
  }
}

// What they start from never dies away, so a decoder that takes the stream apart gains nothing.
TEST(HostileFrames, LongStreamsThatRememberTheirStartDecodeAlikeAtEveryLevel) {
  constexpr std::size_t kFrames = 100000;
  short table[16] = {0, -2048};
  std::vector<qz::uchar> frames(kFrames * 8);
  Random random(1);
  for (std::size_t i = 0; i < frames.size(); ++i)
    frames[i] = i % 8 == 0 ? qz::uchar{0} : static_cast<qz::uchar>(random.Next());
  std::vector<short> decoded[2];
  for (const auto level : {adpcm::KernelLevel::kScalar, adpcm::KernelLevel::kAvx2}) {
    adpcm::CapKernels(level);
    short* const samples = adpcmDecodeSample(frames.data(), kFrames * 14, table, nullptr);
    ASSERT_NE(samples, nullptr);
    decoded[level != adpcm::KernelLevel::kScalar].assign(samples, samples + kFrames * 14);
    std::free(samples);
  }
  EXPECT_TRUE(decoded[0] == decoded[1]);
}

// Under the undefined behaviour sanitizer this also proves that nothing overflows.
TEST(HostileTables, TheFrameEncoderEndsAndItsFramesDecodeToItsReconstruction) {
  Random random(99);
  for (int round = 0; round < 3000; ++round) {
    short table[16];
    for (short& value : table) {
      const int extreme = random.Next() % 2 == 0 ? -32768 : 32767;
      value = static_cast<short>(random.Next() % 3 == 0 ? random.Around(32767) : extreme);
    }
    short block[16];
    for (short& value : block)
      value = random.Next() % 2 == 0 ? short{-32768} : short{32767};
    short decoded[16] = {block[0], block[1]};
    qz::uchar frame[8];
    adpcmEncodeFrame(block, frame, table, 1);
    ASSERT_LE(frame[0] & 15, 12);
    ASSERT_LE(frame[0] >> 4, 7);
    adpcmDecodeFrame(frame, decoded, table, 1);
    ASSERT_TRUE(std::equal(block, block + 16, decoded)) << "round " << round;
  }
}

// No heap gives what a stream of 2^32 - 1 samples asks for here; the sizes must still be right.
TEST(LongestStream, CountsItsFramesWithoutOverflow) {
  EXPECT_EQ(adpcm::AllocateBlock<double>(SIZE_MAX / 8 + 2), nullptr);
  short table[16] = {};
  short sample = 0;
  qz::ulong size = 0;
  qz::ulong blocks = 0;
  short y0, y1;
  qz::uchar scale, index;
  const heap_faults::Failing fault(1, true);
  EXPECT_EQ(adpcmDoEncoding(table, &sample, 0xFFFFFFFFu, &size, nullptr, nullptr, &blocks,
                            adpcm::kNoLoop, &y0, &y1, &scale, &index, nullptr),
            nullptr);
  EXPECT_EQ(blocks, 306783379u);
  EXPECT_EQ(size, 2454267032u);
}

}  // namespace
