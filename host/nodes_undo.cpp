// Taking steps back: what the host does around the library's part of it.
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/advice.h"
#include "host/failure.h"
#include "host/nodes.h"
#include "host/paths.h"

namespace samplehost {

namespace {

bool Has(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

// --- Class references ---

void Root::RecountClasses(Node& node) {
  std::vector<std::string> now;
  for (const qz::string& name : node.sample().GetQualityClasses())
    now.push_back(Narrow(name));
  const std::vector<std::string> before = node.row_.classes;
  for (const std::string& name : before) {
    if (Has(now, name)) continue;
    setup_->setup().RemoveRef(name.c_str());
    ForgetClass(node, name);
  }
  for (const std::string& name : now)
    HoldClass(node, name);
}

// --- Names ---

void Root::TakeName(Node& node, const std::string& name) {
  byName_.emplace(LowerCase(name), &node);
  const std::string before = std::exchange(node.row_.name, name);
  if (LowerCase(before) != LowerCase(name)) byName_.erase(LowerCase(before));
  changed_ = true;
}

void Root::Rename(Node& node, const std::string& name) {
  UndoStep step;
  step.record.description = "rename node";
  step.node = node.row_.id;
  step.nodeName = node.row_.name;
  step.classes = node.row_.classes;
  step.renamedFrom = node.row_.name;
  undo_.Push(step, *node.access_);
  TakeName(node, name);
}

// --- Undo ---

void Root::NoteImported(Node& node, const std::string& description) {
  UndoStep step;
  step.record.description = description.c_str();
  step.node = node.row_.id;
  step.nodeName = node.row_.name;
  step.madeNode = true;
  step.cameWhole = true;
  undo_.Push(step, *node.access_);
  changed_ = true;
}

std::string Root::Undo() {
  if (undo_.empty()) throw Failure("There is nothing to undo.");
  // All of what goes back together is looked at before any of it goes.
  for (auto step = undo_.steps().rbegin(); step != undo_.steps().rend(); ++step) {
    CheckUndo(*step);
    if (!step->joined) break;
  }
  const std::string what =
      fmt::format("{} ({})", Narrow(undo_.last().record.description), undo_.last().nodeName);
  bool more = true;
  while (more) {
    UndoStep step = undo_.TakeLast();
    const bool done = Revert(step);
    Discard(step.record);
    if (!done) {
      throw Failure(fmt::format("\"{}\" could not be undone whole.", what),
                    "Check room and write permission in the sample folder. What was saved last is "
                    "kept: quit --discard goes back to it.");
    }
    more = step.joined;
  }
  return what;
}

void Root::UndoSince(std::uint64_t pushed) {
  for (std::uint64_t left = undo_.pushed() - pushed; left > 0 && !undo_.empty(); --left) {
    UndoStep step = undo_.TakeLast();
    Revert(step);
    Discard(step.record);
  }
}

std::string Root::ForgetLast() {
  UndoStep step = undo_.TakeLast();
  Discard(step.record);
  return Narrow(step.record.description);
}

void Root::CheckUndo(const UndoStep& step) const {
  for (const std::string& name : step.classes) {
    if (!setup_->setup().ProbeQualityClass(name.c_str())) {
      throw Failure(fmt::format("Undo needs the class \"{}\", which is no longer there.", name),
                    fmt::format("Make it again: class add {}=LEVEL", name));
    }
    const Node* holder = FindById(step.node);
    const bool holds = holder != nullptr && Has(holder->row_.classes, name);
    if (!holds && !CanHoldClass(name)) {
      throw Failure(fmt::format("Class \"{}\" has as many samples as it can count.", name));
    }
  }
  const Node* node = FindById(step.node);
  if (node == nullptr) return;
  if (node->row_.locked) {
    throw Failure(fmt::format("Node \"{}\" is locked.", node->name()),
                  AdviceFor(SDAccessInterface::ERROR_READONLY));
  }
  if (!node->damaged() && node->sample().IsCheckedOut()) {
    throw Failure(fmt::format("Node \"{}\" is checked out.", node->name()),
                  AdviceFor(SDAccessInterface::ERROR_ISCHECKEDOUT));
  }
}

// The library's part runs once, and the node can be gone behind it: undo of a copy deletes it.
bool Root::Revert(UndoStep& step) {
  try {
    changed_ = true;
    Node* node = step.deleted ? &Remake(*step.deleted) : FindById(step.node);
    if (node == nullptr) return false;
    if (step.renamedFrom) {
      const bool onlyCase = SameText(*step.renamedFrom, node->name());
      TakeName(*node, onlyCase ? *step.renamedFrom : FreeName(*step.renamedFrom));
      return true;
    }
    const bool done = step.cameWhole || node->access_->DoUndo(&step.record);
    node = FindById(step.node);
    if (node == nullptr) return done;
    node->checkInOvertaken = true;
    RecountClasses(*node);
    if (!done || !step.madeNode) return done;
    DisableUndo();
    const bool deleted = DeleteNode(node);
    EnableUndo();
    return deleted;
  } catch (const std::exception&) {
    return false;
  }
}

// A deleted node comes back under its id, so that the steps before its deletion are its own again.
// It holds no class yet: its samples come behind this.
Node& Root::Remake(NodeRow row) {
  row.name = FreeName(row.name);
  row.classes.clear();
  Node& node = Add(NodeKind::kSample, row);
  std::erase(deletedIds, row.id);
  return node;
}

// Records go while there still is a setup node; any sample node's object will do, also one that
// was never bound to a node.
void Root::Discard(HDBUndoInfo& record) {
  if (!samples_.empty()) {
    samples_.front()->access_->DiscardUndoInfo(&record);
    return;
  }
  try {
    HDBAccessBaseInterface* helper = library_.Create(NodeKind::kSample);
    helper->DiscardUndoInfo(&record);
    library_.Release(NodeKind::kSample, helper);
  } catch (const Failure&) {
    // No memory for a helper: the record's memory stays taken.
  }
}

void Root::DiscardUndo() {
  while (!undo_.empty()) {
    UndoStep step = undo_.TakeLast();
    Discard(step.record);
  }
}

// --- Hidden nodes ---

std::unique_ptr<Node> Root::MakeHidden(std::string& why) {
  NodeRow row;
  auto node =
      std::make_unique<Node>(*this, NodeKind::kSample, row, library_.Create(NodeKind::kSample));
  bool hasOneAlready = false;
  if (node->access_->Init(node.get(), hasOneAlready)) return node;
  why = node->LastError();
  ReleaseQuietly(std::move(node));
  return nullptr;
}

// What goes during a shutdown marks no file.
void Root::ReleaseQuietly(std::unique_ptr<Node> node) {
  const bool before = std::exchange(shutdown_, true);
  node.reset();
  shutdown_ = before;
}

}  // namespace samplehost
