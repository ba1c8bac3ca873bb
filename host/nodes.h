// The tree of a database as the library sees it: Root and Node implement the two interfaces that
// the library calls back on. Nothing that it calls throws.
//
// Ownership: the root owns its nodes; a node owns its object of the library. Objects of nodes that
// left the tree are kept until the end (Root::Release): an object that goes outside a shutdown
// marks its files for deletion, and the files of a damaged node are still those of its payload.
//
// Class references: a node holds one reference for each of its quality classes. The host takes it
// when the node gains a sample of the class, and gives it back when it loses the sample or the node
// goes; the removal of a single sample gives it back by itself.
#ifndef HOST_NODES_H_
#define HOST_NODES_H_

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "host/database.h"
#include "host/library.h"
#include "host/stream.h"
#include "host/undo.h"

namespace samplehost {

class Root;

class Node final : public HDBBaseNodeInterface {
 public:
  // `access` is the node's object of the library, which the node owns from here on.
  Node(Root& root, NodeKind kind, NodeRow row, HDBAccessBaseInterface* access);
  ~Node();

  NodeKind kind() const { return kind_; }
  const NodeRow& row() const { return row_; }
  const std::string& name() const { return row_.name; }
  // The node's object as what it is; only for a node of that kind.
  SDTarvaneAccessInterface& sample() const;
  SDSetupInterface& setup() const;

  void set_locked(bool locked) { row_.locked = locked; }

  // Native path of the folder that the node was last checked out to.
  std::string checkOutFolder;
  // The node changed since its last check-in: the way back from that would lose the change.
  bool checkInOvertaken = false;

  // Set where the node could not be loaded: why, as the user reads it. Its payload is then kept as
  // it is, and its object is neither saved nor asked for anything.
  bool damaged() const { return !damage_.empty(); }
  const std::string& damage() const { return damage_; }
  void MarkDamaged(const std::string& reason) { damage_ = reason; }

  // What the database holds for this node as far as the host knows; empty where it does not.
  MemoryStream::Bytes stored;
  NodeRow storedRow;

  // While the host loads the node, it may bring derived files up to date, locked or not.
  void set_loading(bool loading) { loading_ = loading; }

  // The library's last failure on this node, with its code. "Ok" and 0 where there is none.
  std::string LastError(qz::ulong& code) const;
  std::string LastError() const;

  // Takes the node out of the lists of the nodes that it references.
  void DropReferences();

  // HDBBaseNodeInterface
  bool RequestModifyData() override;
  bool BeginModify() override;
  void EndModify(HDBUndoInfo* info) override;
  bool AddReference(HDBBaseNodeInterface* node) override;
  const std::list<HDBBaseNodeInterface*>& GetNodesReferencing() const override;
  HDBAccessBaseInterface* GetTypeInterface() const override;
  PGIBaseInterface* GetBaseInterface() const override;
  HDBRootInterface* GetRootInterface() const override;
  bool IsType(const HDBTypeStorage& type) const override;
  qz::string GetName() const override;

 private:
  friend class Root;

  // Where this node stands in the list of a node that it references: it leaves that list without a
  // search, so that a tree of thousands comes down in linear time.
  struct Reference {
    Node* target;
    std::list<HDBBaseNodeInterface*>::iterator place;
  };

  Root& root_;
  NodeKind kind_;
  NodeRow row_;
  HDBAccessBaseInterface* access_;
  std::string damage_;
  bool loading_ = false;
  int openModifications_ = 0;
  std::list<HDBBaseNodeInterface*> referencing_;
  std::vector<Reference> references_;
};

class Root final : public HDBRootInterface {
 public:
  // `filename` is the full path of the database.
  Root(SampleLibrary& library, const std::string& filename, const Settings& settings);
  ~Root();
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  SampleLibrary& plugin() const { return library_; }
  const Settings& settings() const { return settings_; }
  UndoList& undo() { return undo_; }
  const std::list<std::unique_ptr<Node>>& samples() const { return samples_; }

  // Is there anything that a save would have to write? What the host changes by itself it marks.
  bool changed() const { return changed_; }
  void set_changed(bool changed) { changed_ = changed; }
  // Null until the setup node was made.
  Node* setup() const { return setup_.get(); }

  // Makes a node and binds its object. Where the binding fails, the node is in the tree, damaged.
  // The setup node comes first.
  Node& Add(NodeKind kind, const NodeRow& row);
  // By name; a name in another case is taken where there is no exact one. Null for none.
  Node* Find(const std::string& name) const;
  Node* FindById(std::int64_t id) const;
  // `wanted`, or where that is taken `wanted` with the first free number from 2 on behind it.
  std::string FreeName(const std::string& wanted);

  // Takes (once) the node's reference of a class; false where the class can count no more.
  bool HoldClass(Node& node, const std::string& qualityClass);
  bool CanHoldClass(const std::string& qualityClass) const;
  unsigned CountOfClass(const std::string& qualityClass) const;
  // Forgets a reference that the library gave back itself.
  void ForgetClass(Node& node, const std::string& qualityClass);
  // Takes and gives back references so that they are those of the samples that the node has now.
  void RecountClasses(Node& node);

  // Gives a healthy or damaged node another name, which is free; can be undone.
  void Rename(Node& node, const std::string& name);

  // Makes the coming of a node that a worker imported a step of its own, which takes it away again.
  void NoteImported(Node& node, const std::string& description);

  // Takes the last step back, with those that are joined to it, and tells what it was. Failure
  // where it cannot be taken back now (the step stays) or where the library fails (it is gone).
  std::string Undo();
  // Takes back what came since the list had counted `pushed` steps.
  void UndoSince(std::uint64_t pushed);
  // Forgets the newest step without taking it back; gives its description.
  std::string ForgetLast();
  // Lets a node take the name of one that it replaces.
  void TakeName(Node& node, const std::string& name);

  // A node outside the tree that is not saved; it can reach the setup. Null with `why` where it
  // cannot be bound. It goes through ReleaseQuietly, so that its files stay unmarked: they are
  // another's.
  std::unique_ptr<Node> MakeHidden(std::string& why);
  void ReleaseQuietly(std::unique_ptr<Node> node);
  // Full path of the database that the nodes loaded from here on were saved from; empty: ours.
  void set_load_location(const std::string& path) { loadLocation_ = path.c_str(); }

  // Ids of the nodes that left the tree since the last save, saved ones or not.
  std::vector<std::int64_t> deletedIds;

  // What the library hears as the shutdown of the database.
  void set_shutdown(bool active) { shutdown_ = active; }
  // Gives all objects back: undo records, sample nodes, then the setup node.
  void Release();

  // HDBRootInterface
  HDBBaseNodeInterface* GetSampleSetupNode() const override { return registeredSetup_; }
  void SetSampleSetupNode(HDBBaseNodeInterface* node) override { registeredSetup_ = node; }
  qz::string GetFilename() const override { return filename_; }
  qz::string GetCurrentLoadLocation() const override {
    return loadLocation_.empty() ? filename_ : loadLocation_;
  }
  bool IsShutDownActive() const override { return shutdown_; }
  HDBSampleType GetDefaultSampleType() const override { return settings_.defaultType; }
  bool GetOnlyDefaultSampleType() const override { return settings_.onlyDefault; }
  void DisableUndo() override { ++undoDisabled_; }
  void EnableUndo() override { --undoDisabled_; }
  // Removes a sample node, with an undo record unless undo is disabled: then it is gone for good,
  // and its records with it. False for a locked node and where memory ran out. The files of a
  // damaged node stay: nobody knows which are its own.
  bool DeleteNode(HDBBaseNodeInterface* node) override;

 private:
  friend class Node;

  void Forget(Node& node);
  bool GatherUndo(Node& node);
  void DiscardUndo();
  void Discard(HDBUndoInfo& record);
  void CheckUndo(const UndoStep& step) const;
  bool Revert(UndoStep& step);
  Node& Remake(NodeRow row);

  SampleLibrary& library_;
  qz::string filename_;
  qz::string loadLocation_;
  Settings settings_;
  bool changed_ = false;
  HDBBaseNodeInterface* registeredSetup_ = nullptr;
  bool shutdown_ = false;
  int undoDisabled_ = 0;
  UndoList undo_;
  std::unique_ptr<Node> setup_;
  std::list<std::unique_ptr<Node>> samples_;
  std::list<std::unique_ptr<Node>> retired_;
  std::unordered_map<std::string, Node*> byName_;  // by lower-case name
  std::unordered_map<std::string, unsigned> nextNumber_;
  std::map<std::string, unsigned> classCounts_;
};

}  // namespace samplehost

#endif  // HOST_NODES_H_
