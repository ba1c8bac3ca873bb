// SD_WALK_SEED and SD_WALK_STEPS set seed and length; scripts/soak does.
#include "tests/sd_random_walk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>

namespace {

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

TEST(RandomWalk, AgreesWithTheModel) {
  const std::uint64_t seed = FromEnvironment("SD_WALK_SEED", std::random_device()());
  const auto steps = static_cast<long>(FromEnvironment("SD_WALK_STEPS", SD_WALK_STEPS));
  std::cout << "SD_WALK_SEED=" << seed << " SD_WALK_STEPS=" << steps << std::endl;
  EXPECT_EQ("", sdtest::RandomWalk(seed, steps));
}

}  // namespace
