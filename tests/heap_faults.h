// Failing allocations on demand, and counting what stays behind. A program that is linked with
// heap_faults.cpp sends `new` and the malloc family of all code that is linked into it through
// here.
#ifndef TESTS_HEAP_FAULTS_H_
#define TESTS_HEAP_FAULTS_H_

#include <cstddef>

namespace heap_faults {

// While it lives, the n-th allocation (from 1) fails, alone or with all behind it. 0: none does.
// One at a time.
class Failing {
 public:
  explicit Failing(int n, bool forGood = false);
  ~Failing();
  Failing(const Failing&) = delete;
  Failing& operator=(const Failing&) = delete;
  // Ends the failing. Tells whether it got as far as the n-th allocation.
  bool Fired();
  // Allocations so far.
  int Calls() const;
};

// While it lives, blocks of more than `largest` bytes are refused, which counts as a failure.
class Limit {
 public:
  explicit Limit(std::size_t largest);
  ~Limit();
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
};

// While it lives, no allocation fails or is counted as one.
class Spared {
 public:
  Spared();
  ~Spared();
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
  // One lives.
  static bool Any();
};

// While it lives, blocks are watched. Not nested.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  // Blocks that were allocated since and are not free yet.
  std::size_t Live() const;
};

// All allocations that have failed so far.
long Failures();

}  // namespace heap_faults

#endif  // TESTS_HEAP_FAULTS_H_
