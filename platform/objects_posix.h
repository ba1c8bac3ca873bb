// Handles that stand for something else than a file: children, threads, events, ends of pipes.
//
// Their values are no multiple of 4, which a file's handle always is, and are never used twice, so
// a stale handle is told from a live one. A call keeps what its handle stands for alive until it
// returns. No file outside this folder includes this one.
#ifndef PLATFORM_OBJECTS_POSIX_H_
#define PLATFORM_OBJECTS_POSIX_H_

#include <memory>
#include <string>

#include "platform/posix_intern.h"

namespace platform::posix {

struct Object {
  Object() = default;
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  // A descriptor that can be read from as long as a wait for the object is over; -1 where it
  // cannot be waited for.
  virtual int Signal() const { return -1; }
  // The last handle goes.
  virtual void Close() {}
};

// A handle for `object`. Throws std::bad_alloc.
HANDLE AddObject(std::shared_ptr<Object> object);
// False where the handle stands for none.
bool CloseObject(HANDLE handle);
// What the handle stands for, or null.
std::shared_ptr<Object> FindObject(HANDLE handle);

template <typename Kind>
std::shared_ptr<Kind> FindObject(HANDLE handle) {
  return std::dynamic_pointer_cast<Kind>(FindObject(handle));
}

// Waits until `fd` can be read from. False after `milliseconds` (-1: never).
bool WaitReadable(int fd, int milliseconds);

struct Event final : Object {
  // While a read is under way, the end of the wait is that it has something to give.
  int Signal() const override { return pipe >= 0 ? pipe : flag.Get(); }
  void Set();
  void Clear();

  Descriptor flag;  // a counter of the kernel's that reads as long as it is not 0
  int pipe = -1;
};

struct PipeWriter final : Object {
  Descriptor fd;
};

bool IsPipeName(const char* name);
// CreateFileA on the name of a pipe.
HANDLE OpenPipe(const char* name);
// ReadFile on the read end of one.
BOOL ReadPipe(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* overlapped);

}  // namespace platform::posix

#endif  // PLATFORM_OBJECTS_POSIX_H_
