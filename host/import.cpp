#include "host/import.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/advice.h"
#include "host/durable.h"
#include "host/failure.h"
#include "host/import_jobs.h"
#include "host/paths.h"
#include "host/sample_data.h"
#include "host/sound_check.h"

namespace samplehost {

namespace {

namespace fs = std::filesystem;

// The name of a node's folder: a UUID as text.
constexpr std::size_t kNodeFolderLength = 36;

bool IsSoundFile(const fs::directory_entry& entry) {
  std::error_code error;
  const std::string extension = entry.path().extension().string();
  return entry.is_regular_file(error) && !extension.empty() &&
         IsSoundExtension(extension.substr(1));
}

bool IsFolder(const fs::directory_entry& entry) {
  std::error_code error;
  return entry.is_directory(error) && !entry.is_symlink(error);
}

void CollectFolder(const fs::path& folder, bool recursive, const fs::path& except,
                   std::vector<std::string>& files) {
  std::error_code error;
  if (!except.empty() && fs::equivalent(folder, except, error)) return;
  std::vector<fs::path> folders;
  std::vector<std::string> here;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    if (IsSoundFile(*it)) here.push_back(it->path().string());
    if (recursive && IsFolder(*it)) folders.push_back(it->path());
  }
  std::sort(here.begin(), here.end());
  std::sort(folders.begin(), folders.end());
  files.insert(files.end(), here.begin(), here.end());
  for (const fs::path& inner : folders)
    CollectFolder(inner, recursive, except, files);
}

// A node that the import made and takes back unless it is kept.
class ImportNode {
 public:
  ImportNode(Session& session, const std::string& file, const std::string& wanted);
  ~ImportNode() {
    if (!isNew_) return;
    session_.root().DisableUndo();
    session_.root().DeleteNode(&node_);
    session_.root().EnableUndo();
  }
  ImportNode(const ImportNode&) = delete;
  ImportNode& operator=(const ImportNode&) = delete;

  Node& node() { return node_; }
  bool wasMade() const { return wasMade_; }
  void Keep() { isNew_ = false; }

 private:
  static std::string NewName(Session& session, const std::string& file, const std::string& wanted) {
    return wanted.empty() ? session.root().FreeName(StemOf(file)) : wanted;
  }

  Session& session_;
  bool isNew_;
  bool wasMade_;
  Node& node_;
};

ImportNode::ImportNode(Session& session, const std::string& file, const std::string& wanted)
    : session_(session),
      isNew_(wanted.empty() || session.root().Find(wanted) == nullptr),
      wasMade_(isNew_),
      node_(isNew_ ? session.AddNode(NewName(session, file, wanted))
                   : session.RequireHealthy(wanted)) {}

void CheckRoom(Session& session, const Node& node, const std::string& path,
               const std::string& qualityClass) {
  if (!session.root().CanHoldClass(qualityClass)) {
    throw Failure(fmt::format("Class \"{}\" has as many samples as it can count", qualityClass),
                  "Import into another class or another database.");
  }
  const auto& classes = node.row().classes;
  if (std::find(classes.begin(), classes.end(), qualityClass) != classes.end()) {
    throw Failure(
        fmt::format("Node \"{}\" has a sample of class \"{}\" already", node.name(), qualityClass),
        "Remove it first: samplehost remove DB NODE CLASS");
  }
  const std::size_t extension = std::max<std::size_t>(ExtensionOf(path).size(), 4);  // "esmp"
  const std::size_t length =
      session.SampleFolder().size() + kNodeFolderLength + 1 + qualityClass.size() + 1 + extension;
  if (length > kMaxPath) {
    throw Failure(fmt::format("The path of the sample's file would have {} bytes; {} are the most",
                              length, kMaxPath),
                  "Move the database and its samples to a shorter path.");
  }
}

}  // namespace

Node& ImportFile(Session& session, const std::string& path, const ImportOptions& options) {
  if (const std::optional<Refusal> refusal = CheckSoundFile(path)) {
    throw Failure(refusal->reason, refusal->advice);
  }
  ImportNode target(session, path, options.node);
  Node& node = target.node();
  if (node.damaged()) throw Failure(node.damage());
  CheckRoom(session, node, path, options.qualityClass);
  const std::uint64_t steps = session.root().undo().pushed();
  const SDAccessInterface::SDError error =
      node.sample().ImportSample(path.c_str(), options.formatIndex, options.qualityClass.c_str());
  if (error != SDAccessInterface::ERROR_OK) throw Failure(node.LastError(), AdviceFor(error));
  session.root().HoldClass(node, options.qualityClass);
  const SampleFacts facts = FactsOf(session, node, options.qualityClass);
  if (!EncodedIsWhole(node, facts)) {
    session.root().UndoSince(steps);
    throw Failure("The encoded file could not be written whole", "Make room on the disk.");
  }
  if (session.durable()) {
    StartToDisk(NativePath(facts.rawPath));
    StartToDisk(NativePath(EncodedPathOf(facts.rawPath)));
  }
  target.Keep();
  if (target.wasMade() && session.root().undo().pushed() != steps) {
    session.root().undo().last().madeNode = true;
  }
  return node;
}

std::vector<std::string> CollectSoundFiles(const std::vector<std::string>& arguments,
                                           bool recursive, const std::string& except) {
  std::vector<std::string> files;
  std::error_code error;
  for (const std::string& argument : arguments) {
    if (fs::is_directory(argument, error)) {
      CollectFolder(argument, recursive, except, files);
    } else {
      files.push_back(argument);
    }
  }
  return files;
}

ImportResult ImportFiles(Session& session, const std::vector<std::string>& files,
                         const ImportOptions& options, const ImportStep& step) {
  if (options.jobs > 1 && files.size() > 1) return ImportInParallel(session, files, options, step);
  ImportResult result;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!step(i, files.size(), files[i])) {
      result.left = files.size() - i;
      break;
    }
    try {
      result.imported.push_back(
          {files[i], ImportFile(session, FullPath(files[i]), options).name()});
    } catch (const Failure& failure) {
      result.failures.push_back({files[i], failure.what(), failure.advice()});
    }
  }
  return result;
}

}  // namespace samplehost
