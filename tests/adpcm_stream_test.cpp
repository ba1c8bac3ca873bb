// Whole streams: what the encoder says it left behind is what a decoder holds, at every length and
// loop start, whatever the sound.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"

namespace {

using sounds::Samples;

short HeldAt(const EncodedStream& stream, qz::uint64 position) {
  return position < 2 ? short{0} : stream.decoded[position - 2];
}

// The states before each frame and before the loop start are those of the decoded stream.
void ExpectConsistent(const Samples& samples, qz::ulong loop) {
  const EncodedStream stream = EncodeStream(samples, loop);
  ASSERT_TRUE(stream.ok);
  const std::size_t blocks = (samples.size() + 13) / 14;
  ASSERT_EQ(stream.frames.size(), blocks * 8);
  ASSERT_EQ(stream.decoded.size(), blocks * 14);
  for (std::size_t n = 0; n < blocks; ++n) {
    ASSERT_EQ(stream.y0[n], HeldAt(stream, 14 * n)) << "frame " << n;
    ASSERT_EQ(stream.y1[n], HeldAt(stream, 14 * n + 1)) << "frame " << n;
    ASSERT_LE(stream.frames[8 * n] >> 4, 7);
    ASSERT_LE(stream.frames[8 * n] & 15, 12);
  }
  LoopState expected{};
  if (loop < blocks * 14) {
    const int head = stream.frames[loop / 14 * 8];
    expected = {HeldAt(stream, loop), HeldAt(stream, qz::uint64{loop} + 1), head >> 4, head & 15};
  }
  EXPECT_EQ(stream.loop, expected);
}

TEST(Stream, StatesAreThoseOfTheDecoderForEverySoundLengthAndLoopStart) {
  const std::pair<const char*, Samples> kinds[] = {
      {"silence", Samples(14400)},
      {"square", sounds::Square(14400, 9, 32767, -32768)},
      {"noise", sounds::Noise(14400, 32767, 5)},
      {"tone", sounds::Tone(14400, 1491, 21000)},
      {"ramp", sounds::Ramp(14400, -28000, 4)},
      {"constant", Samples(14400, -12345)},
  };
  for (const auto& [name, sound] : kinds) {
    for (const std::size_t length : {0u, 1u, 14u, 15u, 14335u, 14336u, 14337u}) {
      for (const qz::ulong loop : {0u, 13u, 14u, 14335u, 14336u, 14350u, 0xFFFFFFF0u}) {
        if (length < 14335 && loop > 20 && loop < 0xFFFFFFF0u) continue;
        SCOPED_TRACE(std::string(name) + " " + std::to_string(length) + " loop " +
                     std::to_string(loop));
        ExpectConsistent({sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length)},
                         loop);
      }
    }
  }
  ExpectConsistent(sounds::Music(1000000, 3), 777777);
}

TEST(Stream, WithoutALoopNoStateIsCapturedAndTheFramesAreTheSame) {
  const Samples sound = sounds::Music(900, 4);
  const EncodedStream looped = EncodeStream(sound, 500);
  const EncodedStream plain = EncodeStream(sound, {});
  EXPECT_EQ(plain.frames, looped.frames);
  EXPECT_NE(looped.loop, LoopState{});
  EXPECT_EQ(plain.loop, LoopState{});
  EXPECT_TRUE(EncodeStream({}, {}).ok) << "an empty stream has blocks of its own";
}

int encoderTicks = 0;
int decoderTicks = 0;

TEST(Stream, CallsBackForEachFrameAndLeavesItsInputsAlone) {
  Samples samples = sounds::Noise(14340, 9000, 6);
  const Samples before = samples;
  qz::ulong numbers[] = {14340, 99, 7};  // samples, loop start and length
  _ADPCMINFO info;
  std::memset(static_cast<void*>(&info), 0xA5, sizeof info);
  ASSERT_EQ(adpcmEncodeSample(samples.data(), &numbers[0], &numbers[1], &numbers[2], &info,
                              [](qz::uchar tick) { encoderTicks += tick; }),
            1u);
  EXPECT_EQ(encoderTicks, 1025);
  EXPECT_EQ(samples, before);
  EXPECT_THAT(numbers, testing::ElementsAre(14340, 99, 7));
  EXPECT_EQ(info.NumCoef, 8);
  EXPECT_EQ(info.Order, 2);
  EXPECT_EQ(info.numBlocks, 1025u);
  EXPECT_EQ(info.DataBytes, 8200u);
  std::free(adpcmDecodeSample(info.Data, 14340, info.CoefTable, [] { ++decoderTicks; }));
  EXPECT_EQ(decoderTicks, 1025);
  adpcmFreeEncoded(&info);
}

TEST(Stream, StatesThatNobodyWantsAreNotMade) {
  Samples samples = sounds::Noise(30, 500, 1);
  short table[adpcm::kTableValues] = {1024};
  qz::ulong size = 0;
  qz::ulong blocks = 0;
  short y0 = 5, y1 = 5;
  qz::uchar scale = 5, index = 5;
  qz::uchar* frames = adpcmDoEncoding(table, samples.data(), 30, &size, nullptr, nullptr, &blocks,
                                      adpcm::kNoLoop, &y0, &y1, &scale, &index, nullptr);
  ASSERT_NE(frames, nullptr);
  EXPECT_EQ(size, 24u);
  EXPECT_EQ(blocks, 3u);
  EXPECT_EQ(y0 | y1 | scale | index, 0);
  std::free(frames);
}

struct OneFrame {
  const char* what;
  std::vector<short> table;  // zeros behind it
  std::vector<short> block;  // history and samples, zeros behind them
  std::vector<qz::uchar> frame;
  std::vector<short> restored;
};

TEST(Frame, WorkedFrames) {
  const OneFrame frames[] = {
      {"silence", {2048, 0, 4096, -2048}, {}, {}, {}},
      {"a clipping of one step stands", {}, {0, 0, 16, -16}, {0x01, 0x78}, {0, 0, 14, -16}},
      {"-8 fits", {}, {0, 0, -8}, {0x00, 0x80}, {0, 0, -8}},
      {"8 is cut to 7", {}, {0, 0, 8}, {0x00, 0x70}, {0, 0, 7}},
      {"exact halves go toward zero",
       {},
       {0, 0, 15, 3, -3, 1, -1, 5, -5},
       {0x01, 0x71, 0xF0, 0x02, 0xE0},
       {0, 0, 14, 2, -2, 0, 0, 4, -4}},
      {"the first of equal residuals sets the exponent",
       {4096, -2048, -4096, 0, -4096, 2048, -4096, 2048, 0, 2048, 0, -2048, 4096, -2048, 4096,
        -2048},
       {4, -1, 7, -8, 5, -8, 6, -8, 0, 7, -8, 4, -1, 7, 2, -8},
       {0x41, 0x1D, 0x00, 0x00, 0xD7, 0xCF, 0x31, 0x29},
       {4, -1, 6, -7, 6, -7, 6, -7, 0, 7, -8, 5, -2, 7, 2, -7}},
  };
  for (OneFrame expected : frames) {
    SCOPED_TRACE(expected.what);
    expected.table.resize(16);
    expected.block.resize(16);
    expected.frame.resize(8);
    expected.restored.resize(16);
    std::vector<qz::uchar> frame(8, 0xEE);
    adpcmEncodeFrame(expected.block.data(), frame.data(), expected.table.data(), 1);
    EXPECT_EQ(frame, expected.frame);
    EXPECT_EQ(expected.block, expected.restored);
  }
}

TEST(Frame, AStrideTouchesOnlyItsOwnSamples) {
  short table[16];
  std::fill_n(table, 16, short{1000});  // both samples of history count, whatever the row
  short dense[16];
  std::vector<short> wide(16 * 3, 4242);
  const Samples noise = sounds::Noise(16, 9000, 2);
  for (std::size_t i = 0; i < 16; ++i)
    dense[i] = wide[3 * i] = noise[i];
  qz::uchar frame[8];
  qz::uchar strided[8];
  adpcmEncodeFrame(dense, frame, table, 1);
  adpcmEncodeFrame(wide.data(), strided, table, 3);
  EXPECT_EQ(std::memcmp(frame, strided, 8), 0);
  std::vector<short> decoded(16 * 3, 4242);
  decoded[0] = noise[0];
  decoded[3] = noise[1];
  adpcmDecodeFrame(frame, decoded.data(), table, 3);
  EXPECT_EQ(decoded, wide);
  for (std::size_t i = 0; i < 16; ++i)
    EXPECT_EQ(wide[3 * i], dense[i]);
}

}  // namespace
