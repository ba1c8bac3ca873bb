// Verify finds each kind of damage and mends what can be made anew; clean moves what nobody names,
// and nothing else; and databases find their samples wherever they are opened.
#include <sys/stat.h>

#include "tests/host_support.h"

namespace {

using namespace host_test;
namespace fs = std::filesystem;
using Found = std::vector<std::string>;

class Verify : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    folder.Put("kick.wav", Wav({.channels = 2, .length = 300, .loopStart = 31, .loopEnd = 200}));
    for (const char* format : {"PCM16", "PCM8", "ADPCM", "ADPCM+", "ADPCMVS"})
      Import("kick.wav", format);
    const Json list = List();
    for (const Json& node : list["nodes"]) {
      raw_.push_back(node["classes"][0]["raw_file"]);
      encoded_.push_back(EncodedOf(raw_.back()));
    }
  }

  // The findings, each as "node state".
  Found Look(int code, const std::string& options = {}) {
    const Json told = Told(code, "verify game.db " + options);
    Found found;
    for (const Json& finding : told["findings"])
      found.push_back(finding["node"].get<std::string>() + " " +
                      finding["state"].get<std::string>());
    return found;
  }

  // What is found of a node where its encoded file has these bytes, for this look only.
  Found LookWith(std::size_t node, const std::string& bytes) {
    const std::string whole = BytesOf(encoded_[node]);
    std::ofstream(encoded_[node], std::ios::binary) << bytes;
    const Found found = Look(1);
    std::ofstream(encoded_[node], std::ios::binary) << whole;
    return found;
  }

  std::vector<std::string> raw_, encoded_;
};

TEST_F(Verify, FindsEachDamageOfAnEncodedFileAndRepairsIt) {
  EXPECT_EQ(Look(0), Found{});
  const std::size_t chunk = 40 + 2 * 4;  // of the first channel
  const std::size_t extra = chunk + 8 + 22 * 8;
  const std::pair<std::size_t, std::size_t> changes[] = {
      {0, 0},          {0, 6},  {1, 8},  {1, 16},         {2, 41},
      {2, chunk},      {3, 24}, {0, 4},  {2, chunk + 8},  {4, chunk + 8},
      {3, extra + 32}, {3, 44}, {2, 36}, {4, extra + 36}, {3, extra + 48 + 7},
      {3, extra + 41}};
  for (const auto& [node, at] : changes) {
    std::string bytes = BytesOf(encoded_[node]);
    bytes.at(at) = static_cast<char>(bytes[at] ^ 0x7F);
    EXPECT_EQ(LookWith(node, bytes).size(), 1u) << node << ' ' << at;
  }
  const std::string whole = BytesOf(encoded_[3]);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{39}, std::size_t{45}, chunk + 9, whole.size() - 1})
    EXPECT_EQ(LookWith(3, whole.substr(0, size)), Found{"kick-4 damaged"}) << size;
  fs::remove(encoded_[0]);
  fs::resize_file(encoded_[2], 99);
  fs::resize_file(encoded_[3], 100);
  const Found damage = {"kick damaged", "kick-3 damaged", "kick-4 damaged"};
  EXPECT_EQ(Look(1), damage);
  EXPECT_FALSE(fs::exists(encoded_[0]));  // looking repairs nothing
  EXPECT_EQ(Look(0, "--repair"), (Found{"kick repaired", "kick-3 repaired", "kick-4 repaired"}));
  EXPECT_EQ(BytesOf(encoded_[3]), whole);
  EXPECT_EQ(Look(0), Found{});
}

TEST_F(Verify, WarnsOfLegalButOddStatesAndNeverTouchesRawFiles) {
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(encoded_[2], old);
  // Another sound under an encoded file that is newer.
  const std::string other = Wav({.channels = 2, .length = 400});
  folder.Put("out/kick (High).wav", other);
  fs::last_write_time(folder / "out/kick (High).wav", old);
  fs::create_directories(folder / "away");
  Script(0, "checkout kick away\ncheckin kick out\nsave\n");
  EXPECT_EQ(Look(0), (Found{"kick warning", "kick-3 warning"}));
  EXPECT_EQ(Look(0, "--repair"), (Found{"kick repaired", "kick-3 repaired"}));
  EXPECT_EQ(Look(0), Found{});
  EXPECT_EQ(Info("kick")["classes"][0]["length"], 400);
  EXPECT_EQ(BytesOf(RawFile("kick")), other);
}

TEST_F(Verify, LeavesAloneWhatItCannotMake) {
  fs::remove(raw_[0]);
  fs::resize_file(encoded_[0], 100);
  fs::resize_file(raw_[1], 100);
  fs::remove(encoded_[1]);
  fs::remove(raw_[2]);
  const std::string encoded = BytesOf(encoded_[0]);
  const Found damage = {"kick damaged", "kick damaged", "kick-2 damaged", "kick-2 damaged",
                        "kick-3 damaged"};
  EXPECT_EQ(Look(1), damage);
  EXPECT_EQ(Look(1, "--repair"), damage);
  EXPECT_EQ(BytesOf(encoded_[0]), encoded);
  EXPECT_THAT(Run(1, "verify game.db").out, HasSubstr("is missing"));
}

TEST_F(Verify, CleanMovesOnlyWhatNobodyNames) {
  const std::string uuid = "01234567-89ab-cdef-0123-456789abcdef";
  const std::string other = "11234567-89AB-CDEF-0123-456789abcdef";
  const std::set<std::string> ours = FilesIn(folder / "samples");
  folder.Put("samples/" + uuid + "/High.wav", "12345");
  folder.Put("samples/" + other + "/deep/x", "1");
  folder.Put("samples/notes/x", "mine");
  folder.Put("samples/" + uuid.substr(1) + "0x/x", "mine");
  folder.Put("elsewhere/x", "mine");
  fs::create_directory_symlink(folder / "elsewhere",
                               folder / "samples/21234567-89ab-cdef-0123-456789abcdef");
  folder.Put("orphans/" + uuid + "/x", "of an earlier time");
  // A copy of the database names what this one has removed since.
  fs::copy_file(folder / "game.db", folder / "copy.db");
  Run(0, "new game2.db --class High=1");
  Run(0, "import game2.db kick.wav --class High --format PCM8");

  const std::string listed = Run(0, "clean game.db --dry-run").out;
  EXPECT_THAT(listed, HasSubstr(uuid + "  1      5"));
  EXPECT_THAT(listed, HasSubstr(other));
  EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), 3);
  EXPECT_TRUE(fs::exists(folder / ("samples/" + uuid)));
  Run(0, "clean game.db");
  EXPECT_EQ(BytesOf(folder / ("orphans/" + uuid + "-2/High.wav")), "12345");
  EXPECT_EQ(BytesOf(folder / ("orphans/" + uuid + "/x")), "of an earlier time");
  EXPECT_TRUE(fs::exists(folder / ("orphans/" + other + "/deep/x")));
  EXPECT_EQ(FilesIn(folder / "samples").size(), ours.size() + 2 + 2);
  EXPECT_EQ(Run(0, "clean game.db").out, "");
  EXPECT_EQ(BytesOf(folder / "elsewhere/x"), "mine");
  Run(0, "verify game2.db");
}

// Names are stored relative to the database: it may move, or be opened where a copy lies.
TEST_F(Verify, FindsItsSamplesWhereverItIsOpened) {
  const std::string there = folder / "ümgezogen nach %s/";
  fs::create_directory(there);
  fs::copy(folder / "samples", there + "samples", fs::copy_options::recursive);
  fs::copy_file(folder / "game.db", there + "game.db");
  const std::string moved = "'" + there + "game.db' ";
  Run(0, "format " + moved + "kick High ADPCM");
  Run(0, "remove " + moved + "kick-2");
  Run(0, "verify " + moved);
  const Json nodes = Told(0, "list " + moved)["nodes"];
  EXPECT_EQ(nodes.size(), 4u);
  EXPECT_TRUE(nodes[0]["classes"][0]["raw_file"].get<std::string>().starts_with(there));
  EXPECT_EQ(Look(0), Found{});  // the copy's changes were not the original's
  EXPECT_EQ(Info("kick")["classes"][0]["format"], "PCM16");
}

}  // namespace
