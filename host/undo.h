// UndoList: the undo records of a session. The list owns each record's data from the moment that a
// node hands it over, and gives it back to the library to be freed; the node it came from may be
// gone by then.
#ifndef HOST_UNDO_H_
#define HOST_UNDO_H_

#include <cstddef>
#include <vector>

#include "PublicIncludes/kelvo_data.h"

namespace samplehost {

class UndoList {
 public:
  UndoList() = default;
  UndoList(const UndoList&) = delete;
  UndoList& operator=(const UndoList&) = delete;

  // Takes a copy of the record and, with it, its data. May throw for want of memory; the record is
  // then still the caller's.
  void Push(const HDBUndoInfo& record) { records_.push_back(record); }

  // Gives every record to `sample`, any sample node's object, to be freed, and forgets it.
  void DiscardAll(const HDBAccessBaseInterface& sample);

  std::size_t size() const { return records_.size(); }
  bool empty() const { return records_.empty(); }

 private:
  std::vector<HDBUndoInfo> records_;
};

}  // namespace samplehost

#endif  // HOST_UNDO_H_
