// Undo of a sample node's changes, the record made before a node is deleted, and copies.
//
// Since the files of a state never change, undo puts an old sample list back and corrects the
// bookkeeping of files. The record's data stays with the host, who discards it.
#include <memory>
#include <new>

#include "common/qzassert.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_main.h"
#include "sampledata/sd_modify.h"
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

bool SDAccess::DoUndo(HDBUndoInfo* info) {
  const SDUndo* snapshot = static_cast<const SDUndo*>(info->data);
  try {
    switch (info->ID) {
      case UNDO_SD_DELETED:
        return RestoreDeleted(*snapshot);
      case UNDO_SDSAMPLE_DELETED:
      case UNDO_SDSAMPLE_IMPORTED:
      case UNDO_SDSAMPLE_TYPECHANGE:
        RestoreState(*snapshot);
        return true;
      case UNDO_SDSAMPLE_LOADED: {
        SDSampleList restored = snapshot->sampleList;
        sampleList.swap(restored);
        return true;
      }
      case UNDO_SD_COPIED:
        return DeleteOwnNode();
      case UNDO_SD_QUALITYCHANGE:
        selQualityClass = snapshot->qualClass;
        return true;
      default:
        return false;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void SDAccess::RestoreState(const SDUndo& snapshot) {
  SDSampleList restored = snapshot.sampleList;
  qz::string restoredName = snapshot.internalSampleFileName;
  for (SDSample& sample : sampleList)
    DropFiles(sample);
  sampleList.swap(restored);
  internalSampleFileName.swap(restoredName);
  for (SDSample& sample : sampleList)
    ReclaimFiles(sample);
}

// The files of a state that is being left. Where neither a saved state nor an older undo record
// refers to them they go at once.
void SDAccess::DropFiles(SDSample& sample) {
  SDSetup* const setupNode = static_cast<SDSetup*>(setup);
  const SDDeleteInfo files(this, &sample);
  if (!setupNode->AreFilesUnsaved(files)) {
    sample.RemoveFiles(this);
    return;
  }
  setupNode->UnmarkFilesAsUnsaved(files);
  qz::string folder;
  files.exec(folder);
  DIOFile::Delete(folder);  // succeeds with the folder's last file
}

// The files of a state that comes back. Where the saved database does not refer to them they go
// at shutdown unless a save covers them first.
void SDAccess::ReclaimFiles(SDSample& sample) {
  SDSetup* const setupNode = static_cast<SDSetup*>(setup);
  sample.UnremoveFiles(this);
  if (sample.savedVersionIdentifier != setupNode->GetSavedVersionID()) {
    setupNode->MarkFilesAsUnsaved(SDDeleteInfo(this, &sample));
  }
}

// The host has made the node anew, without samples. It gets copies of the old files, which stay
// marked once by the destructor of the deleted node and leave the disk by that.
bool SDAccess::RestoreDeleted(const SDUndo& snapshot) {
  for (const SDSample& old : snapshot.sampleList) {
    static_cast<SDSetup*>(setup)->UnmarkFilesForDeletion(SDDeleteInfo(this, &old));
    if (!AppendCopyOf(old)) return false;
  }
  selQualityClass = snapshot.selQualityClass;
  return true;
}

bool SDAccess::DeleteOwnNode() {
  HDBRootInterface* const root = baseNode->GetRootInterface();
  root->DisableUndo();
  const bool deleted = root->DeleteNode(baseNode);  // destroys this object
  root->EnableUndo();
  return deleted;
}

// --- Copies ---

bool SDAccess::RestoreSample(SDSample& smp, const SDSample& old) {
  const SDDeleteInfo src(this, &old);
  smp = old;
  if (!SetupInternalName(smp.fileName, old.originalName, old.GetQualClass())) return false;
  const SDDeleteInfo copies(this, &smp);
  if (!DIOFile::Copy(src.getRawName(), copies.getRawName()) ||
      !DIOFile::Copy(src.getEncodedName(), copies.getEncodedName())) {
    return false;
  }
  static_cast<SDSetup*>(setup)->MarkFilesAsUnsaved(copies);
  return true;
}

bool SDAccess::AppendCopyOf(const SDSample& old) {
  std::list<SDSample> copy(1);
  if (!RestoreSample(copy.front(), old)) return false;
  sampleList.splice(sampleList.end(), copy);
  return true;
}

bool SDAccess::Copy(const HDBBaseNodeInterface* node) {
  try {
    UndoRecord record(UNDO_SD_COPIED, baseInterface->stringTab[UNDODESCRIPTION_COPY],
                      std::make_unique<SDUndo>());
    Modification modification(baseNode);
    if (!modification.IsOpen()) {
      SetError(ERROR_READONLY);
      return false;
    }
    const SDAccess* sdAccess = static_cast<const SDAccess*>(node->GetTypeInterface());
    QZ_ASSERT(sdAccess != nullptr, "sdAccess!=NULL");
    qz::string selected = sdAccess->selQualityClass;
    for (const SDSample& sample : sdAccess->sampleList) {
      if (AppendCopyOf(sample)) continue;
      SetError(ERROR_COULDNOTCOPYSAMPLE);
      return false;
    }
    selQualityClass.swap(selected);
    modification.CloseWith(record);
    SetError(ERROR_OK);
    return true;
  } catch (const std::bad_alloc&) {
    SetError(ERROR_NOMEMORY);
    return false;
  }
}
