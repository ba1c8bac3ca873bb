// Open files: handles, and FILEs of the run-time library.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/objects_posix.h"
#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

constexpr DWORD kShareDelete = 4;

// A handle is its descriptor in disguise; what else has to be known of it stands here, untouched
// pages of which cost nothing.
enum HandleState : std::uint8_t {
  kClosed,
  kOpen,
  kUnmarked  // open, and its first write has to see to the archive mark
};

constexpr int kMaxHandles = 1 << 20;
constinit std::atomic<HandleState> handleStates[kMaxHandles]{};

HANDLE ToHandle(int fd) {
  return reinterpret_cast<HANDLE>((static_cast<std::intptr_t>(fd) + 1) * 4);
}

// The descriptor of an open handle, else -1.
int ToDescriptor(HANDLE handle) {
  const auto value = reinterpret_cast<std::intptr_t>(handle);
  const std::intptr_t fd = value / 4 - 1;
  if (value % 4 != 0 || fd < 0 || fd >= kMaxHandles) return -1;
  return handleStates[fd].load(std::memory_order_relaxed) == kClosed ? -1 : static_cast<int>(fd);
}

// Opening a file may meet one that is just being deleted or replaced; more rounds than this mean
// that somebody does nothing else.
constexpr int kMaxRounds = 100;

DWORD CheckOpened(const Path& path, const OpenRequest& request, const struct stat& facts) {
  if (S_ISDIR(facts.st_mode)) return ERROR_ACCESS_DENIED;
  if (path.folderForm) return ERROR_INVALID_NAME;
  if (!S_ISREG(facts.st_mode) && !S_ISCHR(facts.st_mode)) return ERROR_ACCESS_DENIED;
  // The kernel lets root write anything; a read-only file is read-only for everybody here.
  if (request.flags != O_RDONLY && IsReadOnly(facts.st_mode)) return ERROR_ACCESS_DENIED;
  return NO_ERROR;
}

// What a file that was made, or is made anew, starts with. Old content goes last, when nothing else
// can fail.
DWORD StartContent(const OpenRequest& request, bool created, int fd, const struct stat& facts) {
  const bool anew = created || request.disposition == CREATE_ALWAYS;
  if (!anew && request.disposition != TRUNCATE_EXISTING) return NO_ERROR;
  const Place place{fd, nullptr};
  const DWORD attributes = request.attributes | FILE_ATTRIBUTE_ARCHIVE;
  constexpr DWORD kSpecial =
      FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_TEMPORARY;
  DWORD old = FILE_ATTRIBUTE_NORMAL;
  if (created) {
    ForgetFlags(facts);
  } else {
    old = LoadAttributes(place, facts.st_dev, facts.st_ino, facts.st_mode);
  }
  const auto start = [&] {
    if (anew && (!created || (attributes & kSpecial) != 0) &&
        !StoreFlags(place, facts, attributes)) {
      return false;
    }
    if (anew && (attributes & FILE_ATTRIBUTE_READONLY) != 0 && !MakeReadOnly(fd)) return false;
    return facts.st_size == 0 || ftruncate(fd, 0) == 0;
  };
  if (start()) return NO_ERROR;
  const DWORD error = ErrorOf(errno);
  if (created) {
    ForgetFlags(facts);
  } else if (anew) {
    StoreFlags(place, facts, old);
    fchmod(fd, facts.st_mode & 07777);
  }
  return error;
}

// Makes sure of a file that was opened, and begins it. ERROR_FILE_NOT_FOUND where its name leads
// elsewhere by now.
DWORD TakeOpened(const Path& path, const OpenRequest& request, OpenResult& result) {
  const int fd = result.file.Get();
  struct stat facts;
  // A file that was made is open for writing whatever the mask left of its permissions.
  if (result.existed) {
    if (fstat(fd, &facts) != 0) return ErrorOf(errno);
    const DWORD error = CheckOpened(path, request, facts);
    if (error != NO_ERROR) return error;
  }
  if (!LockOpenFile(fd, request.alone)) return ERROR_SHARING_VIOLATION;
  DWORD error = StillNames(path.native, fd, facts);
  if (error != NO_ERROR) return error;
  if (request.mode != nullptr) {
    result.stream.reset(fdopen(fd, request.mode));
    if (result.stream == nullptr) return ErrorOf(errno);
    static_cast<void>(result.file.Release());  // the stream's now
  }
  error = StartContent(request, !result.existed, fd, facts);
  if (request.letsDelete) flock(fd, LOCK_UN);
  return error;
}

// Opens the file, or makes it. The exact name is tried at once; the folder is searched only where
// that name does not exist, or where a new name could clash with one that differs in case alone.
// ERROR_ALREADY_EXISTS where somebody else made the file in between.
DWORD OpenOrMake(Path& path, const OpenRequest& request, Descriptor& file, bool& created) {
  // A pipe or a device must not keep the caller waiting; regular files know no such wait.
  const int flags = request.flags | O_NONBLOCK | O_NOCTTY;
  created = false;
  if (request.disposition != CREATE_NEW) {
    file.Reset(OpenNative(path.native, flags));
    if (file.IsOpen()) return NO_ERROR;
    if (errno != ENOENT && errno != ENOTDIR) return ErrorOf(errno);
  }
  const DWORD error = Respell(path);
  if (error == NO_ERROR) {
    if (request.disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
    file.Reset(OpenNative(path.native, flags));
    return file.IsOpen() ? NO_ERROR : ErrorOf(errno);
  }
  if (error != ERROR_FILE_NOT_FOUND || request.disposition == OPEN_EXISTING ||
      request.disposition == TRUNCATE_EXISTING) {
    return error;
  }
  if (path.folderForm) return ERROR_INVALID_NAME;
  file.Reset(OpenNative(path.native, flags | O_CREAT | O_EXCL, 0666));
  created = file.IsOpen();
  if (created) return NO_ERROR;
  return errno == EEXIST && request.disposition == CREATE_NEW ? ERROR_FILE_EXISTS : ErrorOf(errno);
}

}  // namespace

void Descriptor::Reset(int fd) {
  const int kept = errno;
  if (fd_ >= 0) close(fd_);
  errno = kept;
  fd_ = fd;
}

int OpenNative(const std::string& native, int flags, mode_t mode) {
  int fd = -1;
  do {
    fd = open(native.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

void PieceWritten(int fd, std::size_t size) {
  if (size == kLargePiece) sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

bool LockOpenFile(int fd, bool alone) {
  int kind = alone ? LOCK_EX : LOCK_SH;
  for (;;) {
    if (flock(fd, kind | LOCK_NB) == 0) return true;
    if (errno == EWOULDBLOCK) return false;
    if (errno == EINTR) continue;
    // Network file systems lock alone only what is open for writing.
    if (errno != EBADF || kind == LOCK_SH) return true;
    kind = LOCK_SH;
  }
}

DWORD StillNames(const std::string& native, int fd, struct stat& facts) {
  struct stat named;
  if (fstat(fd, &facts) != 0 || stat(native.c_str(), &named) != 0) return ErrorOf(errno);
  const bool same = named.st_ino == facts.st_ino && named.st_dev == facts.st_dev;
  return same ? NO_ERROR : ERROR_FILE_NOT_FOUND;
}

DWORD OpenLocked(Path& path, const OpenRequest& request, OpenResult& result) {
  if (path.isRoot)
    return request.disposition == CREATE_NEW ? ERROR_FILE_EXISTS : ERROR_ACCESS_DENIED;
  for (int round = 0; round < kMaxRounds; ++round) {
    bool created = false;
    DWORD error = OpenOrMake(path, request, result.file, created);
    if (error == ERROR_ALREADY_EXISTS) continue;
    if (error != NO_ERROR) return error;
    result.existed = !created;
    error = TakeOpened(path, request, result);
    if (error == ERROR_FILE_NOT_FOUND) continue;
    // Where somebody else has it open by now, it stays.
    if (error != NO_ERROR && created && error != ERROR_SHARING_VIOLATION) {
      unlink(path.native.c_str());
    }
    return error;
  }
  return ERROR_SHARING_VIOLATION;
}

DWORD OpenShared(const std::string& native, Descriptor& holder, struct stat& facts) {
  for (int round = 0; round < kMaxRounds; ++round) {
    holder.Reset(OpenNative(native, O_RDONLY | O_NONBLOCK));
    if (!holder.IsOpen()) return ErrorOf(errno);
    if (!LockOpenFile(holder.Get(), false)) return ERROR_SHARING_VIOLATION;
    const DWORD error = StillNames(native, holder.Get(), facts);
    if (error != ERROR_FILE_NOT_FOUND) return error;
  }
  return ERROR_SHARING_VIOLATION;
}

DWORD LockForChange(const std::string& native, Descriptor& holder, struct stat& facts) {
  for (int round = 0; round < kMaxRounds; ++round) {
    holder.Reset(OpenNative(native, O_RDONLY | O_NONBLOCK));
    if (!holder.IsOpen() && errno == EACCES)
      holder.Reset(OpenNative(native, O_WRONLY | O_NONBLOCK));
    if (!holder.IsOpen()) return errno == EACCES ? NO_ERROR : ErrorOf(errno);
    if (!LockOpenFile(holder.Get(), true)) return ERROR_SHARING_VIOLATION;
    const DWORD error = StillNames(native, holder.Get(), facts);
    if (error != ERROR_FILE_NOT_FOUND) return error;
  }
  return ERROR_SHARING_VIOLATION;
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

namespace {

// One read of the kernel moves no more than this.
constexpr std::size_t kMaxTransfer = 0x40000000;

DWORD GiveAllOnes(DWORD error) {
  SetLastError(error);
  return INVALID_SET_FILE_POINTER;
}

bool FitsLowHalf(off_t position) {
  return position <= off_t{0xFFFFFFFF};
}

int OpenFlags(DWORD access) {
  if ((access & GENERIC_WRITE) == 0) return O_RDONLY;
  return (access & GENERIC_READ) != 0 ? O_RDWR : O_WRONLY;
}

}  // namespace

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* /*security*/,
                   DWORD disposition, DWORD attributes, HANDLE /*templateFile*/) {
  if (posix::Faulted(Call::kCreateFile, name)) return INVALID_HANDLE_VALUE;
  return posix::Guarded(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    if (posix::IsPipeName(name)) return posix::OpenPipe(name);
    posix::OpenRequest request;
    request.flags = OpenFlags(access);
    request.alone = share == 0;
    request.letsDelete = (share & posix::kShareDelete) != 0;
    request.disposition = disposition;
    request.attributes = attributes;
    posix::Path path;
    posix::OpenResult result;
    DWORD error = posix::ParsePath(name, path);
    if (error == NO_ERROR) error = posix::OpenLocked(path, request, result);
    if (error == NO_ERROR && result.file.Get() >= posix::kMaxHandles) {
      error = ERROR_TOO_MANY_OPEN_FILES;
    }
    if (error != NO_ERROR) {
      SetLastError(error);
      return INVALID_HANDLE_VALUE;
    }
    if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) {
      SetLastError(result.existed ? ERROR_ALREADY_EXISTS : NO_ERROR);
    }
    const int fd = result.file.Release();
    posix::handleStates[fd].store(result.existed ? posix::kUnmarked : posix::kOpen,
                                  std::memory_order_relaxed);
    return posix::ToHandle(fd);
  });
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* overlapped) {
  if (done != nullptr) *done = 0;
  if (posix::FaultedTransfer(Call::kReadFile, count)) return FALSE;
  const int fd = posix::ToDescriptor(file);
  if (fd < 0) return posix::ReadPipe(file, buffer, count, done, overlapped);
  auto* at = static_cast<char*>(buffer);
  std::size_t left = count;
  for (;;) {
    const ssize_t moved = read(fd, at, std::min(left, kMaxTransfer));
    if (moved < 0) {
      if (errno == EINTR) continue;
      if (errno == EBADF) return posix::Fail(ERROR_ACCESS_DENIED);  // open for writing only
      return posix::Fail(errno == EIO ? ERROR_READ_FAULT : posix::ErrorOf(errno));
    }
    at += moved;
    left -= static_cast<std::size_t>(moved);
    if (done != nullptr) *done += static_cast<DWORD>(moved);
    if (left == 0 || moved == 0) return TRUE;
  }
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* /*overlapped*/) {
  if (done != nullptr) *done = 0;
  if (posix::FaultedTransfer(Call::kWriteFile, count)) return FALSE;
  const int fd = posix::ToDescriptor(file);
  if (fd < 0) return posix::Fail(ERROR_INVALID_HANDLE);
  const auto* at = static_cast<const char*>(buffer);
  std::size_t left = count;
  do {
    const ssize_t moved = write(fd, at, std::min(left, posix::kLargePiece));
    if (moved < 0) {
      if (errno == EINTR) continue;
      if (errno == EBADF) return posix::Fail(ERROR_ACCESS_DENIED);  // open for reading only
      return posix::Fail(errno == EIO ? ERROR_WRITE_FAULT : posix::ErrorOf(errno));
    }
    if (posix::handleStates[fd].load(std::memory_order_relaxed) == posix::kUnmarked && moved > 0) {
      posix::handleStates[fd].store(posix::kOpen, std::memory_order_relaxed);
      posix::MarkArchive(fd);
    }
    posix::PieceWritten(fd, static_cast<std::size_t>(moved));
    at += moved;
    left -= static_cast<std::size_t>(moved);
    if (done != nullptr) *done += static_cast<DWORD>(moved);
  } while (left != 0);
  return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD origin) {
  if (posix::Faulted(Call::kSetFilePointer)) return INVALID_SET_FILE_POINTER;
  const int fd = posix::ToDescriptor(file);
  if (fd < 0) return GiveAllOnes(ERROR_INVALID_HANDLE);
  if (origin > FILE_END) return GiveAllOnes(ERROR_INVALID_PARAMETER);
  off_t move = distance;
  if (distanceHigh != nullptr) {
    move = static_cast<off_t>(static_cast<std::uint64_t>(static_cast<DWORD>(*distanceHigh)) << 32 |
                              static_cast<DWORD>(distance));
  }
  constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  // Without a high half a position beyond 32 bits is refused, and then the old one has to be known.
  off_t old = 0;
  if (distanceHigh == nullptr && origin != FILE_BEGIN) old = lseek(fd, 0, SEEK_CUR);
  if (old < 0) return GiveAllOnes(posix::ErrorOf(errno));
  const off_t position = lseek(fd, move, kOrigins[origin]);
  if (position < 0) {
    if (errno != EINVAL && errno != EOVERFLOW) return GiveAllOnes(posix::ErrorOf(errno));
    return GiveAllOnes(move < 0 ? ERROR_NEGATIVE_SEEK : ERROR_INVALID_PARAMETER);
  }
  if (distanceHigh != nullptr) {
    *distanceHigh = static_cast<LONG>(position >> 32);
  } else if (!FitsLowHalf(position)) {
    lseek(fd, old, SEEK_SET);
    return GiveAllOnes(ERROR_INVALID_PARAMETER);
  }
  const auto low = static_cast<DWORD>(position);
  if (low == INVALID_SET_FILE_POINTER) SetLastError(NO_ERROR);
  return low;
}

DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) {
  if (posix::Faulted(Call::kGetFileSize)) return INVALID_FILE_SIZE;
  const int fd = posix::ToDescriptor(file);
  if (fd < 0) return GiveAllOnes(ERROR_INVALID_HANDLE);
  struct stat facts;
  if (fstat(fd, &facts) != 0) return GiveAllOnes(posix::ErrorOf(errno));
  const auto size = static_cast<std::uint64_t>(facts.st_size);
  if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(size >> 32);
  const auto low = static_cast<DWORD>(size);
  if (low == INVALID_FILE_SIZE) SetLastError(NO_ERROR);
  return low;
}

BOOL CloseHandle(HANDLE handle) {
  const bool faulted = posix::Faulted(Call::kCloseHandle);
  const int fd = posix::ToDescriptor(handle);
  if (fd < 0) {
    const bool closed = posix::CloseObject(handle);
    if (faulted) return FALSE;
    return closed ? TRUE : posix::Fail(ERROR_INVALID_HANDLE);
  }
  posix::handleStates[fd].store(posix::kClosed, std::memory_order_relaxed);
  // A child that was just forked has the descriptor too until it starts its program; the lock must
  // not live that long.
  flock(fd, LOCK_UN);
  if (close(fd) != 0 && errno != EINTR && !faulted) return posix::Fail(posix::ErrorOf(errno));
  return faulted ? FALSE : TRUE;
}

BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write) {
  if (posix::Faulted(Call::kGetFileTime)) return FALSE;
  const int fd = posix::ToDescriptor(file);
  if (fd < 0) return posix::Fail(ERROR_INVALID_HANDLE);
  struct statx facts;
  if (!posix::LoadFacts({fd, nullptr}, facts)) return posix::Fail(posix::ErrorOf(errno));
  if (creation != nullptr) *creation = posix::CreationTime(facts);
  if (access != nullptr) *access = posix::AccessTime(facts);
  if (write != nullptr) *write = posix::WriteTime(facts);
  return TRUE;
}

namespace platform {

namespace {

// The errno that the run-time library would leave behind.
int NumberOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_NOT_ENOUGH_MEMORY:
      return ENOMEM;
    case ERROR_DISK_FULL:
      return ENOSPC;
    case ERROR_INVALID_PARAMETER:
      return EINVAL;
    default:
      return EACCES;
  }
}

bool ParseMode(const char* mode, posix::OpenRequest& request) {
  const bool both = std::strchr(mode, '+') != nullptr;
  switch (mode[0]) {
    case 'r':
      request.flags = both ? O_RDWR : O_RDONLY;
      return true;
    case 'w':
      request.flags = both ? O_RDWR : O_WRONLY;
      request.disposition = CREATE_ALWAYS;
      return true;
    default:
      return false;
  }
}

}  // namespace

std::FILE* fopen(const char* path, const char* mode) {
  DWORD error = NO_ERROR;
  std::FILE* file = nullptr;
  if (posix::Faulted(Call::kFopen, path)) {
    error = GetLastError();
  } else {
    error = posix::Guarded(ERROR_NOT_ENOUGH_MEMORY, [&]() -> DWORD {
      posix::OpenRequest request;
      posix::Path parsed;
      posix::OpenResult result;
      if (!ParseMode(mode, request)) return ERROR_INVALID_PARAMETER;
      request.mode = mode;
      DWORD outcome = posix::ParsePath(path, parsed);
      if (outcome == NO_ERROR) outcome = posix::OpenLocked(parsed, request, result);
      if (outcome != NO_ERROR) return outcome;
      file = result.stream.release();
      if (request.flags != O_RDONLY && result.existed) posix::MarkArchive(fileno(file));
      if (posix::faultHook != nullptr) file = posix::MakeFailing(file, mode);
      return NO_ERROR;
    });
  }
  if (error == NO_ERROR) return file;
  SetLastError(error);
  errno = NumberOf(error);
  return nullptr;
}

int fseek64(std::FILE* file, std::int64_t offset, int origin) {
  return fseeko(file, offset, origin);
}

std::int64_t ftell64(std::FILE* file) {
  return ftello(file);
}

}  // namespace platform
