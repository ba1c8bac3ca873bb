// Database: the file of a database, which is SQLite. It holds settings, the tree of nodes and one
// payload a node, and knows nothing of what a payload means.
//
// Tables of schema version 1 (the application id marks the file as ours):
//
//   setting  key TEXT, value TEXT         "default_type" default|raw|compressed,
//                                         "only_default" 0|1
//   node     id, parent, kind, name,      kind: root, setup or sample; parent: id of a node, null
//            locked, classes              for the root; classes: a JSON list of the quality classes
//                                         that the node holds references of
//   payload  node, data                   what the node's Save wrote, type chunk included
//
// One opener at a time: the file is locked from open to close, by the kernel, so that the lock goes
// with the process however it ends. All changes are made between Begin and Commit. Failures of
// SQLite are thrown, in words.
#ifndef HOST_DATABASE_H_
#define HOST_DATABASE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PublicIncludes/kelvo_data.h"
#include "host/stream.h"

struct sqlite3;
struct sqlite3_stmt;

namespace samplehost {

struct Settings {
  HDBSampleType defaultType = HDB_SAMPLETYPE_DEFAULT;
  bool onlyDefault = false;
};

struct NodeRow {
  std::int64_t id = 0;
  std::int64_t parent = 0;  // 0: none
  std::string kind;
  std::string name;
  bool locked = false;
  std::vector<std::string> classes;

  bool operator==(const NodeRow&) const = default;
};

struct StoredNode {
  NodeRow row;
  MemoryStream::Bytes payload;
};

class Database {
 public:
  // Makes a new database in the file `native`, which must not exist.
  static Database Create(const std::string& native);
  // Opens and locks an existing one.
  static Database Open(const std::string& native);
  ~Database();
  Database(Database&& other) noexcept;
  Database& operator=(Database&&) = delete;

  Settings ReadSettings();
  // In the order in which they were made: root, setup, samples.
  std::vector<StoredNode> ReadNodes();

  void Begin();
  void Commit();
  // Drops what was written since Begin. Never fails: SQLite has dropped it where it cannot.
  void Rollback();

  void WriteSettings(const Settings& settings);
  void WriteNode(const NodeRow& row);
  void WritePayload(std::int64_t id, const MemoryStream::Bytes& payload);
  void DeleteNode(std::int64_t id);

 private:
  friend struct SessionTestAccess;

  struct StatementEnd {
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, StatementEnd>;

  Database(const std::string& native, int openFlags);
  void Lock();
  void CheckIsOurs();
  void MakeTables();
  void PrepareWrites();
  void Run(const char* sql);
  int Number(const char* sql);
  Statement Prepare(const char* sql);
  bool Step(sqlite3_stmt* statement);
  void Finish(const Statement& statement);
  [[noreturn]] void Fail(const std::string& what);

  sqlite3* handle_ = nullptr;
  std::string path_;
  Statement writeSetting_, writeNode_, writePayload_, deleteNode_, deletePayload_;
};

}  // namespace samplehost

#endif  // HOST_DATABASE_H_
