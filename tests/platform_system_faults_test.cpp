// The layer on a system that fails beneath it: the n-th system call or allocation of each
// operation, once and from there on, with each error that it can have. Whatever fails, the
// operation either does and tells all that it should, or tells the error's own number and leaves
// the files as they were; nothing stays open or allocated, and it works when it is called again.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "platform_support.h"
#include "tests/heap_faults.h"

namespace {

using Word = std::intptr_t;
using Errors = std::map<std::string_view, int>;

constexpr int kShort = 0;  // for an error: the call moves half of what it should
enum Extent { kOnce, kThisCall, kAllCalls };

// The n-th system call (from 1) fails with its error number `choice`, alone or with those of its
// kind or all that come after; or the n-th allocation, alone or with all that come after.
struct Fault {
  struct Call {
    std::string_view name;
    std::span<const int> errors;
  };

  // The error of this call, or -1.
  int Next(const Call& call) {
    const auto lack = lacks.find(call.name);
    if (lack != lacks.end()) return lack->second;
    const heap_faults::Spared spared;
    calls.push_back(call);
    if (calls.size() == n) {
      name = call.name;
      return error = call.errors[choice % call.errors.size()];
    }
    if (n == 0 || calls.size() < n || extent == kOnce || error == EINTR) return -1;
    if (call.name == name) return error;
    return extent == kAllCalls ? call.errors[0] : -1;
  }

  const Errors& lacks;  // what this system never can
  std::size_t n = 0;
  std::size_t choice = 0;
  Extent extent = kOnce;
  int allocation = 0;
  // What failed, with its error, and all calls that were made.
  std::string_view name = "allocation";
  int error = ENOMEM;
  std::vector<Call> calls = {};
};
thread_local Fault* fault = nullptr;  // of this thread's calls

}  // namespace

// The linker sends the layer's system calls here. All of their arguments are integers and pointers,
// which travel in registers, so one form passes on any of them.
// NOLINTBEGIN(bugprone-reserved-identifier)
#define SYSTEM_CALL(name, failed, ...)                                                      \
  extern "C" Word __real_##name(Word, Word, Word, Word, Word, Word);                        \
  extern "C" Word __wrap_##name(Word a, Word b, Word c, Word d, Word e, Word f);            \
  Word __wrap_##name(Word a, Word b, Word c, Word d, Word e, Word f) {                      \
    static constexpr int kErrors[] = {__VA_ARGS__};                                         \
    const int error = fault != nullptr ? fault->Next({#name, kErrors}) : -1;                \
    if (error <= 0) return __real_##name(a, b, error == kShort ? (c + 1) / 2 : c, d, e, f); \
    errno = error;                                                                          \
    return failed;                                                                          \
  }
#define LAST_ERRORS(error, ...)
#include "tests/data/system_calls.def"
#undef SYSTEM_CALL
#undef LAST_ERRORS
// NOLINTEND(bugprone-reserved-identifier)

namespace {

const std::map<int, std::set<DWORD>> kLastErrors = {
#define SYSTEM_CALL(name, failed, ...)
#define LAST_ERRORS(error, ...) {error, {__VA_ARGS__}},
#include "tests/data/system_calls.def"
};

struct Operation {
  // The last error, or NO_ERROR; what else the calls tell goes to `text`.
  DWORD (*body)(const Operation& operation, std::string& text);
  const char* from = "";
  const char* to = "";
  DWORD number = 0;  // a disposition, or attributes
  DWORD attributes = FILE_ATTRIBUTE_NORMAL;
  Errors lacks = {};
};
using O = const Operation&;
using T = std::string&;

DWORD Told(bool fine) {
  return fine ? NO_ERROR : GetLastError();
}

struct Handle {
  explicit Handle(HANDLE _value) : value(_value) {}
  ~Handle() { Close(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  bool IsOpen() const { return value != nullptr && value != INVALID_HANDLE_VALUE; }
  bool Close() { return IsOpen() && CloseHandle(std::exchange(value, nullptr)); }
  HANDLE value;
};

HANDLE Open(O o, DWORD disposition, DWORD access) {
  return CreateFileA(o.from, access, 0, nullptr, disposition, o.attributes, nullptr);
}

const auto kCreate = [](O o, T) { return Told(Handle(Open(o, o.number, GENERIC_WRITE)).IsOpen()); };
const auto kOpen = [](O o, T) {
  return Told(Handle(Open(o, OPEN_EXISTING, GENERIC_READ)).Close());
};
const auto kSet = [](O o, T) { return Told(SetFileAttributesA(o.from, o.attributes)); };
const auto kDelete = [](O o, T) { return Told(DeleteFileA(o.from)); };
const auto kMakeFolder = [](O o, T) { return Told(CreateDirectoryA(o.from, nullptr)); };
const auto kRemoveFolder = [](O o, T) { return Told(RemoveDirectoryA(o.from)); };
const auto kMove = [](O o, T) { return Told(MoveFileA(o.from, o.to)); };
const auto kCopy = [](O o, T) { return Told(CopyFileA(o.from, o.to, o.number != 0)); };

DWORD Stream(O o, T) {
  std::FILE* const file = platform::fopen(o.from, o.to);
  return Told(file != nullptr && std::fclose(file) == 0);
}

DWORD Use(O o, T text) {
  const Handle file(Open(o, OPEN_EXISTING, GENERIC_READ | GENERIC_WRITE));
  char bytes[8] = "";
  DWORD done = 0;
  FILETIME time;
  const bool fine = file.IsOpen() && ReadFile(file.value, bytes, 8, &done, nullptr) &&
                    SetFilePointer(file.value, -2, nullptr, FILE_CURRENT) == 2 &&
                    GetFileSize(file.value, nullptr) == 4 &&
                    GetFileTime(file.value, nullptr, nullptr, &time) &&
                    WriteFile(file.value, bytes + 2, 2, &done, nullptr);
  text += bytes;
  return Told(fine);
}

DWORD Attributes(O o, T text) {
  const DWORD attributes = GetFileAttributesA(o.from);
  text += static_cast<char>('0' + attributes % 64);
  return Told(attributes != INVALID_FILE_ATTRIBUTES);
}

DWORD List(O o, T text) {
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(o.from, &data);
  bool more = search != INVALID_HANDLE_VALUE;
  for (; more; more = FindNextFileA(search, &data))
    text += data.cFileName;
  const DWORD error = GetLastError();
  if (search != INVALID_HANDLE_VALUE) FindClose(search);
  return error == ERROR_NO_MORE_FILES ? NO_ERROR : error;
}

// More large folders than the layer remembers, each until it does.
DWORD LookAround(O, T text) {
  char path[] = "L:\\0\\FILE7";
  for (int i = 0; i < 10; ++i) {
    path[3] = static_cast<char>('0' + i / 2);
    if (GetFileAttributesA(path) == INVALID_FILE_ATTRIBUTES) return GetLastError();
    text += path[3];
  }
  return NO_ERROR;
}

DWORD FindPaths(O o, T text) {
  char path[MAX_PATH] = "";
  const bool fine = SetCurrentDirectoryA(o.from) &&
                    GetFullPathNameA("y", MAX_PATH, path, nullptr) != 0 &&
                    GetCurrentDirectoryA(64, path + 64) != 0;
  text += path;
  return Told(fine);
}

DWORD Temporary(O o, T) {
  char path[MAX_PATH];
  if (GetTempFileNameA(o.from, "new", 0, path) == 0) return GetLastError();
  fault = nullptr;
  const heap_faults::Spared spared;
  return Told(DeleteFileA(path));
}

DWORD RunProgram(O o, T text) {
  const Handle pipe(CreateNamedPipeA(o.to, PIPE_ACCESS_INBOUND, 0, 1, 0, 0, 0, nullptr));
  if (!pipe.IsOpen()) return GetLastError();
  Handle writer(CreateFileA(o.to, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  const Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  OVERLAPPED read{0, 0, 0, 0, event.value};
  PROCESS_INFORMATION started{};
  char line[40] = "";
  char bytes[8] = "";
  DWORD done = 0;
  bool fine = event.IsOpen() && SetStdHandle(STD_OUTPUT_HANDLE, writer.value) &&
              CreateProcessA(nullptr, std::strcpy(line, o.from), nullptr, nullptr, TRUE, 0, nullptr,
                             nullptr, nullptr, &started);
  const Handle child(started.hProcess);
  fine = fine && writer.Close() &&
         (ReadFile(pipe.value, bytes, 8, &done, &read) || GetLastError() == ERROR_IO_PENDING) &&
         GetOverlappedResult(pipe.value, &read, &done, TRUE) &&
         PeekNamedPipe(pipe.value, nullptr, 0, nullptr, &done, nullptr) &&
         WaitForSingleObject(child.value, INFINITE) == WAIT_OBJECT_0 &&
         GetExitCodeProcess(child.value, &done);
  text += bytes;
  return Told(fine);
}

DWORD RunThread(O, T) {
  const auto body = [](LPVOID) -> DWORD { return 0; };
  const Handle thread(CreateThread(nullptr, 0, body, nullptr, 0, nullptr));
  return Told(thread.IsOpen() && WaitForSingleObject(thread.value, INFINITE) == WAIT_OBJECT_0);
}

constexpr DWORD kHiddenReadOnly = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY;
const Errors kNoRecords = {{"fsetxattr", ENOTSUP}, {"setxattr", ENOTSUP}};
const Errors kNamed = {{"access", ENOENT}};
const Errors kPlainRename = {{"renameat2", EINVAL}};
const Errors kOtherDevice = {{"renameat2", EXDEV}};

const Operation kOperations[] = {
    {kCreate, "T:\\new", "", CREATE_NEW},
    {kCreate, "T:\\new", "", CREATE_NEW, kHiddenReadOnly},
    {kCreate, "T:\\dir\\new", "", OPEN_ALWAYS, kHiddenReadOnly, kNoRecords},
    {kCreate, "T:\\A.WAV", "", CREATE_NEW},
    {kCreate, "T:\\A.WAV", "", CREATE_ALWAYS, kHiddenReadOnly},
    {kCreate, "T:\\b.txt", "", TRUNCATE_EXISTING},
    {kOpen, "T:\\DIR\\X"},
    {Stream, "T:\\a.wav", "rb"},
    {Stream, "T:\\new", "w+b"},
    {Stream, "T:\\b.txt", "w+b"},
    {Use, "T:\\b.txt"},
    {Attributes, "T:\\B.TXT"},
    {kSet, "T:\\a.wav", "", 0, kHiddenReadOnly},
    {kSet, "T:\\b.txt", "", 0, FILE_ATTRIBUTE_ARCHIVE},
    {kSet, "T:\\ro.wav", "", 0, FILE_ATTRIBUTE_SYSTEM},
    {kSet, "T:\\ro.wav", "", 0, kHiddenReadOnly},
    {kSet, "T:\\ro.wav", "", 0, kHiddenReadOnly, kNoRecords},
    {kSet, "T:\\dir", "", 0, FILE_ATTRIBUTE_READONLY},
    {kDelete, "T:\\A.wav"},
    {kDelete, "T:\\Link"},
    {kMakeFolder, "T:\\DIR\\new"},
    {kMakeFolder, "T:\\DIR"},
    {kRemoveFolder, "T:\\empty"},
    {kRemoveFolder, "T:\\Dir"},
    {kMove, "T:\\A.wav", "T:\\dir\\new"},
    {kMove, "T:\\a.wav", "T:\\A.wav"},
    {kMove, "T:\\a.wav", "T:\\A.wav", 0, 0, {{"renameat2", EEXIST}}},
    {kMove, "T:\\a.wav", "T:\\B.TXT"},
    {kMove, "T:\\a.wav", "T:\\new", 0, 0, kPlainRename},
    {kMove, "T:\\a.wav", "T:\\new", 0, 0, {{"renameat2", ENOSYS}, {"link", EPERM}}},
    {kMove, "T:\\ro.wav", "T:\\new", 0, 0, kOtherDevice},
    {kMove, "T:\\Dir", "T:\\new"},
    {kMove, "T:\\Dir", "T:\\new", 0, 0, kPlainRename},
    {kMove, "T:\\Dir", "T:\\new", 0, 0, kOtherDevice},
    {kCopy, "T:\\A.wav", "T:\\new"},
    {kCopy, "T:\\ro.wav", "T:\\new"},
    {kCopy, "T:\\ro.wav", "T:\\new", 0, 0, kNoRecords},
    {kCopy, "T:\\a.wav", "T:\\new", 0, 0, kNamed},
    {kCopy, "T:\\a.wav", "T:\\new", 0, 0, {{"copy_file_range", EXDEV}, {"lseek64", EINVAL}}},
    {kCopy, "T:\\a.wav", "T:\\B.TXT"},
    {kCopy, "T:\\a.wav", "T:\\B.TXT", 0, 0, kNamed},
    {kCopy, "T:\\a.wav", "T:\\B.TXT", 1},
    {List, "T:\\*"},
    {List, "T:\\B.TXT"},
    {LookAround},
    {FindPaths, "T:\\DIR"},
    {Temporary, "T:\\DIR"},
    {RunProgram, "C:\\bin\\sh -c \"sleep .01; echo x\"", "\\\\.\\pipe\\p"},
    {RunThread}};

struct Outcome {
  DWORD error = NO_ERROR;
  std::string text;
  bool operator==(const Outcome&) const = default;
};

// Names to attributes and bytes.
using Tree = std::map<std::string, std::pair<DWORD, std::string>>;

class SystemFaults : public PlatformTest {
 protected:
  SystemFaults() : PlatformTest(platform_test::FastPlace()) {
    platform::MountDrive('L', large_.path);
    for (int i = 0; i < 5 * 220; ++i)
      large_.Put(std::to_string(i / 220) + "/file" + std::to_string(i % 220), "");
  }

  static std::string Path(std::string name) {
    std::replace(name.begin(), name.end(), '/', '\\');
    return "T:\\" + name.substr(0, name.find_last_not_of('\\') + 1);
  }

  void Prepare() {
    // By the layer, which may remember flags.
    for (const std::string& name : folder_.Names())
      SetFileAttributesA(Path(name).c_str(), FILE_ATTRIBUTE_ARCHIVE);
    std::filesystem::current_path("/");
    for (const auto& entry : std::filesystem::directory_iterator(root_))
      std::filesystem::remove_all(entry);
    Put("a.wav", "sound");
    Put("b.txt", "text");
    Put("ro.wav", "fixed");
    Put("Dir/x", "inside");
    std::filesystem::create_directory(root_ + "/Empty");
    std::filesystem::create_symlink("nowhere", root_ + "/link");
    SetFileAttributesA("T:\\b.txt", FILE_ATTRIBUTE_HIDDEN);
    SetFileAttributesA("T:\\ro.wav", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM);
  }

  Tree Now(bool attributesToo) const {
    Tree tree;
    for (const std::string& name : folder_.Names()) {
      tree[name] = {attributesToo ? GetFileAttributesA(Path(name).c_str()) : 0,
                    name.ends_with('/') ? "" : Content(name)};
    }
    return tree;
  }

  // But the one through which large folders tell of changes.
  static std::size_t OpenDescriptors() {
    std::size_t count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      count += std::filesystem::read_symlink(entry, ignored) != "anon_inode:inotify" ? 1 : 0;
    return count;
  }

  Outcome Perform(O operation, Fault& failing) {
    Outcome outcome;
    outcome.text.reserve(1000);
    SetLastError(kNotTold);
    const heap_faults::Failing heap(failing.allocation, failing.extent != kOnce);
    fault = &failing;
    outcome.error = operation.body(operation, outcome.text);
    fault = nullptr;
    return outcome;
  }

  // The operation where nothing fails; what its first run sets up for good is there in its second.
  void DoWhole(O operation) {
    for (int i = 0; i < 2; ++i) {
      Prepare();
      before_[0] = Now(false);
      before_[1] = Now(true);
      Fault none{operation.lacks};
      whole_ = Perform(operation, none);
      calls_ = none.calls;
    }
    after_[0] = Now(false);
    after_[1] = Now(true);
  }

  void Try(O operation, const Fault& fails) {
    { SCOPED_TRACE("room for the list of traces"); }
    const std::size_t descriptors = OpenDescriptors();
    const heap_faults::Watch watch;
    {
      Prepare();
      Fault failing = fails;
      const Outcome outcome = Perform(operation, failing);
      const std::string_view name = failing.name;
      SCOPED_TRACE(testing::Message()
                   << "operation " << &operation - kOperations << ", " << operation.from << ' '
                   << operation.to << ": " << name << ' ' << failing.n << failing.allocation
                   << ", error " << failing.error << ", extent " << failing.extent);
      // Flags that cannot be read are the usual ones, and a mark that fails keeps nobody from
      // writing. What fails for good can leave more, and so does what somebody else has locked.
      const bool flags = !name.ends_with("getxattr") && operation.body != Use;
      const bool alone = failing.extent == kOnce && name != "flock" && name != "close";
      if (outcome == whole_ || (!flags && outcome.error == whole_.error)) {
        EXPECT_THAT(Now(flags), testing::IsSupersetOf(after_[flags]));
        EXPECT_TRUE(!alone || Now(flags) == after_[flags]);
      } else {
        EXPECT_NE(outcome.error, NO_ERROR) << outcome.text;
        const bool lack = outcome.error == ERROR_NOT_SAME_DEVICE && !operation.lacks.empty();
        EXPECT_TRUE(failing.extent == kAllCalls || lack ||
                    kLastErrors.at(failing.error).count(outcome.error) != 0)
            << "last error " << outcome.error;
        EXPECT_THAT(Now(alone), testing::IsSupersetOf(before_[alone]));
        EXPECT_TRUE(!alone || Now(true) == before_[true]);
        if (!alone) Prepare();
        Fault none{operation.lacks};
        EXPECT_TRUE(Perform(operation, none) == whole_);
        EXPECT_EQ(Now(true), after_[true]);
      }
      Prepare();
    }
    const auto isLeft = [&] {
      const bool remembers = operation.body == LookAround;
      return OpenDescriptors() != descriptors || (watch.Live() != 0 && !remembers);
    };
    // A thread or a child may still be on its way out; the layer takes note of a child's end here.
    char nothing[] = "";
    for (int i = 0; i < 1000 && isLeft(); ++i) {
      usleep(1000);
      CreateProcessA(nullptr, nothing, nullptr, nullptr, TRUE, 0, nullptr, nullptr, nullptr,
                     nullptr);
    }
    EXPECT_TRUE(!isLeft() || HasFailure());
  }

  // Of all failures each FAULT_STRIDE-th is tried; scripts/soak-faults sets 1.
  bool IsNext() {
    static const char* const text = std::getenv("FAULT_STRIDE");
    static const int stride = text != nullptr ? std::atoi(text) : FAULT_STRIDE;
    return ++tries_ % stride == 0 && !HasFailure();
  }

  static constexpr DWORD kNotTold = 0xDEAD;
  const platform_test::TempFolder large_{platform_test::FastPlace()};
  Tree before_[2];  // without attributes and with them
  Tree after_[2];
  Outcome whole_;
  std::vector<Fault::Call> calls_;
  int tries_ = 0;
};

TEST_F(SystemFaults, OfCalls) {
  int failures = 0;
  for (O operation : kOperations) {
    DoWhole(operation);
    for (std::size_t n = 1; n <= calls_.size(); ++n) {
      const auto& [name, errors] = calls_[n - 1];
      // In a row of the same, the first and the last tell.
      if (n > 1 && n < calls_.size() && calls_[n - 2].name == name && calls_[n].name == name)
        continue;
      for (std::size_t choice = 0; choice < errors.size(); ++choice) {
        for (const Extent extent : {kOnce, kThisCall, kAllCalls}) {
          if (!IsNext()) continue;
          Try(operation, {operation.lacks, n, choice, extent});
          ++failures;
        }
      }
    }
  }
  std::cout << failures << " system calls failed\n";
}

TEST_F(SystemFaults, OfMemory) {
  for (O operation : kOperations) {
    DoWhole(operation);
    for (const Extent extent : {kOnce, kThisCall}) {
      long before = -1;
      // Far into a long operation some are enough.
      for (int n = 1; heap_faults::Failures() != before && !HasFailure(); n += 1 + n / 64) {
        if (!IsNext()) continue;
        before = heap_faults::Failures();
        Try(operation, {.lacks = operation.lacks, .extent = extent, .allocation = n});
      }
    }
  }
  std::cout << heap_faults::Failures() << " allocations failed\n";
}

}  // namespace
