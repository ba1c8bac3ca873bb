#include "host/undo.h"

#include <utility>

namespace samplehost {

void UndoList::Push(const UndoStep& step, const HDBAccessBaseInterface& sample) {
  steps_.push_back(step);
  ++pushed_;
  if (steps_.size() <= kMostSteps) return;
  // A step that goes back with the one before it cannot stay without it.
  do {
    sample.DiscardUndoInfo(&steps_.front().record);
    steps_.pop_front();
  } while (steps_.size() > 1 && steps_.front().joined);
}

UndoStep UndoList::TakeLast() {
  UndoStep step = std::move(steps_.back());
  steps_.pop_back();
  return step;
}

void UndoList::JoinLastTwoSwapped() {
  std::swap(steps_[steps_.size() - 1], steps_[steps_.size() - 2]);
  steps_[steps_.size() - 2].joined = std::exchange(steps_.back().joined, true);
}

void UndoList::DiscardNode(std::int64_t node, const HDBAccessBaseInterface& sample) {
  for (auto step = steps_.begin(); step != steps_.end();) {
    if (step->node != node) {
      ++step;
      continue;
    }
    sample.DiscardUndoInfo(&step->record);
    step = steps_.erase(step);
    if (step != steps_.end()) step->joined = false;
  }
}

}  // namespace samplehost
