// A save brings the files that the database will name to the disk before it commits.

#include <cerrno>

#include "host/failure.h"
#include "host/session.h"
#include "tests/host_support.h"

namespace {

// What was synced since the last Reset, by path; the call `failing` (from 1) fails.
struct Syncs {
  std::set<std::string> paths;
  int calls = 0;
  int failing = 0;
  bool wholeFileSystem = false;
};
Syncs syncs;

// `call` is what the linker found behind the name that ours took.
int Note(int file, int (*call)(int), bool whole) {
  char path[4096] = "";
  const ssize_t length =
      readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
  if (length > 0) syncs.paths.emplace(path, static_cast<std::size_t>(length));
  syncs.wholeFileSystem |= whole;
  if (++syncs.calls != syncs.failing) return call(file);
  errno = EIO;
  return -1;
}

}  // namespace

extern "C" {
int __real_fsync(int file);
int __real_syncfs(int file);
int __wrap_fsync(int file) {
  return Note(file, __real_fsync, false);
}
int __wrap_syncfs(int file) {
  return Note(file, __real_syncfs, true);
}
}

namespace {

using namespace host_test;
using samplehost::Failure;
using samplehost::Session;

class Durable : public HostTest {
 protected:
  std::unique_ptr<Session> OpenSession() {
    return std::make_unique<Session>(SAMPLEDATA_SO, folder.Path("game.db"));
  }
  void Bring(Session& session, const std::string& node) {
    const std::string sound = folder.Path("kick.wav");
    ASSERT_EQ(session.AddNode(node).sample().ImportSample(sound.c_str(), 2, "High"),
              SDAccessInterface::ERROR_OK);
  }
};

TEST_F(Durable, SavesBringFilesAndFoldersToTheDiskOrFail) {
  const std::string before = BytesOf(folder / "game.db");
  for (int failing = 1;; ++failing) {
    auto session = OpenSession();
    Bring(*session, "kick");
    syncs = {{}, 0, failing, false};
    try {
      session->Save();
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("Input/output error"));
      session.reset();
      EXPECT_EQ(BytesOf(folder / "game.db"), before);
      // The save failed behind the setup's: the library deletes nothing then.
      std::filesystem::remove_all(folder / "samples");
      std::filesystem::create_directory(folder / "samples");
      continue;
    }
    EXPECT_EQ(failing, 6) << "raw and encoded file, their folder, the folders above it";
    break;
  }
  std::set<std::string> expected = FilesIn(folder / "samples");
  const std::string nodeFolder = std::filesystem::path(*expected.begin()).parent_path();
  expected.insert({nodeFolder, folder / "samples", folder.path});
  EXPECT_EQ(syncs.paths, expected);
  Run(0, "verify game.db");
}

TEST_F(Durable, ManyFilesGoInOne) {
  auto session = OpenSession();
  for (int i = 0; i < 20; ++i)
    Bring(*session, "kick" + std::to_string(i));
  syncs = {};
  session->Save();
  EXPECT_EQ(syncs.calls, 1);
  EXPECT_TRUE(syncs.wholeFileSystem);
  syncs = {};
  session->Save();
  EXPECT_EQ(syncs.calls, 0) << "nothing changed";
  session->set_durable(false);
  Bring(*session, "late");
  session->Save();
  EXPECT_EQ(syncs.calls, 0);
}

}  // namespace
