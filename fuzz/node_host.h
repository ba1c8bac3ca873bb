// What the targets for nodes share: a database on a memory file system, with files that are there
// from the start and come back to what they were behind each run.
#ifndef FUZZ_NODE_HOST_H_
#define FUZZ_NODE_HOST_H_

#include <string_view>

#include "fuzz/fuzz.h"
#include "tests/platform_folder.h"
#include "tests/sd_fixture.h"

namespace fuzz {

// The drive S: in a folder that goes with the process. In S:\db\samples\a\ are Low.wav, a sound of
// 20 samples in two channels with its Low.esmp, and High.wav without one.
class Drive : public platform_test::TempFolder {
 public:
  static Drive& Instance();

  // Removes what else came to be below S:\db\samples\. True where that was in the folder "a" alone.
  bool Restore() const;

 private:
  Drive();
};

// A database S:\db\game.db with its setup node, whose classes are "Low" and "High", and one sample
// node, for one run. The nodes go as in a flagged close of the database.
class NodeHost {
 public:
  explicit NodeHost(const Drive& drive);
  ~NodeHost();
  NodeHost(const NodeHost&) = delete;
  NodeHost& operator=(const NodeHost&) = delete;

  sdtest::FakeHost& Host() { return host_; }
  SDSetup& Setup() { return setup_->Setup(); }
  SDAccess& Sample() { return sample_->Sample(); }
  sdtest::FakeNode& SampleNode() { return *sample_; }
  sdtest::FakeNode& SetupNode() { return *setup_; }
  // The node here of the same kind.
  sdtest::FakeNode& TwinOf(const sdtest::FakeNode& node) {
    return node.IsType(HDBTypeStorage{hdbTypeSampleData}) ? *sample_ : *setup_;
  }

 private:
  sdtest::FakeHost host_{"S:\\db\\game.db"};
  sdtest::FakeNode* setup_;
  sdtest::FakeNode* sample_;
};

// Loads the node from what is stored of it, a node file's bytes or those of a database, while the
// allocation that `fault` chooses fails.
bool LoadStored(NodeHost& database, sdtest::FakeNode& node, std::string_view bytes, bool ownFile,
                std::uint8_t fault);

// What can be saved of the node in a database must load there, and save to the same bytes again.
void CheckSaveAndLoad(const sdtest::FakeNode& node);

// All data and numbers of a channel of a class, looked at as far as their lengths promise.
void ReadAll(const SDAccess& sample, const qz::string& qualClass, qz::uchar channel);

}  // namespace fuzz

#endif  // FUZZ_NODE_HOST_H_
