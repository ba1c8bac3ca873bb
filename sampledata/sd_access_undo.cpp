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
    SDDeleteInfoList files = FilesOf(sampleList);
    SDDeleteInfoList none;
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

// What can fail comes first: an undo that failed halfway would, tried again, take the files that
// are already back for those to drop.
void SDAccess::RestoreState(const SDUndo& snapshot) {
  SDSampleList restored = snapshot.sampleList;
  qz::string restoredName = snapshot.internalSampleFileName;
  SDDeleteInfoList dropped = FilesOf(sampleList);
  SDDeleteInfoList reclaimed = FilesOf(restored);
  DropFiles(dropped);
  sampleList.swap(restored);
  internalSampleFileName.swap(restoredName);
  ReclaimFiles(reclaimed);
}

SDDeleteInfoList SDAccess::FilesOf(const SDSampleList& samples) const {
  SDDeleteInfoList files;
  for (const SDSample& sample : samples)
    files.push_back(SDDeleteInfo(this, &sample));
  return files;
}

void SDAccess::DropFiles(SDDeleteInfoList& dropped) {
  SDSetup* const setupNode = static_cast<SDSetup*>(setup);
  while (!dropped.empty()) {
    SDDeleteInfoList files;
    files.appendFirst(dropped);
    const SDDeleteInfo& pair = files.front();
    if (!setupNode->AreFilesUnsaved(pair)) {
      SDDeleteInfoList none;
      setupNode->MarkFilesReplaced(files, none);
      continue;
    }
    setupNode->UnmarkFilesAsUnsaved(pair);
    DIOFile::Delete(pair.getRawName());
    DIOFile::Delete(pair.getEncodedName());
    DIOFile::Delete(pair.getFolder());  // succeeds with the folder's last file
  }
}

void SDAccess::ReclaimFiles(SDDeleteInfoList& reclaimed) {
  SDSetup* const setupNode = static_cast<SDSetup*>(setup);
  for (auto sample = sampleList.begin(); !reclaimed.empty(); ++sample) {
    SDDeleteInfoList files;
    files.appendFirst(reclaimed);
    setupNode->UnmarkFilesForDeletion(files.front());
    if (sample->savedVersionIdentifier == setupNode->GetSavedVersionID()) continue;
    SDDeleteInfoList none;
    setupNode->MarkFilesReplaced(none, files);
  }
}

// The host has made the node anew, without samples. It gets copies of the old files, which stay
// marked once by the destructor of the deleted node and leave the disk by that.
bool SDAccess::RestoreDeleted(const SDUndo& snapshot) {
  for (SDSample old : snapshot.sampleList) {
    old.UnremoveFiles(this);
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
