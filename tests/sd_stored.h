// What the stored forms of both kinds of nodes have in common, and the ways in which they break.
#ifndef TESTS_SD_STORED_H_
#define TESTS_SD_STORED_H_

#include "tests/sd_fixture.h"

namespace sdtest {

constexpr std::size_t kFileSizeAt = 4;
constexpr std::size_t kVersionAt = 44;  // where a database's load starts
constexpr std::size_t kDataSizeAt = 64;
constexpr std::size_t kPayloadAt = 72;

// `Object` is the kind of the node, `Base` the fixture.
template <class Object, class Base>
class StoredTest : public Base {
 protected:
  using Error = typename Object::SDError;

  virtual FakeNode& Node() = 0;

  static HDBAccessBaseInterface& ObjectOf(FakeNode& node) { return *node.GetTypeInterface(); }
  static Error ErrorOf(FakeNode& node) {
    qz::string text;
    qz::ulong code = 0;
    ObjectOf(node).GetLastError(text, code);
    return static_cast<Error>(code);
  }
  Error LastError() { return ErrorOf(Node()); }
  std::string FileBytes(const char* name) const { return ReadBytes(this->folder_ + "/s/" + name); }

  // The node as a node file.
  std::string Stored() {
    EXPECT_TRUE(ObjectOf(Node()).Save(nullptr, &name_)) << FakeHost::ErrorText(Node());
    return FileBytes("stored");
  }
  // Between other things in a database.
  std::string StoredInDatabase() {
    DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_CREATE);
    EXPECT_TRUE(stream->Write("head", 1, 4));
    EXPECT_TRUE(ObjectOf(Node()).Save(stream, nullptr));
    EXPECT_TRUE(stream->Write("tail", 1, 4));
    DIOFile::CloseFile(stream);
    return FileBytes("database");
  }

  Error LoadFile(const std::string& bytes) { return LoadFile(bytes, Node()); }
  Error LoadFile(const std::string& bytes, FakeNode& node) {
    WriteBytes(this->folder_ + "/s/stored", bytes);
    const bool loaded = this->host_.LoadNodeFile(node, name_);
    EXPECT_EQ(loaded, ErrorOf(node) == Object::ERROR_OK);
    DIOFile* again = DIOFile::OpenFile(name_, DIOFile::OPENMODE_MODIFY);
    EXPECT_NE(nullptr, again) << "the stream was left open";
    if (again != nullptr) DIOFile::CloseFile(again);
    return ErrorOf(node);
  }
  // From a database's stream in front of which and behind which other things stand.
  Error LoadFromDatabase(const std::string& bytes, FakeNode& node) {
    WriteBytes(this->folder_ + "/s/database", "head" + bytes);
    DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_OPEN);
    EXPECT_TRUE(stream->SetPosition(qz::uint64{4}, DIOFile::SEEKMODE_START));
    const bool loaded = ObjectOf(node).Load(stream, nullptr);
    qz::uint64 position = 0;
    EXPECT_TRUE(stream->GetPosition(position)) << "the host's stream stays open";
    DIOFile::CloseFile(stream);
    EXPECT_EQ(loaded, ErrorOf(node) == Object::ERROR_OK);
    return ErrorOf(node);
  }

  // A name that was cut is looked for, and may not be found, before the cut shows.
  void RefusesEveryCut() {
    const std::string stored = Stored();
    for (std::size_t length = 0; length < stored.size(); ++length) {
      EXPECT_EQ(Object::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, length))) << length;
      if (length < kVersionAt) continue;
      EXPECT_EQ(Object::ERROR_COULDNOTREAD,
                LoadFromDatabase(stored.substr(kVersionAt, length - kVersionAt), Node()))
          << length;
    }
    EXPECT_FALSE(this->host_.LoadNodeFile(Node(), "S:\\no such file"));
    EXPECT_EQ(Object::ERROR_COULDNOTREAD, LastError());
  }

  // Sizes are not believed, nor missed.
  template <class Check>
  void JudgesEveryByteOfTheHead(Check check) {
    const std::string stored = Stored();
    for (std::size_t at = 0; at < kPayloadAt; ++at) {
      SCOPED_TRACE(at);
      std::string damaged = stored;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
      Error expected = Object::ERROR_BADFORMAT;
      const bool inSize = (at >= kFileSizeAt && at < 12) || (at >= 20 && at < 28) ||
                          (at >= 48 && at < 56) || at >= kDataSizeAt;
      if (inSize) expected = Object::ERROR_OK;
      if (at >= 56 && at < 60) expected = Object::ERROR_BADVERSION;
      EXPECT_EQ(expected, LoadFile(damaged));
      check();
    }
  }

  const qz::string name_ = "S:\\stored";
};

}  // namespace sdtest

#endif  // TESTS_SD_STORED_H_
