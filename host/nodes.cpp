#include "host/nodes.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "common/qzassert.h"
#include "host/failure.h"
#include "host/paths.h"

namespace samplehost {

namespace {

// The library counts a class's references in 16 bits, without a guard.
constexpr unsigned kMaxClassReferences = 65535;

// The one change of a node that leaves its files alone.
constexpr qz::ulong kSelectionChange = 6;

}  // namespace

// --- Node ----------------------------------------------------------------------------------------

Node::Node(Root& root, NodeKind kind, NodeRow row, HDBAccessBaseInterface* access)
    : root_(root), kind_(kind), row_(std::move(row)), access_(access) {}

Node::~Node() {
  DropReferences();
  if (access_ != nullptr) root_.plugin().Release(kind_, access_);
  QZ_ASSERT(referencing_.empty(), "a node outlives those that reference it");
}

SDTarvaneAccessInterface& Node::sample() const {
  QZ_ASSERT(kind_ == NodeKind::kSample, "kind_ == NodeKind::kSample");
  return *static_cast<SDTarvaneAccessInterface*>(access_);
}

SDSetupInterface& Node::setup() const {
  QZ_ASSERT(kind_ == NodeKind::kSetup, "kind_ == NodeKind::kSetup");
  return *static_cast<SDSetupInterface*>(access_);
}

std::string Node::LastError(qz::ulong& code) const {
  qz::string text;
  code = 0;
  access_->GetLastError(text, code);
  return Narrow(text);
}

std::string Node::LastError() const {
  qz::ulong code = 0;
  return LastError(code);
}

void Node::DropReferences() {
  for (const Reference& reference : references_) {
    reference.target->referencing_.erase(reference.place);
  }
  references_.clear();
}

bool Node::RequestModifyData() {
  return !row_.locked || loading_;
}

bool Node::BeginModify() {
  if (!RequestModifyData()) return false;
  ++openModifications_;
  return true;
}

void Node::EndModify(HDBUndoInfo* info) {
  QZ_ASSERT(openModifications_ > 0, "EndModify without BeginModify");
  --openModifications_;
  if (info == nullptr) return;
  root_.changed_ = true;
  if (info->ID != kSelectionChange) checkInOvertaken = true;
  if (root_.undoDisabled_ == 0) {
    try {
      UndoStep step;
      step.record = *info;
      step.node = row_.id;
      step.nodeName = row_.name;
      step.classes = row_.classes;
      root_.undo_.Push(step, *access_);
      return;
    } catch (const std::exception&) {
      // A change that cannot be undone is better than no change.
    }
  }
  access_->DiscardUndoInfo(info);
}

bool Node::AddReference(HDBBaseNodeInterface* node) {
  if (node == nullptr) return false;
  auto* target = static_cast<Node*>(node);
  const auto known = std::find_if(references_.begin(), references_.end(),
                                  [&](const Reference& r) { return r.target == target; });
  if (known != references_.end()) return true;
  try {
    references_.reserve(references_.size() + 1);
    const auto place = target->referencing_.insert(target->referencing_.end(), this);
    references_.push_back({target, place});
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

const std::list<HDBBaseNodeInterface*>& Node::GetNodesReferencing() const {
  return referencing_;
}

HDBAccessBaseInterface* Node::GetTypeInterface() const {
  return access_;
}

PGIBaseInterface* Node::GetBaseInterface() const {
  return root_.plugin().base();
}

HDBRootInterface* Node::GetRootInterface() const {
  return &root_;
}

bool Node::IsType(const HDBTypeStorage& type) const {
  return type == HDBTypeStorage{TypeOf(kind_)};
}

qz::string Node::GetName() const {
  return row_.name.c_str();
}

// --- Root ----------------------------------------------------------------------------------------

Root::Root(SampleLibrary& library, const std::string& filename, const Settings& settings)
    : library_(library), filename_(filename.c_str()), settings_(settings) {}

Root::~Root() {
  Release();
}

Node& Root::Add(NodeKind kind, const NodeRow& row) {
  auto node = std::make_unique<Node>(*this, kind, row, library_.Create(kind));
  Node& added = *node;
  if (kind == NodeKind::kSetup) {
    setup_ = std::move(node);
  } else {
    samples_.push_back(std::move(node));
    byName_.emplace(LowerCase(row.name), &added);
    for (const std::string& name : row.classes)
      ++classCounts_[name];
  }
  bool hasOneAlready = false;
  if (!added.access_->Init(&added, hasOneAlready)) added.MarkDamaged(added.LastError());
  return added;
}

Node* Root::Find(const std::string& name) const {
  const auto found = byName_.find(LowerCase(name));
  return found != byName_.end() ? found->second : nullptr;
}

Node* Root::FindById(std::int64_t id) const {
  const auto found = std::find_if(samples_.begin(), samples_.end(),
                                  [id](const auto& node) { return node->row_.id == id; });
  return found != samples_.end() ? found->get() : nullptr;
}

std::string Root::FreeName(const std::string& wanted) {
  if (Find(wanted) == nullptr) return wanted;
  // Where the count stood last time is remembered: a thousand equal names take a thousand steps.
  unsigned& number = nextNumber_.try_emplace(LowerCase(wanted), 2).first->second;
  for (;;) {
    const std::string name = fmt::format("{}-{}", wanted, number++);
    if (Find(name) == nullptr) return name;
  }
}

unsigned Root::CountOfClass(const std::string& qualityClass) const {
  const auto found = classCounts_.find(qualityClass);
  return found != classCounts_.end() ? found->second : 0;
}

bool Root::CanHoldClass(const std::string& qualityClass) const {
  return CountOfClass(qualityClass) < kMaxClassReferences;
}

bool Root::HoldClass(Node& node, const std::string& qualityClass) {
  std::vector<std::string>& classes = node.row_.classes;
  if (std::find(classes.begin(), classes.end(), qualityClass) != classes.end()) return true;
  if (!CanHoldClass(qualityClass)) return false;
  if (!setup_->setup().AddRef(qualityClass.c_str())) return false;
  classes.push_back(qualityClass);
  ++classCounts_[qualityClass];
  return true;
}

void Root::ForgetClass(Node& node, const std::string& qualityClass) {
  if (std::erase(node.row_.classes, qualityClass) > 0) --classCounts_[qualityClass];
}

bool Root::DeleteNode(HDBBaseNodeInterface* node) {
  auto* deleted = static_cast<Node*>(node);
  if (deleted == nullptr || deleted->kind_ != NodeKind::kSample || deleted->row_.locked) {
    return false;
  }
  try {
    if (undoDisabled_ != 0) {
      undo_.DiscardNode(deleted->row_.id, *deleted->access_);
    } else if (!deleted->damaged() && !GatherUndo(*deleted)) {
      return false;
    }
    changed_ = true;
    for (const std::string& name : deleted->row_.classes) {
      setup_->setup().RemoveRef(name.c_str());
      --classCounts_[name];
    }
    deletedIds.push_back(deleted->row_.id);
    Forget(*deleted);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

bool Root::GatherUndo(Node& node) {
  UndoStep step;
  step.record.description = ("delete node " + node.name()).c_str();
  step.node = node.row_.id;
  step.nodeName = node.row_.name;
  step.classes = node.row_.classes;
  step.deleted = node.row_;
  if (!node.access_->GatherDeleteInfo(&step.record)) return false;
  try {
    undo_.Push(step, *node.access_);
  } catch (const std::exception&) {
    node.access_->DiscardUndoInfo(&step.record);
    return false;
  }
  return true;
}

// Takes the node out of the tree. A healthy one's object goes at once and marks its files; a
// damaged one's stays to the end, so that it marks none.
void Root::Forget(Node& node) {
  const auto place = std::find_if(samples_.begin(), samples_.end(),
                                  [&](const auto& owned) { return owned.get() == &node; });
  const auto named = byName_.find(LowerCase(node.name()));
  if (named != byName_.end() && named->second == &node) byName_.erase(named);
  node.DropReferences();
  if (node.damaged()) {
    retired_.splice(retired_.end(), samples_, place);
  } else {
    samples_.erase(place);
  }
}

void Root::Release() {
  DiscardUndo();
  samples_.clear();
  retired_.clear();
  byName_.clear();
  setup_.reset();
}

}  // namespace samplehost
