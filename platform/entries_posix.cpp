// Changes of the tree: delete, make and remove folders, move.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

int PlainRename(const std::string& from, const std::string& to) {
  return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

DWORD DeleteEntry(LPCSTR name) {
  Path path;
  struct stat facts;
  DWORD error = ParsePath(name, path);
  if (error == NO_ERROR) error = FindEntry(path, facts);
  if (error == ERROR_FILE_NOT_FOUND) {
    if (lstat(path.native.c_str(), &facts) != 0) return ErrorOf(errno);
    if (!S_ISLNK(facts.st_mode)) return error;
    return ErrorOf(unlink(path.native.c_str()) == 0 ? 0 : errno);  // a link that leads nowhere
  }
  if (error != NO_ERROR) return error;
  if (S_ISDIR(facts.st_mode)) return ERROR_ACCESS_DENIED;
  if (path.folderForm) return ERROR_INVALID_NAME;
  if (IsReadOnly(facts.st_mode)) return ERROR_ACCESS_DENIED;
  Descriptor holder;
  if (S_ISREG(facts.st_mode)) error = LockForChange(path.native, holder, facts);
  if (error != NO_ERROR) return error;
  if (unlink(path.native.c_str()) != 0) return ErrorOf(errno);
  if (facts.st_nlink <= 1) ForgetFlags(facts);
  return NO_ERROR;
}

DWORD RemoveFolder(LPCSTR name) {
  Path path;
  struct stat facts;
  DWORD error = ParsePath(name, path);
  if (error == NO_ERROR) error = FindEntry(path, facts);
  if (error != NO_ERROR) return error;
  if (!S_ISDIR(facts.st_mode)) return ERROR_DIRECTORY;
  if (path.isRoot) return ERROR_ACCESS_DENIED;
  if ((LoadAttributes({-1, path.native.c_str()}, facts.st_dev, facts.st_ino, facts.st_mode) &
       FILE_ATTRIBUTE_READONLY) != 0) {
    return ERROR_ACCESS_DENIED;
  }
  struct stat current;
  if (stat(".", &current) == 0 && current.st_dev == facts.st_dev &&
      current.st_ino == facts.st_ino) {
    return ERROR_SHARING_VIOLATION;
  }
  // A link to a folder, which is none itself, goes, and what it leads to stays.
  const char* const native = path.native.c_str();
  const bool removed = rmdir(native) == 0 || (errno == ENOTDIR && unlink(native) == 0);
  if (!removed) return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : ErrorOf(errno);
  ForgetFlags(facts);
  return NO_ERROR;
}

DWORD MakeFolder(LPCSTR name) {
  Path path;
  DWORD error = ParsePath(name, path);
  if (error == NO_ERROR) error = Respell(path);
  if (error == NO_ERROR) return ERROR_ALREADY_EXISTS;
  if (error != ERROR_FILE_NOT_FOUND) return error;
  if (mkdir(path.native.c_str(), 0777) != 0) return ErrorOf(errno);
  struct stat facts;
  if (stat(path.native.c_str(), &facts) == 0) ForgetFlags(facts);
  return NO_ERROR;
}

// Between two file systems a file moves by a copy; folders do not, as with Windows' drives.
DWORD MoveAcross(const Path& source, const Path& target) {
  struct stat facts;
  Descriptor file(OpenNative(source.native, O_RDONLY | O_NONBLOCK));
  if (!file.IsOpen() || fstat(file.Get(), &facts) != 0) return ErrorOf(errno);
  if (!S_ISREG(facts.st_mode)) return ERROR_NOT_SAME_DEVICE;
  const DWORD error = CopyOpenFile(file.Get(), facts, target.native, false);
  if (error != NO_ERROR) return error == ERROR_FILE_EXISTS ? ERROR_ALREADY_EXISTS : error;
  if (unlink(source.native.c_str()) == 0) return NO_ERROR;
  const int number = errno;
  unlink(target.native.c_str());
  return ErrorOf(number);
}

DWORD MoveEntry(LPCSTR from, LPCSTR to) {
  Path source;
  Path target;
  struct stat facts;
  DWORD error = ParsePath(from, source);
  if (error == NO_ERROR) error = FindEntry(source, facts);
  if (error == NO_ERROR) error = ParsePath(to, target);
  if (error != NO_ERROR) return error;
  if (source.isRoot || target.isRoot) return ERROR_ACCESS_DENIED;
  const bool isFolder = S_ISDIR(facts.st_mode);
  if (source.folderForm && !isFolder) return ERROR_INVALID_NAME;

  error = Respell(target);
  bool sameEntry = false;
  if (error == NO_ERROR) {
    sameEntry = target.native == source.native;
    if (!sameEntry) return ERROR_ALREADY_EXISTS;
    target.native.resize(target.native.rfind('/') + 1);
    target.native += target.leaf;
  } else if (error != ERROR_FILE_NOT_FOUND) {
    return error;
  } else if (target.folderForm && !isFolder) {
    return ERROR_INVALID_NAME;
  }

  Descriptor holder;
  if (S_ISREG(facts.st_mode)) {
    error = LockForChange(source.native, holder, facts);
    if (error != NO_ERROR) return error;
  }
  if (target.native == source.native) return NO_ERROR;
  int result = RenameNoReplace(source.native, target.native, isFolder);
  // A file system that compares without case itself takes the new spelling for the old entry.
  if (result == EEXIST && sameEntry) result = PlainRename(source.native, target.native);
  return result == EXDEV ? MoveAcross(source, target) : ErrorOf(result);
}

BOOL Report(DWORD error) {
  return error == NO_ERROR ? TRUE : Fail(error);
}

}  // namespace

int RenameNoReplace(const std::string& from, const std::string& to, bool isFolder) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  if (isFolder) {
    // An empty folder of our own is what a rename may replace.
    if (mkdir(to.c_str(), 0777) != 0) return errno;
    const int result = PlainRename(from, to);
    if (result != 0) rmdir(to.c_str());
    return result;
  }
  if (link(from.c_str(), to.c_str()) == 0) {
    if (unlink(from.c_str()) == 0) return 0;
    const int number = errno;
    unlink(to.c_str());
    return number;
  }
  if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
  // Neither call exists here; what is left is a look before the rename.
  struct stat facts;
  if (lstat(to.c_str(), &facts) == 0) return EEXIST;
  return errno == ENOENT ? PlainRename(from, to) : errno;
}

}  // namespace platform::posix

using platform::Call;
namespace posix = platform::posix;

BOOL DeleteFileA(LPCSTR name) {
  if (posix::Faulted(Call::kDeleteFile, name)) return FALSE;
  return posix::Guarded(FALSE, [&] { return posix::Report(posix::DeleteEntry(name)); });
}

BOOL RemoveDirectoryA(LPCSTR name) {
  if (posix::Faulted(Call::kRemoveDirectory, name)) return FALSE;
  return posix::Guarded(FALSE, [&] { return posix::Report(posix::RemoveFolder(name)); });
}

BOOL CreateDirectoryA(LPCSTR name, SECURITY_ATTRIBUTES* /*security*/) {
  if (posix::Faulted(Call::kCreateDirectory, name)) return FALSE;
  return posix::Guarded(FALSE, [&] { return posix::Report(posix::MakeFolder(name)); });
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
  if (posix::Faulted(Call::kMoveFile, from)) return FALSE;
  return posix::Guarded(FALSE, [&] { return posix::Report(posix::MoveEntry(from, to)); });
}
