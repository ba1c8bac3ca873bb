// Copies of files: complete under their name, or not there at all.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

// The file that a copy grows in. Where the file system can, it has no name until it is complete;
// elsewhere it has a name beside the target's and loses it on failure.
class Draft {
 public:
  explicit Draft(const std::string& target) : target_(target) {}
  ~Draft() {
    if (!published_) ForgetFlags(facts_);
    if (!name_.empty()) unlink(name_.c_str());
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;

  // The functions answer 0 or errno.
  int Start(mode_t mode) {
    const int result = Open(mode);
    if (result != 0) return result;
    if (fstat(file_.Get(), &facts_) != 0) return errno;
    ForgetFlags(facts_);
    return 0;
  }

  int Publish(bool replace) {
    const int result = Name(replace);
    published_ = result == 0;
    return result;
  }

  int Get() const { return file_.Get(); }
  const struct stat& Facts() const { return facts_; }

 private:
  static constexpr unsigned kMaxTries = 1000;

  int Open(mode_t mode) {
    const std::string folder = target_.substr(0, target_.rfind('/') + 1);
    file_.Reset(OpenNative(folder, O_TMPFILE | O_RDWR, mode));
    if (file_.IsOpen() && access(Self().c_str(), F_OK) == 0) return 0;
    if (!file_.IsOpen() && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return errno;
    for (unsigned tries = 0; tries < kMaxTries; ++tries) {
      std::string name = NameFor(tries);
      file_.Reset(OpenNative(name, O_RDWR | O_CREAT | O_EXCL, mode));
      if (file_.IsOpen()) {
        name_ = std::move(name);
        return 0;
      }
      if (errno != EEXIST) return errno;
    }
    return EEXIST;
  }

  int Name(bool replace) {
    if (!replace) {
      if (name_.empty()) return Link(target_);
      const int result = RenameNoReplace(name_, target_, false);
      if (result == 0) name_.clear();
      return result;
    }
    for (unsigned tries = 0; name_.empty() && tries < kMaxTries; ++tries) {
      std::string name = NameFor(tries);
      const int result = Link(name);
      if (result == 0)
        name_ = std::move(name);
      else if (result != EEXIST)
        return result;
    }
    if (name_.empty()) return EEXIST;
    if (rename(name_.c_str(), target_.c_str()) != 0) return errno;
    name_.clear();
    return 0;
  }

  std::string NameFor(unsigned number) const {
    return target_.substr(0, target_.rfind('/') + 1) + "~copy" + std::to_string(getpid()) + '-' +
           std::to_string(number) + ".tmp";
  }

  // The name under which the kernel lets a file without a name be linked.
  std::string Self() const { return "/proc/self/fd/" + std::to_string(file_.Get()); }

  int Link(const std::string& name) const {
    return linkat(AT_FDCWD, Self().c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0
                                                                                            : errno;
  }

  const std::string& target_;
  std::string name_;
  Descriptor file_;
  struct stat facts_ {};  // as it was made
  bool published_ = false;
};

constexpr std::size_t kBufferSize = 0x40000;

// Copies [at, end) by the kernel while it can, else through a buffer. Ends early, with success, at
// the end of the source.
int CopyRange(int source, int target, off_t at, off_t end) {
  while (at < end) {
    off_t from = at;
    off_t to = at;
    const std::size_t wanted = std::min(static_cast<std::size_t>(end - at), kLargePiece);
    const ssize_t moved = copy_file_range(source, &from, target, &to, wanted, 0);
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EIO)) return errno;
    if (moved <= 0) break;
    PieceWritten(target, static_cast<std::size_t>(moved));
    at += moved;
  }
  if (at >= end) return 0;
  const auto buffer = std::make_unique<char[]>(kBufferSize);
  while (at < end) {
    const auto wanted = std::min<off_t>(end - at, kBufferSize);
    const ssize_t got = pread(source, buffer.get(), static_cast<std::size_t>(wanted), at);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    for (ssize_t put = 0; put < got;) {
      const ssize_t moved =
          pwrite(target, buffer.get() + put, static_cast<std::size_t>(got - put), at + put);
      if (moved < 0 && errno == EINTR) continue;
      if (moved < 0) return errno;
      put += moved;
    }
    at += got;
  }
  return 0;
}

// Data only, hole by hole, so that a sparse source gives a sparse copy.
int CopyData(int source, int target, off_t size) {
  if (size == 0 || ioctl(target, FICLONE, source) == 0) return 0;
  if (ftruncate(target, size) != 0) return errno;
  off_t at = 0;
  while (at < size) {
    off_t data = lseek(source, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) return 0;
    off_t hole = data < 0 ? size : lseek(source, data, SEEK_HOLE);
    if (data < 0) data = at;  // a file system that knows no holes
    if (hole < 0) hole = size;
    const int result = CopyRange(source, target, data, std::min(hole, size));
    if (result != 0) return result;
    at = hole;
  }
  return 0;
}

}  // namespace

DWORD CopyOpenFile(int source, const struct stat& facts, const std::string& to, bool replace) {
  const mode_t mode = facts.st_mode & 0777;
  Draft draft(to);
  int result = draft.Start(mode | S_IWUSR);
  if (result == 0) result = CopyData(source, draft.Get(), facts.st_size);
  if (result != 0) return ErrorOf(result);

  const DWORD attributes =
      LoadAttributes({source, nullptr}, facts.st_dev, facts.st_ino, facts.st_mode);
  constexpr DWORD kSpecial =
      FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_TEMPORARY;
  if ((attributes & kSpecial) != 0 &&
      !StoreFlags({draft.Get(), nullptr}, draft.Facts(), attributes | FILE_ATTRIBUTE_ARCHIVE)) {
    return ErrorOf(errno);
  }
  if (IsReadOnly(mode) && !MakeReadOnly(draft.Get())) return ErrorOf(errno);
  const timespec times[2] = {{0, UTIME_OMIT}, facts.st_mtim};
  if (futimens(draft.Get(), times) != 0) return ErrorOf(errno);
  result = draft.Publish(replace);
  return result == EEXIST ? ERROR_FILE_EXISTS : ErrorOf(result);
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

namespace {

DWORD CopyEntry(LPCSTR from, LPCSTR to, bool failIfExists) {
  posix::Path source;
  posix::Path target;
  struct stat facts;
  DWORD error = posix::ParsePath(from, source);
  if (error == NO_ERROR) error = posix::FindEntry(source, facts);
  if (error != NO_ERROR) return error;
  if (!S_ISREG(facts.st_mode)) return ERROR_ACCESS_DENIED;
  if (source.folderForm) return ERROR_INVALID_NAME;
  posix::Descriptor file;
  error = posix::OpenShared(source.native, file, facts);
  if (error == NO_ERROR) error = posix::ParsePath(to, target);
  if (error != NO_ERROR) return error;

  error = posix::Respell(target);
  if (error == ERROR_FILE_NOT_FOUND) {
    if (target.folderForm) return ERROR_INVALID_NAME;
    return posix::CopyOpenFile(file.Get(), facts, target.native, false);
  }
  if (error != NO_ERROR) return error;
  if (failIfExists) return ERROR_FILE_EXISTS;
  struct stat old;
  if (stat(target.native.c_str(), &old) != 0) return posix::ErrorOf(errno);
  if (old.st_dev == facts.st_dev && old.st_ino == facts.st_ino) return ERROR_SHARING_VIOLATION;
  if (!S_ISREG(old.st_mode) || posix::IsReadOnly(old.st_mode)) return ERROR_ACCESS_DENIED;
  posix::Descriptor holder;
  error = posix::LockForChange(target.native, holder, old);
  if (error != NO_ERROR) return error;
  return posix::CopyOpenFile(file.Get(), facts, target.native, true);
}

}  // namespace

BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists) {
  if (posix::Faulted(Call::kCopyFile, from)) return FALSE;
  return posix::Guarded(FALSE, [&]() -> BOOL {
    const DWORD error = CopyEntry(from, to, failIfExists != FALSE);
    return error == NO_ERROR ? TRUE : posix::Fail(error);
  });
}
