// Files, folders and searches.
#include <cstring>
#include <list>
#include <new>
#include <utility>

#include "diskio/diskio.h"
#include "diskio/diskio_intern.h"
#include "platform/platform.h"

namespace {

using DIOFileInfo = DIOFile::DIOFileInfo;

DIOPrivateFindData* SearchOf(const DIOFileInfo& info) {
  return static_cast<DIOPrivateFindData*>(const_cast<void*>(info.privateData));
}

// Frees the record alone; the platform's search is FindClose's matter.
void DropSearch(DIOFileInfo& info) {
  delete SearchOf(info);
  info.privateData = nullptr;
}

qz::ulong AttributesOf(const WIN32_FIND_DATAA& entry) {
  static constexpr struct {
    DWORD platform;
    qz::ulong ours;
  } kFlags[] = {
      {FILE_ATTRIBUTE_ARCHIVE, DIOFile::ATTRIBUTE_ARCHIVE},
      {FILE_ATTRIBUTE_HIDDEN, DIOFile::ATTRIBUTE_HIDDEN},
      {FILE_ATTRIBUTE_READONLY, DIOFile::ATTRIBUTE_READONLY},
      {FILE_ATTRIBUTE_SYSTEM, DIOFile::ATTRIBUTE_SYSTEM},
      {FILE_ATTRIBUTE_TEMPORARY, DIOFile::ATTRIBUTE_TEMPORARY},
  };
  qz::ulong attributes = 0;
  for (const auto& flag : kFlags) {
    if ((entry.dwFileAttributes & flag.platform) != 0) attributes |= flag.ours;
  }
  return attributes;
}

// Takes folder and base name from the absolute path of the current entry. For "." and ".." they
// are those of the folder that the entry stands for.
bool FillPath(DIOFileInfo& info, DIOPrivateFindData& search) {
  qz::string path = search.mask;
  path.erase(path.find_last_of(u'\\') + 1);  // npos: nothing of the mask is a folder
  path += info.fullName;
  char absolute[MAX_PATH] = "";
  LPSTR base = nullptr;
  const DWORD length = ::GetFullPathNameA(path.c_str(), MAX_PATH, absolute, &base);
  if (length == 0 || length >= MAX_PATH) return false;
  if (base == nullptr) {
    info.baseName.clear();  // a root
  } else {
    info.baseName = base;
    *base = '\0';
  }
  search.pathBuffer = absolute;
  info.pathName = search.pathBuffer;
  return true;
}

// Describes the current entry in `info`, which keeps what was written before a failure. Throws
// std::bad_alloc.
bool Fill(DIOFileInfo& info, DIOPrivateFindData& search) {
  const WIN32_FIND_DATAA& entry = search.info;
  info.fullName = entry.cFileName;
  info.shortName = entry.cAlternateFileName;
  DIOConvertTime(entry.ftLastAccessTime, info.timeAccess);
  DIOConvertTime(entry.ftCreationTime, info.timeCreate);
  DIOConvertTime(entry.ftLastWriteTime, info.timeWrite);
  info.size = (qz::uint64{entry.nFileSizeHigh} << 32) | entry.nFileSizeLow;
  info.isDir = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  info.attributes = AttributesOf(entry);
  return FillPath(info, search);
}

// Makes the folder unless it is there; a file in its place is a failure.
bool ProvideFolder(const qz::string& path) {
  DIOFileInfo info;
  if (!DIOFile::FindFirst(path, info)) return DIOFile::CreateDirectoryA(path);
  DIOFile::FindClose(info);
  return info.isDir;
}

// Takes `path` apart into its root and the names below it. Throws std::bad_alloc.
bool SplitComponents(const qz::string& path, qz::string& root, std::list<qz::string>& components) {
  root = path;
  for (;;) {
    qz::string folder;
    qz::string base;
    if (!DIOSplitName(root, folder, base)) return false;
    if (base.empty()) return true;
    components.push_front(std::move(base));
    root = std::move(folder);
  }
}

}  // namespace

DIOFile::DIOFileInfo::DIOFileInfo(const DIOFileInfo& other)
    : fullName(other.fullName),
      pathName(other.pathName),
      baseName(other.baseName),
      shortName(other.shortName),
      size(other.size),
      timeCreate(other.timeCreate),
      timeAccess(other.timeAccess),
      timeWrite(other.timeWrite),
      isDir(other.isDir),
      attributes(other.attributes),
      privateData(other.privateData != nullptr ? new DIOPrivateFindData(*SearchOf(other))
                                               : nullptr) {}

DIOFile::DIOFileInfo& DIOFile::DIOFileInfo::operator=(const DIOFileInfo& other) {
  DIOFileInfo copy(other);
  fullName = std::move(copy.fullName);
  pathName = std::move(copy.pathName);
  baseName = std::move(copy.baseName);
  shortName = std::move(copy.shortName);
  size = copy.size;
  timeCreate = copy.timeCreate;
  timeAccess = copy.timeAccess;
  timeWrite = copy.timeWrite;
  isDir = copy.isDir;
  attributes = copy.attributes;
  std::swap(privateData, copy.privateData);
  return *this;
}

DIOFile::DIOFileInfo::~DIOFileInfo() {
  DropSearch(*this);
}

bool DIOFile::Delete(const qz::string& name) {
  const DWORD attributes = ::GetFileAttributesA(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return ::RemoveDirectoryA(name.c_str()) != FALSE;
  }
  return ::DeleteFileA(name.c_str()) != FALSE;
}

bool DIOFile::CreateDirectoryA(const qz::string& name) {
  return ::CreateDirectoryA(name.c_str(), nullptr) != FALSE;
}

bool DIOFile::CreatePath(const qz::string& path, bool isFilename) {
  try {
    qz::string clean = path;
    CleanupPath(clean);
    // SplitName would cut the names of a longer one, and other folders would come out.
    if (std::strlen(clean.c_str()) >= MAX_PATH) return false;
    std::list<qz::string> components;
    qz::string current;
    if (!SplitComponents(clean, current, components)) return false;
    if (isFilename && !components.empty()) components.pop_back();
    for (const qz::string& component : components) {
      // Also behind a root that ends in a separator: the platform folds the two.
      current.push_back(u'\\');
      current += component;
      if (!ProvideFolder(current)) return false;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool DIOFile::Rename(const qz::string& oldName, const qz::string& newName) {
  return ::MoveFileA(oldName.c_str(), newName.c_str()) != FALSE;
}

bool DIOFile::Copy(const qz::string& srcName, const qz::string& destName) {
  return ::CopyFileA(srcName.c_str(), destName.c_str(), TRUE) != FALSE;
}

bool DIOFile::FindFirst(const qz::string& mask, DIOFileInfo& info) {
  DropSearch(info);
  DIOPrivateFindData* const search = new (std::nothrow) DIOPrivateFindData;
  if (search == nullptr) return false;
  info.privateData = search;
  bool filled = false;
  try {
    search->mask = mask;
    search->handle = ::FindFirstFileA(mask.c_str(), &search->info);
    filled = search->handle != INVALID_HANDLE_VALUE && Fill(info, *search);
  } catch (const std::bad_alloc&) {
    filled = false;
  }
  if (filled) return true;
  if (search->handle != INVALID_HANDLE_VALUE) ::FindClose(search->handle);
  DropSearch(info);
  return false;
}

bool DIOFile::FindNext(DIOFileInfo& info) {
  DIOPrivateFindData* const search = SearchOf(info);
  if (search == nullptr || ::FindNextFileA(search->handle, &search->info) == FALSE) return false;
  try {
    Fill(info, *search);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool DIOFile::FindClose(DIOFileInfo& info) {
  DIOPrivateFindData* const search = SearchOf(info);
  if (search == nullptr || ::FindClose(search->handle) == FALSE) return false;
  DropSearch(info);
  return true;
}

qz::string DIOFile::CreateUniqueTempName() {
  char folder[MAX_PATH] = "";
  char name[MAX_PATH] = "";
  const DWORD length = ::GetTempPathA(MAX_PATH, folder);
  if (length == 0 || length >= MAX_PATH) return {};
  if (::GetTempFileNameA(folder, "dio", 0, name) == 0) return {};
  try {
    return {name};
  } catch (const std::bad_alloc&) {
    ::DeleteFileA(name);  // nobody would know of it
    return {};
  }
}

bool DIOFile::ChangeDirectory(const qz::string& directory) {
  return ::SetCurrentDirectoryA(directory.c_str()) != FALSE;
}
