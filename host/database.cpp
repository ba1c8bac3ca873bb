#include "host/database.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "host/failure.h"

namespace samplehost {

namespace {

constexpr int kApplicationId = 0x53446831;  // "SDh1"
constexpr int kSchemaVersion = 1;

constexpr const char* kTables =
    "CREATE TABLE setting(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE node(id INTEGER PRIMARY KEY, parent INTEGER, kind TEXT NOT NULL,"
    " name TEXT NOT NULL, locked INTEGER NOT NULL, classes TEXT NOT NULL);"
    "CREATE TABLE payload(node INTEGER PRIMARY KEY, data BLOB NOT NULL);";

const char* NameOfType(HDBSampleType type) {
  switch (type) {
    case HDB_SAMPLETYPE_RAW:
      return "raw";
    case HDB_SAMPLETYPE_COMPRESSED:
      return "compressed";
    case HDB_SAMPLETYPE_DEFAULT:
      break;
  }
  return "default";
}

HDBSampleType TypeOfName(const std::string& name) {
  if (name == "raw") return HDB_SAMPLETYPE_RAW;
  return name == "compressed" ? HDB_SAMPLETYPE_COMPRESSED : HDB_SAMPLETYPE_DEFAULT;
}

// Class names are UTF-8: the host takes no others.
std::string ClassesToText(const std::vector<std::string>& classes) {
  return nlohmann::json(classes).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::vector<std::string> ClassesFromText(const std::string& text) {
  std::vector<std::string> classes;
  const nlohmann::json list = nlohmann::json::parse(text, nullptr, false);
  if (!list.is_array()) return classes;
  for (const auto& name : list) {
    if (name.is_string()) classes.push_back(name.get<std::string>());
  }
  return classes;
}

void Bind(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

std::string Text(sqlite3_stmt* statement, int column) {
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  const int size = sqlite3_column_bytes(statement, column);
  return bytes != nullptr ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

MemoryStream::Bytes Blob(sqlite3_stmt* statement, int column) {
  const auto* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
  const int size = sqlite3_column_bytes(statement, column);
  return bytes != nullptr ? MemoryStream::Bytes(bytes, bytes + size) : MemoryStream::Bytes();
}

}  // namespace

void Database::StatementEnd::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Database::Database(const std::string& native, int openFlags) : path_(native) {
  const int result = sqlite3_open_v2(native.c_str(), &handle_, openFlags, nullptr);
  if (result != SQLITE_OK) {
    const std::string reason = sqlite3_errstr(result);
    sqlite3_close(handle_);
    throw Failure(fmt::format("The database \"{}\" could not be opened: {}.", native, reason));
  }
  sqlite3_extended_result_codes(handle_, 1);
  sqlite3_busy_timeout(handle_, 0);
}

Database::Database(Database&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)),
      path_(std::move(other.path_)),
      writeSetting_(std::move(other.writeSetting_)),
      writeNode_(std::move(other.writeNode_)),
      writePayload_(std::move(other.writePayload_)),
      deleteNode_(std::move(other.deleteNode_)),
      deletePayload_(std::move(other.deletePayload_)) {}

Database::~Database() {
  for (Statement* statement :
       {&writeSetting_, &writeNode_, &writePayload_, &deleteNode_, &deletePayload_}) {
    statement->reset();
  }
  sqlite3_close(handle_);
}

Database Database::Create(const std::string& native) {
  Database database(native, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_EXRESCODE);
  try {
    database.Lock();
    database.MakeTables();
    database.PrepareWrites();
  } catch (const Failure&) {
    std::error_code ignored;
    std::filesystem::remove(native, ignored);
    throw;
  }
  return database;
}

Database Database::Open(const std::string& native) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(native, error)) {
    throw Failure(fmt::format("There is no database \"{}\".", native),
                  "Make one with: samplehost new DB");
  }
  Database database(native, SQLITE_OPEN_READWRITE | SQLITE_OPEN_EXRESCODE);
  database.Lock();
  database.CheckIsOurs();
  database.PrepareWrites();
  return database;
}

// Takes the exclusive lock, and keeps it behind the end of the transaction.
void Database::Lock() {
  Run("PRAGMA locking_mode=EXCLUSIVE");
  Run("PRAGMA trusted_schema=OFF");
  Run("BEGIN EXCLUSIVE");
  Run("COMMIT");
}

void Database::CheckIsOurs() {
  if (Number("PRAGMA application_id") != kApplicationId) {
    throw Failure(fmt::format("\"{}\" is not a database of samplehost.", path_));
  }
  const int version = Number("PRAGMA user_version");
  if (version != kSchemaVersion) {
    throw Failure(fmt::format("\"{}\" has schema version {}; this program knows version {}.", path_,
                              version, kSchemaVersion));
  }
}

void Database::MakeTables() {
  Begin();
  Run(fmt::format("PRAGMA application_id={}", kApplicationId).c_str());
  Run(fmt::format("PRAGMA user_version={}", kSchemaVersion).c_str());
  Run(kTables);
  Commit();
}

void Database::PrepareWrites() {
  writeSetting_ = Prepare("INSERT OR REPLACE INTO setting(key, value) VALUES(?, ?)");
  writeNode_ = Prepare(
      "INSERT OR REPLACE INTO node(id, parent, kind, name, locked, classes)"
      " VALUES(?, ?, ?, ?, ?, ?)");
  writePayload_ = Prepare("INSERT OR REPLACE INTO payload(node, data) VALUES(?, ?)");
  deleteNode_ = Prepare("DELETE FROM node WHERE id = ?");
  deletePayload_ = Prepare("DELETE FROM payload WHERE node = ?");
}

void Database::Fail(const std::string& what) {
  const int code = sqlite3_extended_errcode(handle_);
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw Failure(fmt::format("The database \"{}\" is in use by another program.", path_),
                    "Wait for the other samplehost to end, then try again.");
    case SQLITE_NOTADB:
      throw Failure(fmt::format("\"{}\" is not a database of samplehost.", path_));
    case SQLITE_FULL:
      throw Failure(fmt::format("{}: the disk is full.", what), "Make room, then try again.");
    case SQLITE_READONLY:
    case SQLITE_PERM:
      throw Failure(fmt::format("{}: \"{}\" or its folder may not be written.", what, path_),
                    "Give yourself write permission on both.");
    default:
      throw Failure(fmt::format("{}: {} (SQLite code {}).", what, sqlite3_errmsg(handle_), code));
  }
}

void Database::Run(const char* sql) {
  if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    Fail("The database could not be used");
  }
}

Database::Statement Database::Prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr) != SQLITE_OK) {
    Fail("The database could not be read");
  }
  return Statement(statement);
}

bool Database::Step(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result != SQLITE_ROW && result != SQLITE_DONE) Fail("The database could not be read");
  return result == SQLITE_ROW;
}

int Database::Number(const char* sql) {
  const Statement statement = Prepare(sql);
  return Step(statement.get()) ? sqlite3_column_int(statement.get(), 0) : 0;
}

// Runs a prepared write and makes it ready for its next use.
void Database::Finish(const Statement& statement) {
  const int result = sqlite3_step(statement.get());
  sqlite3_reset(statement.get());
  sqlite3_clear_bindings(statement.get());
  if (result != SQLITE_DONE) Fail("The database could not be written");
}

Settings Database::ReadSettings() {
  Settings settings;
  const Statement statement = Prepare("SELECT key, value FROM setting");
  while (Step(statement.get())) {
    const std::string key = Text(statement.get(), 0);
    const std::string value = Text(statement.get(), 1);
    if (key == "default_type") settings.defaultType = TypeOfName(value);
    if (key == "only_default") settings.onlyDefault = value == "1";
  }
  return settings;
}

std::vector<StoredNode> Database::ReadNodes() {
  std::vector<StoredNode> nodes;
  const Statement statement = Prepare(
      "SELECT id, parent, kind, name, locked, classes, data"
      " FROM node LEFT JOIN payload ON payload.node = node.id ORDER BY id");
  while (Step(statement.get())) {
    StoredNode node;
    node.row.id = sqlite3_column_int64(statement.get(), 0);
    node.row.parent = sqlite3_column_int64(statement.get(), 1);
    node.row.kind = Text(statement.get(), 2);
    node.row.name = Text(statement.get(), 3);
    node.row.locked = sqlite3_column_int(statement.get(), 4) != 0;
    node.row.classes = ClassesFromText(Text(statement.get(), 5));
    node.payload = Blob(statement.get(), 6);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

void Database::Begin() {
  Run("BEGIN EXCLUSIVE");
}

void Database::Commit() {
  Run("COMMIT");
}

void Database::Rollback() {
  if (sqlite3_get_autocommit(handle_) != 0) return;  // SQLite has rolled back by itself
  sqlite3_exec(handle_, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Database::WriteSettings(const Settings& settings) {
  const std::pair<const char*, std::string> rows[] = {
      {"default_type", NameOfType(settings.defaultType)},
      {"only_default", settings.onlyDefault ? "1" : "0"}};
  for (const auto& [key, value] : rows) {
    Bind(writeSetting_.get(), 1, key);
    Bind(writeSetting_.get(), 2, value);
    Finish(writeSetting_);
  }
}

void Database::WriteNode(const NodeRow& row) {
  sqlite3_stmt* statement = writeNode_.get();
  sqlite3_bind_int64(statement, 1, row.id);
  if (row.parent != 0) sqlite3_bind_int64(statement, 2, row.parent);  // unbound is null
  Bind(statement, 3, row.kind);
  Bind(statement, 4, row.name);
  sqlite3_bind_int(statement, 5, row.locked ? 1 : 0);
  Bind(statement, 6, ClassesToText(row.classes));
  Finish(writeNode_);
}

void Database::WritePayload(std::int64_t id, const MemoryStream::Bytes& payload) {
  sqlite3_bind_int64(writePayload_.get(), 1, id);
  sqlite3_bind_blob64(writePayload_.get(), 2, payload.data(), payload.size(), SQLITE_STATIC);
  Finish(writePayload_);
}

void Database::DeleteNode(std::int64_t id) {
  for (const Statement* statement : {&deleteNode_, &deletePayload_}) {
    sqlite3_bind_int64(statement->get(), 1, id);
    Finish(*statement);
  }
}

}  // namespace samplehost
