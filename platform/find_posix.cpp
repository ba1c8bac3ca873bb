// Searches of folders.
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

// A mask as characters to compare, with the meanings that '?', '*' and '.' have by their
// neighbours; the values lie outside of all characters.
enum MaskSign : char32_t {
  kAnyRun = 0x110000,  // any run of characters
  kUpToLastDot,        // any run that leaves the last dot alone
  kAnyButDot,          // one character, or none in front of a dot or at the end
  kDotOrEnd            // a dot, or nothing at the end of the name
};

// `dotBehind` where the caller's mask ended in a dot, which is no part of a name but makes a
// leading star stand for names without one.
std::u32string CompileMask(std::string_view mask, bool dotBehind) {
  if (mask == "*.*") mask = "*";
  std::u32string signs = FoldName(mask);
  for (std::size_t i = 0; i < signs.size(); ++i) {
    const bool last = i + 1 == signs.size();
    if (signs[i] == U'*') {
      signs[i] = last && dotBehind ? char32_t{kUpToLastDot} : char32_t{kAnyRun};
    } else if (signs[i] == U'?') {
      signs[i] = kAnyButDot;
    } else if (signs[i] == U'.' && !last && (signs[i + 1] == U'?' || signs[i + 1] == U'*')) {
      signs[i] = kDotOrEnd;
    }
  }
  return signs;
}

// Walks all ways through the mask at once, so that many stars cost no more than their number.
bool Matches(const std::u32string& mask, std::string_view name) {
  const std::u32string text = FoldName(name);
  const auto lastDot = static_cast<std::size_t>(std::find(text.rbegin(), text.rend(), U'.').base() -
                                                text.begin());  // one behind it
  std::vector<char> here(mask.size() + 1, 0);
  std::vector<char> next(mask.size() + 1, 0);
  here[0] = 1;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    const bool end = at == text.size();
    const bool dot = !end && text[at] == U'.';
    std::fill(next.begin(), next.end(), 0);
    for (std::size_t i = 0; i < mask.size(); ++i) {
      if (here[i] == 0) continue;
      const char32_t sign = mask[i];
      // Signs that may stand for nothing let the walk go on behind them.
      if (sign == kAnyRun || sign == kUpToLastDot || (sign == kAnyButDot && (dot || end)) ||
          (sign == kDotOrEnd && end)) {
        here[i + 1] = 1;
      }
      if (end) continue;
      if (sign == kAnyRun || (sign == kUpToLastDot && at + 1 != lastDot)) next[i] = 1;
      if ((sign == kAnyButDot && !dot) || (sign == kDotOrEnd && dot) || sign == text[at]) {
        next[i + 1] = 1;
      }
    }
    if (end) return here[mask.size()] != 0;
    here.swap(next);
  }
  return false;
}

// One search: the names found at its start, in order. What is gone by the time that it is asked
// for is left out.
struct Search {
  std::string folder;  // native, with a trailing slash
  std::vector<std::string> names;
  std::size_t at = 0;
  Search* next = nullptr;
};

// The open searches, so that a handle that is not one of them is refused.
constinit std::mutex searchLock;
constinit Search* searches = nullptr;

void Register(Search* search) {
  const std::lock_guard guard(searchLock);
  search->next = searches;
  searches = search;
}

bool Unregister(const void* handle) {
  const std::lock_guard guard(searchLock);
  for (Search** link = &searches; *link != nullptr; link = &(*link)->next) {
    if (*link != handle) continue;
    *link = (*link)->next;
    return true;
  }
  return false;
}

bool IsRegistered(const void* handle) {
  const std::lock_guard guard(searchLock);
  for (const Search* search = searches; search != nullptr; search = search->next) {
    if (search == handle) return true;
  }
  return false;
}

bool FillRecord(const std::string& folder, const std::string& name, WIN32_FIND_DATAA& data) {
  const std::string native = folder + name;
  struct statx facts;
  if (!LoadFacts({-1, native.c_str()}, facts)) return false;
  const bool isFolder = S_ISDIR(facts.stx_mode);
  data = {};
  data.dwFileAttributes =
      LoadAttributes({-1, native.c_str()}, makedev(facts.stx_dev_major, facts.stx_dev_minor),
                     facts.stx_ino, facts.stx_mode);
  data.ftCreationTime = CreationTime(facts);
  data.ftLastAccessTime = AccessTime(facts);
  data.ftLastWriteTime = WriteTime(facts);
  if (!isFolder) {
    data.nFileSizeHigh = static_cast<DWORD>(facts.stx_size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(facts.stx_size);
  }
  name.copy(data.cFileName, sizeof data.cFileName - 1);
  return true;
}

// ERROR_NO_MORE_FILES at the end. An entry that could not be looked at is the next one again.
DWORD NextRecord(Search& search, WIN32_FIND_DATAA& data) {
  for (; search.at < search.names.size(); ++search.at) {
    if (FillRecord(search.folder, search.names[search.at], data)) {
      ++search.at;
      return NO_ERROR;
    }
    if (errno != ENOENT) return ErrorOf(errno);
  }
  return ERROR_NO_MORE_FILES;
}

// Reads the names that match. Names that a path cannot reach are passed over: handed to another
// call, they would mean something else.
DWORD ListMatches(const Path& folder, const std::u32string& mask, bool dotsToo,
                  std::vector<std::string>& names) {
  Walk walk(folder.native);
  if (walk.Error() == ENOTDIR) return ERROR_DIRECTORY;
  if (walk.Error() != 0) return FolderError(walk.Error());
  while (const dirent* entry = walk.Next()) {
    const std::string_view name = entry->d_name;
    if (NameIsCarried(name) && Matches(mask, name)) names.emplace_back(name);
  }
  if (walk.Error() != 0) return ErrorOf(walk.Error());
  std::sort(names.begin(), names.end());
  if (dotsToo) {
    for (const char* dots : {"..", "."}) {
      const bool matches = Matches(mask, dots) || mask.front() == kUpToLastDot;
      if (matches) names.emplace(names.begin(), dots);
    }
  }
  return NO_ERROR;
}

DWORD OpenSearch(LPCSTR text, Search& search) {
  std::string full;
  if (text == nullptr || *text == 0 || !FullPath(text, full)) return ERROR_PATH_NOT_FOUND;
  Path folder;
  std::string mask;
  const DWORD parsed = ParseMask(full, folder, mask);
  if (parsed != NO_ERROR) return parsed;
  const std::string_view given = text;
  const bool hasWildcards = mask.find_first_of("*?") != std::string::npos;
  // A folder's content is asked for with a mask; a drive, or a folder with a separator behind it,
  // is no entry of anything.
  if (folder.folderForm || mask.empty() || given.back() == ':') return ERROR_FILE_NOT_FOUND;
  if (HoldsForbidden(mask, true)) return ERROR_INVALID_NAME;

  if (!hasWildcards) {
    Path entry;
    struct stat facts;
    DWORD error = ParsePath(full.c_str(), entry);
    if (error == NO_ERROR) error = FindEntry(entry, facts);
    if (error != NO_ERROR) return error;
    const std::size_t cut = entry.native.rfind('/') + 1;
    search.folder = entry.native.substr(0, cut);
    search.names.push_back(entry.native.substr(cut));
    return NO_ERROR;
  }
  struct stat facts;
  const DWORD error = FindEntry(folder, facts);
  if (error == ERROR_FILE_NOT_FOUND) return ERROR_PATH_NOT_FOUND;
  if (error != NO_ERROR) return error;
  search.folder = folder.native;
  if (search.folder.back() != '/') search.folder += '/';
  return ListMatches(folder, CompileMask(mask, given.ends_with("*.")), !folder.isRoot,
                     search.names);
}

}  // namespace
}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

HANDLE FindFirstFileA(LPCSTR mask, WIN32_FIND_DATAA* data) {
  if (posix::Faulted(Call::kFindFirstFile, mask)) return INVALID_HANDLE_VALUE;
  return posix::Guarded(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    auto search = std::make_unique<posix::Search>();
    DWORD error = posix::OpenSearch(mask, *search);
    if (error == NO_ERROR) error = posix::NextRecord(*search, *data);
    if (error == ERROR_NO_MORE_FILES) error = ERROR_FILE_NOT_FOUND;
    if (error != NO_ERROR) {
      SetLastError(error);
      return INVALID_HANDLE_VALUE;
    }
    posix::Register(search.get());
    return search.release();
  });
}

BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) {
  if (posix::Faulted(Call::kFindNextFile)) return FALSE;
  return posix::Guarded(FALSE, [&]() -> BOOL {
    if (!posix::IsRegistered(search)) return posix::Fail(ERROR_INVALID_HANDLE);
    const DWORD error = posix::NextRecord(*static_cast<posix::Search*>(search), *data);
    return error == NO_ERROR ? TRUE : posix::Fail(error);
  });
}

BOOL FindClose(HANDLE search) {
  const bool faulted = posix::Faulted(Call::kFindClose);
  if (!posix::Unregister(search)) return faulted ? FALSE : posix::Fail(ERROR_INVALID_HANDLE);
  delete static_cast<posix::Search*>(search);
  return faulted ? FALSE : TRUE;
}
