// What the files of the stand-in share: last errors, the way from a caller's path to a native one,
// locks that stand for sharing, attributes and times. No file outside this folder includes it.
#ifndef PLATFORM_POSIX_INTERN_H_
#define PLATFORM_POSIX_INTERN_H_

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/faults.h"
#include "platform/platform.h"

struct statx;

namespace platform::posix {

static_assert(sizeof(off_t) == 8, "files have 4 GiB and more");

// --- Errors ------------------------------------------------------------------------------------

// The error number of an errno, for calls that have no better one for their case.
DWORD ErrorOf(int number);

inline BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

// Runs the body of a call. No exception may reach the caller, so an exhausted heap becomes the
// call's own failure.
template <typename Result, typename Body>
Result Guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return failure;
  }
}

// --- Faults ------------------------------------------------------------------------------------

extern FaultHook* faultHook;
bool AskFaultHook(Call call, const char* path);

// True where a test wants this call to fail; the last error is then set.
inline bool Faulted(Call call, const char* path = "") {
  if (faultHook == nullptr) [[likely]] {
    return false;
  }
  return AskFaultHook(call, path);
}

// As Faulted, for a call that moves `count` bytes; half of them where a test wants it short.
template <typename Count>
bool FaultedTransfer(Call call, Count& count) {
  if (!Faulted(call)) return false;
  if (GetLastError() != kShortTransfer) return true;
  count /= 2;
  return false;
}

// A FILE whose reads, writes and close ask the hook and then go to `file`, which it owns. `file`
// itself where memory runs out.
std::FILE* MakeFailing(std::FILE* file, const char* mode);

// --- Descriptors and locks ---------------------------------------------------------------------

// Closes its descriptor at the end of the scope.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }
  void Reset(int fd = -1);
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// open(2) that survives signals and never leaks into a child; errno on failure.
int OpenNative(const std::string& native, int flags, mode_t mode = 0);

// Large files are written in pieces of this size, each of which is sent on its way to the disk at
// once, without a wait: the disk works while the next piece is made, and a sync that follows (no
// save goes without) finds most of the file there.
constexpr std::size_t kLargePiece = 0x1000000;
void PieceWritten(int fd, std::size_t size);

// Takes the lock that stands for an open: alone, or together with others that share. False where
// another open file is in the way. File systems without locks have no sharing rules.
bool LockOpenFile(int fd, bool alone);

// NO_ERROR where `native` still names the file behind `fd`, ERROR_FILE_NOT_FOUND where it does not,
// else why that cannot be told. A lock is worth nothing before this has been asked: between open
// and lock the file may have been deleted or moved.
DWORD StillNames(const std::string& native, int fd, struct stat& facts);

// Opens and locks the regular file `native` against every other open, for a change of its name.
// A file that its owner may neither read nor write is left unlocked, as nobody can have it open
// through this layer.
DWORD LockForChange(const std::string& native, Descriptor& holder, struct stat& facts);

// Opens the regular file `native` for reading, together with others that share.
DWORD OpenShared(const std::string& native, Descriptor& holder, struct stat& facts);

// --- Paths -------------------------------------------------------------------------------------

// A caller's path on its way to the file system.
struct Path {
  std::string native;          // as given; as stored once Respell or FindEntry has run
  std::size_t rootLength = 0;  // bytes of `native` that are the drive's own folder
  bool isRoot = false;
  bool folderForm = false;  // the text ended in a separator
  std::string leaf;         // the last component as the caller spelt it
};

// The full path as text, see GetFullPathNameA. False where it needs a current directory that the
// notation cannot carry.
bool FullPath(std::string_view name, std::string& full);

// Takes a caller's path apart; NO_ERROR or what the call has to report. No file is looked at.
DWORD ParsePath(const char* name, Path& path);

// The same for a full path whose last component may be a mask, which goes to `mask`.
DWORD ParseMask(const std::string& full, Path& folder, std::string& mask);

// Finds each component without case and puts the stored spelling into `path.native`; what does not
// exist stays as given. NO_ERROR, ERROR_FILE_NOT_FOUND where only the last component is missing,
// ERROR_PATH_NOT_FOUND where more is, else why that cannot be told.
DWORD Respell(Path& path);

// Facts of the entry: by its exact name, which costs one system call, else by Respell.
DWORD FindEntry(Path& path, struct stat& facts);

// The stored name in `folder` that equals `name` without case. NO_ERROR, ERROR_FILE_NOT_FOUND,
// ERROR_PATH_NOT_FOUND where `folder` is none, else why the folder could not be looked through: a
// name that was not seen is not free for that.
DWORD FindSpelling(const std::string& folder, std::string_view name, std::string& stored);

// The error number for a folder that cannot be looked through for `number`.
DWORD FolderError(int number);

// A walk of a folder.
class Walk {
 public:
  explicit Walk(const std::string& folder)
      : dir_(opendir(folder.c_str())), error_(dir_ == nullptr ? errno : 0) {}
  ~Walk() {
    if (dir_ != nullptr) closedir(dir_);
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  // The next entry, or null at the end and where the walk fails.
  const dirent* Next();
  // errno of what failed so far, else 0.
  int Error() const { return error_; }
  int Get() const { return dirfd(dir_); }

 private:
  DIR* dir_;
  int error_;
};

// False for a name that a path in our notation cannot reach.
bool NameIsCarried(std::string_view name);

// Whether a character stands in `text` that no name may hold, separators aside. Wildcards are such
// characters but in a mask.
bool HoldsForbidden(std::string_view text, bool isMask);

// The path in our notation of an absolute native one without dot components.
bool NotationOf(const std::string& native, std::string& path, std::string& why);

bool CurrentFolder(std::string& full);

inline bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

// --- Characters --------------------------------------------------------------------------------

// The character at `at`, which moves behind it; an escape (0xDC00 + byte) where no UTF-8 stands.
char32_t NextCharacter(const char*& at, const char* end);
// The form in which characters of names compare.
char32_t FoldCase(char32_t c);
std::u32string FoldName(std::string_view name);
bool EqualNames(std::string_view a, std::string_view b);

// --- Attributes and times ----------------------------------------------------------------------

// A file by its descriptor where there is one, else by its native path.
struct Place {
  int fd = -1;
  const char* native = nullptr;
};

inline bool IsReadOnly(mode_t mode) {
  return (mode & 0222) == 0;
}

// All attributes, FILE_ATTRIBUTE_NORMAL where there is none. Flags whose record cannot be read are
// the usual ones: no file is lost for its flags.
DWORD LoadAttributes(const Place& place, dev_t device, ino_t inode, mode_t mode);
// Stores what the permission bits do not hold. False, with errno, on failure.
bool StoreFlags(const Place& place, const struct stat& facts, DWORD attributes);
// Marks a file that was written as archive.
void MarkArchive(int fd, const struct stat* facts = nullptr);
// Forgets what an earlier file with this inode left behind in memory.
void ForgetFlags(const struct stat& facts);
// Makes the file behind `fd` read-only. False, with errno, on failure.
bool MakeReadOnly(int fd);

// statx(2) with the times that a FILETIME needs.
bool LoadFacts(const Place& place, struct statx& facts);
FILETIME CreationTime(const struct statx& facts);
FILETIME AccessTime(const struct statx& facts);
FILETIME WriteTime(const struct statx& facts);

// --- Files -------------------------------------------------------------------------------------

struct OpenRequest {
  int flags = 0;               // O_RDONLY, O_WRONLY or O_RDWR
  const char* mode = nullptr;  // of the FILE that is wanted, if one is
  bool alone = false;
  bool letsDelete = false;  // the file may be deleted while it is open
  DWORD disposition = OPEN_EXISTING;
  DWORD attributes = 0;
};

struct OpenResult {
  struct Closer {
    void operator()(std::FILE* open) const { std::fclose(open); }
  };

  Descriptor file;
  std::unique_ptr<std::FILE, Closer> stream;  // in place of `file` where the request has a mode
  bool existed = false;
};

// The one way in for handles and FILEs: finds or makes the file, tests the read-only bit, takes the
// lock, empties it where asked, which nothing can fail behind. A file that was made goes again
// where the rest fails.
DWORD OpenLocked(Path& path, const OpenRequest& request, OpenResult& result);

// A rename that never replaces, also on file systems that have no such call. errno or 0.
int RenameNoReplace(const std::string& from, const std::string& to, bool isFolder);

// Copies the open file to `to`, complete or not at all.
DWORD CopyOpenFile(int source, const struct stat& facts, const std::string& to, bool replace);

}  // namespace platform::posix

#endif  // PLATFORM_POSIX_INTERN_H_
