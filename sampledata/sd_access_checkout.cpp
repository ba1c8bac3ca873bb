// Check-out and check-in: the raw files of a node go to a folder of the user's choice under
// readable names, and come back through the same transaction as every other change.
#include <new>

#include "sampledata/sd_access.h"
#include "sampledata/sd_modify.h"
#include "sampledata/sd_setup.h"

SDAccess::SDError SDAccess::CheckOut(const qz::string& toFolder) const {
  try {
    if (checkedOut) return SetError(ERROR_ISCHECKEDOUT);
    if (!baseNode->RequestModifyData()) return SetError(ERROR_READONLY);
    qz::string folder = toFolder;
    for (const SDSample& sample : sampleList) {
      const qz::string& qualClass = sample.GetQualClass();
      if (FindQualityClass(qualClass) == nullptr) continue;
      qz::string checkoutName;
      qz::string internalName;
      if (!MakeCheckOutNames(checkoutName, internalName, toFolder, qualClass)) {
        return SetError(ERROR_COULDNOTGATHERFILEINFO);
      }
      DIOFile::Delete(checkoutName);  // an earlier export is replaced
      if (!DIOFile::Copy(internalName, checkoutName)) return SetError(ERROR_COULDNOTCOPYSAMPLE);
    }
    checkedOut = true;
    checkOutFolder.swap(folder);
    return SetError(ERROR_OK);
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

bool SDAccess::MakeCheckOutNames(qz::string& checkoutName, qz::string& internalName,
                                 const qz::string& path, const qz::string& qualClass) const {
  const SDSample* sample = FindQualityClass(qualClass);
  if (sample == nullptr) return false;
  internalName = ExpandSamplePath(sample->fileName);
  qz::string name = internalName;
  qz::string extension;
  if (!DIOFile::ChopExtension(name, extension)) return false;
  checkoutName = path + "\\" + baseNode->GetName() + " (" + qualClass + ")." + extension;
  return true;
}

SDAccess::SDError SDAccess::CheckIn(const qz::string& fromFolder) {
  return CheckIn(&fromFolder);
}

SDAccess::SDError SDAccess::CheckIn() {
  return CheckIn(static_cast<const qz::string*>(nullptr));
}

SDAccess::SDError SDAccess::CheckIn(const qz::string* fromFolder) {
  try {
    if (!checkedOut) return SetError(ERROR_ISNOTCHECKEDOUT);
    std::list<qz::string> qualClassName;
    std::list<qz::string> checkoutName;
    // All files are looked at before any is touched.
    const SDError err = FindCheckedOutFiles(fromFolder == nullptr ? checkOutFolder : *fromFolder,
                                            qualClassName, checkoutName);
    if (err != ERROR_OK) return err;

    Modification modification(baseNode);  // closes without an undo record: UndoCheckIn is the way
    if (!modification.IsOpen()) return SetError(ERROR_READONLY);
    qz::string oldInternalName = internalSampleFileName;
    const SDError copied = CopyNewFiles(qualClassName, checkoutName, 0);
    if (copied != ERROR_OK) return copied;
    checkedOut = false;
    lastPreCheckOutInternalName.swap(oldInternalName);
    return copied;
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

SDAccess::SDError SDAccess::FindCheckedOutFiles(const qz::string& folder,
                                                std::list<qz::string>& qualClassName,
                                                std::list<qz::string>& checkoutName) const {
  // Not GetQualityClasses, which has no failure answer: without a class its edits would be left
  // out.
  for (const SDSample& sample : sampleList) {
    const qz::string& qualClass = sample.GetQualClass();
    if (FindQualityClass(qualClass) == nullptr) continue;
    qualClassName.push_back(qualClass);
    qz::string& outsideName = checkoutName.emplace_back();
    qz::string internalName;
    if (!MakeCheckOutNames(outsideName, internalName, folder, qualClass)) {
      return SetError(ERROR_COULDNOTGATHERFILEINFO);
    }
    DIOFile::DIOFileInfo info;
    if (!DIOFile::FindFirst(outsideName, info)) return SetError(ERROR_COULDNOTCOPYSAMPLE);
    DIOFile::FindClose(info);
  }
  return ERROR_OK;
}

SDAccess::SDError SDAccess::UndoCheckOut() const {
  if (!checkedOut) return SetError(ERROR_ISNOTCHECKEDOUT);
  checkedOut = false;
  return SetError(ERROR_OK);
}

SDAccess::SDError SDAccess::RedoCheckOut() const {
  const SDError err = UndoCheckOut();
  return err == ERROR_OK ? CheckOut(checkOutFolder) : err;
}

SDAccess::SDError SDAccess::UndoCheckIn() {
  try {
    if (checkedOut) return SetError(ERROR_ISCHECKEDOUT);
    if (lastPreCheckOutInternalName.empty()) return SetError(ERROR_NOPRECHECKINSTATE);
    SDDeleteInfoList dropped = FilesOf(sampleList);
    SDDeleteInfoList reclaimed;
    SDSampleList returned = sampleList;
    SDError err = ERROR_OK;
    internalSampleFileName.swap(lastPreCheckOutInternalName);
    try {
      err = NameInOldFolder(returned, reclaimed);
    } catch (const std::bad_alloc&) {
      internalSampleFileName.swap(lastPreCheckOutInternalName);
      throw;
    }
    // From here on nothing can fail.
    lastPreCheckOutInternalName.clear();
    DropFiles(dropped);
    sampleList.swap(returned);
    ReclaimFiles(reclaimed);
    return SetError(err);
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

// Only the files' names return; the numbers stay as the check-in left them.
SDAccess::SDError SDAccess::NameInOldFolder(SDSampleList& samples, SDDeleteInfoList& files) {
  for (SDSample& sample : samples) {
    if (!SetupInternalName(sample.fileName, sample.originalName, sample.GetQualClass())) {
      return ERROR_INTERNAL;
    }
    TakeNameThatIsThere(sample);
    files.push_back(SDDeleteInfo(this, &sample));
  }
  return ERROR_OK;
}

// A re-import under another extension keeps the old one for a while, so the name made from where
// the sample came from need not be the old file's. Where exactly one raw file of the class lies in
// the folder, it is that one.
void SDAccess::TakeNameThatIsThere(SDSample& sample) const {
  DIOFile::DIOFileInfo info;
  if (DIOFile::FindFirst(ExpandSamplePath(sample.fileName), info)) {
    DIOFile::FindClose(info);
    return;
  }
  qz::string stem = sample.fileName;
  qz::string extension;
  DIOFile::ChopExtension(stem, extension);
  const qz::string encodedName = BuildEncodedSampleDataFileName(sample.fileName);

  qz::string found;
  int count = 0;
  DIOFile::DIOFileInfo entry;
  bool more = DIOFile::FindFirst(ExpandSamplePath(stem) + ".*", entry);
  const bool opened = more;
  for (; more; more = DIOFile::FindNext(entry)) {
    qz::string foundStem = entry.pathName + entry.fullName;
    qz::string foundExtension;
    // The mask also finds names with further dots.
    if (entry.isDir || !DIOFile::ChopExtension(foundStem, foundExtension) ||
        !DIOFile::PathsIdentical(foundStem, ExpandSamplePath(stem))) {
      continue;
    }
    const qz::string candidate = stem + "." + foundExtension;
    if (DIOFile::PathsIdentical(ExpandSamplePath(candidate), encodedName)) continue;
    found = candidate;
    ++count;
  }
  if (opened) DIOFile::FindClose(entry);
  if (count == 1) sample.fileName = found;
}

bool SDAccess::IsCheckedOut() const {
  return checkedOut;
}

bool SDAccess::CanUndoCheckIn() const {
  return !lastPreCheckOutInternalName.empty();
}
