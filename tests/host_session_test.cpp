// What keeps data safe in an open database: saves that fail at every place, nodes that cannot be
// loaded, a second opener, a disk that is full.
#include <sqlite3.h>

#include "host/failure.h"
#include "host/session.h"
#include "tests/host_support.h"

namespace samplehost {

struct SessionTestAccess {
  static sqlite3* Handle(Session& session) { return session.database_.handle_; }
};

}  // namespace samplehost

namespace {

using namespace host_test;
using samplehost::Failure;
using samplehost::Session;
using samplehost::SessionTestAccess;

// Runs one statement on the database, which no program has open, and gives its first column.
std::string Sql(const std::string& database, const std::string& statement,
                const std::string& blob = {}) {
  sqlite3* handle = nullptr;
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
  EXPECT_EQ(sqlite3_prepare_v2(handle, statement.c_str(), -1, &prepared, nullptr), SQLITE_OK)
      << sqlite3_errmsg(handle);
  sqlite3_bind_blob(prepared, 1, blob.data(), static_cast<int>(blob.size()), SQLITE_STATIC);
  std::string result;
  if (sqlite3_step(prepared) == SQLITE_ROW) {
    const void* bytes = sqlite3_column_blob(prepared, 0);
    const int size = sqlite3_column_bytes(prepared, 0);
    if (size > 0) result.assign(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
  }
  sqlite3_finalize(prepared);
  sqlite3_close(handle);
  return result;
}

std::string PayloadOf(const std::string& database, const std::string& node) {
  return Sql(database,
             "SELECT data FROM payload JOIN node ON node.id = node WHERE name = '" + node + "'");
}

void SetPayload(const std::string& database, const std::string& node, const std::string& payload) {
  Sql(database,
      "UPDATE payload SET data = ? WHERE node = (SELECT id FROM node WHERE name = '" + node + "')",
      payload);
}

class SessionTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    folder.Put("other.wav", Wav({.length = 500}));
    Import("kick.wav");
    Import("other.wav");
  }

  std::unique_ptr<Session> Open() {
    return std::make_unique<Session>(SAMPLEDATA_SO, folder.Path("game.db"));
  }

  void ChangeFormat(Session& session, const std::string& node) {
    ASSERT_EQ(session.RequireHealthy(node).sample().ChangeSampleFormat("High", 2),
              SDAccessInterface::ERROR_OK);
  }

  // A session with changes whose save fails behind the setup's own: for a file that is missing
  // then, or else because the database refuses.
  std::unique_ptr<Session> FailToSave(const std::string& missing) {
    auto session = Open();
    ChangeFormat(*session, "kick");
    session->AddClass("Mid", 50);
    sqlite3* const handle = SessionTestAccess::Handle(*session);
    if (missing.empty())
      sqlite3_commit_hook(
          handle, [](void*) { return 1; }, nullptr);
    if (!missing.empty()) std::filesystem::rename(missing, missing + "x");
    EXPECT_THROW(session->Save(), Failure);
    if (!missing.empty()) std::filesystem::rename(missing + "x", missing);
    return session;
  }
};

// Nothing that the database names may go at the close.
TEST_F(SessionTest, AFailedSaveLosesNoFileOfTheSavedDatabase) {
  const std::string saved = BytesOf(folder / "game.db");
  for (const std::string& missing : {RawFile("other"), std::string()}) {
    FailToSave(missing);
    EXPECT_EQ(BytesOf(folder / "game.db"), saved);
    const Json sample = Info("kick")["classes"][0];
    EXPECT_EQ(sample["format"], "PCM16");
    EXPECT_EQ(BytesOf(sample["raw_file"]), Wav({}));
    EXPECT_EQ(sample["snr"][0]["exact"], true);
  }
}

TEST_F(SessionTest, AWholeSaveBehindAFailedOneSavesAllAndTidiesUp) {
  FailToSave(RawFile("other"))->Save();
  EXPECT_EQ(Info("kick")["classes"][0]["format"], "ADPCM");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 4u);
  Run(0, "class game.db remove Mid");
}

TEST_F(SessionTest, ADamagedNodeKeepsItsPayloadByteForByte) {
  const std::string database = folder / "game.db";
  const std::string whole = PayloadOf(database, "kick");
  ASSERT_GT(whole.size(), 100u);
  std::string wrongType = whole;
  wrongType[12] ^= 1;
  std::string endlessText = whole.substr(0, 60) + std::string(5000, 'x');
  std::string manySamples = whole;
  manySamples.replace(whole.find("High") + 5, 4, "\xFF\xFF\xFF\xFF");
  for (const std::string& damaged : {whole.substr(0, 7), whole.substr(0, whole.size() - 1),
                                     wrongType, endlessText, manySamples, std::string("garbage")}) {
    SetPayload(database, "kick", damaged);
    const Json node = List(1)["nodes"][0];
    EXPECT_EQ(node["node"], "kick");
    EXPECT_TRUE(node["damaged"].is_string());
    // Saves of other nodes, and of the damaged node's row, leave it alone.
    Run(0, "lock game.db kick");
    Run(0, "unlock game.db kick");
    EXPECT_EQ(PayloadOf(database, "kick"), damaged);
  }
  Run(1, "class game.db remove High");
  EXPECT_THAT(Run(1, "info game.db kick").out, HasSubstr("DAMAGED"));
  for (const char* refused : {"format game.db kick High PCM8", "remove game.db kick High",
                              "export game.db kick --class High --as raw x.wav",
                              "import game.db kick.wav --class Low --format PCM8 --node kick"}) {
    Run(1, refused);
  }
  SetPayload(database, "kick", whole);
  EXPECT_EQ(BytesOf(RawFile("kick")), Wav({}));
}

// The object of a half-read node knows some of its files; none may go with it.
TEST_F(SessionTest, ADamagedNodeLosesNoFile) {
  Run(0, "import game.db other.wav --class Low --format PCM8 --node kick");
  const std::string low = RawFile("kick", 1);
  const std::string high = RawFile("kick");
  std::filesystem::rename(low, low + "x");
  List(1);
  Import("other.wav");
  Run(0, "remove game.db other");
  EXPECT_EQ(BytesOf(high), Wav({}));
  std::filesystem::rename(low + "x", low);
  EXPECT_EQ(Info("kick")["classes"].size(), 2u);
  std::filesystem::remove(low);
  Run(0, "remove game.db kick");
  EXPECT_TRUE(std::filesystem::exists(high));
  Run(0, "class game.db remove Low");
}

TEST_F(SessionTest, ADamagedSetupStopsEveryVerbAndChangesNothing) {
  SetPayload(folder / "game.db", "Setup", PayloadOf(folder / "game.db", "Setup").substr(0, 50));
  const std::string before = BytesOf(folder / "game.db");
  EXPECT_THAT(Run(1, "list game.db").err, HasSubstr("setup"));
  Import("kick.wav", "PCM8", 1);
  EXPECT_EQ(BytesOf(folder / "game.db"), before);
  EXPECT_EQ(FilesIn(folder / "samples").size(), 4u);
}

TEST_F(SessionTest, HasOneOpenerAtATime) {
  auto session = Open();
  EXPECT_THAT(Run(1, "list game.db").err, HasSubstr("in use"));
  session->Save();
  EXPECT_THAT(Run(1, "list game.db").err, HasSubstr("in use"));
  session.reset();
  Run(0, "list game.db");
  session = Open();
  EXPECT_THROW(session->Require("nobody"), Failure);
}

TEST_F(SessionTest, ForeignAndNewerDatabasesAreLeftAlone) {
  Sql(folder / "game.db", "PRAGMA user_version = 2");
  EXPECT_THAT(Run(1, "list game.db").err, HasSubstr("version 2"));
  Sql(folder / "foreign.db", "CREATE TABLE node(id)");
  EXPECT_THAT(Run(1, "list foreign.db").err, HasSubstr("not a database of samplehost"));
}

// The writer of encoded files reports no full disk: the host sees to it.
TEST_F(SessionTest, AFullDiskLeavesNoHalfSample) {
  folder.Put("eight.wav", Wav({.length = 100000, .bits = 8}));  // twice as large when encoded
  const std::set<std::string> before = FilesIn(folder / "samples");
  const auto run = [&](const std::string& line) {
    return RunHost(folder, samplehost::SplitLine(line), 150000);
  };
  EXPECT_THAT(run("import game.db eight.wav --class High --format PCM16").err,
              HasSubstr("Make room"));
  EXPECT_EQ(FilesIn(folder / "samples"), before);
  Import("eight.wav", "ADPCM");
  EXPECT_EQ(run("format game.db eight High PCM16").code, 1);
  EXPECT_EQ(Info("eight")["classes"][0]["format"], "ADPCM");
  EXPECT_EQ(run("export game.db eight --class High --as decoded o.wav").code, 1);
  EXPECT_FALSE(std::filesystem::exists(folder / "o.wav"));
}

}  // namespace
