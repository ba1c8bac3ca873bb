// Drives, and the way between paths in our notation and native ones.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/native.h"
#include "platform/posix_intern.h"

namespace platform {

namespace {

constexpr std::size_t kNumDrives = 26;

// The folder of each drive without a trailing slash (so "" is the root), null where none is
// mounted. Plain pointers, as load hooks may make calls before objects are constructed.
constinit const char* mounts[kNumDrives] = {nullptr, nullptr, ""};

std::size_t DriveIndex(char letter) {
  if (letter >= 'a' && letter <= 'z') return static_cast<std::size_t>(letter - 'a');
  if (letter >= 'A' && letter <= 'Z') return static_cast<std::size_t>(letter - 'A');
  return kNumDrives;
}

bool IsFolder(const std::string& native) {
  struct stat facts;
  return stat(native.empty() ? "/" : native.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

// "/a/./b//../c" without the dots and the doubled slashes.
std::string CleanNative(const std::string& native) {
  std::string clean;
  std::size_t at = 0;
  while (at < native.size()) {
    std::size_t end = native.find('/', at);
    if (end == std::string::npos) end = native.size();
    const std::string_view part = std::string_view(native).substr(at, end - at);
    if (part == "..") {
      clean.resize(clean.empty() ? 0 : clean.rfind('/'));
    } else if (!part.empty() && part != ".") {
      clean += '/';
      clean += part;
    }
    at = end + 1;
  }
  return clean;
}

}  // namespace

void MountDrive(char letter, const std::string& folder) {
  const std::size_t index = DriveIndex(letter);
  if (index == kNumDrives) return;
  const char* old = mounts[index];
  if (old != nullptr && *old != 0) std::free(const_cast<char*>(old));
  if (folder.empty()) {
    mounts[index] = nullptr;
    return;
  }
  // The current directory comes from the kernel without links, so the drive's folder must too.
  char real[PATH_MAX];
  const char* target = realpath(folder.c_str(), real) != nullptr ? real : folder.c_str();
  const std::string clean = CleanNative(target);
  mounts[index] = clean.empty() ? "" : strdup(clean.c_str());
}

bool FromNative(const std::string& native, std::string& path, std::string& why) {
  std::string absolute = native;
  if (native.empty()) {
    why = "The name is empty.";
    return false;
  }
  if (native[0] != '/') {
    char current[PATH_MAX];
    if (getcwd(current, sizeof current) == nullptr) {
      why = "The current directory is not known.";
      return false;
    }
    absolute = std::string(current) + '/' + native;
  }
  return posix::NotationOf(CleanNative(absolute), path, why);
}

bool ToNative(const std::string& path, std::string& native) {
  posix::Path parsed;
  if (posix::ParsePath(path.c_str(), parsed) != NO_ERROR) return false;
  const DWORD error = posix::Respell(parsed);
  native = parsed.native;
  return error == NO_ERROR || error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

namespace posix {

bool NameIsCarried(std::string_view name) {
  return !name.empty() && name.find('\\') == std::string_view::npos &&
         !HoldsForbidden(name, false) && name.back() != '.' && name.back() != ' ';
}

// Wildcards, what stands for them in masks, and what does not survive as text (a line feed becomes
// two characters on its way through a stream): the calls refuse them as Windows does.
bool HoldsForbidden(std::string_view text, bool isMask) {
  return std::any_of(text.begin(), text.end(), [isMask](char c) {
    const bool isControl = static_cast<unsigned char>(c) < 0x20;
    return isControl || std::strchr(isMask ? ":\"<>|" : ":\"<>|*?", c) != nullptr;
  });
}

bool NotationOf(const std::string& native, std::string& path, std::string& why) {
  std::size_t drive = kNumDrives;
  std::size_t length = 0;
  for (std::size_t i = 0; i < kNumDrives; ++i) {
    if (mounts[i] == nullptr) continue;
    const std::size_t size = std::strlen(mounts[i]);
    if (drive != kNumDrives && size <= length) continue;
    if (native.compare(0, size, mounts[i]) != 0) continue;
    if (native.size() > size && native[size] != '/') continue;
    drive = i;
    length = size;
  }
  if (drive == kNumDrives) {
    why = "'" + native + "' is on no drive.";
    return false;
  }
  std::string text{static_cast<char>('A' + static_cast<int>(drive)), ':'};
  std::size_t at = length;
  while (at < native.size()) {
    if (native[at] == '/') {
      ++at;
      continue;
    }
    std::size_t end = native.find('/', at);
    if (end == std::string::npos) end = native.size();
    const std::string_view name = std::string_view(native).substr(at, end - at);
    if (!NameIsCarried(name)) {
      why = "The name '" + std::string(name) +
            "' cannot be used: it holds one of \\ : * ? \" < > | or a control character, or ends "
            "in a dot or a blank.";
      return false;
    }
    text += '\\';
    text += name;
    at = end;
  }
  if (text.size() == 2) text += '\\';
  if (text.size() >= MAX_PATH) {
    why = "The path '" + native + "' is too long: 259 bytes are the most.";
    return false;
  }
  path = text;
  return true;
}

bool CurrentFolder(std::string& full) {
  char current[PATH_MAX];
  std::string why;
  return getcwd(current, sizeof current) != nullptr &&
         NotationOf(current[1] == 0 ? "" : current, full, why);
}

namespace {

// Turns a full path into `path`; `mask`, where given, takes the last component unchecked.
DWORD ParseFull(const std::string& full, Path& path, std::string* mask) {
  if (full.size() < 3 || full[1] != ':') return ERROR_PATH_NOT_FOUND;  // network and device names
  std::string_view text = full;
  path.folderForm = text.size() > 3 && text.back() == '\\';
  if (path.folderForm) text.remove_suffix(1);
  if (text.size() >= MAX_PATH) return ERROR_FILENAME_EXCED_RANGE;
  std::string_view names = text.substr(3);
  if (mask != nullptr) {
    const std::size_t cut = names.rfind('\\');
    *mask = names.substr(cut == std::string_view::npos ? 0 : cut + 1);
    names = names.substr(0, cut == std::string_view::npos ? 0 : cut);
  }
  if (HoldsForbidden(names, false)) return ERROR_INVALID_NAME;
  const std::size_t drive = DriveIndex(full[0]);
  if (drive == kNumDrives || mounts[drive] == nullptr) return ERROR_PATH_NOT_FOUND;
  path.native = mounts[drive];
  path.rootLength = path.native.size();
  path.isRoot = names.empty();
  if (path.isRoot) {
    if (path.native.empty()) path.native = "/";
    return NO_ERROR;
  }
  path.native += '/';
  for (const char c : names)
    path.native += c == '\\' ? '/' : c;
  path.leaf = path.native.substr(path.native.rfind('/') + 1);
  return NO_ERROR;
}

}  // namespace

DWORD ParsePath(const char* name, Path& path) {
  std::string full;
  if (name == nullptr || *name == 0 || !FullPath(name, full)) return ERROR_PATH_NOT_FOUND;
  return ParseFull(full, path, nullptr);
}

DWORD ParseMask(const std::string& full, Path& folder, std::string& mask) {
  return ParseFull(full, folder, &mask);
}

DWORD Respell(Path& path) {
  if (path.isRoot) return IsFolder(path.native) ? NO_ERROR : ERROR_PATH_NOT_FOUND;
  const std::string given = path.native;
  std::size_t at = path.rootLength;
  std::string done = given.substr(0, at);
  // Mostly the folder is there under its exact name, and only the last component is in question.
  const std::size_t lastSlash = given.rfind('/');
  if (IsFolder(given.substr(0, lastSlash))) {
    at = lastSlash;
    done = given.substr(0, at);
  }
  while (at < given.size()) {
    std::size_t end = given.find('/', at + 1);
    if (end == std::string::npos) end = given.size();
    const std::string name = given.substr(at + 1, end - at - 1);
    struct stat facts;
    std::string stored;
    if (lstat((done + '/' + name).c_str(), &facts) == 0) {
      done += '/' + name;
    } else {
      if (errno != ENOENT && errno != ENOTDIR) return ErrorOf(errno);
      const DWORD error = FindSpelling(done.empty() ? "/" : done, name, stored);
      if (error != NO_ERROR) {
        path.native = done + given.substr(at);
        const bool last = end == given.size();
        return error == ERROR_FILE_NOT_FOUND && !last ? ERROR_PATH_NOT_FOUND : error;
      }
      done += '/' + stored;
    }
    at = end;
  }
  path.native = done;
  return NO_ERROR;
}

DWORD FindEntry(Path& path, struct stat& facts) {
  if (stat(path.native.c_str(), &facts) == 0) return NO_ERROR;
  if (errno != ENOENT && errno != ENOTDIR) return ErrorOf(errno);
  const DWORD error = Respell(path);
  if (error != NO_ERROR) return error;
  return stat(path.native.c_str(), &facts) == 0 ? NO_ERROR : ErrorOf(errno);
}

}  // namespace posix
}  // namespace platform
