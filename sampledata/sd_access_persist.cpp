// A sample node as bytes and back: names and numbers; the sound itself stays in its files.
//
// docs/formats/node-file.md has the tables that the code below follows.
#include <cstring>
#include <memory>
#include <new>

#include "sampledata/sd_access.h"
#include "sampledata/sd_main.h"
#include "sampledata/sd_nodefile.h"
#include "sampledata/sd_setup.h"

namespace {

// SDInfoIntern in a file: little-endian whatever the stream's byte order, since it goes out as one
// block of bytes. The gaps are written as zeros and not read.
constexpr qz::ulong kInfoBytes = 40;
constexpr qz::ulong kInfoFrq = 0;
constexpr qz::ulong kInfoLength = 8;
constexpr qz::ulong kInfoLoop = 16;
constexpr qz::ulong kInfoLoopLength = 24;
constexpr qz::ulong kInfoOrgKey = 32;

constexpr qz::ulong kTimeBytes = 16;
static_assert(sizeof(DIOFile::DIOFileTime) == kTimeBytes);

// The most records that a node's reader takes.
constexpr qz::ulong kMaxRecords = 0xFFFF;

bool WriteInfo(DIOFile* file, const SDInfoIntern& info) {
  unsigned char bytes[kInfoBytes] = {};
  std::memcpy(bytes + kInfoFrq, &info.frq, sizeof info.frq);
  std::memcpy(bytes + kInfoLength, &info.length, sizeof info.length);
  std::memcpy(bytes + kInfoLoop, &info.loop, sizeof info.loop);
  std::memcpy(bytes + kInfoLoopLength, &info.loopLength, sizeof info.loopLength);
  bytes[kInfoOrgKey] = info.orgKey;
  return file->Write(bytes, 1, kInfoBytes);
}

bool ReadInfo(DIOFile* file, SDInfoIntern& info) {
  unsigned char bytes[kInfoBytes];
  if (!file->Read(bytes, 1, kInfoBytes)) return false;
  std::memcpy(&info.frq, bytes + kInfoFrq, sizeof info.frq);
  std::memcpy(&info.length, bytes + kInfoLength, sizeof info.length);
  std::memcpy(&info.loop, bytes + kInfoLoop, sizeof info.loop);
  std::memcpy(&info.loopLength, bytes + kInfoLoopLength, sizeof info.loopLength);
  info.orgKey = bytes[kInfoOrgKey];
  return true;
}

bool WriteTime(DIOFile* file, const DIOFile::DIOFileTime& time) {
  return file->Write(&time, 1, kTimeBytes);
}

// File times are stored for readers of the file; loading makes no use of them.
bool SkipTime(DIOFile* file) {
  unsigned char bytes[kTimeBytes];
  return file->Read(bytes, 1, kTimeBytes);
}

// Whether a file or folder of that name is there; `info` gets its description.
bool FindFile(const qz::string& name, DIOFile::DIOFileInfo& info) {
  if (!DIOFile::FindFirst(name, info)) return false;
  DIOFile::FindClose(info);
  return true;
}

}  // namespace

// --- Save ---

bool SDAccess::Save(DIOFile* file, const qz::string* name) const {
  const bool ownFile = name != nullptr;
  bool saved = false;
  try {
    if (ownFile) file = DIOFile::OpenFile(*name, DIOFile::OPENMODE_CREATE);
    if (file != nullptr) saved = WriteNode(file, ownFile);
  } catch (const std::bad_alloc&) {
    saved = false;
  }
  if (ownFile && file != nullptr) {
    saved = DIOFile::CloseFile(file) && saved;
    if (!saved) DIOFile::Delete(*name);
  }
  SetError(saved ? ERROR_OK : ERROR_COULDNOTWRITE);
  return saved;
}

bool SDAccess::WriteNode(DIOFile* file, bool ownFile) const {
  qz::uint64 startChunk = 0;
  if (!nodefile::WriteHead(file, ownFile, hdbTypeSampleData, startChunk)) return false;
  if (!nodefile::WriteText(file, selQualityClass)) return false;
  if (!file->Write(static_cast<ulong>(sampleList.size()))) return false;
  for (SDSample& sample : sampleList) {
    if (!WriteSample(file, sample)) return false;
    // From here on the sample counts as one that the setup's saved version refers to.
    sample.savedVersionIdentifier = static_cast<SDSetup*>(setup)->GetSavedVersionID();
  }
  return nodefile::WriteTail(file, ownFile, startChunk);
}

bool SDAccess::WriteSample(DIOFile* file, const SDSample& sample) const {
  DIOFile::DIOFileInfo raw;
  DIOFile::DIOFileInfo encoded;
  return nodefile::WriteText(file, sample.qualClass) &&
         nodefile::WriteText(file, sample.originalName) &&
         nodefile::WriteText(file, sample.fileName) &&
         FindFile(ExpandSamplePath(sample.fileName), raw) &&
         FindFile(BuildEncodedSampleDataFileName(sample.fileName), encoded) &&
         file->Write(static_cast<ulong>(sample.compType)) && file->Write(sample.numChannels) &&
         WriteInfo(file, sample.info) && WriteTime(file, raw.timeWrite) &&
         WriteInfo(file, sample.encodedInfo) && WriteTime(file, encoded.timeWrite);
}

// --- Load ---

bool SDAccess::Load(DIOFile* file, const qz::string* name) {
  SDError err = ERROR_OK;
  if (name == nullptr) {
    try {
      err = ReadNode(file);
    } catch (const std::bad_alloc&) {
      err = ERROR_NOMEMORY;
    }
  } else {
    err = LoadNodeFile(*name);
  }
  SetError(err);
  return err == ERROR_OK;
}

SDAccess::SDError SDAccess::LoadNodeFile(const qz::string& name) {
  DIOFile* file = DIOFile::OpenFile(name, DIOFile::OPENMODE_OPEN);
  if (file == nullptr) return ERROR_COULDNOTREAD;
  SDError err = ERROR_OK;
  HDBUndoInfo info;
  std::unique_ptr<SDUndo> snapshot;
  try {
    const nodefile::ReadResult head = nodefile::ReadFileHead(file, hdbTypeSampleData);
    err = ErrorOfRead(head);
    if (err == ERROR_OK) {
      snapshot = std::make_unique<SDUndo>(sampleList, selQualityClass, internalSampleFileName);
      info.ID = UNDO_SDSAMPLE_LOADED;
      info.description = baseInterface->stringTab[UNDODESCRIPTION_LOAD];
      err = ReadNode(file);
    }
  } catch (const std::bad_alloc&) {
    err = ERROR_NOMEMORY;
  }
  DIOFile::CloseFile(file);
  if (err != ERROR_OK) return err;
  // The host has opened the modification around the call.
  info.data = snapshot.release();
  baseNode->EndModify(&info);
  return err;
}

SDAccess::SDError SDAccess::ErrorOfRead(nodefile::ReadResult result) {
  if (result == nodefile::ReadResult::kOk) return ERROR_OK;
  return result == nodefile::ReadResult::kBadFormat ? ERROR_BADFORMAT : ERROR_COULDNOTREAD;
}

// In place: what was read before a failure stays.
SDAccess::SDError SDAccess::ReadNode(DIOFile* file) {
  ulong version = 0;
  const SDError err = ErrorOfRead(nodefile::ReadBodyHead(file, version));
  if (err != ERROR_OK) return err;
  if (version != nodefile::kVersion) return ERROR_BADVERSION;

  if (!file->ReadString(selQualityClass)) return ERROR_COULDNOTREAD;
  ulong count = 0;
  if (!file->Read(count)) return ERROR_COULDNOTREAD;
  sampleList.clear();
  if (count > kMaxRecords) return ERROR_COULDNOTREAD;
  for (ulong i = 0; i < count; ++i) {
    const SDError sampleErr = ReadSample(file);
    if (sampleErr != ERROR_OK) return sampleErr;
  }
  if (!sampleList.empty()) {
    qz::string base;
    DIOFile::SplitName(sampleList.front().fileName, internalSampleFileName, base);
    // Of a file that is there only memory can have kept the name back, and the folder with it.
    if (base.empty()) return ERROR_NOMEMORY;
  }
  return ERROR_OK;
}

SDAccess::SDError SDAccess::ReadSample(DIOFile* file) {
  std::list<SDSample> record(1);
  SDSample& sample = record.front();
  if (!file->ReadString(sample.qualClass) || !file->ReadString(sample.originalName) ||
      !file->ReadString(sample.fileName)) {
    return ERROR_COULDNOTREAD;
  }
  FixLocation(sample.fileName);

  ulong compType = 0;
  if (!file->Read(compType) || !file->Read(sample.numChannels)) return ERROR_COULDNOTREAD;
  sample.compType = static_cast<SDCompType>(compType);
  if (!ReadInfo(file, sample.info) || !SkipTime(file) || !ReadInfo(file, sample.encodedInfo) ||
      !SkipTime(file)) {
    return ERROR_COULDNOTREAD;
  }
  DIOFile::DIOFileInfo info;
  if (!FindFile(ExpandSamplePath(sample.fileName), info)) return ERROR_COULDNOTREAD;
  sample.savedVersionIdentifier = static_cast<SDSetup*>(setup)->GetSavedVersionID();
  sampleList.splice(sampleList.end(), record);

  if (FindFile(BuildEncodedSampleDataFileName(sample.fileName), info)) return ERROR_OK;
  // Encoded files are derived data: a lost one is made anew.
  if (ReadSampleInformation(sample.qualClass) == ERROR_OK) return ERROR_OK;
  sampleList.pop_back();
  return ERROR_COULDNOTGETSAMPLEINFO;
}

// Stored names are relative to the folder that the data came from; the node needs them relative to
// where the database is now. The files themselves stay where they are.
void SDAccess::FixLocation(qz::string& fileName) const {
  const HDBRootInterface* root = baseNode->GetRootInterface();
  qz::string loadName = root->GetCurrentLoadLocation();
  const qz::string dbName = root->GetFilename();
  if (loadName == dbName) return;

  const auto separator = loadName.find_last_of('\\');
  if (separator != qz::string::npos) loadName.erase(separator + 1);
  const qz::string fullName = loadName + fileName;
  if (!DIOFile::MakeRelativePath(fileName, dbName, false, fullName, false)) fileName = fullName;
  DIOFile::CleanupPath(fileName);
}
