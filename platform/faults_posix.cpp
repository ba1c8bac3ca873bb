#include "platform/faults.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/posix_intern.h"

namespace platform {

namespace {

constexpr const char* kCallNames[] = {"CreateFile",
                                      "ReadFile",
                                      "WriteFile",
                                      "SetFilePointer",
                                      "GetFileSize",
                                      "CloseHandle",
                                      "GetFileTime",
                                      "GetFileAttributes",
                                      "SetFileAttributes",
                                      "DeleteFile",
                                      "RemoveDirectory",
                                      "CreateDirectory",
                                      "MoveFile",
                                      "CopyFile",
                                      "FindFirstFile",
                                      "FindNextFile",
                                      "FindClose",
                                      "GetFullPathName",
                                      "fopen",
                                      "CreateProcess",
                                      "GetExitCodeProcess",
                                      "CreateThread",
                                      "CreateEvent",
                                      "WaitForMultipleObjects",
                                      "CreateNamedPipe",
                                      "GetOverlappedResult",
                                      "PeekNamedPipe"};
static_assert(sizeof(kCallNames) / sizeof(kCallNames[0]) == static_cast<std::size_t>(Call::kCount));

thread_local DWORD lastError = NO_ERROR;

}  // namespace

void SetFaultHook(FaultHook hook) {
  delete posix::faultHook;
  posix::faultHook = hook ? new FaultHook(std::move(hook)) : nullptr;
}

const char* CallName(Call call) {
  const auto index = static_cast<std::size_t>(call);
  return index < static_cast<std::size_t>(Call::kCount) ? kCallNames[index] : "?";
}

namespace posix {

// A pointer, as load hooks may make calls before this file's objects would be constructed.
constinit FaultHook* faultHook = nullptr;

bool AskFaultHook(Call call, const char* path) {
  // Threads of the layer's own callers meet here; a hook may make calls itself.
  static std::recursive_mutex lock;
  const std::lock_guard guard(lock);
  const DWORD error = (*faultHook)(call, path != nullptr ? path : "");
  if (error == NO_ERROR) return false;
  SetLastError(error);
  return true;
}

// --- FILEs, whose calls the run-time library makes ---

namespace {

std::FILE* Inner(void* cookie) {
  return static_cast<std::FILE*>(cookie);
}

ssize_t ReadInner(void* cookie, char* buffer, std::size_t size) {
  if (FaultedTransfer(Call::kReadFile, size)) {
    errno = EIO;
    return -1;
  }
  const std::size_t done = std::fread(buffer, 1, size, Inner(cookie));
  return static_cast<ssize_t>(done);
}

ssize_t WriteInner(void* cookie, const char* buffer, std::size_t size) {
  if (FaultedTransfer(Call::kWriteFile, size)) {
    errno = ENOSPC;
    return 0;
  }
  const std::size_t done = std::fwrite(buffer, 1, size, Inner(cookie));
  return std::fflush(Inner(cookie)) == 0 ? static_cast<ssize_t>(done) : 0;
}

int SeekInner(void* cookie, off64_t* offset, int origin) {
  if (fseeko(Inner(cookie), *offset, origin) != 0) return -1;
  *offset = ftello(Inner(cookie));
  return 0;
}

int CloseInner(void* cookie) {
  const bool faulted = Faulted(Call::kCloseHandle);
  const int result = std::fclose(Inner(cookie));
  return faulted ? EOF : result;
}

}  // namespace

std::FILE* MakeFailing(std::FILE* file, const char* mode) {
  std::FILE* const failing =
      fopencookie(file, mode, {ReadInner, WriteInner, SeekInner, CloseInner});
  return failing != nullptr ? failing : file;
}

DWORD ErrorOf(int number) {
  switch (number) {
    case 0:
      return NO_ERROR;
    case ENOENT:
    case ELOOP:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
      return ERROR_NOT_SAME_DEVICE;
    case EBUSY:
    case ETXTBSY:
    case EWOULDBLOCK:
      return ERROR_SHARING_VIOLATION;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ERROR_DISK_FULL;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    case EEXIST:
      return ERROR_ALREADY_EXISTS;
    case ENAMETOOLONG:
      return ERROR_FILENAME_EXCED_RANGE;
    case EIO:
      return ERROR_IO_DEVICE;
    default:
      return ERROR_GEN_FAILURE;
  }
}

}  // namespace posix
}  // namespace platform

DWORD GetLastError() {
  return platform::lastError;
}

void SetLastError(DWORD error) {
  platform::lastError = error;
}
