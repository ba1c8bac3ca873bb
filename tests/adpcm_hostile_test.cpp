// Frames and tables that no encoder makes, and a heap that gives out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"
#include "tests/heap_faults.h"

namespace {

using sounds::Random;

TEST(HostileFrames, RowsBeyondTheTableAreMaskedToIt) {
  short table[16];
  for (int i = 0; i < 16; ++i)
    table[i] = static_cast<short>(i * 100);
  for (int row = 0; row < 8; ++row) {
    qz::uchar frame[8] = {static_cast<qz::uchar>(row * 16 + 5), 0x17, 0x8F, 0x33};
    short expected[16] = {300, -200};
    short out[16] = {300, -200};
    adpcmDecodeFrame(frame, expected, table, 1);
    frame[0] = static_cast<qz::uchar>(frame[0] | 0x80);
    adpcmDecodeFrame(frame, out, table, 1);
    EXPECT_TRUE(std::equal(out, out + 16, expected)) << row;
  }
}

TEST(HostileFrames, ExponentFifteenIsANegativeGain) {
  short table[16] = {};
  qz::uchar frame[8] = {0x0F, 0x1F, 0x78};
  short out[16] = {};
  adpcmDecodeFrame(frame, out, table, 1);
  EXPECT_EQ(out[2], -32768);  // 1 x -32768
  EXPECT_EQ(out[3], 32767);   // -1 x -32768, clamped
  EXPECT_EQ(out[4], -32768);
  EXPECT_EQ(out[5], 32767);
  frame[0] = 0x0E;
  adpcmDecodeFrame(frame, out, table, 1);
  EXPECT_EQ(out[2], 16384);
  EXPECT_EQ(out[3], -16384);
}

TEST(HostileFrames, SumsBeyond32BitsWrap) {
  short table[16] = {-32768, -32768};
  qz::uchar frame[8] = {};
  short out[16] = {-32768, -32768};
  adpcmDecodeFrame(frame, out, table, 1);
  EXPECT_EQ(out[2], -32768);  // 2^31 wraps to the other end
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

TEST(HostileTables, ClippingThatNoExponentEndsStillEnds) {
  // The largest residual that wrapping sums can give, at the highest exponent still far out.
  short table[16];
  for (int i = 0; i < 16; ++i)
    table[i] = i % 2 == 0 ? -32768 : 0;
  for (const short history : {short{32767}, short{-32768}}) {
    short block[16] = {history, history};
    std::fill(block + 2, block + 16, history);
    qz::uchar frame[8];
    adpcmEncodeFrame(block, frame, table, 1);
    EXPECT_EQ(frame[0] & 15, 12);
  }
}

TEST(EmptyStream, IsASuccessWithBlocksOfTheirOwn) {
  qz::ulong count = 0;
  _ADPCMINFO info;
  ASSERT_EQ(adpcmEncodeSample(nullptr, &count, nullptr, nullptr, &info, nullptr), 1u);
  EXPECT_EQ(info.DataBytes, 0u);
  EXPECT_EQ(info.numBlocks, 0u);
  EXPECT_NE(info.Data, nullptr);
  short* decoded = adpcmDecodeSample(info.Data, 0, info.CoefTable, nullptr);
  EXPECT_NE(decoded, nullptr);
  std::free(decoded);
  adpcmFreeEncoded(&info);
}

// No heap gives what a stream of 2^32 - 1 samples asks for here; the sizes must still be right.
TEST(LongestStream, CountsItsFramesWithoutOverflow) {
  short table[16] = {};
  short sample = 0;
  qz::ulong size = 0;
  qz::ulong blocks = 0;
  short y0, y1;
  qz::uchar scale, index;
  const heap_faults::Failing fault(1, true);
  qz::uchar* frames = adpcmDoEncoding(table, &sample, 0xFFFFFFFFu, &size, nullptr, nullptr, &blocks,
                                      adpcm::kNoLoop, &y0, &y1, &scale, &index, nullptr);
  EXPECT_EQ(frames, nullptr);
  EXPECT_EQ(blocks, 306783379u);
  EXPECT_EQ(size, 2454267032u);
}

}  // namespace
