// Work on the text of paths, the current directory, names for temporary files.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/native.h"
#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

bool IsDriveColon(std::string_view text) {
  return text.size() >= 2 && text[1] == ':';
}

// The bytes at the front of a text with two leading separators that ".." cannot remove: server and
// share, or a device prefix.
std::size_t NetworkRoot(std::string_view text) {
  if (text.size() >= 4 && (text[2] == '.' || text[2] == '?') && text[3] == '\\') {
    return text.size() >= 6 && text[5] == ':' ? 6 : 3;
  }
  const std::size_t server = text.find('\\', 2);
  if (server == std::string_view::npos) return text.size();
  const std::size_t share = text.find('\\', server + 1);
  return share == std::string_view::npos ? text.size() : share;
}

// Splits a text with backslashes into its root (without trailing separator) and the rest.
bool SplitRoot(const std::string& text, std::string& root, std::string& rest) {
  std::string current;
  if (text.starts_with("\\\\")) {
    const std::size_t length = NetworkRoot(text);
    root = text.substr(0, length);
    rest = text.substr(length);
    return true;
  }
  if (IsDriveColon(text)) {
    root = text.substr(0, 2);
    rest = text.substr(2);
    if (rest.starts_with('\\')) return true;
    // Relative to the current directory of that drive: the real one or, for any other, its root.
    if (CurrentFolder(current) && EqualNames(current.substr(0, 2), root)) {
      rest = current.substr(2) + '\\' + rest;
      if (text.size() == 2) rest.pop_back();
    }
    return true;
  }
  const bool known = CurrentFolder(current);
  if (text.starts_with('\\')) {
    root = known ? current.substr(0, 2) : "C:";
    rest = text;
    return true;
  }
  if (!known) return false;
  root = current.substr(0, 2);
  rest = current.substr(2) + '\\' + text;
  return true;
}

// Copies what fits; the answer of the calls that fill a caller's buffer.
DWORD GiveText(const std::string& text, DWORD size, LPSTR buffer) {
  if (text.size() + 1 > size) return static_cast<DWORD>(text.size() + 1);
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return static_cast<DWORD>(text.size());
}

// Components of a path text with the position behind each. Only backslashes separate here.
struct Component {
  std::string_view name;
  std::size_t end;
};

std::vector<Component> Components(std::string_view text) {
  std::vector<Component> parts;
  std::size_t at = 0;
  if (text.starts_with("\\\\")) {
    // The server's name and its two separators count as one.
    at = std::min(text.find('\\', 2), text.size());
    parts.push_back({text.substr(0, at), at});
  } else if (text.starts_with('\\')) {
    parts.push_back({text.substr(0, 0), 0});
  }
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\\', at), text.size());
    if (end > at) parts.push_back({text.substr(at, end - at), end});
    at = end + 1;
  }
  return parts;
}

bool RelativePath(std::string_view from, bool fromIsFolder, std::string_view to, bool toIsFolder,
                  std::string& result) {
  // What the two folders have in common is the base; a file's own name is no part of its folder.
  const auto folder = [](std::string_view text, bool isFolder) {
    std::vector<Component> parts = Components(text);
    if (!isFolder && !parts.empty() && !text.ends_with('\\')) parts.pop_back();
    return parts;
  };
  const std::vector<Component> a = folder(from, fromIsFolder);
  const std::vector<Component> b = folder(to, toIsFolder);
  std::size_t common = 0;
  while (common < a.size() && common < b.size() && EqualNames(a[common].name, b[common].name)) {
    ++common;
  }
  if (common == 0) return false;
  result = a.size() == common ? "." : "..";
  for (std::size_t i = common + 1; i < a.size(); ++i)
    result += "\\..";
  const std::string_view tail = to.substr(b[common - 1].end);
  if (tail != "\\") result += tail;
  return result.size() < MAX_PATH;
}

void CutTo(char* buffer, std::string_view text, std::size_t size) {
  if (buffer == nullptr) return;
  buffer[text.copy(buffer, size - 1)] = 0;
}

}  // namespace

bool FullPath(std::string_view name, std::string& full) {
  std::string text(name);
  for (char& c : text) {
    if (c == '/') c = '\\';
  }
  std::string root;
  std::string rest;
  if (!SplitRoot(text, root, rest)) return false;
  const std::size_t rootLength = root.size();
  full = root;
  bool folderForm = rest.ends_with('\\');
  std::size_t at = 0;
  while (at < rest.size()) {
    const std::size_t end = std::min(rest.find('\\', at), rest.size());
    std::string_view part = std::string_view(rest).substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (full.size() > rootLength) full.resize(full.rfind('\\'));
      continue;
    }
    // Dots and blanks at the end of a name are no part of it.
    const std::size_t last = part.find_last_not_of(". ");
    if (last == std::string_view::npos) {
      folderForm = folderForm || end == rest.size();
      continue;
    }
    full += '\\';
    full += part.substr(0, last + 1);
  }
  const bool bareDrive = full.size() == rootLength && full.back() == ':';
  if (folderForm || bareDrive) full += '\\';
  return true;
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

DWORD GetFullPathNameA(LPCSTR name, DWORD size, LPSTR buffer, LPSTR* filePart) {
  if (posix::Faulted(Call::kGetFullPathName, name)) return 0;
  return posix::Guarded(DWORD{0}, [&]() -> DWORD {
    std::string full;
    if (name == nullptr || *name == 0) return static_cast<DWORD>(posix::Fail(ERROR_INVALID_NAME));
    if (!posix::FullPath(name, full)) return static_cast<DWORD>(posix::Fail(ERROR_PATH_NOT_FOUND));
    const DWORD length = posix::GiveText(full, size, buffer);
    if (length < size && filePart != nullptr) {
      *filePart = full.back() == '\\' ? nullptr : buffer + full.rfind('\\') + 1;
    }
    return length;
  });
}

DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer) {
  return posix::Guarded(DWORD{0}, [&]() -> DWORD {
    std::string full;
    if (!posix::CurrentFolder(full)) return static_cast<DWORD>(posix::Fail(ERROR_PATH_NOT_FOUND));
    return posix::GiveText(full, size, buffer);
  });
}

BOOL SetCurrentDirectoryA(LPCSTR name) {
  return posix::Guarded(FALSE, [&]() -> BOOL {
    posix::Path path;
    struct stat facts;
    DWORD error = posix::ParsePath(name, path);
    if (error == NO_ERROR) error = posix::FindEntry(path, facts);
    if (error == NO_ERROR && !S_ISDIR(facts.st_mode)) error = ERROR_DIRECTORY;
    if (error != NO_ERROR) return posix::Fail(error);
    return chdir(path.native.c_str()) == 0 ? TRUE : posix::Fail(posix::ErrorOf(errno));
  });
}

DWORD GetTempPathA(DWORD size, LPSTR buffer) {
  return posix::Guarded(DWORD{0}, [&]() -> DWORD {
    std::string full;
    std::string why;
    for (const char* variable : {"TMP", "TEMP", "TMPDIR"}) {
      const char* value = std::getenv(variable);
      if (value == nullptr || *value == 0) continue;
      // Native, as other programs set them, or in our notation.
      if (posix::IsDriveColon(value) ? posix::FullPath(value, full)
                                     : platform::FromNative(value, full, why)) {
        break;
      }
    }
    if (full.empty() && !platform::FromNative("/tmp", full, why)) full = "C:\\";
    if (full.back() != '\\') full += '\\';
    return posix::GiveText(full, size, buffer);
  });
}

UINT GetTempFileNameA(LPCSTR folder, LPCSTR prefix, UINT unique, LPSTR buffer) {
  return posix::Guarded(UINT{0}, [&]() -> UINT {
    posix::Path path;
    struct stat facts;
    DWORD found = posix::ParsePath(folder, path);
    if (found == NO_ERROR) found = posix::FindEntry(path, facts);
    const bool missing = found == ERROR_FILE_NOT_FOUND || found == ERROR_PATH_NOT_FOUND;
    if (missing || (found == NO_ERROR && !S_ISDIR(facts.st_mode))) found = ERROR_DIRECTORY;
    if (found != NO_ERROR) return static_cast<UINT>(posix::Fail(found));
    std::string stem = folder;
    if (!posix::IsSeparator(stem.back())) stem += '\\';
    stem += std::string_view(prefix).substr(0, 3);

    const auto nameFor = [&](UINT number) {
      char digits[16];
      std::snprintf(digits, sizeof digits, "%X.tmp", number);
      return stem + digits;
    };
    if (stem.size() + 8 >= MAX_PATH) return static_cast<UINT>(posix::Fail(ERROR_DIRECTORY));
    if (unique != 0) {
      posix::GiveText(nameFor(unique & 0xFFFF), MAX_PATH, buffer);
      return unique;
    }
    // A start that differs between processes and calls keeps most first tries free.
    UUID random;
    UuidCreate(&random);
    for (UINT tries = 0; tries < 0xFFFF; ++tries) {
      const UINT number = (random.Data1 + tries) % 0xFFFF + 1;
      const std::string name = nameFor(number);
      posix::Path file;
      DWORD error = posix::ParsePath(name.c_str(), file);
      posix::OpenRequest request;
      request.flags = O_RDWR;
      request.disposition = CREATE_NEW;
      posix::OpenResult result;
      if (error == NO_ERROR) error = posix::OpenLocked(file, request, result);
      if (error == NO_ERROR) {
        posix::GiveText(name, MAX_PATH, buffer);
        return number;
      }
      if (error != ERROR_FILE_EXISTS) return static_cast<UINT>(posix::Fail(error));
    }
    return static_cast<UINT>(posix::Fail(ERROR_FILE_EXISTS));
  });
}

BOOL PathRelativePathToA(LPSTR buffer, LPCSTR from, DWORD fromAttributes, LPCSTR to,
                         DWORD toAttributes) {
  buffer[0] = 0;
  return posix::Guarded(FALSE, [&]() -> BOOL {
    std::string result;
    if (!posix::RelativePath(from, (fromAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, to,
                             (toAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, result)) {
      return FALSE;
    }
    posix::GiveText(result, MAX_PATH, buffer);
    return TRUE;
  });
}

void _splitpath(const char* path, char* drive, char* dir, char* name, char* ext) {
  std::string_view rest = path;
  std::string_view part;
  if (posix::IsDriveColon(rest)) part = rest.substr(0, 2);
  posix::CutTo(drive, part, _MAX_DRIVE);
  rest.remove_prefix(part.size());

  const std::size_t separator = rest.find_last_of("\\/");
  part = rest.substr(0, separator == std::string_view::npos ? 0 : separator + 1);
  posix::CutTo(dir, part, _MAX_DIR);
  rest.remove_prefix(part.size());

  const std::size_t dot = std::min(rest.rfind('.'), rest.size());
  posix::CutTo(name, rest.substr(0, dot), _MAX_FNAME);
  posix::CutTo(ext, rest.substr(dot), _MAX_EXT);
}
