// Session: an open database with its library and its nodes, from open to close.
//
// Saving: the setup node first, then the sample nodes, then the commit of one transaction. The
// setup believes from its own save on that its lists of files are covered by the database. After a
// save that failed behind that point the library never hears of a shutdown until a whole save has
// succeeded: it would delete files that the committed database names.
//
// What was not saved is dropped at the end, with the files it made.
#ifndef HOST_SESSION_H_
#define HOST_SESSION_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/database.h"
#include "host/library.h"
#include "host/nodes.h"

namespace samplehost {

struct NewDatabase {
  std::string path;                                  // full path of the database to make
  std::string folder = "samples";                    // native; relative to the database's folder
  std::vector<std::pair<std::string, int>> classes;  // name and level, 0 to 255
  Settings settings;
};

class Session {
 public:
  // Makes a database and its sample folder, saves and closes it. A failure leaves neither behind.
  static void Create(const std::string& libraryPath, const NewDatabase& wanted);

  // Opens the database at a full path and loads all its nodes. Failure where the database or its
  // setup node cannot be used; sample nodes that cannot be loaded are there, damaged.
  Session(const std::string& libraryPath, const std::string& path);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Root& root() { return root_; }
  SDSetupInterface& setup() const { return root_.setup()->setup(); }
  // Full path of the folder of the database, with its backslash: stored names are relative to it.
  const std::string& folder() const { return folder_; }
  const std::string& path() const { return path_; }
  // Full path of the sample folder.
  std::string SampleFolder() const;

  // A new, empty sample node that is not saved yet. `name` is free.
  Node& AddNode(const std::string& name);
  // A new node from the payload of a node that a worker process imported, with the worker's
  // description of that step. Its files are ours from here on, and go where no save covers them.
  // `name` is free.
  Node& AddImported(const std::string& name, const MemoryStream::Bytes& payload,
                    const std::string& description);
  // What the node's Save writes.
  static MemoryStream::Bytes PayloadOf(Node& node);
  // The node of that name, healthy or damaged; Failure where there is none.
  Node& Require(const std::string& name);
  // As Require; Failure for a damaged one too.
  Node& RequireHealthy(const std::string& name);

  // Failure for names that cannot be a class: files are named after classes.
  void AddClass(const std::string& name, int level);
  void RemoveClass(const std::string& name);
  // Takes (and makes) the folder for new samples. `native` is relative to the database's folder.
  void SetSampleFolder(const std::string& native);

  // Saves everything or, with a Failure, nothing. The files of nodes that changed are on the disk
  // before the database names them, unless the user has no need of that.
  void Save();
  void set_durable(bool durable) { durable_ = durable; }
  bool durable() const { return durable_; }

  // Takes the last step back and tells what it was. Failure while the last save stands half: the
  // library would take files of the committed database for files that nobody needs.
  std::string Undo();
  // Failure with the same reason; for whatever else goes back to older files.
  void RequireWholeSave() const;

  // Writes the setup to a node file at a full path that does not exist, and saves all.
  void SaveSetupFile(const std::string& path, bool overwrite);
  // Takes classes and sample folder from a node file; what is in use stays. Undo and the tidying at
  // the end wait for a whole save from here on. Gives notes for the user.
  std::vector<std::string> LoadSetupFile(const std::string& path);
  // Saves all, then the node to a node file.
  void SaveNodeFile(Node& node, const std::string& path, bool overwrite);
  // Puts what a node file holds in the place of the node `name`, or makes that node. `from` is the
  // full path of the database that the file was saved from; empty: ours. The node gets files of its
  // own: those that the file names stay another's.
  void LoadNodeFile(const std::string& name, const std::string& path, const std::string& from);
  // A new node with all of `source`.
  void CopyNode(Node& source, const std::string& name);

 private:
  friend struct SessionTestAccess;

  Session(const std::string& libraryPath, const std::string& path, Database database,
          const Settings& settings);
  void LoadNodes();
  void LoadSetup(const StoredNode& stored);
  void LoadSample(const StoredNode& stored);
  void SaveSetup();
  void SaveNode(Node& node);
  void SyncChanged() const;
  void ForgetWritten();
  void DropHandedOver();
  void MakeTree();
  struct SetupState;
  SetupState ReadSetup() const;
  void RestoreSetup(const SetupState& state);
  void RequireRoomForClasses(Node& source) const;
  Node& CopyInto(const std::string& name, Node& source);

  std::string path_;
  std::string folder_;
  SampleLibrary library_;
  Database database_;
  Root root_;
  std::int64_t nextId_ = 1;
  std::vector<std::string> handedOver_;  // full paths of raw files of workers; no save covers them
  std::vector<const Node*> written_;     // nodes whose payload the running save has written
  bool durable_ = true;
  bool setupRunsAhead_ = false;  // the setup's save stands, and no whole save behind it does
};

}  // namespace samplehost

#endif  // HOST_SESSION_H_
