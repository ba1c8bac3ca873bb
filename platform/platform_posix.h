// Stand-in for the Windows calls that this project makes, on POSIX systems.
//
// Exactly the calls that are used are declared, each with what its callers rely on. Results,
// last errors and side effects are those of Windows as far as a caller can see them. All calls may
// come from any thread; the last error is kept per thread.
//
// Drives: "C:" is the root of the file system; further drives are mounted with
// platform::MountDrive (platform/native.h). A path on a drive that is not mounted does not exist.
// Names: a component is looked up exactly first, then by a scan of its folder without case.
// Text: narrow text is UTF-8. A byte that is no part of valid UTF-8 is the code unit 0xDC00 + byte
// in wide text, so every byte string survives the way there and back.
#ifndef PLATFORM_PLATFORM_POSIX_H_
#define PLATFORM_PLATFORM_POSIX_H_

#include <cstddef>
#include <cstdint>

// --- Types, with Windows' widths ---------------------------------------------------------------

#define WINAPI
// In front of a declaration: the symbol leaves the module that defines it.
#define PLATFORM_EXPORT __attribute__((visibility("default")))
#define FALSE 0
#define TRUE 1

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using HANDLE = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPBOOL = BOOL*;
using LPDWORD = DWORD*;
using PLONG = LONG*;
using RPC_STATUS = LONG;
using RPC_CSTR = unsigned char*;

struct _GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using GUID = _GUID;
using UUID = _GUID;

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

#define MAX_PATH 260
#define _MAX_DRIVE 3
#define _MAX_DIR 256
#define _MAX_FNAME 256
#define _MAX_EXT 256

struct WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  char cFileName[MAX_PATH];
  char cAlternateFileName[14];
};

struct SECURITY_ATTRIBUTES {  // null for everything that has a name in the file system
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};

// One read of a pipe that may still be under way.
struct OVERLAPPED {
  std::uintptr_t Internal;      // while the layer has it: how the read ended, as an error number
  std::uintptr_t InternalHigh;  // bytes that were read
  DWORD Offset;
  DWORD OffsetHigh;
  HANDLE hEvent;
};

struct STARTUPINFOA {
  DWORD cb;  // all that is looked at: the stand-in knows no windows
};

struct PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;  // null here
  DWORD dwProcessId;
  DWORD dwThreadId;
};

struct OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char szCSDVersion[128];
};

// --- Constants ---------------------------------------------------------------------------------

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

inline constexpr DWORD GENERIC_READ = 0x80000000u;
inline constexpr DWORD GENERIC_WRITE = 0x40000000u;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFFu;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x02;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x04;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x100;

inline constexpr DWORD NO_ERROR = 0;
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_FAULT = 29;
inline constexpr DWORD ERROR_READ_FAULT = 30;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_PIPE_BUSY = 231;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_IO_INCOMPLETE = 996;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;

inline constexpr DWORD PIPE_ACCESS_INBOUND = 1;
inline constexpr DWORD PIPE_TYPE_BYTE = 0;
inline constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000u;
inline constexpr DWORD STD_OUTPUT_HANDLE = 0xFFFFFFF5u;
inline constexpr DWORD STD_ERROR_HANDLE = 0xFFFFFFF4u;
inline constexpr DWORD INFINITE = 0xFFFFFFFFu;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr DWORD VER_PLATFORM_WIN32_WINDOWS = 1;
inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

inline constexpr UINT CP_ACP = 0;
inline constexpr RPC_STATUS RPC_S_OK = 0;
inline constexpr RPC_STATUS RPC_S_OUT_OF_MEMORY = 14;
inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;

// --- The last error of this thread -------------------------------------------------------------

// A failed call sets it. Of the calls that succeed SetFilePointer and GetFileSize set NO_ERROR
// where the low half of their answer is all ones, which is how their callers tell such an answer
// from a failure; CreateFileA with CREATE_ALWAYS or OPEN_ALWAYS sets ERROR_ALREADY_EXISTS where the
// file was there, else NO_ERROR.
DWORD GetLastError();
void SetLastError(DWORD error);

// --- Files -------------------------------------------------------------------------------------

// Opens or makes a file. `share` is 0 (no other open, delete, move or copy of the file succeeds
// while the handle is open, from this process or another) or a FILE_SHARE mask, which lets in every
// other open that shares, whatever the bits, and copies; `security` and `templateFile` are null.
// INVALID_HANDLE_VALUE on failure. A made file is marked archive. A folder cannot be opened.
// The name of a pipe (\\.\pipe\...) gives its write end, see CreateNamedPipeA.
HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);

// Reads up to `count` bytes at the file's position. A read at the end succeeds with *done 0; only
// the end of the file makes *done smaller than `count`. `overlapped` is null for a file; for pipes
// see CreateNamedPipeA.
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* overlapped);

// Writes `count` bytes at the file's position. On a full disk *done tells what was written and the
// result is FALSE. `overlapped` is null. Files only: the write end of a pipe is for a child.
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* overlapped);

// Moves the position by a signed 64-bit distance (`distanceHigh` given: in and out) or a signed
// 32-bit one (`distanceHigh` null), and gives the low half of the new position. A move in front of
// the start fails with ERROR_NEGATIVE_SEEK and the position stays. Beyond the end is legal.
DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD origin);

DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh);

// Takes the handles of every call here but the searches'. A thread or a child runs on when its
// handle is closed; an ended child leaves nothing behind.
BOOL CloseHandle(HANDLE handle);

// Times of last use are UTC; any pointer may be null. A file system without creation times gives
// the earlier of the change and write times.
BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write);
BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime);

// FILE_ATTRIBUTE_NORMAL alone where no flag is set. Read-only of a file is the absence of every
// write permission; of a folder it is a flag that stops nothing but its removal.
DWORD GetFileAttributesA(LPCSTR name);
BOOL SetFileAttributesA(LPCSTR name, DWORD attributes);

// A read-only file is refused with ERROR_ACCESS_DENIED, for root too.
BOOL DeleteFileA(LPCSTR name);
BOOL RemoveDirectoryA(LPCSTR name);
BOOL CreateDirectoryA(LPCSTR name, SECURITY_ATTRIBUTES* security);

// Renames or moves a file or folder. Never replaces: an existing target is ERROR_ALREADY_EXISTS.
// A change of case alone is a rename like any other.
BOOL MoveFileA(LPCSTR from, LPCSTR to);

// Copies data, attributes and last write time (to the tick); the copy is marked archive. The
// kernel's own copy is used, a clone where the file system can. With `failIfExists` an existing
// target is refused and untouched. A failure leaves no partial target.
BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists);

// --- Searches ----------------------------------------------------------------------------------

// The mask's last component may hold '*' and '?'; "*.*" matches names without a dot. "." and ".."
// come first, as on every folder but a root; the others come in the order of their bytes. A mask
// that ends in a separator finds nothing. Names that no path in our notation can reach are left
// out.
HANDLE FindFirstFileA(LPCSTR mask, WIN32_FIND_DATAA* data);
BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data);
BOOL FindClose(HANDLE search);

// --- Paths -------------------------------------------------------------------------------------

// Text work only: joins with the current directory, resolves "." and ".." (never above the root),
// folds separators, drops trailing dots and blanks of components as Windows does. The result is
// the length without terminator, or the needed size with terminator where the buffer is too small,
// or 0. `*filePart` points at the last component, or is null where the path ends in a separator.
DWORD GetFullPathNameA(LPCSTR name, DWORD size, LPSTR buffer, LPSTR* filePart);

DWORD GetTempPathA(DWORD size, LPSTR buffer);
// Makes an empty file PREFIX (3 characters at most), hexadecimal number, ".tmp" in `folder` when
// `unique` is 0; otherwise only names it. 0 on failure. `buffer` holds MAX_PATH characters.
UINT GetTempFileNameA(LPCSTR folder, LPCSTR prefix, UINT unique, LPSTR buffer);
DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer);
BOOL SetCurrentDirectoryA(LPCSTR name);

// `buffer` holds MAX_PATH characters. FALSE, with an empty buffer, where the two ends have no
// common root or the result does not fit.
BOOL PathRelativePathToA(LPSTR buffer, LPCSTR from, DWORD fromAttributes, LPCSTR to,
                         DWORD toAttributes);

// Splits as the run-time library does: `drive` with its colon, `dir` with its trailing separator,
// `name`, `ext` with its dot. Parts that do not fit their 256-character buffers are cut to them.
void _splitpath(const char* path, char* drive, char* dir, char* name, char* ext);

// --- Children, threads, events and pipes -------------------------------------------------------
//
// What it takes to run a command, wait for it and read along. These handles cannot be duplicated or
// named. A descriptor stands behind each; none of them is passed on to a child but its own streams.

// dwPlatformId is VER_PLATFORM_WIN32_NT.
BOOL GetVersionExA(OSVERSIONINFOA* version);
DWORD GetCurrentProcessId();

// Starts `commandLine` without a shell, in the caller's folder and environment; `application`,
// `environment` and `folder` are null, `flags` 0. The child's output streams are what SetStdHandle
// last set; everything else that it inherits is its input and what the program itself opened past
// this layer.
//
// The line is split by Windows' rules. The first part names the program: a quote begins and ends
// text in which blanks are kept, and a backslash means itself. In the others 2n backslashes before
// a quote are n of them and the quote begins or ends such text, 2n + 1 are n of them and a quote
// that means itself, as does a doubled quote inside such text; other backslashes mean themselves.
// A program with a separator or a drive is a path in our notation, any other is looked for in PATH.
// The other arguments reach the child as they stand: paths among them are not made native.
//
// ERROR_FILE_NOT_FOUND or ERROR_PATH_NOT_FOUND where there is no such program,
// ERROR_BAD_EXE_FORMAT for a file that is none.
BOOL CreateProcessA(LPCSTR application, LPSTR commandLine, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL inherit, DWORD flags, LPVOID environment,
                    LPCSTR folder, STARTUPINFOA* startup, PROCESS_INFORMATION* information);

// STILL_ACTIVE while the child runs, which is an exit code too: wait first. A child that signal n
// ended gives 128 + n; of a number that it exits with, the system hands on the low 8 bits. FALSE
// where the program keeps its children's ends from being known (an ignored SIGCHLD).
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);

// What children started from here on write to: STD_OUTPUT_HANDLE or STD_ERROR_HANDLE, and the write
// end of a pipe, or null for this process's own stream, which is how both begin. Descriptors 1
// and 2 of this process stay what they are. A handle that is closed by the time counts as null.
HANDLE GetStdHandle(DWORD stream);
BOOL SetStdHandle(DWORD stream, HANDLE handle);

using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID);

// Null on failure. `security` and `id` are null, `stackSize` (for the default) and `flags` 0. When
// the handle of an ended thread is closed, the thread is gone.
HANDLE CreateThread(SECURITY_ATTRIBUTES* security, std::size_t stackSize,
                    LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags, LPDWORD id);

// With manual reset, not set, without a name. Null on failure.
HANDLE CreateEventA(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL set, LPCSTR name);
BOOL SetEvent(HANDLE event);

// Waits until an event is set, a thread or child has ended: INFINITE, or `milliseconds` at most and
// then WAIT_TIMEOUT. Of several the first counts, so the list is in order of importance.
// `all` is FALSE. WAIT_FAILED where one cannot be waited for.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all, DWORD milliseconds);

// Makes the one instance of a pipe and gives its read end: PIPE_ACCESS_INBOUND with
// FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE. CreateFileA on its name gives the write end, once
// (ERROR_PIPE_BUSY after that). INVALID_HANDLE_VALUE on failure, ERROR_PIPE_BUSY while a pipe of
// that name is open. Names are those of this process.
//
// ReadFile on the read end takes an OVERLAPPED with an event, which it clears. It takes what is
// there, up to `count` bytes, and sets the event; where nothing is there it fails with
// ERROR_IO_PENDING and the event is set as soon as GetOverlappedResult has an answer. Buffer and
// OVERLAPPED stay the layer's until then. One read at a time, one thread.
// ERROR_BROKEN_PIPE where nothing is there and no write end is open in any process.
HANDLE CreateNamedPipeA(LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                        DWORD outSize, DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security);

// How the read ended, and its bytes in *done. While it is under way: waits for its end, or without
// `wait` fails with ERROR_IO_INCOMPLETE.
BOOL GetOverlappedResult(HANDLE pipe, OVERLAPPED* overlapped, LPDWORD done, BOOL wait);

// Ends the read that is under way, if any, with ERROR_OPERATION_ABORTED. It takes no bytes.
BOOL CancelIo(HANDLE pipe);

// The number of bytes that wait in the pipe; `buffer`, `read` and `left` are null.
BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD read, LPDWORD available,
                   LPDWORD left);

// --- Text --------------------------------------------------------------------------------------

// `codePage` CP_ACP, `flags` 0, `length` -1 (terminator included) or a count. With a `size` of 0
// the needed size is returned. 0 on failure.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR defaultChar, LPBOOL usedDefaultChar);

namespace platform {
// One text of a module's string resources.
struct StringResource {
  UINT id;
  const char* text;
};
}  // namespace platform

// A loaded module, as its string resources are found. The module itself defines one.
struct HINSTANCE__ {
  const platform::StringResource* strings;
  std::size_t numStrings;
};
using HINSTANCE = const HINSTANCE__*;
using HMODULE = HINSTANCE;

// Copies the text `id` into `buffer`, cut to size - 1 characters. Its length, or 0 for a missing
// text, and the buffer is then the empty text.
int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size);

// --- UUIDs -------------------------------------------------------------------------------------

RPC_STATUS UuidCreate(UUID* uuid);
// 36 lower-case characters without braces; release with RpcStringFreeA.
RPC_STATUS UuidToStringA(const UUID* uuid, RPC_CSTR* text);
RPC_STATUS RpcStringFreeA(RPC_CSTR* text);
// -1, 0 or 1.
int UuidCompare(UUID* a, UUID* b, RPC_STATUS* status);

// --- Modules -----------------------------------------------------------------------------------

// A loadable module defines both; its load and unload hooks (module_posix.cpp) make the calls, with
// the reasons DLL_PROCESS_ATTACH and DLL_PROCESS_DETACH.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);
namespace platform {
extern const HINSTANCE__ thisModule;
}

#endif  // PLATFORM_PLATFORM_POSIX_H_
