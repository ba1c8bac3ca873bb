// The hook through which tests make platform calls fail, count them, or stop the process at them.
// It costs one predicted branch when unset.
#ifndef PLATFORM_FAULTS_H_
#define PLATFORM_FAULTS_H_

#include <functional>

#include "platform/platform.h"

namespace platform {

// The calls that can be made to fail. Names without "A" as the layer is narrow throughout.
enum class Call {
  kCreateFile,
  kReadFile,
  kWriteFile,
  kSetFilePointer,
  kGetFileSize,
  kCloseHandle,
  kGetFileTime,
  kGetFileAttributes,
  kSetFileAttributes,
  kDeleteFile,
  kRemoveDirectory,
  kCreateDirectory,
  kMoveFile,
  kCopyFile,
  kFindFirstFile,
  kFindNextFile,
  kFindClose,
  kGetFullPathName,
  kFopen,
  kCreateProcess,
  kGetExitCodeProcess,
  kCreateThread,
  kCreateEvent,
  kWaitForMultipleObjects,
  kCreateNamedPipe,
  kGetOverlappedResult,
  kPeekNamedPipe,
  kCount
};

// Called in front of each platform call with its kind and the path it was given (empty for calls
// on handles; a command line for CreateProcess), by one thread at a time. Result NO_ERROR lets the
// call run; any other value becomes its last error and the call fails without effect (CloseHandle
// still closes; FindClose still ends the search). Reads, writes and closes of FILEs are calls too,
// of those that were opened under a hook.
using FaultHook = std::function<DWORD(Call call, const char* path)>;

// As a hook's result for ReadFile and WriteFile: the call succeeds with half of what it should
// move.
inline constexpr DWORD kShortTransfer = 0x20000001;

// Sets the hook of the process; an empty one removes it. Not thread safe.
void SetFaultHook(FaultHook hook);

const char* CallName(Call call);

}  // namespace platform

#endif  // PLATFORM_FAULTS_H_
