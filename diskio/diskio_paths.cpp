// Paths as text. Of these operations only those that make a path absolute ask the platform.
#include <algorithm>
#include <functional>
#include <new>
#include <string>

#include "diskio/diskio.h"
#include "diskio/diskio_intern.h"
#include "platform/platform.h"

namespace {

// Narrow result of a platform call; `to` keeps its text where the memory is not to be had.
bool Assign(qz::string& to, const char* text) {
  try {
    to = text;
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// The platform's case folding for paths as this layer compares them: ASCII letters alone, whatever
// the locale.
char16_t Lower(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// A "." component goes with its separator, and a dot at the end of a name goes; ".." stays.
void RemoveDots(qz::string& path) {
  qz::string::size_type at = 0;
  while ((at = path.find(u".\\", at)) != qz::string::npos) {
    if (at > 0 && path[at - 1] == u'.') {
      at += 2;
    } else {
      path.erase(at, 1);
    }
  }
}

void FoldSeparators(qz::string& path) {
  qz::string::size_type at = 0;
  while ((at = path.find(u"\\\\", at)) != qz::string::npos) {
    if (at == 0) {
      at = 2;  // the lead of a network path
    } else {
      path.erase(at, 1);
    }
  }
}

// Takes trailing separators off; that of a root stays, as does whatever is shorter than a root.
void TrimSeparators(qz::string& path) {
  if (path.size() < 3) return;
  while (path.size() >= 2 && path.back() == u'\\' && path[path.size() - 2] != u':') {
    path.pop_back();
  }
}

}  // namespace

bool DIOFile::ExpandPath(const qz::string& name, qz::string& buffer) {
  char absolute[MAX_PATH] = "";
  LPSTR base = nullptr;
  const DWORD length = ::GetFullPathNameA(name.c_str(), MAX_PATH, absolute, &base);
  return length != 0 && length < MAX_PATH && Assign(buffer, absolute);
}

bool DIOFile::CleanupPath(qz::string& path) {
  std::replace(path.begin(), path.end(), u'/', u'\\');
  RemoveDots(path);
  FoldSeparators(path);
  return true;
}

bool DIOFile::MakeRelativePath(qz::string& relPath, const qz::string& fromPath,
                               const qz::string& toPath) {
  char relative[MAX_PATH + 1] = "";
  const BOOL answer = ::PathRelativePathToA(relative, fromPath.c_str(), FILE_ATTRIBUTE_DIRECTORY,
                                            toPath.c_str(), FILE_ATTRIBUTE_DIRECTORY);
  if (answer == TRUE && Assign(relPath, relative)) return true;
  relPath.clear();
  return false;
}

bool DIOFile::MakeRelativePath(qz::string& path, const qz::string& from, bool fromFolder,
                               const qz::string& to, bool toFolder) {
  char relative[MAX_PATH] = "";
  const BOOL answer = ::PathRelativePathToA(
      relative, from.c_str(), fromFolder ? FILE_ATTRIBUTE_DIRECTORY : DWORD{0}, to.c_str(),
      toFolder ? FILE_ATTRIBUTE_DIRECTORY : DWORD{0});
  return answer != FALSE && Assign(path, relative);
}

bool DIOFile::PathsIdentical(const qz::string& path1, const qz::string& path2) {
  try {
    qz::string clean1 = path1;
    qz::string clean2 = path2;
    CleanupPath(clean1);
    CleanupPath(clean2);
    return std::equal(clean1.begin(), clean1.end(), clean2.begin(), clean2.end(),
                      [](char16_t a, char16_t b) { return Lower(a) == Lower(b); });
  } catch (const std::bad_alloc&) {
    return false;
  }
}

std::size_t DIOHashPath(const qz::string& path) {
  qz::string clean = path;
  DIOFile::CleanupPath(clean);
  std::u16string folded(clean.begin(), clean.end());
  std::transform(folded.begin(), folded.end(), folded.begin(), Lower);
  return std::hash<std::u16string>()(folded);
}

bool DIOSplitName(const qz::string& full, qz::string& path, qz::string& base) {
  char drive[_MAX_DRIVE] = "";
  char folder[_MAX_DIR] = "";
  char name[_MAX_FNAME] = "";
  char extension[_MAX_EXT] = "";
  const char* const narrow = full.c_str();
  // An empty narrow form of a text that is not: an assertion's handler returned.
  bool split = narrow[0] != '\0' || full.empty();
  if (split) {
    ::_splitpath(narrow, drive, folder, name, extension);
    try {
      path = std::string(drive).append(folder).c_str();
      base = std::string(name).append(extension).c_str();
      TrimSeparators(path);
    } catch (const std::bad_alloc&) {
      split = false;
    }
  }
  if (!split) {
    path.clear();
    base.clear();
  }
  return split;
}

void DIOFile::SplitName(const qz::string& full, qz::string& path, qz::string& base) {
  DIOSplitName(full, path, base);
}

bool DIOFile::ChopExtension(qz::string& name, qz::string& extension) {
  extension.clear();
  const qz::string::size_type dot = name.find_last_of(u'.');
  if (dot == qz::string::npos) return false;
  try {
    extension.assign(name, dot + 1);
  } catch (const std::bad_alloc&) {
    return false;
  }
  name.erase(dot);
  return true;
}

bool DIOFile::GetCurrentDirectoryA(qz::string& buffer) {
  char directory[MAX_PATH] = "";
  const DWORD length = ::GetCurrentDirectoryA(MAX_PATH, directory);
  return length != 0 && length < MAX_PATH && Assign(buffer, directory);
}
