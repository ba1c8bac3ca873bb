// The database contract: how the host drives a node of the library (HDBAccessBaseInterface), and
// what the library calls back (HDBBaseNodeInterface, HDBRootInterface).
//
// The host calls from one thread at a time, and the library calls back on that thread. Nothing
// throws across these interfaces. Operations stand in slot order.
#ifndef PUBLICINCLUDES_KELVO_DATA_H_
#define PUBLICINCLUDES_KELVO_DATA_H_

#include <list>

#include "PublicIncludes/kelvo_plugin.h"
#include "common/qzclasses.h"
#include "diskio/diskio.h"

class HDBAccessBaseInterface;
class HDBBaseNodeInterface;
class HDBRootInterface;

// One undoable step. The host copies the record at EndModify, owns `data` from then on, and gives
// the record back for DoUndo and, once, for DiscardUndoInfo, which frees `data`.
struct HDBUndoInfo {
  qz::ulong ID = 0;
  void* data = nullptr;
  qz::string description;
};

enum HDBIDType {
  ID_TYPE_SAMPLE = 0,
  ID_TYPE_MACRO = 1,
  ID_TYPE_TABLE = 2,
  ID_TYPE_COMMON = 3,
  ID_TYPE_SOUND = 4
};

enum HDBSampleType {
  HDB_SAMPLETYPE_DEFAULT = 0,
  HDB_SAMPLETYPE_RAW = 1,
  HDB_SAMPLETYPE_COMPRESSED = 2
};

// The behaviour of a node, given by the library.
class HDBAccessBaseInterface {
 public:
  // Binds the object to its node; called once, ahead of everything else. The setup node's comes
  // ahead of any sample node's. `signularTypeDublicated` tells that the database has its one node
  // of this kind already.
  virtual bool Init(HDBBaseNodeInterface* _baseNode, bool& signularTypeDublicated) = 0;
  // Fills this new node from `node`, with files of its own.
  virtual bool Copy(const HDBBaseNodeInterface* node) = 0;
  // With a null `name` the host's stream is used: Load starts behind the type chunk, which the host
  // has read; Save writes the type chunk too. With a name, `file` is ignored and a node file of
  // that name is read or written; a Load is then a change that can be undone, and the host has
  // opened the modification around it, which the library closes on success only.
  virtual bool Load(DIOFile* file, const qz::string* name) = 0;
  virtual bool Save(DIOFile* file, const qz::string* name) const = 0;
  virtual bool DoUndo(HDBUndoInfo* info) = 0;
  // Frees what the record holds; no file is touched.
  virtual bool DiscardUndoInfo(HDBUndoInfo* info) const = 0;
  // Fills the record for the undo of a deletion, and marks the node's files. Called ahead of the
  // deletion of a node.
  virtual bool GatherDeleteInfo(HDBUndoInfo* info) = 0;
  // The last failure's text and code; true if there is a failure to report.
  virtual bool GetLastError(qz::string& text, qz::ulong& code) const = 0;
  virtual bool Move(HDBBaseNodeInterface* node, HDBBaseNodeInterface* newParent) = 0;
  // False where the node may not be renamed now. The host does the renaming.
  virtual bool Rename(HDBBaseNodeInterface* node, const qz::string& oldname) = 0;
  virtual bool ParentHasBeenRenamed() = 0;
  virtual HDBIDType GetRefType() const = 0;

 protected:
  HDBAccessBaseInterface() = default;
  ~HDBAccessBaseInterface() = default;
  HDBAccessBaseInterface(const HDBAccessBaseInterface&) = default;
  HDBAccessBaseInterface& operator=(const HDBAccessBaseInterface&) = default;
};

// A node of the host's tree, as the library sees it.
class HDBBaseNodeInterface {
 public:
  // May this node change?
  virtual bool RequestModifyData() = 0;
  // Opens a change; false refuses it, and nothing is to be closed then.
  virtual bool BeginModify() = 0;
  // Closes the change with its undo record, which the host copies, or with null: nothing to undo.
  virtual void EndModify(HDBUndoInfo* info) = 0;
  // From here on `node` lists this node in GetNodesReferencing, until this node goes.
  virtual bool AddReference(HDBBaseNodeInterface* node) = 0;
  virtual const std::list<HDBBaseNodeInterface*>& GetNodesReferencing() const = 0;
  // The node's object of the library, which the host owns.
  virtual HDBAccessBaseInterface* GetTypeInterface() const = 0;
  virtual PGIBaseInterface* GetBaseInterface() const = 0;
  virtual HDBRootInterface* GetRootInterface() const = 0;
  virtual bool IsType(const HDBTypeStorage& type) const = 0;
  virtual qz::string GetName() const = 0;

 protected:
  HDBBaseNodeInterface() = default;
  ~HDBBaseNodeInterface() = default;
  HDBBaseNodeInterface(const HDBBaseNodeInterface&) = default;
  HDBBaseNodeInterface& operator=(const HDBBaseNodeInterface&) = default;
};

// The root of the host's database.
class HDBRootInterface {
 public:
  virtual HDBBaseNodeInterface* GetSampleSetupNode() const = 0;
  // Null clears.
  virtual void SetSampleSetupNode(HDBBaseNodeInterface* node) = 0;
  // Full path of the database file.
  virtual qz::string GetFilename() const = 0;
  // Full path of the database whose data is being loaded. Equal to GetFilename, exactly, where
  // stored names are relative to the folder of this database.
  virtual qz::string GetCurrentLoadLocation() const = 0;
  // The whole database is closing behind a whole save: files that no saved state needs may go.
  virtual bool IsShutDownActive() const = 0;
  virtual HDBSampleType GetDefaultSampleType() const = 0;
  // New samples take the default type, whatever format was asked for.
  virtual bool GetOnlyDefaultSampleType() const = 0;
  virtual void DisableUndo() = 0;
  virtual void EnableUndo() = 0;
  virtual bool DeleteNode(HDBBaseNodeInterface* node) = 0;

 protected:
  HDBRootInterface() = default;
  ~HDBRootInterface() = default;
  HDBRootInterface(const HDBRootInterface&) = default;
  HDBRootInterface& operator=(const HDBRootInterface&) = default;
};

#endif  // PUBLICINCLUDES_KELVO_DATA_H_
