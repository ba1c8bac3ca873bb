// Every operation on a system that fails at any one place, or from there on: it tells so by its own
// code, leaves what it should and leaks nothing, and works when it is called again.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "tests/sd_fault_world.h"

namespace sdtest {
namespace {

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const auto& group :
       {NodeOperations(), SetupOperations(), SoundOperations(), StreamOperations()})
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

// Of the failures of one operation each FAULT_STRIDE-th is tried; scripts/soak sets 1.
int Stride() {
  const char* const text = std::getenv("FAULT_STRIDE");
  return text != nullptr ? std::atoi(text) : FAULT_STRIDE;
}

int Call(const Operation& operation, World& world) {
  try {
    return operation.body(world);
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "an exception came out: " << exception.what();
    return kMismatch;
  }
}

class Faults : public ::testing::TestWithParam<Operation> {
 protected:
  const Operation& operation_ = GetParam();

  void Prepare(World& world) {
    if (operation_.prepare) operation_.prepare(world);
  }
};

void ExpectNothingLeft(const heap_faults::Watch& watch) {
  // A thread that has done its work may still be on its way out.
  for (int i = 0; i < 100 && watch.Live() != 0; ++i)
    usleep(1000);
  EXPECT_EQ(0u, watch.Live());
}

// What an operation comes to where nothing fails.
struct Outcome {
  Lines after;
  std::string content;
  std::string result;
};

TEST_P(Faults, OfMemory) {
  Outcome whole;
  {
    World world;
    Prepare(world);
    world.Now();
    ASSERT_EQ(0, Call(operation_, world));
    whole = {world.Now(), world.Content(), world.result};
  }
  const std::vector<std::string> leftOver = {"+ disk "};
  for (const bool forGood : {false, true}) {
    bool fired = true;
    for (int n = 1; fired && !HasFailure(); n += Stride()) {
      SCOPED_TRACE(::testing::Message()
                   << "allocation " << n << (forGood ? " and all behind" : ""));
      const heap_faults::Watch watch;
      {
        World world;
        Prepare(world);
        const Lines before = world.Now();
        FailingAllocation fault(n, forGood);
        const int code = Call(operation_, world);
        fired = fault.Fired();
        const Lines after = world.Now();
        auto leaves = operation_.leaves;
        if (forGood) leaves.insert(leaves.end(), leftOver.begin(), leftOver.end());
        if (code == 0) {
          if (operation_.encodes) world.Repair();
          EXPECT_EQ("", Difference(whole.after, world.Now(), operation_.leaves));
          EXPECT_EQ(whole.result, world.result);
        } else {
          EXPECT_TRUE(fired);
          EXPECT_THAT(operation_.codes, ::testing::Contains(code));
          EXPECT_EQ("", Difference(before, after, leaves)) << code;
          EXPECT_EQ(0, Call(operation_, world));
          if (operation_.encodes) world.Repair();
          EXPECT_TRUE(whole.content == world.Content());
          if (operation_.leaves.empty()) {
            EXPECT_EQ("", Difference(whole.after, world.Now(), leaves));
          }
          EXPECT_EQ(whole.result, world.result);
        }
      }
      if (!HasFailure()) ExpectNothingLeft(watch);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, Faults, ::testing::ValuesIn(AllOperations()), [](const auto& test) {
  std::string name = test.param.name;
  for (char& c : name) {
    if (c == '+') c = 'P';
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
});

class Totals : public ::testing::Environment {
 public:
  void TearDown() override {
    std::cout << heap_faults::Failures() << " allocations failed, " << FailingCall::Failures()
              << " platform calls failed" << std::endl;
  }
};
const auto* const totals = ::testing::AddGlobalTestEnvironment(new Totals);

}  // namespace
}  // namespace sdtest
