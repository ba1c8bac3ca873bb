#include "host/clean.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>
#include <vector>

#include "host/database.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/report.h"
#include "host/stored_node.h"

namespace samplehost {

namespace {

namespace fs = std::filesystem;

// Names of node folders, in lower case: names compare without it.
using Names = std::set<std::string>;

struct Orphan {
  fs::path path;
  std::uint64_t bytes = 0;
  std::size_t files = 0;
};

[[noreturn]] void FailUnread(const std::string& what) {
  throw Failure(what + " cannot be read, so nobody knows which folders it names.",
                "Nothing was moved. Go back to a backup, or remove the node.");
}

// Adds the folders that the nodes name. They are added by name alone, wherever they lie.
void AddNames(const std::vector<StoredNode>& nodes, Names& names) {
  for (const StoredNode& node : nodes) {
    if (node.row.kind != "sample") continue;
    const auto samples = ReadStoredSamples(node.payload);
    if (!samples) FailUnread(fmt::format("The data of node \"{}\"", node.row.name));
    for (const StoredSample& sample : *samples) {
      std::string folder = FolderOf(sample.fileName);
      while (folder.ends_with('\\'))
        folder.pop_back();
      names.insert(LowerCase(NameOf(folder)));
    }
  }
}

// Is this file another database of ours?
bool IsDatabase(const fs::path& file) {
  constexpr std::size_t kHeadSize = 72;
  constexpr std::size_t kApplicationId = 68;
  char head[kHeadSize] = {};
  std::ifstream stream(file, std::ios::binary);
  return stream.read(head, kHeadSize) && std::memcmp(head, "SQLite format 3", 16) == 0 &&
         std::memcmp(head + kApplicationId, "SDh1", 4) == 0;
}

// A copy of the database, or another one, can share the sample folder.
void AddNamesOfOthers(const std::string& ours, Names& names) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(fs::path(ours).parent_path())) {
    if (!entry.is_regular_file(error) || !IsDatabase(entry.path())) continue;
    if (fs::equivalent(entry.path(), ours, error)) continue;
    AddNames(Database::Open(entry.path().string()).ReadNodes(), names);
  }
}

Orphan Measure(const fs::path& folder) {
  Orphan orphan{folder};
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (!it->is_regular_file(ignored)) continue;
    ++orphan.files;
    orphan.bytes += it->file_size(ignored);
  }
  return orphan;
}

std::vector<Orphan> FindOrphans(const fs::path& sampleFolder, const Names& names) {
  std::vector<Orphan> orphans;
  struct stat home {};
  if (::stat(sampleFolder.c_str(), &home) != 0) return orphans;
  for (const auto& entry : fs::directory_iterator(sampleFolder)) {
    struct stat status {};
    const std::string name = entry.path().filename().string();
    if (!IsUuid(name) || names.count(LowerCase(name)) != 0) continue;
    if (::lstat(entry.path().c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
    if (status.st_dev == home.st_dev) orphans.push_back(Measure(entry.path()));
  }
  std::sort(orphans.begin(), orphans.end(),
            [](const Orphan& a, const Orphan& b) { return a.path < b.path; });
  return orphans;
}

// Moves a folder; one of the same name that came there earlier stays.
fs::path MoveAway(const fs::path& folder, const fs::path& target) {
  fs::create_directories(target);
  fs::path moved = target / folder.filename();
  for (int i = 2; fs::exists(fs::symlink_status(moved)); ++i)
    moved = target / fmt::format("{}-{}", folder.filename().string(), i);
  MoveNew(folder.string(), moved.string());
  return moved;
}

fs::path SampleFolderOf(const std::string& path, const std::vector<StoredNode>& nodes) {
  for (const StoredNode& node : nodes) {
    if (node.row.kind != "setup") continue;
    const std::optional<std::string> stored = ReadStoredFolder(node.payload);
    if (!stored || stored->empty()) break;
    std::string folder = NativePath(Expand(FolderOf(path), stored->c_str()));
    while (folder.size() > 1 && folder.ends_with('/'))
      folder.pop_back();
    return folder;
  }
  FailUnread("The setup of the database");
}

}  // namespace

int Clean(const Context& context, bool dryRun) {
  const std::string path = FullPath(context.database);
  Database database = Database::Open(NativePath(path));
  const std::vector<StoredNode> nodes = database.ReadNodes();
  const fs::path sampleFolder = SampleFolderOf(path, nodes);
  Names names;
  AddNames(nodes, names);
  AddNamesOfOthers(NativePath(path), names);
  const std::vector<Orphan> orphans = FindOrphans(sampleFolder, names);
  const fs::path target = sampleFolder.parent_path() / "orphans";
  int code = kAllWell;
  Table table({"FOLDER", "FILES", "BYTES", dryRun ? "" : "NOW AT"});
  for (const Orphan& orphan : orphans) {
    std::string now;
    try {
      if (!dryRun) now = MoveAway(orphan.path, target).string();
    } catch (const std::exception& error) {
      now = error.what();
      code = kSomeFailed;
    }
    table.Add({orphan.path.string(), fmt::format("{}", orphan.files),
               fmt::format("{}", orphan.bytes), now});
  }
  if (table.empty()) {
    context.err << "No folder is left over.\n";
  } else {
    table.Print(context.out);
  }
  return code;
}

}  // namespace samplehost
