// Attributes and times.
//
// Read-only is the permission bits of a file. The other flags, and read-only of a folder (where
// the bits would also forbid to make files in it), live in a record beside the file: an extended
// attribute, or memory where the file system has none. Only what differs from the usual flags has
// a record, so ordinary files cost nothing.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

constexpr char kRecordName[] = "user.platform.attributes";
constexpr DWORD kStoredFlags = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                               FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_TEMPORARY;

using FileId = std::pair<dev_t, ino_t>;

constinit std::mutex memoryLock;
constinit std::atomic<bool> memoryUsed{false};

std::map<FileId, DWORD>& Memory() {
  static std::map<FileId, DWORD> memory;
  return memory;
}

DWORD UsualFlags(mode_t mode) {
  return S_ISDIR(mode) ? 0 : FILE_ATTRIBUTE_ARCHIVE;
}

DWORD FlagsToStore(mode_t mode, DWORD attributes) {
  const DWORD stored = S_ISDIR(mode) ? kStoredFlags | FILE_ATTRIBUTE_READONLY : kStoredFlags;
  return attributes & stored;
}

std::optional<DWORD> LoadRecord(const Place& place, const FileId& id) {
  char text[16];
  const ssize_t size = place.fd >= 0 ? fgetxattr(place.fd, kRecordName, text, sizeof text)
                                     : getxattr(place.native, kRecordName, text, sizeof text);
  if (size > 0) {
    DWORD flags = 0;
    if (std::from_chars(text, text + size, flags, 16).ec == std::errc()) return flags;
    return std::nullopt;
  }
  if (!memoryUsed.load(std::memory_order_acquire)) return std::nullopt;
  const std::lock_guard guard(memoryLock);
  const auto found = Memory().find(id);
  if (found == Memory().end()) return std::nullopt;
  return found->second;
}

// False, with errno, where memory runs out.
bool Remember(const FileId& id, DWORD flags) {
  const std::lock_guard guard(memoryLock);
  try {
    Memory()[id] = flags;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
  memoryUsed.store(true, std::memory_order_release);
  return true;
}

bool DropRecord(const Place& place) {
  const int result =
      place.fd >= 0 ? fremovexattr(place.fd, kRecordName) : removexattr(place.native, kRecordName);
  return result == 0 || errno == ENODATA || errno == ENOTSUP;
}

// Seconds between the epochs 1601 and 1970.
constexpr std::int64_t kEpochDistance = 11644473600;
constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::uint64_t kTicksPerMillisecond = 10000;

std::int64_t Ticks(const statx_timestamp& time) {
  return (time.tv_sec + kEpochDistance) * kTicksPerSecond + time.tv_nsec / 100;
}

FILETIME ToFileTime(std::int64_t ticks) {
  const auto bits = static_cast<std::uint64_t>(ticks < 0 ? 0 : ticks);
  return {static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
}

DWORD SetAttributes(const Path& path, const struct stat& facts, DWORD attributes) {
  const bool isFolder = S_ISDIR(facts.st_mode);
  if (!isFolder && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ERROR_INVALID_PARAMETER;
  const mode_t mode = facts.st_mode & 07777;
  const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
  const bool wasReadOnly = IsReadOnly(facts.st_mode);
  const Place place{-1, path.native.c_str()};
  if (isFolder) return StoreFlags(place, facts, attributes) ? NO_ERROR : ErrorOf(errno);
  const DWORD old = LoadAttributes(place, facts.st_dev, facts.st_ino, facts.st_mode);
  // The record can only be written while the file can.
  const mode_t writable = mode | S_IWUSR;
  if (wasReadOnly && chmod(place.native, writable) != 0) return ErrorOf(errno);
  DWORD error = StoreFlags(place, facts, attributes) ? NO_ERROR : ErrorOf(errno);
  if (error == NO_ERROR && readOnly && chmod(place.native, mode & ~mode_t{0222}) != 0) {
    error = ErrorOf(errno);
    StoreFlags(place, facts, old);
  }
  if (error != NO_ERROR && wasReadOnly) chmod(place.native, mode);
  return error;
}

}  // namespace

DWORD LoadAttributes(const Place& place, dev_t device, ino_t inode, mode_t mode) {
  DWORD attributes =
      FlagsToStore(mode, LoadRecord(place, {device, inode}).value_or(UsualFlags(mode)));
  if (S_ISDIR(mode)) {
    attributes |= FILE_ATTRIBUTE_DIRECTORY;
  } else if (IsReadOnly(mode)) {
    attributes |= FILE_ATTRIBUTE_READONLY;
  }
  return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

bool StoreFlags(const Place& place, const struct stat& facts, DWORD attributes) {
  const FileId id{facts.st_dev, facts.st_ino};
  const DWORD flags = FlagsToStore(facts.st_mode, attributes);
  if (flags == UsualFlags(facts.st_mode)) {
    if (!DropRecord(place)) return false;
    ForgetFlags(facts);
    return true;
  }
  char text[16];
  const auto size =
      static_cast<std::size_t>(std::to_chars(text, text + sizeof text, flags, 16).ptr - text);
  const int result = place.fd >= 0 ? fsetxattr(place.fd, kRecordName, text, size, 0)
                                   : setxattr(place.native, kRecordName, text, size, 0);
  if (result != 0) return errno == ENOTSUP && Remember(id, flags);
  ForgetFlags(facts);
  return true;
}

void MarkArchive(int fd, const struct stat* facts) {
  struct stat own;
  if (facts == nullptr) {
    if (fstat(fd, &own) != 0) return;
    facts = &own;
  }
  const Place place{fd, nullptr};
  const std::optional<DWORD> flags = LoadRecord(place, {facts->st_dev, facts->st_ino});
  if (!flags || (*flags & FILE_ATTRIBUTE_ARCHIVE) != 0) return;
  StoreFlags(place, *facts, *flags | FILE_ATTRIBUTE_ARCHIVE);
}

void ForgetFlags(const struct stat& facts) {
  if (!memoryUsed.load(std::memory_order_acquire)) return;
  const std::lock_guard guard(memoryLock);
  Memory().erase({facts.st_dev, facts.st_ino});
}

bool MakeReadOnly(int fd) {
  struct stat facts;
  return fstat(fd, &facts) == 0 && fchmod(fd, facts.st_mode & 07555) == 0;
}

bool LoadFacts(const Place& place, struct statx& facts) {
  constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
  if (place.fd >= 0) return statx(place.fd, "", AT_EMPTY_PATH, kWanted, &facts) == 0;
  if (statx(AT_FDCWD, place.native, 0, kWanted, &facts) == 0) return true;
  // A link that leads nowhere is an entry all the same.
  return statx(AT_FDCWD, place.native, AT_SYMLINK_NOFOLLOW, kWanted, &facts) == 0;
}

FILETIME CreationTime(const struct statx& facts) {
  if ((facts.stx_mask & STATX_BTIME) != 0) return ToFileTime(Ticks(facts.stx_btime));
  return ToFileTime(std::min(Ticks(facts.stx_ctime), Ticks(facts.stx_mtime)));
}

FILETIME AccessTime(const struct statx& facts) {
  return ToFileTime(Ticks(facts.stx_atime));
}

FILETIME WriteTime(const struct statx& facts) {
  return ToFileTime(Ticks(facts.stx_mtime));
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

DWORD GetFileAttributesA(LPCSTR name) {
  if (posix::Faulted(Call::kGetFileAttributes, name)) return INVALID_FILE_ATTRIBUTES;
  return posix::Guarded(INVALID_FILE_ATTRIBUTES, [&]() -> DWORD {
    posix::Path path;
    struct stat facts;
    DWORD error = posix::ParsePath(name, path);
    if (error == NO_ERROR) error = posix::FindEntry(path, facts);
    if (error == NO_ERROR && path.folderForm && !S_ISDIR(facts.st_mode)) error = ERROR_INVALID_NAME;
    if (error != NO_ERROR) {
      SetLastError(error);
      return INVALID_FILE_ATTRIBUTES;
    }
    return posix::LoadAttributes({-1, path.native.c_str()}, facts.st_dev, facts.st_ino,
                                 facts.st_mode);
  });
}

BOOL SetFileAttributesA(LPCSTR name, DWORD attributes) {
  if (posix::Faulted(Call::kSetFileAttributes, name)) return FALSE;
  return posix::Guarded(FALSE, [&]() -> BOOL {
    posix::Path path;
    struct stat facts;
    DWORD error = posix::ParsePath(name, path);
    if (error == NO_ERROR) error = posix::FindEntry(path, facts);
    if (error == NO_ERROR && path.folderForm && !S_ISDIR(facts.st_mode)) error = ERROR_INVALID_NAME;
    if (error == NO_ERROR) error = posix::SetAttributes(path, facts, attributes);
    return error == NO_ERROR ? TRUE : posix::Fail(error);
  });
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime) {
  namespace chrono = std::chrono;
  const std::uint64_t ticks =
      std::uint64_t{fileTime->dwHighDateTime} << 32 | fileTime->dwLowDateTime;
  if (ticks >> 63 != 0) return posix::Fail(ERROR_INVALID_PARAMETER);
  const chrono::milliseconds since{static_cast<std::int64_t>(ticks / posix::kTicksPerMillisecond)};
  constexpr chrono::sys_days kEpoch = chrono::year{1601} / 1 / 1;
  const auto days = chrono::floor<chrono::days>(since);
  const chrono::sys_days day = kEpoch + days;
  const chrono::year_month_day date{day};
  const chrono::hh_mm_ss time{since - days};
  systemTime->wYear = static_cast<WORD>(static_cast<int>(date.year()));
  systemTime->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
  systemTime->wDayOfWeek = static_cast<WORD>(chrono::weekday{day}.c_encoding());
  systemTime->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
  systemTime->wHour = static_cast<WORD>(time.hours().count());
  systemTime->wMinute = static_cast<WORD>(time.minutes().count());
  systemTime->wSecond = static_cast<WORD>(time.seconds().count());
  systemTime->wMilliseconds = static_cast<WORD>(time.subseconds().count());
  return TRUE;
}
