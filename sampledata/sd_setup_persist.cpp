// Storing a setup node: its folder and its classes. The lists of files and the version identity
// live in memory only, but a save is where they change their meaning.
#include <exception>

#include "sampledata/sd_nodefile.h"
#include "sampledata/sd_setup.h"

bool SDSetup::WriteNode(DIOFile* file, bool ownFile) const {
  qz::uint64 startChunk = 0;
  if (!nodefile::WriteHead(file, ownFile, hdbTypeSampleDataSetup, startChunk) ||
      !nodefile::WriteText(file, sampleFolder) ||
      !file->Write(static_cast<qz::ushort>(classList.size()))) {
    return false;
  }
  for (const SDClass& entry : classList) {
    if (!nodefile::WriteText(file, entry.GetName()) || !file->Write(entry.GetLevel()) ||
        !file->Write(entry.GetRefCount())) {
      return false;
    }
  }
  return nodefile::WriteTail(file, ownFile, startChunk);
}

bool SDSetup::Save(DIOFile* file, const qz::string* name) const {
  const bool ownFile = name != nullptr;
  if (ownFile) file = DIOFile::OpenFile(*name, DIOFile::OPENMODE_CREATE);
  if (file == nullptr) {
    SetError(ERROR_COULDNOTWRITE);
    return false;
  }

  bool written = false;
  try {
    written = WriteNode(file, ownFile);
  } catch (const std::exception&) {
    written = false;
  }
  if (ownFile) {
    // A close that fails leaves a file that nobody should trust.
    written = DIOFile::CloseFile(file) && written;
    if (!written) DIOFile::Delete(*name);
  }
  if (!written) {
    SetError(ERROR_COULDNOTWRITE);
    return false;
  }

  // Deletions so far are those of the saved state too, and files made so far belong to it.
  deleteFilesList.setBookmark();
  unsavedFilesList.clear();
  savedVersionID.init();
  SetError(ERROR_OK);
  return true;
}

SDSetupInterface::SDError SDSetup::ReadNode(DIOFile* file, bool ownFile) {
  using nodefile::ReadResult;
  ReadResult head = ReadResult::kOk;
  qz::ulong version = 0;
  if (ownFile) head = nodefile::ReadFileHead(file, hdbTypeSampleDataSetup);
  if (head == ReadResult::kOk) head = nodefile::ReadBodyHead(file, version);
  if (head == ReadResult::kBadFormat) return ERROR_BADFORMAT;
  if (head == ReadResult::kCouldNotRead) return ERROR_COULDNOTREAD;
  if (version != nodefile::kVersion) return ERROR_BADVERSION;

  // In place from here on: what was read before a failure stays.
  qz::ushort count = 0;
  if (!file->ReadString(sampleFolder) || !file->Read(count)) return ERROR_COULDNOTREAD;
  classList.clear();
  for (; count > 0; --count) {
    qz::string name;
    qz::uchar level = 0;
    qz::ushort references = 0;
    if (!file->ReadString(name) || !file->Read(level) || !file->Read(references)) {
      return ERROR_COULDNOTREAD;
    }
    // The samples that a node file's counts tell of are those of another database.
    if (ownFile) references = 0;
    // A class that repeats an earlier name or level is dropped without a word. The one refusal that
    // counts is that of exhausted memory, which must not pass for a smaller list.
    if (AddQualityClass(name, level, references) == ERROR_COULDNOTWRITE) return ERROR_COULDNOTREAD;
  }
  return ERROR_OK;
}

bool SDSetup::Load(DIOFile* file, const qz::string* name) {
  const bool ownFile = name != nullptr;
  if (ownFile) file = DIOFile::OpenFile(*name, DIOFile::OPENMODE_OPEN);
  if (file == nullptr) {
    SetError(ERROR_COULDNOTREAD);
    return false;
  }

  SDError result = ERROR_COULDNOTREAD;
  try {
    result = ReadNode(file, ownFile);
  } catch (const std::exception&) {
    result = ERROR_COULDNOTREAD;
  }
  if (ownFile) DIOFile::CloseFile(file);
  if (SetError(result) != ERROR_OK) return false;
  savedVersionID.init();
  return true;
}

qz::slong SDSetup::SetSampleFolder(const qz::string& _sampleFolder) {
  try {
    qz::string absolute;
    if (!DIOFile::ExpandPath(_sampleFolder, absolute)) {
      sampleFolder = _sampleFolder;
      return 0;
    }
    // The folder of the database: a colon belongs to it, a separator does not.
    qz::string dbPath = baseNode->GetRootInterface()->GetFilename();
    const qz::string::size_type end = dbPath.find_last_of("\\/:");
    if (end != qz::string::npos) dbPath.erase(dbPath[end] == u':' ? end + 1 : end);

    qz::string relative;
    const bool isRelative = DIOFile::MakeRelativePath(relative, dbPath, absolute);
    sampleFolder = isRelative ? relative : absolute;
  } catch (const std::exception&) {
    // The folder stays as it was; this operation has no answer.
    return 0;
  }
  return 0;
}
