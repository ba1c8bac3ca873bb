#include "tests/sd_random_walk_model.h"

#include <algorithm>
#include <utility>

namespace sdtest::walk {

namespace {

constexpr int kAdpcmIndex = 2;
constexpr int kLastFormat = 5;

bool IsKnownClass(const std::string& qualClass) {
  return qualClass == "Low" || qualClass == "High" || qualClass == "Third";
}

bool IsSound(const std::string& bytes) {
  return bytes.compare(0, 4, "RIFF") == 0;
}

std::string EncodedAs(int type) {
  return "encoded" + std::to_string(type);
}

bool EraseFirst(std::vector<Files>& list, const Files& files) {
  const auto found = std::find(list.begin(), list.end(), files);
  if (found == list.end()) return false;
  list.erase(found);
  return true;
}

std::string OutsideName(const Node& node, const Sample& sample, const std::string& folder) {
  const Files& files = sample.files;
  return folder + "\\" + node.name + " (" + files.qualClass + ")." + files.extension;
}

// The two that are there to be written to.
bool IsOutsideFolder(const std::string& folder) {
  return folder == "S:\\out1" || folder == "S:\\out2";
}

}  // namespace

Sample* Model::Find(Node& node, const std::string& qualClass) {
  for (Sample& sample : node.samples) {
    if (sample.files.qualClass == qualClass) return &sample;
  }
  return nullptr;
}

bool Model::Has(int folder, const std::string& name) const {
  const auto found = disk.find(folder);
  return found != disk.end() && found->second.count(name) != 0;
}

void Model::Note(SDUndoAction action, int id, const Node& before) {
  records.push_back({action, id, before});
  if (action != UNDO_SD_QUALITYCHANGE && nodes.count(id) != 0) nodes[id].overtaken = true;
}

// --- Changes of a node's files: all of them, in a new folder ---

bool Model::NameFiles(Node& node, Sample& sample) {
  const auto dot = sample.original.rfind('.');
  if (dot == std::string::npos) return false;
  if (node.folder == kNoFolder) {
    node.folder = folders_++;
    disk[node.folder];
  }
  sample.files.folder = node.folder;
  sample.files.extension = sample.original.substr(dot + 1);
  return true;
}

Error Model::Move(Node& node, const std::vector<Source>& sources, int format) {
  Node moved = node;
  moved.folder = kNoFolder;
  Error error = SDAccess::ERROR_OK;
  const auto isReplaced = [&](const Sample& sample) {
    return std::any_of(sources.begin(), sources.end(), [&](const Source& source) {
      return source.qualClass == sample.files.qualClass;
    });
  };
  for (const Source& source : sources) {
    if (error == SDAccess::ERROR_OK) error = BringIn(moved, source, format);
  }
  for (const Sample& sample : node.samples) {
    if (error == SDAccess::ERROR_OK && !isReplaced(sample)) error = TakeAlong(moved, sample.files);
  }
  if (error != SDAccess::ERROR_OK) {
    disk.erase(moved.folder);
    return error;
  }
  for (const Sample& sample : node.samples)
    toDelete.push_back(sample.files);
  for (const Sample& sample : moved.samples)
    unsaved.push_back(sample.files);
  node = moved;
  return SDAccess::ERROR_OK;
}

Error Model::BringIn(Node& moved, const Source& source, int format) {
  Sample* sample = Find(moved, source.qualClass);
  const bool isNew = sample == nullptr;
  const Files old = isNew ? Files() : sample->files;
  if (isNew) {
    sample = &moved.samples.emplace_back();
    sample->files.qualClass = source.qualClass;
    sample->original = source.path;
    sample->type = format == 0 ? kAdpcmIndex : format;
    if (sample->type > kLastFormat) return SDAccess::ERROR_UNSUPPORTEDFORMAT;
  }
  if (!NameFiles(moved, *sample)) return SDAccess::ERROR_INTERNAL;
  if (!isNew && !HasEncoded(old)) return SDAccess::ERROR_INTERNAL;
  const auto bytes = outside.find(source.path);
  if (bytes == outside.end()) return SDAccess::ERROR_COULDNOTCOPYSAMPLE;
  if (!IsSound(bytes->second)) return SDAccess::ERROR_COULDNOTLOAD;
  disk[moved.folder][sample->files.Raw()] = bytes->second;
  disk[moved.folder][sample->files.Encoded()] = EncodedAs(sample->type);
  return SDAccess::ERROR_OK;
}

Error Model::TakeAlong(Node& moved, const Files& old) {
  Sample& sample = *Find(moved, old.qualClass);
  if (!NameFiles(moved, sample)) return SDAccess::ERROR_INTERNAL;
  if (!HasRaw(old) || !HasEncoded(old)) return SDAccess::ERROR_COULDNOTCOPYSAMPLE;
  disk[moved.folder][sample.files.Raw()] = disk[old.folder][old.Raw()];
  disk[moved.folder][sample.files.Encoded()] = disk[old.folder][old.Encoded()];
  return SDAccess::ERROR_OK;
}

Error Model::Import(int id, const std::string& source, int format, const std::string& qualClass) {
  Node& node = nodes.at(id);
  if (node.out) return SDAccess::ERROR_ISCHECKEDOUT;
  if (!IsKnownClass(qualClass)) return SDAccess::ERROR_UNKNOWNCLASS;
  if (outside.count(source) == 0) return SDAccess::ERROR_COULDNOTCOPYSAMPLE;
  const Node before = node;
  if (node.samples.empty()) node.selected = qualClass;
  const Error error = Move(node, {{qualClass, source}}, format);
  if (error != SDAccess::ERROR_OK) return error;
  Find(node, qualClass)->original = source;
  Note(UNDO_SDSAMPLE_IMPORTED, id, before);
  return error;
}

Error Model::ChangeFormat(int id, const std::string& qualClass, int format) {
  Node& node = nodes.at(id);
  if (!IsKnownClass(qualClass)) return SDAccess::ERROR_UNKNOWNCLASS;
  const Sample* present = Find(node, qualClass);
  if (present == nullptr) return SDAccess::ERROR_QUALITYNOTAVAILABLE;
  const int type = format == 0 ? kAdpcmIndex : format;
  if (type > kLastFormat) return SDAccess::ERROR_UNSUPPORTEDFORMAT;
  if (present->type == type) return SDAccess::ERROR_OK;
  const Node before = node;
  const Error error = Move(node, {}, 0);
  if (error != SDAccess::ERROR_OK) return error;
  Sample& sample = *Find(node, qualClass);
  sample.type = type;
  disk[node.folder][sample.files.Encoded()] = EncodedAs(type);
  Note(UNDO_SDSAMPLE_TYPECHANGE, id, before);
  return error;
}

Error Model::Remove(int id, const std::string& qualClass) {
  Node& node = nodes.at(id);
  if (node.out) return SDAccess::ERROR_ISCHECKEDOUT;
  if (Find(node, qualClass) == nullptr) return SDAccess::ERROR_QUALITYNOTAVAILABLE;
  const Node before = node;
  if (node.samples.size() == 1) {
    toDelete.push_back(node.samples[0].files);
    node.samples.clear();
    node.folder = kNoFolder;
  } else {
    const Error error = Move(node, {}, 0);
    if (error != SDAccess::ERROR_OK) return error;
    const Files fresh = Find(node, qualClass)->files;
    DeleteFiles(fresh);
    EraseFirst(unsaved, fresh);
    std::erase_if(node.samples, [&](const Sample& sample) { return sample.files == fresh; });
  }
  Note(UNDO_SDSAMPLE_DELETED, id, before);
  return SDAccess::ERROR_OK;
}

bool Model::Select(int id, const std::string& qualClass) {
  Node& node = nodes.at(id);
  if (Find(node, qualClass) == nullptr) return false;
  Note(UNDO_SD_QUALITYCHANGE, id, node);
  node.selected = qualClass;
  return true;
}

// --- Check-out ---

Error Model::CheckOut(int id, const std::string& folder) {
  Node& node = nodes.at(id);
  if (node.out) return SDAccess::ERROR_ISCHECKEDOUT;
  for (const Sample& sample : node.samples) {
    const std::string name = OutsideName(node, sample, folder);
    outside.erase(name);
    if (!IsOutsideFolder(folder) || !HasRaw(sample.files)) {
      return SDAccess::ERROR_COULDNOTCOPYSAMPLE;
    }
    outside[name] = disk[sample.files.folder][sample.files.Raw()];
  }
  node.out = true;
  node.outFolder = folder;
  return SDAccess::ERROR_OK;
}

Error Model::CheckIn(int id, const std::string& folder) {
  Node& node = nodes.at(id);
  if (!node.out) return SDAccess::ERROR_ISNOTCHECKEDOUT;
  std::vector<Source> sources;
  for (const Sample& sample : node.samples) {
    const std::string name = OutsideName(node, sample, folder.empty() ? node.outFolder : folder);
    if (outside.count(name) == 0) return SDAccess::ERROR_COULDNOTCOPYSAMPLE;
    sources.push_back({sample.files.qualClass, name});
  }
  const int before = node.folder;
  const Error error = Move(node, sources, 0);
  if (error != SDAccess::ERROR_OK) return error;
  node.out = false;
  node.beforeCheckIn = before;
  node.overtaken = false;
  return error;
}

// The one raw file of the class that is there under another extension.
void Model::TakeOnlyOther(Files& files) const {
  const auto folder = disk.find(files.folder);
  if (folder == disk.end()) return;
  const std::string stem = files.qualClass + ".";
  std::vector<std::string> others;
  for (const auto& [name, content] : folder->second) {
    if (name.compare(0, stem.size(), stem) == 0 && name != files.Encoded()) {
      others.push_back(name.substr(stem.size()));
    }
  }
  if (others.size() == 1) files.extension = others[0];
}

Error Model::UndoCheckIn(int id) {
  Node& node = nodes.at(id);
  if (node.out) return SDAccess::ERROR_ISCHECKEDOUT;
  if (node.beforeCheckIn == kNoFolder) return SDAccess::ERROR_NOPRECHECKINSTATE;
  for (const Sample& sample : node.samples)
    DropFiles(sample.files);
  node.folder = std::exchange(node.beforeCheckIn, kNoFolder);
  for (Sample& sample : node.samples) {
    if (!NameFiles(node, sample)) return SDAccess::ERROR_INTERNAL;
    if (!HasRaw(sample.files)) TakeOnlyOther(sample.files);
    Reclaim(sample);
  }
  return SDAccess::ERROR_OK;
}

Error Model::UndoCheckOut(int id) {
  return std::exchange(nodes.at(id).out, false) ? SDAccess::ERROR_OK
                                                : SDAccess::ERROR_ISNOTCHECKEDOUT;
}

Error Model::RedoCheckOut(int id) {
  const Error error = UndoCheckOut(id);
  return error == SDAccess::ERROR_OK ? CheckOut(id, nodes.at(id).outFolder) : error;
}

// --- Undo ---

void Model::DeleteFiles(const Files& files) {
  const auto folder = disk.find(files.folder);
  if (folder == disk.end()) return;
  folder->second.erase(files.Raw());
  folder->second.erase(files.Encoded());
}

void Model::DeleteFolderIfEmpty(int folder) {
  const auto found = disk.find(folder);
  if (found != disk.end() && found->second.empty()) disk.erase(found);
}

// Files that a state leaves: at once where no saved state has them.
void Model::DropFiles(const Files& files) {
  if (!EraseFirst(unsaved, files)) {
    toDelete.push_back(files);
    return;
  }
  DeleteFiles(files);
  DeleteFolderIfEmpty(files.folder);
}

bool Model::IsSaved(const Files& files) const {
  return std::any_of(saved.begin(), saved.end(), [&](const auto& entry) {
    return std::any_of(entry.second.samples.begin(), entry.second.samples.end(),
                       [&](const Sample& sample) { return sample.files == files; });
  });
}

// Files of a state that comes back.
void Model::Reclaim(const Sample& sample) {
  Unmark(sample.files);
  if (sample.version != version_) {
    unsaved.push_back(sample.files);
  } else if (!IsSaved(sample.files) &&
             std::find(unsaved.begin(), unsaved.end(), sample.files) == unsaved.end()) {
    forgotten = true;
  }
}

void Model::Unmark(const Files& files) {
  const auto marked = std::find(toDelete.begin(), toDelete.end(), files);
  if (marked == toDelete.end()) return;
  if (static_cast<std::size_t>(marked - toDelete.begin()) < bookmark) --bookmark;
  toDelete.erase(marked);
}

bool Model::AppendCopy(Node& node, const Sample& old) {
  Sample copy = old;
  if (!NameFiles(node, copy)) return false;
  if (!HasRaw(old.files)) return false;
  disk[node.folder][copy.files.Raw()] = disk[old.files.folder][old.files.Raw()];
  if (!HasEncoded(old.files)) return false;
  disk[node.folder][copy.files.Encoded()] = disk[old.files.folder][old.files.Encoded()];
  unsaved.push_back(copy.files);
  node.samples.push_back(copy);
  return true;
}

bool Model::Undo() {
  const Record record = records.back();
  records.pop_back();
  Node& node = nodes.at(record.node);
  switch (record.action) {
    case UNDO_SD_QUALITYCHANGE:
      node.selected = record.before.selected;
      return true;
    case UNDO_SD_COPIED:
      Drop(record.node);
      return true;
    case UNDO_SD_DELETED:
      for (const Sample& old : record.before.samples) {
        Unmark(old.files);
        if (!AppendCopy(node, old)) return false;
      }
      node.selected = record.before.selected;
      return true;
    default:
      for (const Sample& sample : node.samples)
        DropFiles(sample.files);
      node.samples = record.before.samples;
      node.folder = record.before.folder;
      for (const Sample& sample : node.samples)
        Reclaim(sample);
      node.overtaken = true;
      return true;
  }
}

bool Model::Copy(int id, int from) {
  for (const Sample& sample : nodes.at(from).samples) {
    if (!AppendCopy(nodes.at(id), sample)) return false;
  }
  nodes.at(id).selected = nodes.at(from).selected;
  records.push_back({UNDO_SD_COPIED, id, {}});
  return true;
}

void Model::Delete(int id) {
  const Node before = nodes.at(id);
  for (const Sample& sample : before.samples)
    toDelete.push_back(sample.files);
  Drop(id);
  records.push_back({UNDO_SD_DELETED, id, before});
}

void Model::Drop(int id) {
  for (const Sample& sample : nodes.at(id).samples)
    toDelete.push_back(sample.files);
  nodes.erase(id);
}

// --- The database ---

void Model::SaveSetup() {
  bookmark = toDelete.size();
  unsaved.clear();
  ++version_;
}

bool Model::SaveNode(int id) {
  for (Sample& sample : nodes.at(id).samples) {
    if (!HasRaw(sample.files) || !HasEncoded(sample.files)) return false;
    sample.version = version_;
  }
  return true;
}

void Model::Commit() {
  saved = nodes;
  forgotten = false;
}

void Model::Close(bool flagged) {
  if (flagged) {
    toDelete.resize(bookmark);
    for (const auto& list : {toDelete, unsaved}) {
      for (const Files& files : list)
        DeleteFiles(files);
      for (const Files& files : list)
        DeleteFolderIfEmpty(files.folder);
    }
  }
  toDelete.clear();
  bookmark = 0;
  unsaved.clear();
  records.clear();
  nodes.clear();
  forgotten = false;
}

void Model::Open() {
  ++version_;
  for (const auto& [id, stored] : saved) {
    Node& node = nodes[id];
    node.name = stored.name;
    node.selected = stored.selected;
    node.samples = stored.samples;
    for (Sample& sample : node.samples)
      sample.version = version_;
    if (!node.samples.empty()) node.folder = node.samples[0].files.folder;
  }
}

}  // namespace sdtest::walk
