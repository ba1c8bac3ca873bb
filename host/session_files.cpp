// Node files, and copies of nodes.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/failure.h"
#include "host/paths.h"
#include "host/session.h"

namespace samplehost {

namespace {

constexpr int kLevels = 256;

// A node outside the tree for as long as a file is read into it.
struct HiddenNode {
  Root& root;
  std::unique_ptr<Node> node;

  explicit HiddenNode(Root& owner) : root(owner) {
    std::string why;
    node = root.MakeHidden(why);
    if (node == nullptr) throw Failure(fmt::format("No node could be made: {}.", why));
  }
  ~HiddenNode() { root.ReleaseQuietly(std::move(node)); }
  HiddenNode(const HiddenNode&) = delete;
  HiddenNode& operator=(const HiddenNode&) = delete;
};

// Reads the node file into `node` and gives the library's description of that step.
std::string LoadInto(Root& root, Node& node, const std::string& path, const std::string& from) {
  const qz::string name(path.c_str());
  const bool changed = root.changed();
  const std::uint64_t steps = root.undo().pushed();
  if (!node.BeginModify()) throw Failure("The node cannot be changed.");
  root.set_load_location(from);
  const bool loaded = node.GetTypeInterface()->Load(nullptr, &name);
  root.set_load_location("");
  if (!loaded) node.EndModify(nullptr);
  root.set_changed(changed);
  if (!loaded) {
    throw Failure(fmt::format("\"{}\": {}.", NativePath(path), node.LastError()),
                  "It has to be the file of a sample node, and the sounds it names have to lie "
                  "where they lay; name the database that saved it with --from.");
  }
  return root.undo().pushed() != steps ? root.ForgetLast() : std::string();
}

}  // namespace

void Session::RequireWholeSave() const {
  if (!setupRunsAhead_) return;
  throw Failure("Nothing older can come back before a whole save.", "Save first.");
}

std::string Session::Undo() {
  RequireWholeSave();
  return root_.Undo();
}

// --- Copies and sample node files ---

void Session::RequireRoomForClasses(Node& source) const {
  for (const qz::string& quality : source.sample().GetQualityClasses()) {
    if (!setup().ProbeQualityClass(quality)) {
      throw Failure(fmt::format("Class \"{}\" does not exist here.", Narrow(quality)),
                    fmt::format("Make it first: class add {}=LEVEL", Narrow(quality)));
    }
    if (!root_.CanHoldClass(Narrow(quality))) {
      throw Failure(
          fmt::format("Class \"{}\" has as many samples as it can count.", Narrow(quality)));
    }
  }
}

// `source` need not be in the tree.
Node& Session::CopyInto(const std::string& name, Node& source) {
  RequireRoomForClasses(source);
  Node& node = AddNode(name);
  if (node.damaged() || !node.GetTypeInterface()->Copy(&source)) {
    const std::string why = node.LastError();
    root_.DisableUndo();
    root_.DeleteNode(&node);
    root_.EnableUndo();
    throw Failure(fmt::format("\"{}\" could not be made: {}.", name, why),
                  "Check room and write permission in the sample folder.");
  }
  root_.RecountClasses(node);
  return node;
}

void Session::CopyNode(Node& source, const std::string& name) {
  CopyInto(name, source);
}

void Session::SaveNodeFile(Node& node, const std::string& path, bool overwrite) {
  PendingFile file(path, overwrite);
  Save();
  const qz::string name(file.path().c_str());
  if (!node.GetTypeInterface()->Save(nullptr, &name)) {
    throw Failure(fmt::format("\"{}\": {}.", NativePath(path), node.LastError()));
  }
  file.Commit();
}

void Session::LoadNodeFile(const std::string& name, const std::string& path,
                           const std::string& from) {
  Node* const old = root_.Find(name);
  HiddenNode hidden(root_);
  const std::string what = LoadInto(root_, *hidden.node, path, from);
  std::uint64_t steps = root_.undo().pushed();
  // The copies come first: what cannot be made leaves the old node as it is.
  Node& made = CopyInto(old == nullptr ? name : root_.FreeName(name), *hidden.node);
  if (root_.undo().pushed() != steps) {
    root_.undo().last().record.description = what.c_str();
    root_.undo().last().nodeName = name;
  }
  if (old == nullptr) return;
  steps = root_.undo().pushed();
  const std::string oldName = old->name();
  if (!root_.DeleteNode(old)) {
    root_.UndoSince(steps - 1);
    throw Failure(fmt::format("Node \"{}\" could not be replaced.", name));
  }
  root_.TakeName(made, oldName);
  root_.undo().JoinLastTwoSwapped();
}

// --- The setup ---

struct Session::SetupState {
  struct Class {
    std::string name;
    qz::uchar level;
    qz::ushort count;
  };
  std::string folder;  // full path
  std::vector<Class> classes;

  void DropUnusable(SDSetupInterface& setup, std::vector<std::string>& notes) const;
  void KeepUsed(SDSetupInterface& setup, std::vector<std::string>& notes) const;
};

// Takes those loaded classes away whose name no file can have, alone or beside a class in use.
void Session::SetupState::DropUnusable(SDSetupInterface& setup,
                                       std::vector<std::string>& notes) const {
  for (const qz::string& loaded : setup.EnumerateQualityClasses()) {
    const bool clashes = std::any_of(classes.begin(), classes.end(), [&](const Class& known) {
      return known.count > 0 && loaded != known.name.c_str() &&
             SameText(known.name, Narrow(loaded));
    });
    if (!clashes && WhyNoFileName(Narrow(loaded)).empty()) continue;
    setup.RemoveQualityClass(loaded);
    notes.push_back(
        fmt::format("class \"{}\" is left out: no file can have its name here", Narrow(loaded)));
  }
}

// Gives classes that samples use their counts, and makes those that the file did not bring.
void Session::SetupState::KeepUsed(SDSetupInterface& setup, std::vector<std::string>& notes) const {
  for (const Class& known : classes) {
    if (known.count == 0) continue;
    if (setup.ProbeQualityClass(known.name.c_str())) {
      for (unsigned i = 0; i < known.count; ++i)
        setup.AddRef(known.name.c_str());
      continue;
    }
    qz::uchar level = known.level;
    for (int i = 0; i < kLevels && setup.ProbeQualityClass(level); ++i)
      level = static_cast<qz::uchar>(level + 1);
    setup.AddQualityClass(known.name.c_str(), level, known.count);
    notes.push_back(
        fmt::format("class \"{}\" stays, with level {}: samples use it", known.name, level));
  }
}

Session::SetupState Session::ReadSetup() const {
  SetupState state;
  state.folder = SampleFolder();
  for (const qz::string& name : setup().EnumerateQualityClasses()) {
    // Levels from 128 on come out negative.
    state.classes.push_back({Narrow(name),
                             static_cast<qz::uchar>(setup().GetQualityClassLevel(name)),
                             static_cast<qz::ushort>(root_.CountOfClass(Narrow(name)))});
  }
  return state;
}

// A reading that failed has left all classes as they were, or has cleared them and brought in some
// that nobody uses yet.
void Session::RestoreSetup(const SetupState& state) {
  for (const qz::string& name : setup().EnumerateQualityClasses())
    setup().RemoveQualityClass(name);
  for (const SetupState::Class& known : state.classes) {
    if (!setup().ProbeQualityClass(known.name.c_str())) {
      setup().AddQualityClass(known.name.c_str(), known.level, known.count);
    }
  }
  setup().SetSampleFolder(state.folder.c_str());
}

void Session::SaveSetupFile(const std::string& path, bool overwrite) {
  PendingFile file(path, overwrite);
  const qz::string name(file.path().c_str());
  if (!root_.setup()->GetTypeInterface()->Save(nullptr, &name)) {
    throw Failure(fmt::format("\"{}\": {}.", NativePath(path), root_.setup()->LastError()));
  }
  setupRunsAhead_ = true;  // the setup takes its files for covered, whatever file it was saved to
  Save();
  file.Commit();
}

std::vector<std::string> Session::LoadSetupFile(const std::string& path) {
  const SetupState before = ReadSetup();
  const qz::string name(path.c_str());
  if (!root_.setup()->GetTypeInterface()->Load(nullptr, &name)) {
    const std::string why = root_.setup()->LastError();
    RestoreSetup(before);
    throw Failure(fmt::format("\"{}\": {}.", NativePath(path), why),
                  "Nothing was changed. It has to be a file that save-setup wrote.");
  }
  setupRunsAhead_ = true;  // no sample's stamp is the setup's until the next save
  root_.set_changed(true);
  std::vector<std::string> notes;
  const std::string folder = SampleFolder();
  setup().SetSampleFolder(before.folder.c_str());
  try {
    SetSampleFolder(NativePath(folder));
  } catch (const Failure& failure) {
    notes.push_back(fmt::format("the sample folder stays: {}", failure.what()));
  }
  before.DropUnusable(setup(), notes);
  before.KeepUsed(setup(), notes);
  return notes;
}

}  // namespace samplehost
