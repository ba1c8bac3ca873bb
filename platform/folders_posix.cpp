// Looking names up without case.
//
// Whether a name is there in another spelling, or free, only a walk of its folder can tell, and
// in a folder with thousands of entries a walk takes milliseconds. So a large folder that is walked
// a second time is remembered from then on. The kernel's notices of changes, which are queued
// before the changing call returns, keep what is remembered exact, whoever makes the change.
#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/posix_intern.h"

namespace platform::posix {

namespace {

constexpr std::size_t kLarge = 200;  // entries; below, a walk is cheap
constexpr std::size_t kMaxFolders = 4;

using FileId = std::pair<dev_t, ino_t>;

// Of several spellings, which only other programs can have made, always the same one answers.
class Choice {
 public:
  explicit Choice(std::string& stored) : stored_(stored) {}

  void Offer(std::string_view candidate) {
    if (!found_ || candidate < stored_) stored_ = candidate;
    found_ = true;
  }
  bool Found() const { return found_; }

 private:
  std::string& stored_;
  bool found_ = false;
};

// File systems whose every change passes through this kernel; a network's do not.
bool IsLocal(int fd) {
  struct statfs facts;
  if (fstatfs(fd, &facts) != 0) return false;
  switch (static_cast<unsigned long>(facts.f_type)) {
    case EXT4_SUPER_MAGIC:
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
      return true;
    default:
      return false;
  }
}

class FolderMemory {
 public:
  enum Answer { kUnknown, kMissing, kFound };

  // What is remembered of `folder`; a folder that proved large before is remembered now.
  Answer Find(const std::string& folder, const FileId& id, std::string_view name,
              std::string& stored) {
    const std::lock_guard guard(lock_);
    // A forked child has its parent's queue of notices and must not read from it.
    if (owner_ != getpid()) Forget();
    try {
      TakeNotices();
      auto known = std::find_if(folders_.begin(), folders_.end(),
                                [&](const Folder& entry) { return entry.id == id; });
      if (known == folders_.end()) {
        if (lastLarge_ != id || !Remember(folder, id)) return kUnknown;
        known = folders_.begin();
      }
      folders_.splice(folders_.begin(), folders_, known);
      Choice choice(stored);
      const auto [first, last] = known->names.equal_range(FoldName(name));
      for (auto at = first; at != last; ++at)
        choice.Offer(at->second);
      return choice.Found() ? kFound : kMissing;
    } catch (...) {
      Forget();
      throw;
    }
  }

  void NoteLarge(const FileId& id) {
    const std::lock_guard guard(lock_);
    lastLarge_ = id;
  }

 private:
  struct Folder {
    FileId id;
    int watch = -1;
    std::unordered_multimap<std::u32string, std::string> names;  // by folded name

    void Add(std::string_view name) {
      Remove(name);
      names.emplace(FoldName(name), name);
    }
    void Remove(std::string_view name) {
      const auto [first, last] = names.equal_range(FoldName(name));
      const auto at = std::find_if(first, last, [&](const auto& e) { return e.second == name; });
      if (at != last) names.erase(at);
    }
  };

  void Forget() {
    folders_.clear();
    notices_.Reset();
    lastLarge_ = {};
    owner_ = getpid();
  }

  bool Remember(const std::string& folder, const FileId& id) {
    if (!notices_.IsOpen()) notices_.Reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    Walk walk(folder);
    if (!notices_.IsOpen() || walk.Error() != 0) return false;
    struct stat facts;
    const int fd = walk.Get();
    if (fstat(fd, &facts) != 0 || FileId{facts.st_dev, facts.st_ino} != id || !IsLocal(fd)) {
      return false;
    }
    while (folders_.size() >= kMaxFolders) {
      inotify_rm_watch(notices_.Get(), folders_.back().watch);
      folders_.pop_back();
    }
    // Watched before it is read: what changes in between is told afterwards. By its descriptor,
    // as the name may lead elsewhere by now.
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    const int watch = inotify_add_watch(notices_.Get(), self.c_str(),
                                        IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO);
    if (watch < 0) return false;
    Folder& entry = folders_.emplace_front();
    entry.id = id;
    entry.watch = watch;
    while (const dirent* item = walk.Next()) {
      entry.names.emplace(FoldName(item->d_name), item->d_name);
    }
    if (walk.Error() != 0) {
      Forget();
      return false;
    }
    TakeNotices();
    return !folders_.empty() && folders_.front().id == id;
  }

  void TakeNotices() {
    alignas(inotify_event) char buffer[16384];
    while (notices_.IsOpen()) {
      const ssize_t size = read(notices_.Get(), buffer, sizeof buffer);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0 && errno != EAGAIN) Forget();
      if (size <= 0) return;
      for (ssize_t at = 0; at < size;) {
        inotify_event notice;
        std::memcpy(&notice, buffer + at, sizeof notice);
        const char* name = buffer + at + sizeof notice;
        at += static_cast<ssize_t>(sizeof notice + notice.len);
        if ((notice.mask & IN_Q_OVERFLOW) != 0) {
          Forget();  // some were lost
          return;
        }
        Apply(notice, notice.len != 0 ? name : "");
      }
    }
  }

  void Apply(const inotify_event& notice, const char* name) {
    const auto folder = std::find_if(folders_.begin(), folders_.end(),
                                     [&](const Folder& entry) { return entry.watch == notice.wd; });
    if (folder == folders_.end()) return;
    if ((notice.mask & (IN_IGNORED | IN_UNMOUNT)) != 0) {
      folders_.erase(folder);
    } else if ((notice.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
      folder->Add(name);
    } else {
      folder->Remove(name);
    }
  }

  std::mutex lock_;
  pid_t owner_ = 0;
  Descriptor notices_;
  std::list<Folder> folders_;  // last used first
  FileId lastLarge_{};
};

FolderMemory& Memory() {
  static FolderMemory memory;
  return memory;
}

}  // namespace

const dirent* Walk::Next() {
  errno = 0;
  const dirent* const entry = readdir(dir_);
  if (entry == nullptr) error_ = errno;
  return entry;
}

DWORD FolderError(int number) {
  return number == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorOf(number);
}

DWORD FindSpelling(const std::string& folder, std::string_view name, std::string& stored) {
  struct stat facts;
  if (stat(folder.c_str(), &facts) != 0) return FolderError(errno);
  if (!S_ISDIR(facts.st_mode)) return ERROR_PATH_NOT_FOUND;
  const FileId id{facts.st_dev, facts.st_ino};
  const FolderMemory::Answer answer = Memory().Find(folder, id, name, stored);
  if (answer != FolderMemory::kUnknown) {
    return answer == FolderMemory::kFound ? NO_ERROR : ERROR_FILE_NOT_FOUND;
  }
  Walk walk(folder);
  if (walk.Error() != 0) return FolderError(walk.Error());
  Choice choice(stored);
  std::size_t count = 0;
  while (const dirent* entry = walk.Next()) {
    ++count;
    if (EqualNames(entry->d_name, name)) choice.Offer(entry->d_name);
  }
  if (walk.Error() != 0) return ErrorOf(walk.Error());
  if (count >= kLarge) Memory().NoteLarge(id);
  return choice.Found() ? NO_ERROR : ERROR_FILE_NOT_FOUND;
}

}  // namespace platform::posix
