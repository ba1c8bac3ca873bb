// UndoList: what a session can take back, newest last. The list owns each record's data from the
// moment that a node hands it over, and gives it back to the library to be freed, once; the node
// it came from may be gone by then.
//
// A step belongs to a node by the node's id, which stays when a node is deleted and made anew: the
// steps of a deleted node belong to the new one.
#ifndef HOST_UNDO_H_
#define HOST_UNDO_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "PublicIncludes/kelvo_data.h"
#include "host/database.h"

namespace samplehost {

struct UndoStep {
  HDBUndoInfo record;  // without data where the step is the host's own
  std::int64_t node = 0;
  std::string nodeName;              // at the time of the step
  std::vector<std::string> classes;  // that the node had before the step
  std::optional<NodeRow> deleted;    // the step deleted the node, which was this
  std::optional<std::string> renamedFrom;
  bool madeNode = false;   // the node was made for this step and goes with it
  bool cameWhole = false;  // a worker imported the node: the library has no part in the step
  bool joined = false;     // goes back together with the step before it
};

class UndoList {
 public:
  // Steps beyond these fall off at the old end.
  static constexpr std::size_t kMostSteps = 1000;

  UndoList() = default;
  UndoList(const UndoList&) = delete;
  UndoList& operator=(const UndoList&) = delete;

  // Takes a copy of the step and, with it, its record's data. May throw for want of memory; the
  // data is then still the caller's. `sample`, any sample node's object, frees what falls off.
  void Push(const UndoStep& step, const HDBAccessBaseInterface& sample);

  // The newest step; the list must not be empty.
  UndoStep& last() { return steps_.back(); }
  // Takes it off the list: its data is the caller's from here on.
  UndoStep TakeLast();
  // Swaps the two newest and joins them; both must be there.
  void JoinLastTwoSwapped();

  // Gives the records of a node to `sample` to be freed, and forgets its steps.
  void DiscardNode(std::int64_t node, const HDBAccessBaseInterface& sample);

  const std::deque<UndoStep>& steps() const { return steps_; }
  std::size_t size() const { return steps_.size(); }
  bool empty() const { return steps_.empty(); }
  // Counts every step that was ever pushed: tells whether one came since.
  std::uint64_t pushed() const { return pushed_; }

 private:
  std::deque<UndoStep> steps_;
  std::uint64_t pushed_ = 0;
};

}  // namespace samplehost

#endif  // HOST_UNDO_H_
