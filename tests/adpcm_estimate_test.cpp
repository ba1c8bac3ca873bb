// The arithmetic of the table design where its last bit decides. The numbers were found by search:
// each fails under one plausible change of the order or the kind of an operation. The sounds of
// adpcm_sounds.cpp do the same for whole tables.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "adpcm/adpcm.h"
#include "adpcm/estimate.h"

namespace {

using Taps = std::array<double, 3>;

// A system of two equations in rows and columns 1 and 2.
struct System {
  double values[3][3] = {};
  double* rows[3] = {values[0], values[1], values[2]};
  int indx[3] = {};
  int parity = 0;
  double vv[3] = {};

  System(double a, double b, double c, double d) {
    values[1][1] = a, values[1][2] = b, values[2][1] = c, values[2][2] = d;
  }
  int Decompose() { return adpcm::lud(rows, 2, indx, &parity, vv); }
};

std::vector<short> Design(std::vector<short> samples) {
  std::vector<short> table(adpcm::kTableValues, 99);
  EXPECT_TRUE(adpcmCoefTableDesign(samples.data(), static_cast<qz::ulong>(samples.size()),
                                   adpcm::kTableRows, table.data(), 0, nullptr));
  return table;
}

std::vector<short> WithZeros(std::vector<short> table) {
  table.resize(adpcm::kTableValues);
  return table;
}

TEST(Decomposition, TurnsSingularAndNearlySingularSystemsAway) {
  EXPECT_EQ(System(0, 0, 1, 2).Decompose(), 1) << "a row of zeros";
  EXPECT_EQ(System(7, 7, 7, 7).Decompose(), 1) << "a pivot of exactly 0";
  EXPECT_EQ(System(1e12, 1e12, 1e12, 1e12 + 64).Decompose(), 1) << "pivots 2^34 apart";
  EXPECT_EQ(System(1e12, 1e12, 1e12, 1e12 + 128).Decompose(), 0);
}

TEST(StepDown, JudgesOnlyTheLowerCoefficientAndOnlyBeyondOne) {
  double tmp[3];
  double ref[3];
  Taps exactlyOne = {1.0, 1.5, 0.5};
  EXPECT_EQ(adpcm::kfroma(exactlyOne.data(), ref, 2, tmp), 0);
  EXPECT_EQ(ref[1], 1.0);
  Taps beyond = {1.0, 1.75, 0.5};
  EXPECT_EQ(adpcm::kfroma(beyond.data(), ref, 2, tmp), 1);
  Taps lastBeyond = {1.0, 0.25, 1.5};
  EXPECT_EQ(adpcm::kfroma(lastBeyond.data(), ref, 2, tmp), 0);
  EXPECT_EQ(ref[2], 1.5);
  Taps denominatorZero = {1.0, 0.25, -1.0};
  EXPECT_EQ(adpcm::kfroma(denominatorZero.data(), ref, 2, tmp), 1);
}

TEST(Distance, SumsFromTheFirstTermAndIsNeverClamped) {
  const auto distance = [](double t1, double t2, double s1, double s2) {
    const Taps row = {1.0, t1, t2};
    const Taps frame = {1.0, s1, s2};
    return adpcm::model_dist(row.data(), frame.data(), 2);
  };
  EXPECT_EQ(distance(-0x1.84p+0, -0x1.9p-2, -0x1.bp-2, -0x1.7p-2), 0x1.bc47ce0c7ce0dp+0);
  EXPECT_EQ(distance(0x1.4p-3, -0x1.2p-2, -0x1.88p-1, -0x1p-4), 0x1.ccd7777777777p-1);
  EXPECT_EQ(distance(0x1.ap-1, 0x1.18p-1, -0x1.6p-1, 0x1p-3), 0x1.e8b9c71c71c72p+1);
  EXPECT_EQ(distance(0x1.d4f26aeba2702p-1, 0x1.ffffffff2419p-1, 0x1.d4fdf3b5e0eabp-1,
                     0x1.ffffffff2419p-1),
            -0x1.01c6e604p-21);
}

TEST(TableDesign, FramesAtOrBelowTheEnergyOfSilenceGiveNoPredictor) {
  EXPECT_EQ(Design({}), WithZeros({}));
  EXPECT_EQ(Design(std::vector<short>(100)), WithZeros({}));
  EXPECT_EQ(Design({1, -3}), WithZeros({})) << "energy 10";
  EXPECT_NE(Design({1, -3, 1}), WithZeros({})) << "energy 11";
  // Only the frame's own samples count: the loud frame is history of one that stays silent.
  std::vector<short> samples(28);
  samples[13] = 30000;
  samples[14] = 3;
  EXPECT_EQ(Design(samples), WithZeros({}));
}

TEST(TableDesign, ShortStreamsOfOneFrame) {
  EXPECT_EQ(Design({5, -3, 2}), WithZeros({-1201, -125}));
  EXPECT_EQ(Design({16, -16}), WithZeros({-1365, -683}));
}

TEST(TableDesign, OtherTableSizesFillJustTheirRows) {
  std::vector<short> samples;
  for (int i = 0; i < 700; ++i)
    samples.push_back(static_cast<short>(i * i % 331 * 40));
  for (const qz::ulong size : {1u, 2u, 3u, 5u}) {
    std::vector<short> table(2 * size + 1, 99);
    ASSERT_TRUE(adpcmCoefTableDesign(samples.data(), 700, size, table.data(), 0, nullptr));
    EXPECT_EQ(table[2 * size], 99);
    EXPECT_NE(table[0], 99);
  }
}

}  // namespace
