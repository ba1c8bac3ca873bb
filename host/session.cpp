#include "host/session.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include "diskio/diskio.h"
#include "host/durable.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/stored_node.h"

namespace samplehost {

namespace {

constexpr std::int64_t kRootId = 1;
constexpr std::int64_t kSetupId = 2;
constexpr const char* kRootKind = "root";
constexpr const char* kSetupKind = "setup";
constexpr const char* kSampleKind = "sample";
constexpr const char* kSetupName = "Setup";

constexpr qz::uint64 kTypeSize = sizeof(_GUID);

// Takes the type chunk off the front of a payload, which is the host's part of its loading.
bool ReadTypeChunk(MemoryStream& stream, const _GUID& expected) {
  char tag[4];
  qz::uint64 size = 0;
  _GUID type{};
  return stream.Read(tag, 1, sizeof tag) && std::memcmp(tag, "TYPE", sizeof tag) == 0 &&
         stream.Read(size) && size == kTypeSize && stream.Read(&type, 1, sizeof type) &&
         std::memcmp(&type, &expected, sizeof type) == 0;
}

// Why the node could not be loaded from `payload`; empty where it was.
std::string LoadFailure(Node& node, const MemoryStream::Bytes& payload) {
  MemoryStream stream(payload);
  if (!ReadTypeChunk(stream, TypeOf(node.kind()))) return "The stored data is not of this type";
  node.set_loading(true);
  const bool loaded = node.GetTypeInterface()->Load(&stream, nullptr);
  node.set_loading(false);
  return loaded ? std::string() : node.LastError();
}

// A folder made for a new database, which goes again unless the database is kept.
class NewFolder {
 public:
  explicit NewFolder(const std::string& native) : native_(native) {
    std::error_code error;
    made_ = std::filesystem::create_directories(native, error);
    if (!std::filesystem::is_directory(native, error)) {
      throw Failure(fmt::format("The folder \"{}\" could not be made.", native));
    }
  }
  ~NewFolder() {
    std::error_code ignored;
    if (made_) std::filesystem::remove(native_, ignored);  // an empty one only
  }
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  void Keep() { made_ = false; }

 private:
  std::string native_;
  bool made_ = false;
};

bool IsUtf8(const std::string& text) {
  // A byte that is no part of valid UTF-8 is a code unit of 0xDC00 and up that stands alone.
  const qz::string wide(text.c_str());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    const char16_t unit = wide[i];
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    const bool paired = i > 0 && wide[i - 1] >= 0xD800 && wide[i - 1] <= 0xDBFF;
    if (low && !paired) return false;
  }
  return true;
}

}  // namespace

// --- Opening and closing -------------------------------------------------------------------------

Session::Session(const std::string& libraryPath, const std::string& path, Database database,
                 const Settings& settings)
    : path_(path),
      folder_(FolderOf(path)),
      library_(libraryPath),
      database_(std::move(database)),
      root_(library_, path, settings) {}

Session::Session(const std::string& libraryPath, const std::string& path)
    : path_(path),
      folder_(FolderOf(path)),
      library_(libraryPath),
      database_(Database::Open(NativePath(path))),
      root_(library_, path, database_.ReadSettings()) {
  LoadNodes();
}

Session::~Session() {
  root_.set_shutdown(!setupRunsAhead_);
  root_.Release();
  if (!setupRunsAhead_) DropHandedOver();
}

// The library takes what it loads for saved. It is not, and nothing else refers to it.
void Session::DropHandedOver() {
  for (const std::string& raw : handedOver_) {
    DIOFile::Delete(raw.c_str());
    DIOFile::Delete(EncodedPathOf(raw).c_str());
    DIOFile::Delete(FolderOf(raw).c_str());  // succeeds with the folder's last file
  }
}

void Session::Create(const std::string& libraryPath, const NewDatabase& wanted) {
  const std::string native = NativePath(wanted.path);
  PendingFile file(wanted.path, false);
  Session session(libraryPath, wanted.path, Database::Create(file.native()), wanted.settings);
  session.MakeTree();
  for (const auto& [name, level] : wanted.classes)
    session.AddClass(name, level);
  NewFolder folder(NativePath(FullPathFrom(NativePath(session.folder_), wanted.folder)));
  session.SetSampleFolder(wanted.folder);
  session.Save();
  // SQLite has no open transaction: the file is whole, and its name is no matter to it.
  file.Commit();
  folder.Keep();
  SyncToDisk({native, NativePath(session.folder_)});
}

void Session::MakeTree() {
  NodeRow row{kSetupId, kRootId, kSetupKind, kSetupName, false, {}};
  Node& setup = root_.Add(NodeKind::kSetup, row);
  if (setup.damaged()) throw Failure("The setup node could not be made: " + setup.damage());
  nextId_ = kSetupId + 1;
}

void Session::LoadNodes() {
  const std::vector<StoredNode> nodes = database_.ReadNodes();
  const auto setup = std::find_if(nodes.begin(), nodes.end(), [](const StoredNode& node) {
    return node.row.kind == kSetupKind;
  });
  if (setup == nodes.end()) throw Failure("The database has no setup node.");
  LoadSetup(*setup);
  for (const StoredNode& node : nodes) {
    nextId_ = std::max(nextId_, node.row.id + 1);
    if (node.row.kind == kSampleKind) LoadSample(node);
  }
}

void Session::LoadSetup(const StoredNode& stored) {
  Node& node = root_.Add(NodeKind::kSetup, stored.row);
  const std::string reason = node.damaged() ? node.damage() : LoadFailure(node, stored.payload);
  if (!reason.empty()) {
    throw Failure(fmt::format("The setup of the database could not be loaded: {}.", reason),
                  "Nothing was changed. Go back to a backup of the database file.");
  }
  node.stored = stored.payload;
  node.storedRow = stored.row;
}

void Session::LoadSample(const StoredNode& stored) {
  Node& node = root_.Add(NodeKind::kSample, stored.row);
  node.stored = stored.payload;
  node.storedRow = stored.row;
  if (node.damaged()) return;
  const std::string reason = LoadFailure(node, stored.payload);
  if (!reason.empty()) node.MarkDamaged(reason);
}

// --- Saving --------------------------------------------------------------------------------------

void Session::Save() {
  database_.Begin();
  written_.clear();
  try {
    SaveSetup();
    for (const auto& node : root_.samples())
      SaveNode(*node);
    for (const std::int64_t id : root_.deletedIds)
      database_.DeleteNode(id);
    if (durable_) SyncChanged();
    database_.Commit();
  } catch (...) {
    database_.Rollback();
    ForgetWritten();
    throw;
  }
  root_.deletedIds.clear();
  handedOver_.clear();
  setupRunsAhead_ = false;
  root_.set_changed(false);
}

// What a failed save wrote is not what is stored; the next save writes it all again.
void Session::ForgetWritten() {
  Node& setup = *root_.setup();
  setup.stored.clear();
  setup.storedRow = {};
  for (const auto& node : root_.samples()) {
    node->storedRow = {};
    if (!node->damaged()) node->stored.clear();
  }
}

void Session::SaveSetup() {
  Node& setup = *root_.setup();
  database_.WriteSettings(root_.settings());
  database_.WriteNode({kRootId, 0, kRootKind, "", false, {}});
  SaveNode(setup);
}

// A damaged node keeps what the database has for it, payload and all; its row can have changed.
void Session::SaveNode(Node& node) {
  if (!(node.row() == node.storedRow)) database_.WriteNode(node.row());
  node.storedRow = node.row();
  if (node.damaged()) return;
  MemoryStream stream;
  const bool saved = node.GetTypeInterface()->Save(&stream, nullptr);
  if (saved && node.kind() == NodeKind::kSetup) setupRunsAhead_ = true;
  if (!saved || !stream.Finish()) {
    throw Failure(fmt::format("Nothing was saved: node \"{}\" reports \"{}\".", node.name(),
                              node.LastError()),
                  "The database is as it was after its last save.");
  }
  if (stream.bytes() == node.stored) return;
  database_.WritePayload(node.row().id, stream.bytes());
  node.stored = stream.bytes();
  if (node.kind() == NodeKind::kSample) written_.push_back(&node);
}

void Session::SyncChanged() const {
  std::set<std::string> paths{NativePath(folder_)};
  for (const Node* node : written_) {
    const auto samples = ReadStoredSamples(node->stored);
    if (!samples) throw Failure(fmt::format("Node \"{}\" cannot be read back.", node->name()));
    for (const StoredSample& sample : *samples) {
      const std::string raw = Expand(folder_, sample.fileName.c_str());
      const std::string nodeFolder = NativePath(FolderOf(raw));
      paths.insert(NativePath(raw));
      paths.insert(NativePath(EncodedPathOf(raw)));
      paths.insert(nodeFolder);
      paths.insert(std::filesystem::path(nodeFolder).parent_path());
    }
  }
  if (!written_.empty()) SyncToDisk(paths);
}

MemoryStream::Bytes Session::PayloadOf(Node& node) {
  MemoryStream stream;
  if (!node.GetTypeInterface()->Save(&stream, nullptr) || !stream.Finish()) {
    throw Failure(node.LastError());
  }
  return stream.bytes();
}

// --- Changing ------------------------------------------------------------------------------------

Node& Session::AddNode(const std::string& name) {
  Node& node = root_.Add(NodeKind::kSample, {nextId_, kRootId, kSampleKind, name, false, {}});
  ++nextId_;
  return node;
}

Node& Session::AddImported(const std::string& name, const MemoryStream::Bytes& payload,
                           const std::string& description) {
  const auto samples = ReadStoredSamples(payload);
  if (!samples) throw Failure("What the worker sent cannot be read");
  for (const StoredSample& sample : *samples)
    handedOver_.push_back(Expand(folder_, sample.fileName.c_str()));
  Node& node = AddNode(name);
  try {
    const std::string reason = node.damaged() ? node.damage() : LoadFailure(node, payload);
    if (!reason.empty()) throw Failure(reason);
    RequireRoomForClasses(node);
    root_.NoteImported(node, description);
  } catch (...) {
    root_.DisableUndo();
    root_.DeleteNode(&node);
    root_.EnableUndo();
    throw;
  }
  root_.RecountClasses(node);
  return node;
}

Node& Session::Require(const std::string& name) {
  Node* node = root_.Find(name);
  if (node == nullptr) {
    throw Failure(fmt::format("There is no node \"{}\".", name),
                  "\"samplehost list DB\" shows the names.");
  }
  return *node;
}

Node& Session::RequireHealthy(const std::string& name) {
  Node& node = Require(name);
  if (node.damaged()) {
    throw Failure(fmt::format("Node \"{}\" is damaged: {}.", node.name(), node.damage()),
                  "Put its files back into the sample folder; what is stored of it is kept.");
  }
  return node;
}

void Session::AddClass(const std::string& name, int level) {
  std::string why = WhyNoFileName(name);
  if (why.empty() && !IsUtf8(name)) why = "it is not UTF-8 text";
  if (!why.empty()) {
    throw Failure(fmt::format("\"{}\" cannot be a class: {}.", name, why),
                  "Sample files are named after their class.");
  }
  for (const qz::string& known : setup().EnumerateQualityClasses()) {
    if (known == name.c_str() || !SameText(Narrow(known), name)) continue;
    throw Failure(
        fmt::format("\"{}\" cannot be a class: there is \"{}\" already.", name, Narrow(known)),
        "Sample files are named after their class, and case makes no difference there.");
  }
  if (setup().AddQualityClass(name.c_str(), static_cast<qz::uchar>(level)) !=
      SDSetupInterface::ERROR_OK) {
    throw Failure(
        fmt::format("Class \"{}\" (level {}): {}.", name, level, root_.setup()->LastError()));
  }
  root_.set_changed(true);
}

void Session::RemoveClass(const std::string& name) {
  const SDSetupInterface::SDError error = setup().RemoveQualityClass(name.c_str());
  root_.set_changed(error == SDSetupInterface::ERROR_OK || root_.changed());
  if (error == SDSetupInterface::ERROR_OK) return;
  throw Failure(fmt::format("Class \"{}\": {}.", name, root_.setup()->LastError()),
                error == SDSetupInterface::ERROR_CLASSSTILLUSED
                    ? "Remove its samples first: samplehost remove DB NODE CLASS"
                    : "");
}

std::string Session::SampleFolder() const {
  return Expand(folder_, setup().GetSampleFolder());
}

void Session::SetSampleFolder(const std::string& native) {
  const std::string path = FullPathFrom(NativePath(folder_), native);
  std::error_code error;
  const std::string real = NativePath(path);
  std::filesystem::create_directories(real, error);
  if (!std::filesystem::is_directory(real, error)) {
    throw Failure(fmt::format("The folder \"{}\" could not be made.", real));
  }
  const qz::string before = setup().GetSampleFolder();
  setup().SetSampleFolder((path.ends_with('\\') ? path : path + "\\").c_str());
  const std::string stored = Narrow(setup().GetSampleFolder());
  // Names of samples are this text and a name behind it, under the database's folder.
  if (stored.ends_with('\\') && stored.find(':') == std::string::npos && stored != ".\\" &&
      stored != "\\") {
    return;
  }
  setup().SetSampleFolder(Expand(folder_, before).c_str());
  throw Failure(fmt::format("\"{}\" cannot be the sample folder.", real),
                "Take a folder beside the database, for instance \"samples\".");
}

}  // namespace samplehost
