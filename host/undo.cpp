#include "host/undo.h"

namespace samplehost {

void UndoList::DiscardAll(const HDBAccessBaseInterface& sample) {
  for (HDBUndoInfo& record : records_)
    sample.DiscardUndoInfo(&record);
  records_.clear();
}

}  // namespace samplehost
