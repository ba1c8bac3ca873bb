// Running other programs and reading along.
//
// A worker thread starts the child and waits for its end, while the calling thread reads the two
// pipes that the child writes to. This process keeps both write ends open, so a pipe never breaks
// and its end says nothing: the child's end does, and whatever the pipes hold by then is all that
// the child wrote.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "diskio/diskio_intern.h"
#include "diskio/diskio_stream.h"

namespace {

bool StartChild(const qz::string& cmdLine, PROCESS_INFORMATION& child) {
  // The platform may write to the line while it takes it apart.
  const char* const line = cmdLine.c_str();
  const std::size_t size = std::strlen(line) + 1;
  const std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
  if (copy == nullptr) return false;
  std::memcpy(copy.get(), line, size);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  return ::CreateProcessA(nullptr, copy.get(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                          &startup, &child) != FALSE;
}

void CloseIfOpen(HANDLE handle) {
  if (handle != nullptr && handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
}

// One stream of the child: a pipe, and the read of it that is always under way.
class Capture {
 public:
  Capture(const char* kind, DIOFile::DIOCallback _take) : take(_take) {
    char name[64];
    std::snprintf(name, sizeof name, "\\\\.\\pipe\\DiskIOExecute%sPipe%08x", kind,
                  static_cast<unsigned>(::GetCurrentProcessId()));
    // The child gets the write end alone: with both it would never learn that nobody reads.
    readEnd = ::CreateNamedPipeA(name, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE,
                                 1, 0, 0, 0, nullptr);
    if (readEnd == INVALID_HANDLE_VALUE) return;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    writeEnd = ::CreateFileA(name, GENERIC_WRITE, 0, &inherit, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                             nullptr);
    state.hEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  }

  ~Capture() {
    DWORD dropped = 0;
    if (pending) StopReading(dropped);
    CloseIfOpen(writeEnd);
    CloseIfOpen(state.hEvent);
    CloseIfOpen(readEnd);
  }

  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  HANDLE WriteEnd() const { return writeEnd; }
  // Set when Advance has something to do.
  HANDLE Event() const { return state.hEvent; }

  // Begins to read. False, as of the next two, where the pipe cannot be read or was not made.
  bool Start() {
    return writeEnd != INVALID_HANDLE_VALUE && state.hEvent != nullptr && Read(sizeof block);
  }

  // Hands on what came since and reads on.
  bool Advance() {
    DWORD size = 0;
    if (::GetOverlappedResult(readEnd, &state, &size, FALSE) == FALSE) {
      return ::GetLastError() == ERROR_IO_INCOMPLETE;
    }
    pending = false;
    HandOn(size);
    return Read(sizeof block);
  }

  // Hands on the rest, when the child has ended. That is what the pipe holds now, and not what
  // others add who have the child's streams from it: they could keep this up for ever.
  bool Finish() {
    DWORD size = 0;
    if (StopReading(size)) {
      HandOn(size);
    } else if (::GetLastError() != ERROR_OPERATION_ABORTED) {
      return false;
    }
    DWORD left = 0;
    if (::PeekNamedPipe(readEnd, nullptr, 0, nullptr, &left, nullptr) == FALSE) return false;
    while (left != 0) {
      if (!Read(left < sizeof block ? left : DWORD{sizeof block})) return false;
      if (::GetOverlappedResult(readEnd, &state, &size, TRUE) == FALSE) return false;
      pending = false;
      HandOn(size);
      left -= size;
    }
    return true;
  }

 private:
  bool Read(DWORD size) {
    pending = ::ReadFile(readEnd, block, size, nullptr, &state) != FALSE ||
              ::GetLastError() == ERROR_IO_PENDING;
    return pending;
  }

  // False, with the platform's error, where the read brought nothing.
  bool StopReading(DWORD& size) {
    ::CancelIo(readEnd);
    pending = false;
    return ::GetOverlappedResult(readEnd, &state, &size, TRUE) != FALSE;
  }

  void HandOn(DWORD size) {
    if (take == nullptr) return;
    for (DWORD i = 0; i < size; ++i)
      take(block[i]);
  }

  const DIOFile::DIOCallback take;
  HANDLE readEnd = INVALID_HANDLE_VALUE;
  HANDLE writeEnd = INVALID_HANDLE_VALUE;
  OVERLAPPED state{};
  bool pending = false;  // the platform has `state` and `block`
  char block[4096];
};

// Makes `handle` what children write a stream of theirs to, for as long as this lives.
class StandardHandle {
 public:
  StandardHandle(DWORD _stream, HANDLE handle) : stream(_stream), old(::GetStdHandle(_stream)) {
    ::SetStdHandle(stream, handle);
  }
  ~StandardHandle() { ::SetStdHandle(stream, old); }
  StandardHandle(const StandardHandle&) = delete;
  StandardHandle& operator=(const StandardHandle&) = delete;

 private:
  const DWORD stream;
  const HANDLE old;
};

// Reads both streams until `worker` has ended. False where one cannot be read.
bool ReadAlong(HANDLE worker, Capture& out, Capture& err) {
  // The worker first, so that endless output does not hide its end; then both streams at each turn,
  // so that one does not hold up the other.
  const HANDLE list[] = {worker, out.Event(), err.Event()};
  for (;;) {
    const DWORD which = ::WaitForMultipleObjects(3, list, FALSE, INFINITE);
    if (which == WAIT_OBJECT_0) return out.Finish() && err.Finish();
    if (which == WAIT_FAILED || !out.Advance() || !err.Advance()) return false;
  }
}

}  // namespace

DWORD WINAPI ExecuteThread(LPVOID lpParameter) {
  EXInfo& info = *static_cast<EXInfo*>(lpParameter);
  PROCESS_INFORMATION child{};
  if (!StartChild(info.cmdLine, child)) {
    info.error = DIOFile::ERROR_COULDNOTEXECUTE;
    return 0;
  }
  CloseIfOpen(child.hThread);
  // Whether the child has ended is asked of its handle and not of its exit code, as 259 is both
  // the mark of a running child and a code like any other.
  const HANDLE list[] = {child.hProcess, info.giveUp};
  const DWORD which =
      ::WaitForMultipleObjects(info.giveUp != nullptr ? 2 : 1, list, FALSE, INFINITE);
  DWORD code = 0xFFFFFFFF;
  const bool known = which == WAIT_OBJECT_0 && ::GetExitCodeProcess(child.hProcess, &code) != FALSE;
  info.error = known ? DIOFile::ERROR_OK : DIOFile::ERROR_NORESULTKNOWN;
  info.result = code;
  ::CloseHandle(child.hProcess);
  return 0;
}

DIOFile::DIOError DIOFile::Execute(const qz::string& cmd, ulong& result, DIOCallback stdOut,
                                   DIOCallback errOut) {
  OSVERSIONINFOA version{};
  version.dwOSVersionInfoSize = sizeof version;
  ::GetVersionExA(&version);
  return version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS
             ? _DIOFile::ExecuteWin95(cmd, result, stdOut, errOut)
             : _DIOFile::ExecuteWinNT(cmd, result, stdOut, errOut);
}

DIOFile::DIOError _DIOFile::ExecuteWin95(const qz::string& cmd, ulong& result,
                                         DIOCallback /*stdOut*/, DIOCallback /*errOut*/) try {
  EXInfo info;
  info.cmdLine = cmd;
  const HANDLE worker = ::CreateThread(nullptr, 0, ExecuteThread, &info, 0, nullptr);
  if (worker == nullptr) return ERROR_COULDNOTEXECUTE;
  ::WaitForSingleObject(worker, INFINITE);
  ::CloseHandle(worker);
  if (info.error == ERROR_OK) result = info.result;
  return info.error;
} catch (const std::bad_alloc&) {
  return ERROR_COULDNOTEXECUTE;
}

DIOFile::DIOError _DIOFile::ExecuteWinNT(const qz::string& cmd, ulong& result, DIOCallback stdOut,
                                         DIOCallback errOut) try {
  EXInfo info;
  info.cmdLine = cmd;
  // The first pipe's name, which can be had once, keeps runs apart. So nothing of the process is
  // touched and nothing started before both pipes are known to be good.
  Capture out("Std", stdOut);
  if (!out.Start()) return ERROR_COULDNOTCAPTUREOUTPUT;
  Capture err("Err", errOut);
  if (!err.Start()) return ERROR_COULDNOTCAPTUREOUTPUT;
  info.giveUp = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (info.giveUp == nullptr) return ERROR_COULDNOTCAPTUREOUTPUT;
  const StandardHandle standardOut(STD_OUTPUT_HANDLE, out.WriteEnd());
  const StandardHandle standardErr(STD_ERROR_HANDLE, err.WriteEnd());

  DIOError error = ERROR_COULDNOTEXECUTE;
  const HANDLE worker = ::CreateThread(nullptr, 0, ExecuteThread, &info, 0, nullptr);
  if (worker != nullptr) {
    const bool read = ReadAlong(worker, out, err);
    // A worker that still waits is asked to stop: one ended by force would keep what it holds.
    if (!read) ::SetEvent(info.giveUp);
    ::WaitForSingleObject(worker, INFINITE);
    ::CloseHandle(worker);
    error = read ? info.error : ERROR_COULDNOTCAPTUREOUTPUT;
  }
  ::CloseHandle(info.giveUp);
  if (error == ERROR_OK) result = info.result;
  return error;
} catch (const std::bad_alloc&) {
  return ERROR_COULDNOTEXECUTE;
}
