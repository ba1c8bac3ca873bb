// Failure: a verb, or a step of it, that cannot go on. It carries the reason in words and, where
// there is one, what the user can do about it. Host code throws it and the command line shows it;
// it never crosses into the library: what the library calls back catches everything.
#ifndef HOST_FAILURE_H_
#define HOST_FAILURE_H_

#include <stdexcept>
#include <string>
#include <utility>

namespace samplehost {

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& reason, std::string advice = {})
      : std::runtime_error(reason), advice_(std::move(advice)) {}

  // Empty where there is nothing to say beyond the reason.
  const std::string& advice() const { return advice_; }

 private:
  std::string advice_;
};

// What the user typed cannot be meant: exit code 2.
class UsageFailure : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace samplehost

#endif  // HOST_FAILURE_H_
