// Undo records of a sample node, and what is made before a node is deleted.
#include <memory>
#include <new>

#include "sampledata/sd_access.h"
#include "sampledata/sd_setup.h"

bool SDAccess::GatherDeleteInfo(HDBUndoInfo* info) {
  try {
    auto snapshot = std::make_unique<SDUndo>(sampleList, selQualityClass, internalSampleFileName);
    std::list<SDDeleteInfo> files;
    for (const SDSample& sample : sampleList)
      files.emplace_back(this, &sample);
    std::list<SDDeleteInfo> none;
    info->ID = UNDO_SD_DELETED;
    info->data = snapshot.release();
    static_cast<SDSetup*>(setup)->MarkFilesReplaced(files, none);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool SDAccess::DiscardUndoInfo(HDBUndoInfo* info) const {
  delete static_cast<SDUndo*>(info->data);
  info->data = nullptr;
  return true;
}

// Undo and copies are not offered yet: both refuse and change nothing.
bool SDAccess::DoUndo(HDBUndoInfo*) {
  return false;
}

bool SDAccess::Copy(const HDBBaseNodeInterface*) {
  SetError(ERROR_INTERNAL);
  return false;
}
