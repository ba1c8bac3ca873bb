// Handles that are no files, and what can be waited for: events and threads.
//
// Whatever can be waited for has a descriptor that tells when the wait is over, so one poll waits
// for all of them.
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <utility>

#include "platform/objects_posix.h"

namespace platform::posix {

namespace {

struct Objects {
  std::mutex lock;
  std::map<std::intptr_t, std::shared_ptr<Object>> byHandle;
  std::intptr_t next = 2;
};

Objects& AllObjects() {
  static Objects objects;
  return objects;
}

struct Thread final : Object {
  int Signal() const override { return ended.flag.Get(); }
  void Close() override {
    if (!started) return;
    if (WaitReadable(Signal(), 0)) {
      pthread_join(id, nullptr);
    } else {
      pthread_detach(id);
    }
  }

  Event ended;
  pthread_t id{};
  bool started = false;
  LPTHREAD_START_ROUTINE start = nullptr;
  LPVOID parameter = nullptr;
};

void* RunThread(void* argument) {
  const std::unique_ptr<std::shared_ptr<Thread>> thread(
      static_cast<std::shared_ptr<Thread>*>(argument));
  (*thread)->start((*thread)->parameter);
  (*thread)->ended.Set();
  return nullptr;
}

bool MakeFlag(Event& event) {
  event.flag.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  return event.flag.IsOpen();
}

constexpr DWORD kMaxWait = 64;  // objects, as on Windows

DWORD FailedWait(DWORD error) {
  SetLastError(error);
  return WAIT_FAILED;
}

// `milliseconds` -1 for a wait without limit.
DWORD Wait(DWORD count, const HANDLE* handles, int milliseconds) {
  if (count == 0 || count > kMaxWait) return FailedWait(ERROR_INVALID_PARAMETER);
  std::shared_ptr<Object> objects[kMaxWait];
  pollfd polled[kMaxWait];
  for (DWORD i = 0; i < count; ++i) {
    objects[i] = FindObject(handles[i]);
    const int fd = objects[i] != nullptr ? objects[i]->Signal() : -1;
    if (fd < 0) return FailedWait(ERROR_INVALID_HANDLE);
    polled[i] = {fd, POLLIN, 0};
  }
  int ready = 0;
  do {
    ready = poll(polled, count, milliseconds);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) return FailedWait(ErrorOf(errno));
  for (DWORD i = 0; i < count; ++i) {
    if (polled[i].revents != 0) return WAIT_OBJECT_0 + i;
  }
  return WAIT_TIMEOUT;
}

int PollTime(DWORD milliseconds) {
  constexpr DWORD kLongest = 0x7FFFFFFF;
  return milliseconds > kLongest ? -1 : static_cast<int>(milliseconds);
}

}  // namespace

HANDLE AddObject(std::shared_ptr<Object> object) {
  Objects& objects = AllObjects();
  const std::lock_guard guard(objects.lock);
  objects.byHandle.emplace(objects.next, std::move(object));
  return reinterpret_cast<HANDLE>(std::exchange(objects.next, objects.next + 4));
}

std::shared_ptr<Object> FindObject(HANDLE handle) {
  Objects& objects = AllObjects();
  const std::lock_guard guard(objects.lock);
  const auto found = objects.byHandle.find(reinterpret_cast<std::intptr_t>(handle));
  return found != objects.byHandle.end() ? found->second : nullptr;
}

bool CloseObject(HANDLE handle) {
  Objects& objects = AllObjects();
  std::shared_ptr<Object> closed;
  {
    const std::lock_guard guard(objects.lock);
    const auto found = objects.byHandle.find(reinterpret_cast<std::intptr_t>(handle));
    if (found == objects.byHandle.end()) return false;
    closed = std::move(found->second);
    objects.byHandle.erase(found);
  }
  closed->Close();
  return true;
}

bool WaitReadable(int fd, int milliseconds) {
  pollfd polled{fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&polled, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

void Event::Set() {
  eventfd_write(flag.Get(), 1);
}

void Event::Clear() {
  eventfd_t ignored = 0;
  eventfd_read(flag.Get(), &ignored);
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

HANDLE CreateThread(SECURITY_ATTRIBUTES* /*security*/, std::size_t /*stackSize*/,
                    LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD /*flags*/,
                    LPDWORD /*id*/) {
  if (posix::Faulted(Call::kCreateThread)) return nullptr;
  return posix::Guarded(HANDLE{nullptr}, [&]() -> HANDLE {
    auto thread = std::make_shared<posix::Thread>();
    thread->start = start;
    thread->parameter = parameter;
    if (!posix::MakeFlag(thread->ended)) {
      SetLastError(posix::ErrorOf(errno));
      return nullptr;
    }
    auto own = std::make_unique<std::shared_ptr<posix::Thread>>(thread);
    const HANDLE handle = posix::AddObject(thread);
    thread->started = pthread_create(&thread->id, nullptr, posix::RunThread, own.get()) == 0;
    if (!thread->started) {
      posix::CloseObject(handle);
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    static_cast<void>(own.release());  // the thread's now
    return handle;
  });
}

HANDLE CreateEventA(SECURITY_ATTRIBUTES* /*security*/, BOOL /*manualReset*/, BOOL /*set*/,
                    LPCSTR /*name*/) {
  if (posix::Faulted(Call::kCreateEvent)) return nullptr;
  return posix::Guarded(HANDLE{nullptr}, [&]() -> HANDLE {
    auto event = std::make_shared<posix::Event>();
    if (posix::MakeFlag(*event)) return posix::AddObject(std::move(event));
    SetLastError(posix::ErrorOf(errno));
    return nullptr;
  });
}

BOOL SetEvent(HANDLE event) {
  const auto found = posix::FindObject<posix::Event>(event);
  if (found == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  found->Set();
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
  return posix::Wait(1, &object, posix::PollTime(milliseconds));
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL /*all*/, DWORD milliseconds) {
  if (posix::Faulted(Call::kWaitForMultipleObjects)) return WAIT_FAILED;
  return posix::Wait(count, objects, posix::PollTime(milliseconds));
}
