// Import, format change and removal, and the transaction that they are built on.
//
// The files of a state are never changed: the node's files move to a new folder by copying, and
// the old folder stays on disk for undo and for the saved database.
#include <algorithm>
#include <memory>
#include <new>

#include "sampledata/sd_access.h"
#include "sampledata/sd_main.h"
#include "sampledata/sd_modify.h"
#include "sampledata/sd_setup.h"
#include "sampledata/sd_sound.h"

// A sample that the transaction takes along unchanged. Full paths.
class SDAccess::SDKeptSampleInfo {
 public:
  SDKeptSampleInfo(const qz::string& _qualClass, const qz::string& _rawName,
                   const qz::string& _encodedName)
      : encodedName(_encodedName), rawName(_rawName), qualClass(_qualClass) {}

  qz::string encodedName;
  qz::string rawName;
  qz::string qualClass;
};

namespace {

// Copies, and on success appends the target to `newFiles`, which has room before there is a file.
bool CopyNoted(const qz::string& from, const qz::string& to, std::list<qz::string>& newFiles) {
  std::list<qz::string> note{to};
  if (!DIOFile::Copy(from, to)) return false;
  newFiles.splice(newFiles.end(), note);
  return true;
}

}  // namespace

// --- The transaction ---

SDAccess::SDError SDAccess::CopyInternalFiles() {
  return CopyNewFiles({}, {}, 0);
}

SDAccess::SDError SDAccess::CopyNewFiles(const std::list<qz::string>& qualClassName,
                                         const std::list<qz::string>& sourceName,
                                         uchar formatIndex) {
  SetError(ERROR_OK);
  qz::string oldInternalName = internalSampleFileName;
  SDSampleList oldSamples = sampleList;
  std::list<qz::string> newFiles;

  SDError err = ERROR_OK;
  try {
    err = MoveToNewFolder(qualClassName, sourceName, formatIndex, newFiles);
  } catch (const std::bad_alloc&) {
    err = SetError(ERROR_NOMEMORY);
  }
  if (err == ERROR_OK) return err;

  // Roll back: no file of the old state was touched or marked. The node first, which cannot fail.
  sampleList.swap(oldSamples);
  internalSampleFileName.swap(oldInternalName);
  DeleteNew(newFiles, oldInternalName);
  return SetError(err);
}

void SDAccess::DeleteNew(const std::list<qz::string>& files, const qz::string& folder) const {
  try {
    for (const qz::string& name : files)
      DIOFile::Delete(name);
    if (!folder.empty()) DIOFile::Delete(ExpandSamplePath(folder));
  } catch (const std::bad_alloc&) {
    // No state names what stays.
  }
}

SDAccess::SDError SDAccess::MoveToNewFolder(const std::list<qz::string>& qualClassName,
                                            const std::list<qz::string>& sourceName,
                                            uchar formatIndex, std::list<qz::string>& newFiles) {
  SDDeleteInfoList oldFiles;
  std::list<SDKeptSampleInfo> keptSamples;
  for (const SDSample& sample : sampleList) {
    oldFiles.push_back(SDDeleteInfo(this, &sample));
    const auto replaced =
        std::find(qualClassName.begin(), qualClassName.end(), sample.GetQualClass());
    if (replaced == qualClassName.end()) {
      keptSamples.emplace_back(sample.GetQualClass(), ExpandSamplePath(sample.fileName),
                               BuildEncodedSampleDataFileName(sample.fileName));
    }
  }

  internalSampleFileName.clear();  // the next name that is set up makes a new folder
  SDError err = ERROR_OK;
  auto source = sourceName.begin();
  for (const qz::string& qualClass : qualClassName) {
    err = BringIn(qualClass, *source++, formatIndex, newFiles);
    if (err != ERROR_OK) return err;
  }
  for (const SDKeptSampleInfo& kept : keptSamples) {
    err = TakeAlong(kept, newFiles);
    if (err != ERROR_OK) return err;
  }

  SDDeleteInfoList unsavedFiles;
  for (const SDSample& sample : sampleList)
    unsavedFiles.push_back(SDDeleteInfo(this, &sample));
  static_cast<SDSetup*>(setup)->MarkFilesReplaced(oldFiles, unsavedFiles);
  return ERROR_OK;
}

SDAccess::SDError SDAccess::BringIn(const qz::string& qualClass, const qz::string& source,
                                    uchar formatIndex, std::list<qz::string>& newFiles) {
  qz::string oldFileName;
  SDSample* sample = sampleList.FindSample(qualClass);
  if (sample != nullptr) {
    oldFileName = sample->fileName;
  } else {
    sample = &sampleList.emplace_back();
    sample->qualClass = qualClass;
    sample->originalName = source;
    sample->compType = CompTypeOfNewSample(formatIndex);
    if (!IsKnownCompType(sample->compType)) return SetError(ERROR_UNSUPPORTEDFORMAT);
  }

  if (!SetupInternalName(sample->fileName, sample->originalName, qualClass)) {
    return SetError(ERROR_INTERNAL);
  }
  // A name is noted for the roll-back once the file is ours: a copy that fails has made none, and
  // what stands there then belongs to someone else.
  const qz::string encodedName = BuildEncodedSampleDataFileName(sample->fileName);
  // The encoded file comes along, since it may still be up to date with the new raw file.
  if (!oldFileName.empty()) {
    if (!CopyNoted(BuildEncodedSampleDataFileName(oldFileName), encodedName, newFiles)) {
      return SetError(ERROR_INTERNAL);
    }
  }
  const qz::string rawName = ExpandSamplePath(sample->fileName);
  if (!CopyNoted(source, rawName, newFiles)) return SetError(ERROR_COULDNOTCOPYSAMPLE);
  if (oldFileName.empty()) newFiles.push_back(encodedName);
  // Archive alone: a read-only mark of the source must not stay on our copy.
  if (!SetFileAttributesA(rawName.c_str(), FILE_ATTRIBUTE_ARCHIVE)) {
    return SetError(ERROR_COULDNOTCOPYSAMPLE);
  }
  return ReadSampleInformation(qualClass);
}

SDCompType SDAccess::CompTypeOfNewSample(uchar formatIndex) const {
  SDCompType type = ConvertToSaveCompressionType(formatIndex);
  if (baseNode->GetRootInterface()->GetOnlyDefaultSampleType()) type = COMPTYPE_NONE;
  return type == COMPTYPE_NONE ? GetDefaultSampleType() : type;
}

SDAccess::SDError SDAccess::TakeAlong(const SDKeptSampleInfo& kept,
                                      std::list<qz::string>& newFiles) {
  SDSample* sample = sampleList.FindSample(kept.qualClass);
  if (!SetupInternalName(sample->fileName, sample->originalName, kept.qualClass)) {
    return SetError(ERROR_INTERNAL);
  }
  if (!CopyNoted(kept.rawName, ExpandSamplePath(sample->fileName), newFiles) ||
      !CopyNoted(kept.encodedName, BuildEncodedSampleDataFileName(sample->fileName), newFiles)) {
    return SetError(ERROR_COULDNOTCOPYSAMPLE);
  }
  return ERROR_OK;
}

// --- Import ---

SDAccess::SDError SDAccess::ImportSample(const qz::string& originalname, uchar formatIndex,
                                         const qz::string& qualClass) {
  try {
    if (checkedOut) return SetError(ERROR_ISCHECKEDOUT);
    if (!setup->ProbeQualityClass(qualClass)) return SetError(ERROR_UNKNOWNCLASS);
    if (!baseNode->RequestModifyData()) return SetError(ERROR_READONLY);
    DIOFile::DIOFileInfo source;
    if (!DIOFile::FindFirst(originalname, source)) return SetError(ERROR_COULDNOTCOPYSAMPLE);
    DIOFile::FindClose(source);

    Modification modification(baseNode);
    if (!modification.IsOpen()) return SetError(ERROR_READONLY);
    UndoRecord record(UNDO_SDSAMPLE_IMPORTED, baseInterface->stringTab[UNDODESCRIPTION_IMPORT],
                      std::make_unique<SDUndo>(sampleList, qualClass, internalSampleFileName));
    qz::string sampleName = originalname;
    // The first sample of a node selects itself. That stays even where the import fails.
    if (sampleList.empty()) selQualityClass = qualClass;

    const SDError err = CopyNewFiles({qualClass}, {originalname}, formatIndex);
    if (err != ERROR_OK) return err;
    sampleList.FindSample(qualClass)->originalName.swap(sampleName);
    modification.CloseWith(record);
    return err;
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

// --- Format change ---

SDAccess::SDError SDAccess::ChangeSampleFormat(const qz::string& qualClass, uchar formatIndex) {
  try {
    SetError(ERROR_OK);
    const SDCompType compType = ConvertToSaveCompressionType(formatIndex);
    if (!baseNode->RequestModifyData()) return SetError(ERROR_READONLY);
    const SDSample* found = FindQualityClass(qualClass);
    if (found == nullptr) return lastError;
    if (!IsKnownCompType(compType)) return SetError(ERROR_UNSUPPORTEDFORMAT);
    if (found->compType == compType) return SetError(ERROR_OK);

    Modification modification(baseNode);
    if (!modification.IsOpen()) return SetError(ERROR_READONLY);
    UndoRecord record(
        UNDO_SDSAMPLE_TYPECHANGE, baseInterface->stringTab[UNDODESCRIPTION_TYPECHANGE],
        std::make_unique<SDUndo>(sampleList, selQualityClass, internalSampleFileName));
    SDError err = CopyInternalFiles();
    if (err != ERROR_OK) return err;

    SDSample* sample = sampleList.FindSample(qualClass);
    Sound sound;
    if (!sound.Read(ExpandSamplePath(sample->fileName))) return SetError(ERROR_COULDNOTREAD);
    sample->compType = compType;
    err = GenerateEncodedData(*sample, &sound.Record());
    // Also after a failed encode: format and folder have changed, and the host's undo takes that
    // back.
    modification.CloseWith(record);
    return err;
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

// --- Removal ---

SDAccess::SDError SDAccess::RemoveSample(const qz::string& qualClass) {
  try {
    if (checkedOut) return SetError(ERROR_ISCHECKEDOUT);
    // One code for both causes.
    if (FindQualityClass(qualClass) == nullptr) return SetError(ERROR_QUALITYNOTAVAILABLE);
    UndoRecord record(UNDO_SDSAMPLE_DELETED, baseInterface->stringTab[UNDODESCRIPTION_DELETE],
                      std::make_unique<SDUndo>(sampleList, qualClass, internalSampleFileName));
    Modification modification(baseNode);
    if (!modification.IsOpen()) return SetError(ERROR_READONLY);

    if (sampleList.size() > 1) {
      const SDError err = CopyInternalFiles();
      if (err != ERROR_OK) return err;
      DropFreshCopy(qualClass);
    } else {
      sampleList.front().RemoveFiles(this);
      sampleList.clear();
      internalSampleFileName.clear();
    }
    GiveBackReference(qualClass);
    modification.CloseWith(record);
    return SetError(ERROR_OK);
  } catch (const std::bad_alloc&) {
    return SetError(ERROR_NOMEMORY);
  }
}

void SDAccess::DropFreshCopy(const qz::string& qualClass) {
  // What can fail comes first, and fails without effect.
  const SDDeleteInfo files(this, sampleList.FindSample(qualClass));
  static_cast<SDSetup*>(setup)->UnmarkFilesAsUnsaved(files);
  sampleList.remove_if(
      [&](const SDSample& candidate) { return candidate.GetQualClass() == qualClass; });
  DIOFile::Delete(files.getRawName());
  DIOFile::Delete(files.getEncodedName());
}

// The host takes one reference for each sample of a class. Where it took none, the count must not
// fall below 0.
void SDAccess::GiveBackReference(const qz::string& qualClass) {
  if (static_cast<SDSetup*>(setup)->IsReferenced(qualClass)) setup->RemoveRef(qualClass);
}
