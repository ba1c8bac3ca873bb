// Pipes between a child and this process, with reads that can be waited for beside other things.
//
// A read that finds nothing only notes where its bytes go. Waits for its event look at the pipe,
// and GetOverlappedResult fetches what came: there is no thread that reads in the background.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "platform/objects_posix.h"

namespace platform::posix {

namespace {

struct PipeReader final : Object {
  void Close() override;

  // Takes what is there for the read under way. False where it has to wait.
  bool Try();
  void Finish(DWORD error, DWORD bytes);

  Descriptor fd;
  Descriptor writer;  // until somebody opens it
  std::string name;

  OVERLAPPED* pending = nullptr;  // the read under way, with where it goes
  std::shared_ptr<Event> event;
  LPVOID buffer = nullptr;
  DWORD count = 0;
};

// The read ends by name, as long as they are open.
struct Pipes {
  std::mutex lock;
  std::map<std::string, std::weak_ptr<PipeReader>> byName;
};

Pipes& AllPipes() {
  static Pipes pipes;
  return pipes;
}

void PipeReader::Close() {
  if (pending != nullptr) Finish(ERROR_OPERATION_ABORTED, 0);
  const std::lock_guard guard(AllPipes().lock);
  AllPipes().byName.erase(name);
}

bool PipeReader::Try() {
  ssize_t moved = 0;
  do {
    moved = read(fd.Get(), buffer, count);
  } while (moved < 0 && errno == EINTR);
  if (moved < 0 && errno == EAGAIN) return false;
  if (moved > 0 || count == 0) {
    Finish(NO_ERROR, static_cast<DWORD>(moved));
  } else {
    Finish(moved == 0 ? ERROR_BROKEN_PIPE : ErrorOf(errno), 0);
  }
  return true;
}

void PipeReader::Finish(DWORD error, DWORD bytes) {
  OVERLAPPED* const read = std::exchange(pending, nullptr);
  read->Internal = error;
  read->InternalHigh = bytes;
  event->pipe = -1;
  event->Set();
  event.reset();
}

// Moves a descriptor away from the numbers that a child's own streams get.
bool MoveUp(int fd, Descriptor& moved) {
  moved.Reset(fcntl(fd, F_DUPFD_CLOEXEC, 3));
  return moved.IsOpen();
}

bool MakePipe(PipeReader& reader) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const Descriptor readEnd(ends[0]);
  const Descriptor writeEnd(ends[1]);
  // The write end stays as children expect it: without O_NONBLOCK, which is the read end's alone.
  return MoveUp(ends[0], reader.fd) && MoveUp(ends[1], reader.writer) &&
         fcntl(reader.fd.Get(), F_SETFL, O_NONBLOCK) == 0;
}

HANDLE NoPipe(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

constexpr char kPipeFolder[] = "\\\\.\\pipe\\";

}  // namespace

bool IsPipeName(const char* name) {
  return name != nullptr && std::strncmp(name, kPipeFolder, sizeof kPipeFolder - 1) == 0;
}

HANDLE OpenPipe(const char* name) {
  std::shared_ptr<PipeReader> reader;
  const std::string key = name;  // what needs memory comes first: nobody could close the handle
  auto end = std::make_shared<PipeWriter>();
  const HANDLE handle = AddObject(end);
  {
    const std::lock_guard guard(AllPipes().lock);
    const auto found = AllPipes().byName.find(key);
    if (found != AllPipes().byName.end()) reader = found->second.lock();
    if (reader != nullptr) end->fd.Reset(reader->writer.Release());
  }
  if (end->fd.IsOpen()) return handle;
  CloseObject(handle);
  return NoPipe(reader == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_PIPE_BUSY);
}

BOOL ReadPipe(HANDLE handle, LPVOID buffer, DWORD count, LPDWORD done, OVERLAPPED* overlapped) {
  const auto reader = FindObject<PipeReader>(handle);
  if (reader == nullptr) return Fail(ERROR_INVALID_HANDLE);
  auto event = overlapped != nullptr ? FindObject<Event>(overlapped->hEvent) : nullptr;
  if (event == nullptr || reader->pending != nullptr) return Fail(ERROR_INVALID_PARAMETER);
  event->Clear();
  reader->pending = overlapped;
  reader->event = event;
  reader->buffer = buffer;
  reader->count = count;
  if (!reader->Try()) {
    overlapped->Internal = ERROR_IO_PENDING;
    overlapped->InternalHigh = 0;
    event->pipe = reader->fd.Get();
    return Fail(ERROR_IO_PENDING);
  }
  if (overlapped->Internal != NO_ERROR) return Fail(static_cast<DWORD>(overlapped->Internal));
  if (done != nullptr) *done = static_cast<DWORD>(overlapped->InternalHigh);
  return TRUE;
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

HANDLE CreateNamedPipeA(LPCSTR name, DWORD /*openMode*/, DWORD /*pipeMode*/, DWORD /*maxInstances*/,
                        DWORD /*outSize*/, DWORD /*inSize*/, DWORD /*timeout*/,
                        SECURITY_ATTRIBUTES* /*security*/) {
  if (posix::Faulted(Call::kCreateNamedPipe, name)) return INVALID_HANDLE_VALUE;
  return posix::Guarded(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    if (!posix::IsPipeName(name)) return posix::NoPipe(ERROR_INVALID_NAME);
    auto reader = std::make_shared<posix::PipeReader>();
    if (!posix::MakePipe(*reader)) return posix::NoPipe(posix::ErrorOf(errno));
    reader->name = name;
    const std::lock_guard guard(posix::AllPipes().lock);
    auto& pipes = posix::AllPipes().byName;
    const auto [place, isNew] = pipes.try_emplace(reader->name);
    if (!isNew && !place->second.expired()) return posix::NoPipe(ERROR_PIPE_BUSY);
    place->second = reader;
    try {
      return posix::AddObject(std::move(reader));
    } catch (const std::bad_alloc&) {
      pipes.erase(place);
      throw;
    }
  });
}

BOOL GetOverlappedResult(HANDLE pipe, OVERLAPPED* overlapped, LPDWORD done, BOOL wait) {
  if (posix::Faulted(Call::kGetOverlappedResult)) return FALSE;
  const auto reader = posix::FindObject<posix::PipeReader>(pipe);
  if (reader == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  while (reader->pending == overlapped && !reader->Try()) {
    if (wait == FALSE) return posix::Fail(ERROR_IO_INCOMPLETE);
    posix::WaitReadable(reader->fd.Get(), -1);
  }
  *done = static_cast<DWORD>(overlapped->InternalHigh);
  return overlapped->Internal == NO_ERROR ? TRUE
                                          : posix::Fail(static_cast<DWORD>(overlapped->Internal));
}

BOOL CancelIo(HANDLE pipe) {
  const auto reader = posix::FindObject<posix::PipeReader>(pipe);
  if (reader == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  if (reader->pending != nullptr) reader->Finish(ERROR_OPERATION_ABORTED, 0);
  return TRUE;
}

BOOL PeekNamedPipe(HANDLE pipe, LPVOID /*buffer*/, DWORD /*size*/, LPDWORD /*read*/,
                   LPDWORD available, LPDWORD /*left*/) {
  if (posix::Faulted(Call::kPeekNamedPipe)) return FALSE;
  const auto reader = posix::FindObject<posix::PipeReader>(pipe);
  int bytes = 0;
  if (reader == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  if (ioctl(reader->fd.Get(), FIONREAD, &bytes) != 0) return posix::Fail(posix::ErrorOf(errno));
  *available = static_cast<DWORD>(bytes);
  return TRUE;
}
