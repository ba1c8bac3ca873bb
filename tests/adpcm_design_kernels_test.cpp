// The kernels of the table design against the scalar functions, to the last bit.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "adpcm/codebook.h"
#include "adpcm/design.h"
#include "adpcm/design_kernels.h"
#include "adpcm/estimate.h"
#include "adpcm/kernels.h"
#include "tests/adpcm_sounds.h"

namespace {

using adpcm::Cell;
using adpcm::kDesignGroup;
using adpcm::kDesignRows;
using adpcm::KernelLevel;
using adpcm::kGroupSamples;
using adpcm::TrainingRow;
using sounds::Samples;

constexpr std::size_t kHistory = adpcm::kOrder;
constexpr TrainingRow kGuard = {12345.0, -6789.0};

template <typename T>
bool SameBits(const T* a, const T* b, std::size_t count) {
  return std::memcmp(a, b, count * sizeof(T)) == 0;
}

// Runs of everything that a frame can be, one behind the other and cut anywhere.
Samples Runs(std::size_t length, std::uint32_t seed) {
  sounds::Random random(seed);
  Samples all;
  while (all.size() < length) {
    const std::size_t run = 1 + random.Next() % 60;
    const auto half = static_cast<int>(1 + random.Next() % 15);
    const int level = random.Around(1 << random.Next() % 15);
    Samples more;
    switch (random.Next() % 11) {
      case 0:
        more = sounds::Constant(run, level);
        break;
      case 1:
        more = sounds::Constant(run, random.Next() % 2 == 0 ? -32768 : 32767);
        break;
      case 2:
        more = sounds::Ramp(run, level, random.Around(300));
        break;
      case 3:
        more = sounds::Tone(run, static_cast<int>(random.Next() % 65536), 40 * level);  // clips
        break;
      case 4:
        more = sounds::Square(run, half, 32767, -32768);
        break;
      case 5:
        more = Samples(run);
        break;
      case 6:  // energies around that of silence
        more = Samples(30);
        more[14] = 3, more[15] = static_cast<short>(random.Around(2)), more[16] = 1;
        break;
      case 7:
        more = sounds::Impulses(run, 1 + random.Next() % 20, 33 * level);
        break;
      case 8:
        more = sounds::Growing(run, 1 + half, random.Around(9), half);
        break;
      default:
        more = sounds::Noise(run, 1 << random.Next() % 16, random.Next());
    }
    all.insert(all.end(), more.begin(), more.end());
  }
  all.resize(length);
  return all;
}

using Taps = std::array<double, adpcm::kTaps>;

struct Training {
  std::vector<Taps> taps;
  std::vector<TrainingRow> rows;
  TrainingRow sum = {0.0, 0.0};
};

// By the scalar functions. The first samples are history.
Training CollectScalar(const Samples& samples) {
  Training result;
  for (std::size_t at = kHistory; at < samples.size(); at += adpcm::kSamplesPerFrame) {
    Taps taps;
    double r[adpcm::kTaps], scratch[adpcm::kTaps * adpcm::kTaps];
    if (!adpcm::FramePredictor(&samples[at], taps.data())) continue;
    adpcm::rfroma(taps.data(), adpcm::kDesignOrder, r, scratch);
    result.taps.push_back(taps);
    result.rows.push_back({r[1], r[2]});
    result.sum.r1 += r[1];
    result.sum.r2 += r[2];
  }
  return result;
}

std::vector<double*> Pointers(Taps* rows, std::size_t count) {
  std::vector<double*> pointers;
  for (std::size_t i = 0; i < count; ++i)
    pointers.push_back(rows[i].data());
  return pointers;
}

class DesignKernels : public testing::TestWithParam<KernelLevel> {
 protected:
  void SetUp() override {
    const adpcm::Kernels* level = adpcm::KernelsOf(GetParam());
    if (level == nullptr) GTEST_SKIP() << "not on this machine";
    kernels = level->design;
    ASSERT_NE(kernels, nullptr);
  }
  void TearDown() override { adpcm::CapKernels(KernelLevel::kAvx2); }

  std::vector<short> Design(Samples samples, KernelLevel level, qz::ulong rows = 8) {
    adpcm::CapKernels(level);
    std::vector<short> table(2 * rows);
    EXPECT_TRUE(adpcmCoefTableDesign(samples.data(), static_cast<qz::ulong>(samples.size()), rows,
                                     table.data(), 0, nullptr));
    return table;
  }

  void CompareCollected(const Samples& samples, const std::string& name) {
    const Training expected = CollectScalar(samples);
    const std::size_t groups = samples.size() / kGroupSamples;
    std::vector<TrainingRow> rows(groups * kDesignGroup + 1, kGuard);
    TrainingRow sum = {0.0, 0.0};
    const TrainingRow* end = kernels->collect(&samples[kHistory], groups, rows.data(), &sum);
    ASSERT_EQ(end - rows.data(), static_cast<std::ptrdiff_t>(expected.rows.size())) << name;
    EXPECT_TRUE(SameBits(rows.data(), expected.rows.data(), expected.rows.size())) << name;
    EXPECT_TRUE(SameBits(&sum, &expected.sum, 1)) << name;
    EXPECT_TRUE(SameBits(&rows.back(), &kGuard, 1)) << name;
  }

  const adpcm::DesignKernels* kernels = nullptr;
};

TEST_P(DesignKernels, CollectTheTrainingRowsOfAnyFrames) {
  for (std::uint32_t seed = 1; seed <= 60; ++seed) {
    const std::size_t groups = seed < 20 ? seed : 200 + seed;
    CompareCollected(Runs(kHistory + groups * kGroupSamples, seed), "seed " + std::to_string(seed));
  }
}

// Frames of -32768 with few others between them: the largest products, of which two leave 32 bits.
TEST_P(DesignKernels, CollectFramesOfTheLargestProducts) {
  sounds::Random random(5);
  Samples samples(kHistory + 500 * kGroupSamples, -32768);
  for (short& sample : samples) {
    const short others[] = {32767, -32767, 0, 1};
    if (random.Next() % 6 == 0) sample = others[random.Next() % 4];
  }
  CompareCollected(samples, "largest products");
}

// Codebooks of rows that lie close together, some equal and some a bit apart, and training sets of
// any length.
TEST_P(DesignKernels, AssignTrainingRowsAndSumUpTheCells) {
  for (std::uint32_t seed = 1; seed <= 600; ++seed) {
    sounds::Random random(seed);
    Training training = CollectScalar(Runs(kHistory + 30 * kGroupSamples, seed));
    const std::size_t count = random.Next() % training.rows.size();
    training.rows.resize(training.rows.size() + kDesignGroup, kGuard);
    const int entries = 2 << seed % 3;

    Taps book[kDesignRows], centroids[kDesignRows];
    adpcm::RowModel models[kDesignRows] = {};
    for (int i = 0; i < entries; ++i) {
      book[i] = i > 0 && random.Next() % 2 == 0 ? book[random.Next() % static_cast<unsigned>(i)]
                                                : training.taps[random.Next() % (count + 1)];
      if (random.Next() % 2 == 0) book[i][1] -= adpcm::kSplitDelta;
      if (random.Next() % 2 == 0) book[i][2] = std::nextafter(book[i][2], random.Around(1));
      models[i] = {adpcm::tap_correlation(book[i].data(), adpcm::kDesignOrder, 0),
                   adpcm::tap_correlation(book[i].data(), adpcm::kDesignOrder, 1),
                   adpcm::tap_correlation(book[i].data(), adpcm::kDesignOrder, 2)};
    }
    Cell cells[kDesignRows];
    kernels->assign(training.rows.data(), count, models, entries, cells);

    int counts[kDesignRows];
    double scratch[adpcm::kTaps * adpcm::kTaps], ac[adpcm::kTaps];
    adpcm::refine(Pointers(book, kDesignRows).data(), adpcm::kDesignOrder, entries,
                  Pointers(training.taps.data(), count).data(), static_cast<int>(count), 1, 0.0,
                  scratch, ac, counts, Pointers(centroids, kDesignRows).data());
    for (int i = 0; i < entries; ++i) {
      ASSERT_EQ(cells[i].count, counts[i]) << "seed " << seed << " row " << i;
      if (counts[i] == 0) continue;
      const double mean[] = {cells[i].r1 / counts[i], cells[i].r2 / counts[i]};
      EXPECT_TRUE(SameBits(mean, &centroids[i][1], 2)) << "seed " << seed << " row " << i;
    }
  }
}

TEST_P(DesignKernels, DesignTheTablesOfTheScalarFunctions) {
  const auto compare = [this](const Samples& samples, qz::ulong rows, const std::string& name) {
    ASSERT_EQ(Design(samples, GetParam(), rows), Design(samples, KernelLevel::kScalar, rows))
        << name;
  };
  for (std::uint32_t seed = 1; seed <= 20000; ++seed) {
    const std::string name = "seed " + std::to_string(seed);
    compare(Runs(1 + seed % 60, seed), 8, name);
    if (seed % 4 == 0) compare(sounds::Mixed(seed), 8, name);
    if (seed % 100 == 0) compare(Runs(seed / 10, seed), 1 + seed / 100 % 9, name);
  }
  for (const sounds::Sound& sound : sounds::All())
    compare(sound.samples, 8, sound.name);
}

INSTANTIATE_TEST_SUITE_P(Levels, DesignKernels,
                         testing::Values(KernelLevel::kPortable, KernelLevel::kAvx2),
                         [](const auto& test) {
                           return test.param == KernelLevel::kAvx2 ? "Avx2" : "Portable";
                         });

}  // namespace
