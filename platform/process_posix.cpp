// Children: from a command line to a running program and its exit code.
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/objects_posix.h"

namespace platform::posix {

namespace {

constexpr std::string_view kBlanks = " \t";

// --- The command line --------------------------------------------------------------------------

// The program's name: quotes only, as a path may end in a backslash.
std::string TakeProgram(std::string_view line, std::size_t& at) {
  std::string program;
  bool quoted = false;
  for (; at < line.size(); ++at) {
    if (line[at] == '"') {
      quoted = !quoted;
    } else if (!quoted && kBlanks.find(line[at]) != std::string_view::npos) {
      break;
    } else {
      program += line[at];
    }
  }
  return program;
}

std::string TakeArgument(std::string_view line, std::size_t& at) {
  std::string argument;
  bool quoted = false;
  while (at < line.size()) {
    std::size_t slashes = 0;
    while (at < line.size() && line[at] == '\\') {
      ++at;
      ++slashes;
    }
    const bool quote = at < line.size() && line[at] == '"';
    argument.append(quote ? slashes / 2 : slashes, '\\');
    if (at == line.size()) break;
    if (quote && slashes % 2 == 0) {
      if (quoted && line.substr(at + 1, 1) == "\"") {
        argument += line[at++];
      } else {
        quoted = !quoted;
      }
    } else if (!quoted && kBlanks.find(line[at]) != std::string_view::npos) {
      break;
    } else {
      argument += line[at];
    }
    ++at;
  }
  return argument;
}

std::vector<std::string> SplitCommandLine(std::string_view line) {
  std::vector<std::string> arguments;
  std::size_t at = 0;
  const auto skipBlanks = [&] {
    at = line.find_first_not_of(kBlanks, at);
    return at != std::string_view::npos;
  };
  if (skipBlanks()) arguments.push_back(TakeProgram(line, at));
  while (skipBlanks())
    arguments.push_back(TakeArgument(line, at));
  return arguments;
}

// --- The program -------------------------------------------------------------------------------

DWORD CheckProgram(const std::string& native) {
  struct stat facts;
  if (stat(native.c_str(), &facts) != 0) return ErrorOf(errno);
  if (!S_ISREG(facts.st_mode)) return ERROR_ACCESS_DENIED;
  return access(native.c_str(), X_OK) == 0 ? NO_ERROR : ERROR_BAD_EXE_FORMAT;
}

DWORD FindInPath(const std::string& name, std::string& native) {
  const char* variable = std::getenv("PATH");
  std::string_view folders = variable != nullptr ? variable : "/bin:/usr/bin";
  for (;;) {
    const std::size_t end = folders.find(':');
    const std::string_view folder = folders.substr(0, end);
    native = folder.empty() ? "." : folder;  // an empty one stands for the current folder
    native += '/' + name;
    if (CheckProgram(native) == NO_ERROR) return NO_ERROR;
    if (end == std::string_view::npos) return ERROR_FILE_NOT_FOUND;
    folders.remove_prefix(end + 1);
  }
}

DWORD FindProgram(const std::string& name, std::string& native) {
  if (name.empty()) return ERROR_FILE_NOT_FOUND;
  if (name.find_first_of("\\/:") == std::string::npos) return FindInPath(name, native);
  Path path;
  struct stat facts;
  DWORD error = ParsePath(name.c_str(), path);
  if (error == NO_ERROR) error = FindEntry(path, facts);
  native = path.native;
  return error == NO_ERROR ? CheckProgram(native) : error;
}

// --- The child ---------------------------------------------------------------------------------

// Children whose handle was closed while they ran. They are this process's to bury.
struct Orphans {
  std::mutex lock;
  std::list<pid_t> pids;
};

Orphans& AllOrphans() {
  static Orphans orphans;
  return orphans;
}

void BuryOrphans() {
  const std::lock_guard guard(AllOrphans().lock);
  AllOrphans().pids.remove_if([](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
}

struct Process final : Object {
  int Signal() const override { return alive.Get(); }

  void Close() override {
    if (pid == 0 || Bury() != STILL_ACTIVE || failed) return;
    orphan.front() = pid;
    const std::lock_guard guard(AllOrphans().lock);
    AllOrphans().pids.splice(AllOrphans().pids.end(), orphan);
  }

  // The exit code, which the kernel tells once; STILL_ACTIVE with `failed` where it does not.
  DWORD Bury() {
    if (known) return exitCode;
    siginfo_t end{};
    failed = waitid(P_PIDFD, static_cast<id_t>(alive.Get()), &end, WEXITED | WNOHANG) != 0;
    known = !failed && end.si_pid != 0;
    if (!known) return STILL_ACTIVE;
    constexpr DWORD kSignalled = 128;
    exitCode = static_cast<DWORD>(end.si_status) + (end.si_code == CLD_EXITED ? 0 : kSignalled);
    return exitCode;
  }

  Descriptor alive;  // of OpenChild
  pid_t pid = 0;
  std::list<pid_t> orphan = {0};  // its place among them, had in time
  bool known = false;
  bool failed = false;
  DWORD exitCode = STILL_ACTIVE;
};

struct StandardHandles {
  std::mutex lock;
  HANDLE output = nullptr;
  HANDLE error = nullptr;

  HANDLE* Of(DWORD stream) {
    if (stream == STD_OUTPUT_HANDLE) return &output;
    return stream == STD_ERROR_HANDLE ? &error : nullptr;
  }
};

StandardHandles& Standard() {
  static StandardHandles handles;
  return handles;
}

// A descriptor that can be read from when the child has ended. By the system call itself, as some
// versions of the C library's header do not fit C++.
int OpenChild(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// What is to be done about descriptors between the fork and the program's start.
class Redirection {
 public:
  Redirection() { posix_spawn_file_actions_init(&actions_); }
  ~Redirection() { posix_spawn_file_actions_destroy(&actions_); }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

  // The write end that `stream` is set to, if it is, becomes `target`. errno or 0.
  int Add(DWORD stream, int target) {
    const auto writer = FindObject<PipeWriter>(GetStdHandle(stream));
    if (writer == nullptr) return 0;
    writers_.push_back(writer);
    return posix_spawn_file_actions_adddup2(&actions_, writer->fd.Get(), target);
  }

  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
  std::vector<std::shared_ptr<PipeWriter>> writers_;  // stay open until the child has them
};

DWORD SpawnError(int number) {
  switch (number) {
    case ENOEXEC:
      return ERROR_BAD_EXE_FORMAT;
    case E2BIG:
      return ERROR_FILENAME_EXCED_RANGE;
    case EAGAIN:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ErrorOf(number);
  }
}

// Starts the program with the other threads of this process going on: the C library's own spawn
// allocates nothing and runs no handler between fork and exec, and unlike its search in PATH it
// never hands a file that is no program to a shell.
DWORD Spawn(const std::string& native, std::vector<std::string>& arguments, Process& process) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  Redirection redirection;
  int error = redirection.Add(STD_OUTPUT_HANDLE, STDOUT_FILENO);
  if (error == 0) error = redirection.Add(STD_ERROR_HANDLE, STDERR_FILENO);
  // A descriptor for the child cannot be had before there is a child. One for this process takes
  // its place until then, so that a lack of them shows while nothing has been started.
  process.alive.Reset(OpenChild(getpid()));
  if (error == 0 && !process.alive.IsOpen()) error = errno;
  pid_t pid = 0;
  if (error == 0) {
    error = posix_spawn(&pid, native.c_str(), redirection.Get(), nullptr, argv.data(), environ);
  }
  if (error != 0) return SpawnError(error);
  process.alive.Reset();
  process.alive.Reset(OpenChild(pid));
  if (process.alive.IsOpen()) {
    process.pid = pid;
    return NO_ERROR;
  }
  error = errno;  // another thread took the place
  kill(pid, SIGKILL);
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
  return ErrorOf(error);
}

}  // namespace
}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

BOOL GetVersionExA(OSVERSIONINFOA* version) {
  const DWORD size = version->dwOSVersionInfoSize;
  *version = {size, 6, 1, 0, VER_PLATFORM_WIN32_NT, ""};
  return TRUE;
}

DWORD GetCurrentProcessId() {
  return static_cast<DWORD>(getpid());
}

BOOL CreateProcessA(LPCSTR /*application*/, LPSTR commandLine, SECURITY_ATTRIBUTES* /*process*/,
                    SECURITY_ATTRIBUTES* /*thread*/, BOOL /*inherit*/, DWORD /*flags*/,
                    LPVOID /*environment*/, LPCSTR /*folder*/, STARTUPINFOA* /*startup*/,
                    PROCESS_INFORMATION* information) {
  if (posix::Faulted(Call::kCreateProcess, commandLine)) return FALSE;
  posix::BuryOrphans();
  return posix::Guarded(FALSE, [&] {
    std::vector<std::string> arguments = posix::SplitCommandLine(commandLine);
    if (arguments.empty()) return posix::Fail(ERROR_FILE_NOT_FOUND);
    std::string native;
    DWORD error = posix::FindProgram(arguments[0], native);
    if (error != NO_ERROR) return posix::Fail(error);
    auto process = std::make_shared<posix::Process>();
    const HANDLE handle = posix::AddObject(process);
    // Whatever fails behind this closes the handle again.
    error = posix::Guarded(ERROR_NOT_ENOUGH_MEMORY,
                           [&] { return posix::Spawn(native, arguments, *process); });
    if (error != NO_ERROR) {
      posix::CloseObject(handle);
      return posix::Fail(error);
    }
    *information = {handle, nullptr, static_cast<DWORD>(process->pid), 0};
    return TRUE;
  });
}

BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) {
  if (posix::Faulted(Call::kGetExitCodeProcess)) return FALSE;
  const auto found = posix::FindObject<posix::Process>(process);
  if (found == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  const DWORD code = found->Bury();
  if (found->failed) return posix::Fail(ERROR_GEN_FAILURE);
  *exitCode = code;
  return TRUE;
}

HANDLE GetStdHandle(DWORD stream) {
  const std::lock_guard guard(posix::Standard().lock);
  const HANDLE* const handle = posix::Standard().Of(stream);
  if (handle != nullptr) return *handle;
  SetLastError(ERROR_INVALID_HANDLE);
  return INVALID_HANDLE_VALUE;
}

BOOL SetStdHandle(DWORD stream, HANDLE handle) {
  const std::lock_guard guard(posix::Standard().lock);
  HANDLE* const place = posix::Standard().Of(stream);
  if (place == nullptr) return posix::Fail(ERROR_INVALID_HANDLE);
  *place = handle;
  return TRUE;
}
