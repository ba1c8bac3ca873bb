// What fails, and where: a small database that can print all of itself, and the table of operations
// that are run on it while allocations and platform calls fail one by one.
#ifndef TESTS_SD_FAULT_WORLD_H_
#define TESTS_SD_FAULT_WORLD_H_

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/sd_fixture.h"

namespace sdtest {

using Lines = std::vector<std::string>;
inline Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

constexpr int kNoCode = -1;  // a failure that has no code

// A database with the classes Low, High and Third and one node: Low in PCM16, High in stereo ADPCM,
// with the selection on Low. On W: sounds of every kind; in S:\out nothing yet.
class World : public SampleNodeTest {
 public:
  World();
  ~World() override;
  void TestBody() override {}

  // Everything that an operation may change, a line each, sorted: fields and lists of nodes and
  // setup, undo records, every file with a sum of its content. Identifiers read "<1>", "<2>", ...
  // in the order in which the nodes came to have them.
  Lines Now();
  using ByClass = std::map<std::string, std::string>;
  // The content of all files of all samples, wherever they lie.
  ByClass Content() const { return FilesOf(nodes, true); }

  // Setup and nodes into one file, as a host saves them; `saved` is then what Reopen has to give:
  // the raw files of that state, by class.
  bool Save();
  ByClass saved;
  ByClass Reopen();
  // Gives all files of the node one time: stored nodes tell them.
  void SetTimes();
  // What the host's repair comes to: makes encoded files anew that are broken or older than their
  // raw files. Gives their number.
  int Repair();
  // The host's way: a node of its own, given back where its operation fails.
  FakeNode& AddNode();
  void DropNode(FakeNode& node);
  // The codes that the last failures left, and -1 for a failure without one. 0 where `done`.
  template <class Object>
  static int Code(const Object& object, bool done) {
    const int code = SDTestAccess::LastError(object);
    return done ? 0 : code != 0 ? code : kNoCode;
  }
  int Code(bool done) const { return Code(access_, done); }

  std::vector<FakeNode*> nodes;  // those that live
  bool isOpen = true;            // the setup node lives
  std::string result;            // what an operation gave out
  // What operations need from one call to the next.
  HDBUndoInfo record;
  DIOFile* stream = nullptr;

 private:
  void Print(const SDAccess& node, const std::string& name);
  void PrintSetup();
  void PrintDisk();
  void Add(const std::string& line);
  ByClass FilesOf(const std::vector<FakeNode*>& of, bool withEncoded) const;
  std::string Named(const std::string& text, bool isNew);

  Lines lines_;
  std::map<std::string, std::string> names_;  // of identifiers
};

// "- " or "+ " in front of each line that went or came, unless it begins, with or without the sign,
// with one of `but`.
std::string Difference(const Lines& before, const Lines& after,
                       const std::vector<std::string>& but);

using Calls = std::set<platform::Call>;
inline Calls operator+(Calls left, const Calls& right) {
  left.insert(right.begin(), right.end());
  return left;
}

// Ends of searches, reads and deletions.
inline const Calls kEnds = {platform::Call::kFindClose, platform::Call::kCloseHandle,
                            platform::Call::kDeleteFile, platform::Call::kRemoveDirectory,
                            platform::Call::kGetFileAttributes};

struct Operation {
  std::string name;
  // 0: done. Can be called again after a failure, on the same world.
  std::function<int(World&)> body;
  std::function<void(World&)> prepare = {};
  // What exhausted memory may lead to.
  std::set<int> codes = {SDAccess::ERROR_NOMEMORY};
  // Starts of the lines in which a failure may leave the world other than it was.
  std::vector<std::string> leaves = {};
  // Its encodes may fail unnoticed; the files that the host finds out are then made anew.
  bool encodes = false;
  // Platform calls whose failure alone need not be told.
  Calls untold = kEnds;
  // Starts of the lines in which it may come out otherwise though it says that all went well.
  std::vector<std::string> shrugs = {};
  // Starts of the lines that a process which is stopped may have changed, beside new files.
  std::vector<std::string> deletes = {};
};

inline void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

constexpr int kNotWhole = -2;  // it says that all went well, and what it gave is not whole
constexpr int kMismatch = -3;  // the answer is not the code that it left

// One that says no more than whether it was done.
inline Operation Silent(const std::string& name, const std::function<bool(World&)>& body) {
  return {
      .name = name, .body = [body](World& w) { return body(w) ? 0 : kNoCode; }, .codes = {kNoCode}};
}

std::vector<Operation> NodeOperations();
std::vector<Operation> SetupOperations();
std::vector<Operation> SoundOperations();   // codec and sound files
std::vector<Operation> StreamOperations();  // streams, folders, paths, programs

}  // namespace sdtest

#endif  // TESTS_SD_FAULT_WORLD_H_
