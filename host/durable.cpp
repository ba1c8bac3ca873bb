#include "host/durable.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/failure.h"

namespace samplehost {

namespace {

// Each file that is synced by itself waits for the disk; beyond this many, all that the file system
// has to write goes in one.
constexpr std::size_t kMostSingly = 16;

// Smaller files are better written together.
constexpr off_t kWorthStarting = 1 << 20;

// Some file systems have nothing to bring anywhere, and say so.
bool HasNothingToSync(int reason) {
  return reason == EINVAL || reason == ENOTSUP || reason == ENOSYS;
}

void SyncBy(int (*sync)(int), const std::string& native) {
  const int file = ::open(native.c_str(), O_RDONLY | O_CLOEXEC);
  // A folder above ours that may only be passed through is not ours to sync.
  if (file < 0 && errno == EACCES) return;
  const bool synced = file >= 0 && (sync(file) == 0 || HasNothingToSync(errno));
  const std::string reason = std::system_category().message(errno);
  if (file >= 0) ::close(file);
  if (!synced) {
    throw Failure(fmt::format("\"{}\" could not be brought to the disk: {}", native, reason),
                  "The database is as it was after its last save.");
  }
}

int Fsync(int file) {
  return ::fsync(file);
}

int Syncfs(int file) {
  return ::syncfs(file);
}

}  // namespace

void StartToDisk(const std::string& native) {
  const int file = ::open(native.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  struct stat facts;
  if (::fstat(file, &facts) == 0 && facts.st_size >= kWorthStarting) {
    ::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE);
  }
  ::close(file);
}

void SyncToDisk(const std::set<std::string>& paths) {
  const bool singly = paths.size() <= kMostSingly;
  std::set<dev_t> synced;
  for (const std::string& path : paths) {
    struct stat facts;
    if (singly || ::stat(path.c_str(), &facts) != 0) {
      SyncBy(Fsync, path);
    } else if (synced.insert(facts.st_dev).second) {
      SyncBy(Syncfs, path);
    }
  }
}

}  // namespace samplehost
